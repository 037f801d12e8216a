// The application's side of the daemons, against the stand-in daemons on the
// test's private session bus, and against small peers of the test's own that
// misbehave on purpose.
#include "BinaryPlistWriter.h"
#include "HXAgentInteraction.h"
#include "HXConstants.h"
#include "HXDBusNames.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXDaemonPresence.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXSerialQueue.h"
#include "HXStatusBoard.h"
#include "HXStatusReport.h"
#include "HXStatusViewRemoteControlManager.h"
#include "HXSystemLog.h"
#include "KeyedUnarchiver.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QSemaphore>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <QtConcurrent>
#include <atomic>
#include <signal.h>

// A peer that owns the idle daemon's name but publishes another protocol.
class ImpostorPeer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.example.Impostor")

public Q_SLOTS:
    bool workerDaemonIsEnabled() { return true; }
};

// A peer that publishes the idle daemon's protocol and answers by-copy values
// that are not what the protocol promises.
class GarbledPeer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.talvorn.HXIdleDaemonUserInteractionProtocol")

public Q_SLOTS:
    QByteArray getIdleSchedule() { return QByteArrayLiteral("bplist00 this is not a property list"); }
    QByteArray exclusions() { return BinaryPlistWriter::write(QStringLiteral("a string, not an array")); }
    bool workerDaemonIsEnabled() { return true; }
};

// A peer of the idle daemon's protocol whose sampling takes its time, while
// it goes on answering other calls.
class SlowSamplingPeer : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.talvorn.HXIdleDaemonUserInteractionProtocol")

public Q_SLOTS:
    QString sampleOfProcessName(const QString &name)
    {
        setDelayedReply(true);
        QTimer::singleShot(1500, this, [request = message(), bus = connection(), name] {
            bus.send(request.createReply(QStringLiteral("sample of ") + name));
        });
        return {};
    }
    bool workerDaemonIsEnabled() { return true; }
};

// Serves one object under a daemon's name from a thread of its own, so that
// the test's blocking calls do not wait on the test's own thread.
class ThreadedPeer
{
public:
    ThreadedPeer(QObject *object, const QString &connectionName)
        : m_object(object)
    {
        m_object->moveToThread(&m_thread);
        m_thread.start();
        QMetaObject::invokeMethod(m_object, [this, connectionName] {
            m_bus = std::make_unique<QDBusConnection>(
                QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("peer-%1").arg(quintptr(this))));
            m_bus->registerObject(HXDBusNames::kRootObjectPath, m_object, QDBusConnection::ExportAllSlots);
            m_bus->registerService(HXDBusNames::busName(connectionName));
        }, Qt::BlockingQueuedConnection);
    }
    ~ThreadedPeer()
    {
        QMetaObject::invokeMethod(m_object, [this] {
            const QString name = m_bus->name();
            m_bus.reset();
            QDBusConnection::disconnectFromBus(name);
            delete m_object;
        }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }

private:
    QObject *m_object;
    QThread m_thread;
    std::unique_ptr<QDBusConnection> m_bus;
};

class TestDaemonInteraction : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    QStringList m_log;

    QString path(const QString &relative) const { return m_root.path() + relative; }

    static void waitUntilNameIsFree(const QString &connectionName)
    {
        const QString name = HXDBusNames::busName(connectionName);
        QTRY_VERIFY_WITH_TIMEOUT(HXRemoteProxy::nameOwner(QDBusConnection::sessionBus(), name).isEmpty(), 5000);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        QVERIFY2(TestSupport::useTestRoot(m_root.path()), "run under dbus-run-session");
        HXRemoteProxy::setCallTimeout(3000);
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }

    void init() { m_log.clear(); }

    void missingDaemonIsLookedUpAfreshOnEveryCall()
    {
        waitUntilNameIsFree(QStringLiteral("OrvexIdleDaemon"));
        QVERIFY(!HXDaemonInteraction::idleDaemonProxy());
        // A call to nobody answers false, 0 or an empty value.
        // (The two daemons' queues answer independently of each other.)
        QVariantList idleAnswers;
        QVariantList workerAnswers;
        QObject context;
        HXDaemonInteraction::askIdleDaemon(
            &context, [](HXIdleDaemonProxy &idle) { return idle.forceFailures(true); },
            [&](bool forced) { idleAnswers.append(forced); });
        HXDaemonInteraction::askIdleDaemon(
            &context, [](HXIdleDaemonProxy &idle) { return idle.getIdleSchedule(); },
            [&](const QVariantMap &schedule) { idleAnswers.append(schedule); });
        HXDaemonInteraction::askWorkerDaemon(
            &context, [](HXWorkerDaemonProxy &worker) { return worker.numTestsComplete() + 1; },
            [&](qint64 count) { workerAnswers.append(count); });
        QTRY_COMPARE(idleAnswers.size() + workerAnswers.size(), 3);
        QCOMPARE(idleAnswers, QVariantList({false, QVariantMap()}));
        QCOMPARE(workerAnswers, QVariantList({qint64(0)}));

        // No absence is remembered: the first call after the daemon appears finds it.
        StandinProcess standin(m_root.path());
        QVERIFY2(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}), qPrintable(standin.standardError()));
        const auto proxy = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(proxy);
        QVERIFY(proxy->workerDaemonIsEnabled());
        // The live connection is reused while it stays valid.
        QCOMPARE(HXDaemonInteraction::idleDaemonProxy(), proxy);
        QVERIFY(!HXDaemonInteraction::workerDaemonProxy());
    }

    void restartedDaemonIsFoundAgainAndTheOldProxyFails()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        const auto before = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(before);
        QCOMPARE(standin.stop(), 0);
        QVERIFY(!before->isValid());
        QVERIFY(!HXDaemonInteraction::idleDaemonProxy());

        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        const auto after = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(after);
        QVERIFY(after != before);
        QVERIFY(after->isValid());
        // The stale proxy never reaches the new daemon.
        QVERIFY_THROWS_EXCEPTION(HXDaemonInteractionException, before->workerDaemonIsEnabled());
        QVERIFY(after->workerDaemonIsEnabled());
    }

    void peerOfAnotherProtocolIsTreatedAsAbsent()
    {
        waitUntilNameIsFree(QStringLiteral("OrvexIdleDaemon"));
        {
            ThreadedPeer impostor(new ImpostorPeer, QStringLiteral("OrvexIdleDaemon"));
            QVERIFY(!HXRemoteProxy::nameOwner(QDBusConnection::sessionBus(), QStringLiteral("com.talvorn.OrvexIdleDaemon"))
                         .isEmpty());
            QVERIFY(!HXDaemonInteraction::idleDaemonProxy());
        }
        waitUntilNameIsFree(QStringLiteral("OrvexIdleDaemon"));
    }

    void malformedPropertyListsFromAPeerAreRefused()
    {
        ThreadedPeer garbled(new GarbledPeer, QStringLiteral("OrvexIdleDaemon"));
        const auto proxy = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(proxy);
        QCOMPARE(proxy->getIdleSchedule(), QVariantMap());
        QCOMPARE(proxy->exclusions(), QVariantList());
        QCOMPARE(m_log.size(), 2);
        QVERIFY2(m_log[0].startsWith(QLatin1String("Refused the answer of getIdleSchedule from com.talvorn.OrvexIdleDaemon")) &&
                     m_log[0].contains(QLatin1String("not a dictionary as a binary property list")),
                 qPrintable(m_log[0]));
        QVERIFY2(m_log[1].contains(QLatin1String("exclusions")) && m_log[1].contains(QLatin1String("not an array")),
                 qPrintable(m_log[1]));
        // A method the peer does not have is a refused call, not a silent zero.
        QVERIFY_THROWS_EXCEPTION(HXDaemonInteractionException, proxy->isDebugModeEnabled());
    }

    void malformedPropertyListsSentToTheDaemonAreRefused()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        const auto proxy = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(proxy);
        const QVariantList kept{QVariantMap{{QStringLiteral("path"), QStringLiteral("/srv/media")},
                                            {QStringLiteral("isExcludedFromFileTest"), true}}};
        proxy->setExclusions(kept);

        QDBusMessage call = QDBusMessage::createMethodCall(proxy->peer().busName, QStringLiteral("/"),
                                                           QStringLiteral("com.talvorn.HXIdleDaemonUserInteractionProtocol"),
                                                           QStringLiteral("setExclusions"));
        call << QByteArrayLiteral("bplist00\xff\xff\xff garbage");
        const QDBusMessage answer = QDBusConnection::sessionBus().call(call, QDBus::Block, 3000);
        QCOMPARE(answer.type(), QDBusMessage::ErrorMessage);
        QCOMPARE(answer.errorName(), QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs"));
        QTRY_VERIFY_WITH_TIMEOUT(standin.standardError().contains(QLatin1String("Refused setExclusions from")), 5000);
        QCOMPARE(proxy->exclusions(), kept);
    }

    void stuckPeerTimesOutAndAPeerKilledDuringACallThrows()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("worker")}));
        const auto worker = HXDaemonInteraction::workerDaemonProxy();
        QVERIFY(worker);

        HXRemoteProxy::setCallTimeout(700);
        const auto stuck = std::make_shared<HXWorkerDaemonProxy>(worker->peer());
        HXRemoteProxy::setCallTimeout(3000);
        standin.signal(SIGSTOP);
        QElapsedTimer clock;
        clock.start();
        QVERIFY_THROWS_EXCEPTION(HXDaemonInteractionException, stuck->isActive());
        QVERIFY2(clock.elapsed() >= 600 && clock.elapsed() < 2500, qPrintable(QString::number(clock.elapsed())));

        // Still stopped: the call waits until the daemon dies, then fails at
        // once. The call notes when it ended, so that ending before the kill
        // shows in the order of the two times, not in a look taken meanwhile.
        clock.restart();
        std::atomic<qint64> endedAt{-1};
        QFuture<QString> call = QtConcurrent::run([worker, &clock, &endedAt] {
            QString outcome = QStringLiteral("answered");
            try {
                worker->numTestsComplete();
            } catch (const HXDaemonInteractionException &e) {
                outcome = e.name();
            }
            endedAt = clock.elapsed();
            return outcome;
        });
        QTest::qWait(300); // time for the call to reach the stopped daemon
        const qint64 killedAt = clock.elapsed();
        standin.signal(SIGKILL);
        call.waitForFinished();
        QCOMPARE(call.result(), QStringLiteral("org.freedesktop.DBus.Error.NoReply"));
        QVERIFY2(
            endedAt >= killedAt,
            qPrintable(
                QStringLiteral("ended %1 ms, killed %2 ms").arg(endedAt.load()).arg(killedAt)));
        QVERIFY2(endedAt < 2500, qPrintable(QString::number(endedAt.load())));
        QVERIFY(standin.waitForExit(5000));
        QTRY_VERIFY_WITH_TIMEOUT(!HXDaemonInteraction::workerDaemonProxy(), 5000);
    }

    void serialQueueRunsInOrderAndSyncWaitsForTheRunningItem()
    {
        HXSerialQueue queue(QStringLiteral("test.queue"));
        QList<int> order;
        QMutex orderLock;
        QSemaphore release;
        queue.async([&] {
            release.acquire(); // holds the queue until the test lets it go
            QMutexLocker lock(&orderLock);
            order.append(1);
        });
        for (int i = 2; i <= 50; ++i) {
            queue.async([&, i] {
                QVERIFY(queue.isCurrent());
                QMutexLocker lock(&orderLock);
                order.append(i);
            });
        }
        QVERIFY(!queue.isCurrent());
        QVERIFY(!queue.waitForIdle(50));
        // sync() on another thread is exclusive with the item running now.
        QFuture<int> synced = QtConcurrent::run([&] {
            return queue.sync([&] {
                QMutexLocker lock(&orderLock);
                return int(order.size());
            });
        });
        release.release();
        QVERIFY(queue.waitForIdle(5000));
        QVERIFY(synced.result() >= 1);
        QList<int> expected;
        for (int i = 1; i <= 50; ++i)
            expected.append(i);
        QCOMPARE(order, expected);
    }

    void destroyedQueueLeavesABlockedItemBehindAfterItsGrace()
    {
        auto blocked = std::make_shared<QSemaphore>();
        QElapsedTimer clock;
        {
            HXSerialQueue queue(QStringLiteral("test.blocked"));
            queue.async([blocked] { blocked->acquire(); });
            QVERIFY(!queue.waitForIdle(20));
            clock.start();
        }
        const qint64 waited = clock.elapsed();
        QVERIFY2(waited >= HXSerialQueue::kDestructionGrace - 50 &&
                     waited < HXSerialQueue::kDestructionGrace + 1000,
                 qPrintable(QString::number(waited)));
        QVERIFY(m_log.contains(
            QStringLiteral("test.blocked: abandoning work still waiting for a peer")));
        blocked->release(); // the abandoned thread ends on its own
    }

    void answersComeBackOnTheMainThreadInTheOrderAsked()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        QObject context;
        QStringList answers;
        QList<QThread *> threads;
        auto record = [&](const QString &what) {
            answers.append(what);
            threads.append(QThread::currentThread());
        };
        HXDaemonInteraction::askIdleDaemon(
            &context, [](HXIdleDaemonProxy &idle) { return idle.forceFailures(true); },
            [&](bool forced) { record(QStringLiteral("forced %1").arg(forced)); });
        HXDaemonInteraction::askIdleDaemon(
            &context, [](HXIdleDaemonProxy &idle) { return idle.forceFailures(false); },
            [&](bool forced) { record(QStringLiteral("forced %1").arg(forced)); });
        HXDaemonInteraction::tellIdleDaemon(
            [](HXIdleDaemonProxy &idle) { idle.setIsDebugModeEnabled(true); });
        HXDaemonInteraction::askIdleDaemon(
            &context, [](HXIdleDaemonProxy &idle) { return idle.isDebugModeEnabled(); },
            [&](bool enabled) { record(QStringLiteral("debug %1").arg(enabled)); });
        QTRY_COMPARE(answers.size(), 3);
        QCOMPARE(answers, QStringList({QStringLiteral("forced 1"), QStringLiteral("forced 0"),
                                       QStringLiteral("debug 1")}));
        for (QThread *thread : std::as_const(threads))
            QCOMPARE(thread, QThread::currentThread());
    }

    void aStoppedDaemonNeverHoldsUpTheInterfaceThread()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("worker")}));
        QObject context;
        QList<bool> answers;
        // Found and cached first, so that the question below goes straight
        // to the stopped daemon.
        HXDaemonInteraction::askWorkerDaemon(
            &context, [](HXWorkerDaemonProxy &worker) { return worker.testDOConnection(); },
            [&](bool answer) { answers.append(answer); });
        QTRY_COMPARE(answers, QList<bool>({true}));

        standin.signal(SIGSTOP);
        QElapsedTimer clock;
        clock.start();
        HXDaemonInteraction::askWorkerDaemon(
            &context, [](HXWorkerDaemonProxy &worker) { return worker.testDOConnection(); },
            [&](bool answer) { answers.append(answer); });
        QVERIFY2(clock.elapsed() < 50, qPrintable(QString::number(clock.elapsed())));
        // The event loop goes on: a timer fires every 10 ms while the call waits.
        int ticks = 0;
        QTimer probe;
        connect(&probe, &QTimer::timeout, [&] { ++ticks; });
        probe.start(10);
        QTest::qWait(500);
        QVERIFY2(ticks >= 25, qPrintable(QString::number(ticks)));
        // ... and the question is still with the stopped daemon.
        QVERIFY(!HXDaemonInteraction::workerDaemonQueue().waitForIdle(0));
        // Once it runs again, the call answers.
        standin.signal(SIGCONT);
        QTRY_COMPARE(answers, QList<bool>({true, true}));
    }

    void aFailedCallIsLoggedAndAnswersLikeNobody()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("worker")}));
        QObject context;
        QList<qint64> answers;
        HXDaemonInteraction::askWorkerDaemon(
            &context,
            [](HXWorkerDaemonProxy &worker) { return worker.isActive() ? qint64(1) : qint64(2); },
            [&](qint64 answer) { answers.append(answer); });
        QTRY_COMPARE(answers, QList<qint64>({2}));
        standin.signal(SIGSTOP);
        HXDaemonInteraction::askWorkerDaemon(
            &context, [](HXWorkerDaemonProxy &worker) { return worker.numTestsComplete() + 7; },
            [&](qint64 answer) { answers.append(answer); });
        QTest::qWait(200);
        standin.signal(SIGKILL);
        QTRY_COMPARE_WITH_TIMEOUT(answers, QList<qint64>({2, 0}), 5000);
        QVERIFY(standin.waitForExit(5000));
        const QString logged =
            m_log.filter(QStringLiteral("com.talvorn.hxdaemoninteraction.workerdaemonproxy: "))
                .join(QLatin1Char('\n'));
        QVERIFY2(logged.contains(QLatin1String("NoReply")),
                 qPrintable(m_log.join(QLatin1Char('\n'))));
    }

    void anAnswerWhoseAskerIsGoneIsDropped()
    {
        auto gone = std::make_unique<QObject>();
        QObject stays;
        QStringList answers;
        HXDaemonInteraction::askIdleDaemon(
            gone.get(), [](HXIdleDaemonProxy &idle) { return idle.workerDaemonIsEnabled(); },
            [&](bool) { answers.append(QStringLiteral("gone")); });
        gone.reset();
        // The marker, asked after it through the same queue.
        HXDaemonInteraction::askIdleDaemon(
            &stays, [](HXIdleDaemonProxy &idle) { return idle.workerDaemonIsEnabled(); },
            [&](bool) { answers.append(QStringLiteral("marker")); });
        QTRY_COMPARE(answers, QStringList({QStringLiteral("marker")}));
    }

    void presenceWithoutABusSaysNobodyIsThere()
    {
        HXDaemonPresence presence(QDBusConnection(QStringLiteral("no such connection")),
                                  {QStringLiteral("OrvexWorkerDaemon")});
        QSignalSpy said(&presence, &HXDaemonPresence::daemonsAreRunningChanged);
        QVERIFY(!presence.isKnown()); // said from the event loop, after connecting
        QVERIFY(said.wait(2000));
        QCOMPARE(said.size(), 1);
        QCOMPARE(said.at(0).at(0).toBool(), false);
        QVERIFY(presence.isKnown());
        QVERIFY(!presence.daemonsAreRunning());
    }

    void aSlowCallHoldsUpNoOtherCallToTheIdleDaemon()
    {
        waitUntilNameIsFree(QStringLiteral("OrvexIdleDaemon"));
        ThreadedPeer peer(new SlowSamplingPeer, QStringLiteral("OrvexIdleDaemon"));
        QObject context;
        QStringList answers;
        HXDaemonInteraction::askIdleDaemonSlowly(
            &context,
            [](HXIdleDaemonProxy &idle) {
                return idle.sampleOfProcessName(QStringLiteral("orvex"));
            },
            [&](const QString &sample) { answers.append(sample); });
        // Time for the slow call to be under way before the quick one is asked.
        QTest::qWait(300);
        HXDaemonInteraction::askIdleDaemon(
            &context, [](HXIdleDaemonProxy &idle) { return idle.workerDaemonIsEnabled(); },
            [&](bool enabled) { answers.append(QStringLiteral("enabled %1").arg(enabled)); });
        QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 2, 5000);
        QCOMPARE(answers,
                 QStringList({QStringLiteral("enabled 1"), QStringLiteral("sample of orvex")}));
    }

    void agentIdentityAndLookup()
    {
        QCOMPARE(HXAgentLocalConnectionString(QString()), QStringLiteral("com.talvorn.OrvexAgent"));
        QCOMPARE(HXAgentLocalConnectionString(QStringLiteral("jo")), QStringLiteral("com.talvorn.OrvexAgent-jo"));
        QCOMPARE(HXAgentConnectionName(QString()), QStringLiteral("OrvexAgent-"));
        QCOMPARE(HXDBusNames::busName(HXAgentConnectionName(QStringLiteral("jo.doe@corp"))),
                 QStringLiteral("com.talvorn.OrvexAgent-jo_2Edoe_40corp"));
        QCOMPARE(HXDBusNames::busName(QStringLiteral("OrvexAgent-zoë")), QStringLiteral("com.talvorn.OrvexAgent-zo_C3_AB"));

        QVERIFY(!HXAgentInteraction::agentProxy(QString()));
        QCOMPARE(m_log, QStringList({QStringLiteral("Could not connect to agent using connection name: OrvexAgent-"),
                                     QStringLiteral("connection: (null)")}));

        // An empty login still gets an agent, under "OrvexAgent-".
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("agent"), QStringLiteral("--agent-login"), QString()}));
        const auto agent = HXAgentInteraction::agentProxy(QString());
        QVERIFY(agent);
        QCOMPARE(agent->peer().busName, QStringLiteral("com.talvorn.OrvexAgent-"));
        QCOMPARE(agent->showsStatusMenu(), false);

        // The application changes the agent's settings by notification only.
        HXDBusNotificationCenter center(QDBusConnection::sessionBus(), {});
        center.postNotification(HXOrvexAgentShowsStatusMenuDidChangeNotification, HXAgentLocalConnectionString(QString()),
                                {{HXOrvexAgentShowsStatusMenuKey, true}}, true);
        QTRY_VERIFY_WITH_TIMEOUT(agent->showsStatusMenu(), 5000);
        // Addressed to another user's agent: ignored. The agent's other
        // setting, sent after it by the same sender, is the marker: once the
        // agent has taken that, it has passed over the first.
        center.postNotification(HXOrvexAgentShowsStatusMenuDidChangeNotification, HXAgentLocalConnectionString(QStringLiteral("other")),
                                {{HXOrvexAgentShowsStatusMenuKey, false}}, true);
        center.postNotification(HXOrvexAgentSuppressUserInteractionDidChangeNotification,
                                HXAgentLocalConnectionString(QString()),
                                {{HXIOrvexSuppressUserInteractionKey, true}}, true);
        QTRY_VERIFY_WITH_TIMEOUT(
            standin.standardError().contains(QLatin1String("Agent: alert dialogs suppressed")),
            5000);
        QVERIFY(!standin.standardError().contains(QLatin1String("Agent: status menu hidden")));
        QVERIFY(agent->showsStatusMenu());
        QVERIFY(QFile::exists(path(QStringLiteral("/config/talvorn/OrvexAgent.conf"))));
    }

    void idleDaemonSettingsSurviveARestart()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        auto idle = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(idle);
        QVariantMap schedule = idle->getIdleSchedule();
        QCOMPARE(schedule.value(QStringLiteral("HXOrvexIdleScheduleHourKey")).toInt(), 2);
        schedule.insert(QStringLiteral("HXOrvexIdleScheduleHourKey"), 23);
        schedule.insert(QStringLiteral("HXOrvexIdleScheduleDurationKey"), 5400);
        idle->setIdleSchedule(schedule);
        idle->setAllowsTestingOnBatteryPower(true);
        idle->disableWorkerDaemon();
        idle->setSuppressUserInteraction(true);
        const QDateTime checked = QDateTime::fromString(QStringLiteral("2026-03-01T08:30:00.250Z"), Qt::ISODateWithMs);
        idle->setPOSTTestLastCheckDate(checked);
        QVERIFY(!idle->lastUserReviewDate().isValid());
        QVERIFY(idle->forceFailures(true));
        QVERIFY(QFile::exists(path(QStringLiteral("/var/lib/orvex/.forceFailures"))));
        QVERIFY(!idle->forceFailures(false));
        QVERIFY(!QFile::exists(path(QStringLiteral("/var/lib/orvex/.forceFailures"))));

        QCOMPARE(standin.stop(), 0);
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        idle = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(idle);
        QCOMPARE(idle->getIdleSchedule(), schedule);
        // By reference: the live dictionary, read key by key.
        const auto live = idle->idleSchedule();
        QCOMPARE(live->count(), 4);
        QCOMPARE(live->objectForKey(QStringLiteral("HXOrvexIdleScheduleHourKey")).toInt(), 23);
        QVERIFY(!live->objectForKey(QStringLiteral("no such key")).isValid());
        QVERIFY(idle->allowsTestingOnBatteryPower());
        QVERIFY(!idle->workerDaemonIsEnabled());
        QVERIFY(idle->isUserInteractionSuppressed());
        QCOMPARE(idle->POSTTestLastCheckDate(), checked);
        QCOMPARE(idle->idleDaemonPreferences().value(QStringLiteral("HXOrvexAllowTestingOnBatteryPower")), QVariant(true));

        idle->resetGeneralDefaults();
        QVERIFY(idle->workerDaemonIsEnabled());
        QCOMPARE(idle->getIdleSchedule().value(QStringLiteral("HXOrvexIdleScheduleHourKey")).toInt(), 2);
        QCOMPARE(live->objectForKey(QStringLiteral("HXOrvexIdleScheduleHourKey")).toInt(), 2);
    }

    void damagedSettingsAreMovedAsideNotOverwritten()
    {
        const QString settings = path(QStringLiteral("/var/lib/orvex/OrvexIdleDaemon.plist"));
        QFile file(settings);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("<?xml version=\"1.0\"?><plist><dict><key>half");
        file.close();
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        QVERIFY(standin.standardError().contains(QLatin1String("could not be read")));
        QVERIFY(QFile::exists(settings + QStringLiteral(".damaged")));
        const auto idle = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(idle && idle->workerDaemonIsEnabled());
    }

    void wholeTestingPass()
    {
        // A listener where the status view would be, and the notifications.
        quint16 port = 0;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost));
            port = probe.serverPort();
        }
        HXNotificationCenter local;
        HXStatusViewRemoteControlManager listener(port, &local);
        QVERIFY(listener.start());
        int updates = 0;
        int finished = 0;
        local.addObserver(QStringLiteral("UpdateTestStatusNotification"), nullptr, [&](const auto &) { ++updates; });
        local.addObserver(QStringLiteral("TestingFinishedStatusNotification"), nullptr, [&](const auto &) { ++finished; });
        HXDBusNotificationCenter distributed(QDBusConnection::sessionBus(), {QDBusConnection::sessionBus()});
        int changes = 0;
        distributed.addObserver(OrvexWorkerDaemonTestStatusChangedNotification, QString(), [&](const auto &) { ++changes; });
        QStringList foundErrors;
        distributed.addObserver(HXDTestFoundErrorNotification, QString(), [&](const HXDistributedNotification &n) {
            KeyedUnarchiver archive(KeyedUnarchiver::Mode::Secure);
            if (archive.open(n.userInfo.value(HXDistributedNotificationUserInfoArchivedDataKey).toByteArray()))
                foundErrors.append(archive.decodeRoot().toMap().value(QStringLiteral("name")).toString());
        });

        const QString scenario = path(QStringLiteral("/scenario.json"));
        QFile file(scenario);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"stepMilliseconds": 40,
            "disks": [{"id": "a", "bsdName": "sda", "uuid": "u-a"}, {"id": "b", "bsdName": "sdb", "uuid": "u-b"}],
            "tests": [{"test": "SMART", "disk": "a"}, {"test": "SMART", "disk": "b", "outcome": "warning"},
                      {"test": "FileStructures", "disk": "a", "outcome": "error", "files": ["/x/1", "/x/2"]},
                      {"test": "RAID", "outcome": "notApplicable"}, {"test": "POST"}]})");
        file.close();
        QFile::remove(path(QStringLiteral("/var/lib/orvex/Report.zrrpt")));

        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"), QStringLiteral("--scenario"), scenario,
                               QStringLiteral("--status-view-port"), QString::number(port)}));
        const auto worker = HXDaemonInteraction::workerDaemonProxy();
        QVERIFY(worker);
        QCOMPARE(worker->smartStatus(), qint32(HXLiveTestStatusPending));
        worker->activate();
        QVERIFY(worker->isActive());
        QTRY_COMPARE_WITH_TIMEOUT(finished, 1, 10000);
        QVERIFY(!worker->isActive());
        QCOMPARE(worker->numTestsComplete(), 4);
        QCOMPARE(worker->currentTestType(), 0);
        QCOMPARE(worker->smartStatus(), qint32(HXLiveTestStatusFailed));
        QCOMPARE(worker->raidStatus(), qint32(HXLiveTestStatusNotApplicable));
        QCOMPARE(worker->postStatus(), qint32(HXLiveTestStatusPassed));
        QCOMPARE(worker->memoryStatus(), qint32(HXLiveTestStatusPending)); // not in the scenario
        // Each live change is announced both ways: the start, running and
        // finished for SMART, RAID and POST, the file test twice, the end.
        QTRY_COMPARE_WITH_TIMEOUT(changes, 10, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(updates, 10, 5000);
        QCOMPARE(foundErrors, QStringList{HXDFileStructureTestName});

        QFile report(path(QStringLiteral("/var/lib/orvex/Report.zrrpt")));
        QVERIFY(report.open(QIODevice::ReadOnly));
        QString why;
        const HXStatusReportRef decoded = HXReportArchive::decodeReport(report.readAll(), &why);
        QVERIFY2(decoded, qPrintable(why));
        QStringList outcomes;
        for (const HXTestResultRef &r : decoded->testResults())
            outcomes.append(r->name() + QLatin1Char(' ') + r->type());
        QCOMPARE(outcomes, QStringList({QStringLiteral("SMART test Passed"), QStringLiteral("SMART test Warning"),
                                        QStringLiteral("File Structures test Error"), QStringLiteral("POST test Passed")}));
        const HXLogEntryList log = decoded->log();
        QCOMPARE(log.size(), 4);
        QCOMPARE(log[2]->children().value_or(HXLogEntryList()).size(), 2);

        // Forced failures: every test that applies fails, through the idle daemon.
        const auto idle = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(idle->forceFailures(true));
        idle->forceStartTesting();
        QVERIFY(QFile::exists(path(QStringLiteral("/var/lib/orvex/.isIdle"))));
        QVERIFY(idle->workerDaemonIsTesting());
        QTRY_COMPARE_WITH_TIMEOUT(finished, 2, 10000);
        QVERIFY(!QFile::exists(path(QStringLiteral("/var/lib/orvex/.isIdle"))));
        QCOMPARE(worker->postStatus(), qint32(HXLiveTestStatusFailed));
        QCOMPARE(worker->raidStatus(), qint32(HXLiveTestStatusNotApplicable));
        idle->forceFailures(false);
        QCOMPARE(standin.stop(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDaemonInteraction)
#include "tst_daemoninteraction.moc"
