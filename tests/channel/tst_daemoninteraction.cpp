// The application's side of the daemons, against the stand-in daemons on the
// test's private session bus, and against small peers of the test's own that
// misbehave on purpose.
#include "BinaryPlistWriter.h"
#include "HXAgentInteraction.h"
#include "HXConstants.h"
#include "HXDBusNames.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXStatusReport.h"
#include "HXStatusBoard.h"
#include "HXStatusViewRemoteControlManager.h"
#include "HXSystemLog.h"
#include "KeyedUnarchiver.h"
#include "StandinProcess.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
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
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        QVERIFY2(QDBusConnection::sessionBus().isConnected(), "run under dbus-run-session");
        HXRemoteProxy::setCallTimeout(3000);
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }

    void init() { m_log.clear(); }

    void missingDaemonIsLookedUpAfreshOnEveryCall()
    {
        waitUntilNameIsFree(QStringLiteral("OrvexIdleDaemon"));
        QVERIFY(!HXDaemonInteraction::idleDaemonProxy());
        QCOMPARE(HXAsk(HXDaemonInteraction::idleDaemonProxy(), &HXIdleDaemonProxy::forceFailures, true), false);
        QCOMPARE(HXAsk(HXDaemonInteraction::idleDaemonProxy(), &HXIdleDaemonProxy::getIdleSchedule), QVariantMap());
        QCOMPARE(HXAsk(HXDaemonInteraction::workerDaemonProxy(), &HXWorkerDaemonProxy::numTestsComplete), 0);

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
            QCOMPARE(HXAsk(HXDaemonInteraction::idleDaemonProxy(), &HXIdleDaemonProxy::workerDaemonIsEnabled), false);
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
