// The window beside daemons that stop answering, are missing, or die while
// the application waits for them: it goes on handling events, and start-up
// never ends on a daemon.
#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXDebugController.h"
#include "HXMachineProbes.h"
#include "HXMainWindowController.h"
#include "HXNotificationCenter.h"
#include "HXProgress.h"
#include "HXRemoteProxy.h"
#include "HXStatusViewController.h"
#include "HXSystemLog.h"
#include "HXTabButton.h"
#include "HXTestingButton.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <signal.h>

namespace {

// How long an action and then an event posted right after it take to be
// handled: the time the window was unable to answer the user.
qint64 stallOf(const std::function<void()> &action)
{
    QElapsedTimer clock;
    clock.start();
    action();
    bool handled = false;
    QMetaObject::invokeMethod(
        qApp, [&] { handled = true; }, Qt::QueuedConnection);
    while (!handled)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return clock.elapsed();
}

} // namespace

class TestHungDaemons : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    HXFakeMachineProbes m_machine;
    QStringList m_log;

    QProcessEnvironment appEnvironment() const
    {
        // A stored debug-mode key makes start-up tell the idle daemon too.
        QSettings stored(m_root.filePath(QStringLiteral("config/talvorn/Orvex.conf")),
                         QSettings::IniFormat);
        stored.setValue(QStringLiteral("kOrvexDebugModeKey"), true);
        stored.sync();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_root.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("XDG_DATA_HOME"), m_root.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("ORVEX_ROOT"), m_root.path());
        env.insert(QStringLiteral("ORVEX_DAEMON_BUS"), QStringLiteral("session"));
        return env;
    }

    // Whether the running application answers on the session bus within
    // `milliseconds`: its event loop is free.
    static bool applicationAnswers(int milliseconds)
    {
        QDBusMessage reopen = QDBusMessage::createMethodCall(
            QStringLiteral("com.talvorn.Orvex"), QStringLiteral("/"),
            QStringLiteral("com.talvorn.Orvex.Application"), QStringLiteral("Reopen"));
        return QDBusConnection::sessionBus().call(reopen, QDBus::Block, milliseconds).type() ==
               QDBusMessage::ReplyMessage;
    }

    static bool applicationIsOnTheBus()
    {
        return !HXRemoteProxy::nameOwner(QDBusConnection::sessionBus(),
                                         QStringLiteral("com.talvorn.Orvex"))
                    .isEmpty();
    }

    // Starts orvex and waits until it is on the bus.
    bool startApplication(QProcess &app)
    {
        app.setProcessEnvironment(appEnvironment());
        app.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        app.start(QStringLiteral(ORVEX_APP_PATH));
        QElapsedTimer clock;
        clock.start();
        while (!applicationIsOnTheBus() && clock.elapsed() < 15000 &&
               app.state() != QProcess::NotRunning)
            QTest::qWait(20);
        return applicationIsOnTheBus();
    }

    // SIGTERM, as a session that logs out sends it; it quits as Quit would.
    static void stopApplication(QProcess &app)
    {
        app.terminate();
        if (!app.waitForFinished(10000))
            app.kill();
        QCOMPARE(app.exitStatus(), QProcess::NormalExit);
        QCOMPARE(app.exitCode(), 0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        QVERIFY2(TestSupport::useTestRoot(m_root.path()), "run under dbus-run-session");
        HXRemoteProxy::setCallTimeout(3000);
        HXAnimationTiming::setScale(0.02);
        HXMachineProbes::setCurrent(&m_machine);
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }

    void theWindowKeepsHandlingEventsBesideStoppedDaemons()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"),
                               QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        HXNotificationCenter local;
        HXStatusViewController::Options statusOptions;
        statusOptions.localCenter = &local;
        statusOptions.listenerPort = 0;
        HXStatusViewController status(statusOptions);
        QSettings defaults(m_root.filePath(QStringLiteral("window.conf")), QSettings::IniFormat);
        HXMainWindowController::Options options;
        options.controllers = {&status, nullptr, nullptr};
        options.defaults = &defaults;
        options.localCenter = &local;
        HXMainWindowController window(options);
        window.show();
        window.windowDidLoad();
        HXDebugController debug;
        debug.load();
        // Everything found and cached before the daemons stop.
        QVERIFY(HXDaemonInteraction::waitForQueues(10000));
        QTRY_VERIFY(!window.isHandingOver());

        standin.signal(SIGSTOP);
        const std::pair<const char *, std::function<void()>> actions[] = {
            {"start",
             [&] {
                 QTest::mouseClick(window.startButton(), Qt::LeftButton);
             }},
            {"progress",
             [&] {
                 local.post(HXUpdateTestStatusNotification, nullptr);
             }},
            {"live icons",
             [&] {
                 status.updateTestStatus();
             }},
            {"debug start",
             [&] {
                 debug.forceStartWorker();
             }},
            {"failures",
             [&] {
                 debug.forceTestFailures();
             }},
            {"stop",
             [&] {
                 QTest::mouseClick(window.stopButton(), Qt::LeftButton);
             }},
            {"log tab",
             [&] {
                 QTest::mouseClick(window.logsButton(), Qt::LeftButton);
             }},
            {"status tab",
             [&] {
                 QTest::mouseClick(window.statusButton(), Qt::LeftButton);
             }},
            {"start again",
             [&] {
                 QTest::mouseClick(window.startButton(), Qt::LeftButton);
             }},
        };
        for (const auto &[name, action] : actions) {
            const qint64 stall = stallOf(action);
            // A call waiting on the daemon would take its whole time-out
            // (3 s); a sanitizer build on a busy machine can take over a
            // second to repaint after a tab change, which is not a wait.
            QVERIFY2(stall < 2500,
                     qPrintable(QStringLiteral("%1: %2 ms").arg(QLatin1String(name)).arg(stall)));
            QVERIFY(standin.isRunning());
        }
        QVERIFY(!HXDaemonInteraction::waitForQueues(0)); // still waiting on the stopped daemons

        // Running again, the daemons get the calls in the order they were made.
        standin.signal(SIGCONT);
        QVERIFY(HXDaemonInteraction::waitForQueues(20000));
        QTRY_VERIFY(standin.standardError().count(QLatin1String("Worker: activate")) == 2);
        const QString journal = standin.standardError();
        const qsizetype firstStart = journal.indexOf(QLatin1String("Worker: activate"));
        const qsizetype stop = journal.indexOf(QLatin1String("Worker: deactivate"));
        QVERIFY(firstStart >= 0 && stop > firstStart);
        QVERIFY(journal.indexOf(QLatin1String("Worker: activate"), stop) > stop);
        QCOMPARE(standin.stop(), 0);
    }

    void aStaleProgressAnswerDoesNotUndoStop()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("worker"),
                               QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        HXNotificationCenter local;
        QSettings defaults(m_root.filePath(QStringLiteral("stale.conf")), QSettings::IniFormat);
        HXMainWindowController::Options options;
        options.defaults = &defaults;
        options.localCenter = &local;
        HXMainWindowController window(options);
        window.windowDidLoad();
        QTest::mouseClick(window.startButton(), Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                local.post(HXUpdateTestStatusNotification, nullptr);
                return window.testProgress()->value() >= 1.0;
            }(),
            5000);
        QVERIFY(HXDaemonInteraction::waitForQueues(5000));
        QCoreApplication::processEvents();

        // Asked while the worker is stopped, answered after Stop reset the bar.
        standin.signal(SIGSTOP);
        local.post(HXUpdateTestStatusNotification, nullptr);
        QTest::mouseClick(window.stopButton(), Qt::LeftButton);
        QCOMPARE(window.testProgress()->value(), 0.0);
        standin.signal(SIGCONT);
        QVERIFY(HXDaemonInteraction::waitForQueues(10000));
        QCoreApplication::processEvents();
        QTRY_VERIFY(standin.standardError().contains(QLatin1String("Worker: deactivate")));
        QCOMPARE(window.testProgress()->value(), 0.0);
        QCOMPARE(standin.stop(), 0);
    }

    void startUpSurvivesMissingDaemons()
    {
        QProcess app;
        QVERIFY(startApplication(app));
        QVERIFY(applicationAnswers(2000));
        stopApplication(app);
    }

    void startUpSurvivesStoppedDaemonsAndQuitsWithoutWaitingForThem()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"),
                               QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        standin.signal(SIGSTOP);
        QProcess app;
        QVERIFY(startApplication(app));
        // Its first questions to the worker are waiting on the stopped daemon.
        QVERIFY(applicationAnswers(2000));
        QTest::qWait(300);
        QVERIFY(applicationAnswers(2000));
        QElapsedTimer clock;
        clock.start();
        stopApplication(app);
        QVERIFY2(clock.elapsed() < 2500, qPrintable(QString::number(clock.elapsed())));
        standin.signal(SIGCONT);
        QCOMPARE(standin.stop(), 0);
    }

    void startUpSurvivesADaemonDyingDuringTheFirstCall()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"),
                               QStringLiteral("--status-view-port"), QStringLiteral("0"),
                               QStringLiteral("--exit-during-status-call")}));
        QProcess app;
        QVERIFY(startApplication(app));
        // The status tab's first question for the live statuses kills it.
        QVERIFY(standin.waitForExit(10000));
        QVERIFY(standin.standardError().contains(
            QLatin1String("Worker: exiting during a status call")));
        QVERIFY(applicationAnswers(2000));
        QCOMPARE(app.state(), QProcess::Running);
        stopApplication(app);
    }
};

QTEST_MAIN(TestHungDaemons)
#include "tst_hungdaemons.moc"
