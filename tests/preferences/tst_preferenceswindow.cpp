// The preferences window beside the stand-in daemons: every control's change
// is what the daemon then holds, the controls follow changes made behind
// their back, the resets reach the daemon in their order, and a missing,
// late or stopped daemon neither loses settings nor freezes the window.
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXExclusionEntries.h"
#include "HXExclusionsDropScrollView.h"
#include "HXExclusionsPane.h"
#include "HXPreferencesWindowController.h"
#include "HXRemoteProxy.h"
#include "HXSchedulingController.h"
#include "HXSchedulingPane.h"
#include "HXSystemSleepWarning.h"
#include "HXTestExclusionsController.h"
#include "HXVolumeCatalogue.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QLabel>
#include <QMimeData>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <signal.h>

namespace {

// How long an action and an event posted right after it take to be handled.
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

// What the daemon holds, asked directly (the stand-in is another process).
std::shared_ptr<HXIdleDaemonProxy> daemon()
{
    HXDaemonInteraction::waitForQueues(5000);
    return HXDaemonInteraction::idleDaemonProxy();
}

// The idle daemon's methods called on the bus, in order, as dbus-monitor sees them.
class CallRecorder
{
public:
    bool start()
    {
        m_monitor.start(QStringLiteral("dbus-monitor"),
                        {QStringLiteral("--session"), QStringLiteral("--profile"),
                         QStringLiteral("type='method_call',interface='com.talvorn."
                                        "HXIdleDaemonUserInteractionProtocol'")});
        if (!m_monitor.waitForStarted(5000))
            return false;
        // Its header line says it has subscribed.
        return m_monitor.waitForReadyRead(5000);
    }
    ~CallRecorder()
    {
        m_monitor.kill();
        m_monitor.waitForFinished(2000);
    }
    // The members called until `marker` has been seen (the marker excluded).
    QStringList callsUntil(const QString &marker)
    {
        QStringList calls;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 10000) {
            m_buffer += m_monitor.readAllStandardOutput();
            calls.clear();
            for (const QByteArray &line : m_buffer.split('\n')) {
                const QList<QByteArray> fields = line.split('\t');
                if (fields.value(0) == "mc" && fields.size() >= 8)
                    calls.append(QString::fromLatin1(fields.last()));
            }
            const qsizetype at = calls.indexOf(marker, m_consumed);
            if (at >= 0) {
                const QStringList mine = calls.mid(m_consumed, at - m_consumed);
                m_consumed = at + 1;
                return mine;
            }
            m_monitor.waitForReadyRead(50);
            QCoreApplication::processEvents();
        }
        return calls.mid(m_consumed);
    }

private:
    qsizetype m_consumed = 0; // calls already handed out, with their marker
    QProcess m_monitor;
    QByteArray m_buffer;
};

} // namespace

class TestPreferencesWindow : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;

    HXSchedulingController::Options schedulingOptions() const
    {
        HXSchedulingController::Options options;
        options.hasBatteryAvailable = [] {
            return true;
        };
        return options;
    }

    static bool loaded(HXPreferencesWindowController &window)
    {
        return window.schedulingPane()->isEnabled() && window.exclusionsPane()->isEnabled();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        QVERIFY2(TestSupport::useTestRoot(m_root.path()), "run under dbus-run-session");
        // The agent's preferences where the stand-in agent writes them.
        qputenv("XDG_CONFIG_HOME", m_root.filePath(QStringLiteral("config")).toUtf8());
        HXRemoteProxy::setCallTimeout(2000);
    }

    void withoutADaemonThenItAppears()
    {
        HXSchedulingController scheduling(schedulingOptions());
        HXPreferencesWindowController::Options options;
        options.schedulingController = &scheduling;
        HXPreferencesWindowController window(options);
        window.show();
        QTRY_VERIFY(window.daemonMissingLine()->isVisible());
        QVERIFY(window.daemonMissingLine()->text().contains(QLatin1String("not running")));
        QVERIFY(!window.schedulingPane()->isEnabled());
        QVERIFY(!window.exclusionsPane()->isEnabled());
        // Nothing can be added to a list never loaded.
        window.exclusionsController()->addExclusion();
        QCOMPARE(window.exclusionsController()->rowCount(), 0);

        // The daemon comes with a list and a schedule of its own: both are in
        // the window before any control can be used.
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        const QVariantList list{HXMakeExclusionEntry(m_root.path(), HXVolumeCatalogue::current())};
        QVariantMap schedule = daemon()->getIdleSchedule();
        schedule.insert(HXOrvexIdleScheduleHourKey, 7);
        schedule.insert(HXOrvexIdleScheduleDurationKey, 5400);
        daemon()->setExclusions(list);
        daemon()->setIdleSchedule(schedule);
        bool enabledEarly = false;
        connect(window.exclusionsController(), &QAbstractItemModel::modelReset, this,
                [&] { enabledEarly = enabledEarly || window.exclusionsPane()->isEnabled(); });
        QTRY_VERIFY_WITH_TIMEOUT(loaded(window), 5000);
        QVERIFY(!enabledEarly);
        QVERIFY(!window.daemonMissingLine()->isVisible());
        QCOMPARE(window.exclusionsController()->content(), list);
        QCOMPARE(window.schedulingPane()->hourPopup()->currentIndex(), 7);
        QCOMPARE(window.schedulingPane()->durationPopup()->currentIndex(), 2); // 5400 s: 1 hour
        QCOMPARE(daemon()->exclusions(), list);

        // It goes away: disabled again, nothing sent.
        QCOMPARE(standin.stop(), 0);
        QTRY_VERIFY(window.daemonMissingLine()->isVisible());
        QVERIFY(!window.schedulingPane()->isEnabled());
        QVERIFY(!window.exclusionsController()->hasContent());
    }

    void everyControlReachesTheDaemonAndFollowsIt()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        daemon()->setExclusions({});
        HXSchedulingController scheduling(schedulingOptions());
        HXPreferencesWindowController::Options options;
        options.schedulingController = &scheduling;
        HXPreferencesWindowController window(options);
        window.show();
        QTRY_VERIFY_WITH_TIMEOUT(loaded(window), 5000);
        HXSchedulingPane *pane = window.schedulingPane();

        HXDBusNotificationCenter listener(QDBusConnection::sessionBus(),
                                          {QDBusConnection::sessionBus()});
        QList<HXDistributedNotification> heard;
        listener.addObserver({}, {},
                             [&heard](const HXDistributedNotification &n) { heard.append(n); });

        QVERIFY(pane->testingCheckBox()->isChecked());
        pane->testingCheckBox()->click();
        QVERIFY(!daemon()->workerDaemonIsEnabled());
        pane->batteryCheckBox()->click();
        QVERIFY(daemon()->allowsTestingOnBatteryPower());
        pane->alertsCheckBox()->click();
        QVERIFY(daemon()->isUserInteractionSuppressed());
        QTRY_VERIFY(!heard.isEmpty());
        QCOMPARE(heard.first().name,
                 QStringLiteral("HXOrvexAgentSuppressUserInteractionDidChangeNotification"));
        QCOMPARE(heard.first().userInfo.value(QStringLiteral("HXIOrvexSuppressUserInteractionKey")),
                 QVariant(true));
        QVERIFY(!HXSchedulingController::agentShowsStatusMenu());
        pane->menubarCheckBox()->click();
        QTRY_VERIFY(HXSchedulingController::agentShowsStatusMenu());

        pane->hourPopup()->setCurrentIndex(5);
        Q_EMIT pane->hourPopup()->activated(5);
        pane->durationPopup()->setCurrentIndex(3);
        Q_EMIT pane->durationPopup()->activated(3);
        pane->automaticCheckBox()->click();
        const QVariantMap held = daemon()->getIdleSchedule();
        QCOMPARE(held.value(HXOrvexIdleScheduleHourKey).toInt(), 5);
        QCOMPARE(held.value(HXOrvexIdleScheduleDurationKey).toLongLong(), 7200);
        QCOMPARE(held.value(HXOrvexIdleScheduleIsAutomaticScheduleKey), QVariant(false));

        // Exclusions: added, ticked, removed, each time the whole list.
        QDir(m_root.path()).mkpath(QStringLiteral("excluded"));
        const QString folder = m_root.filePath(QStringLiteral("excluded"));
        QMimeData drop;
        drop.setUrls({QUrl::fromLocalFile(folder), QUrl::fromLocalFile(QStringLiteral("/"))});
        window.exclusionsPane()->list()->performDrop(&drop);
        QVariantList list = daemon()->exclusions();
        QCOMPARE(list.size(), 2);
        QCOMPARE(list[0].toMap().value(HXExclusionPathKey).toString(), folder);
        QCOMPARE(list[0].toMap().value(HXExclusionVolTestKey), QVariant(false));
        QCOMPARE(list[1].toMap().value(HXExclusionSurfaceScanTestKey),
                 QVariant(true)); // "/" is a volume
        HXTestExclusionsController *exclusions = window.exclusionsController();
        exclusions->setData(exclusions->index(0, HXTestExclusionsController::VolTestColumn),
                            Qt::Checked, Qt::CheckStateRole);
        QCOMPARE(daemon()->exclusions()[0].toMap().value(HXExclusionVolTestKey), QVariant(true));
        window.showExclusions();
        window.exclusionsPane()->list()->selectRow(1);
        window.exclusionsPane()->removeButton()->click();
        list = daemon()->exclusions();
        QCOMPARE(list.size(), 1);
        QCOMPARE(list[0].toMap().value(HXExclusionPathKey).toString(), folder);

        // Behind the controls' back: they follow within the refresh period.
        daemon()->enableWorkerDaemon();
        daemon()->setSuppressUserInteraction(false);
        QElapsedTimer clock;
        clock.start();
        QTRY_VERIFY_WITH_TIMEOUT(
            pane->testingCheckBox()->isChecked() && pane->alertsCheckBox()->isChecked(), 4000);
        QVERIFY2(clock.elapsed() <= HXSchedulingController::kRefreshInterval + 700,
                 qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(standin.stop(), 0);
    }

    void resetsReachTheDaemonInTheirOrder()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        QDir(m_root.path()).mkpath(QStringLiteral("kept"));
        const QVariantList shown{HXMakeExclusionEntry(m_root.filePath(QStringLiteral("kept")),
                                                      HXVolumeCatalogue::current())};
        daemon()->setExclusions(shown);
        daemon()->disableWorkerDaemon();
        QSettings(QStringLiteral("talvorn"), QStringLiteral("OrvexAgent"))
            .setValue(QStringLiteral("HXOrvexAgentShowsStatusMenuKey"), false);
        HXSchedulingController scheduling(schedulingOptions());
        HXPreferencesWindowController::Options options;
        options.schedulingController = &scheduling;
        HXPreferencesWindowController window(options);
        window.show();
        QTRY_VERIFY_WITH_TIMEOUT(loaded(window), 5000);

        CallRecorder recorder;
        QVERIFY(recorder.start());
        // The list shown has the last word over the daemon's reset.
        window.exclusionsPane()->resetButton()->click();
        HXDaemonInteraction::tellIdleDaemon(
            [](HXIdleDaemonProxy &idle) { idle.isDebugModeEnabled(); });
        const QStringList calls = recorder.callsUntil(QStringLiteral("isDebugModeEnabled"));
        const QStringList resets =
            calls.filter(QRegularExpression(QStringLiteral("^(resetExclusions|setExclusions)$")));
        QCOMPARE(resets,
                 (QStringList{QStringLiteral("resetExclusions"), QStringLiteral("setExclusions")}));
        QCOMPARE(daemon()->exclusions(), shown);

        // Defaults: the daemon's reset, then half a second later testing on,
        // the values and the schedule read again, the menu-bar icon on.
        window.schedulingPane()->resetButton()->click();
        QTRY_VERIFY_WITH_TIMEOUT(HXSchedulingController::agentShowsStatusMenu(), 3000);
        HXDaemonInteraction::tellIdleDaemon(
            [](HXIdleDaemonProxy &idle) { idle.isDebugModeEnabled(); });
        const QStringList after = recorder.callsUntil(QStringLiteral("isDebugModeEnabled"));
        const qsizetype reset = after.indexOf(QStringLiteral("resetGeneralDefaults"));
        QVERIFY(reset >= 0);
        const qsizetype enable = after.indexOf(QStringLiteral("enableWorkerDaemon"), reset);
        QVERIFY2(enable > reset, qPrintable(after.join(QLatin1Char(' '))));
        QVERIFY(after.indexOf(QStringLiteral("getIdleSchedule"), enable) > enable);
        // Nothing but reads, and the calls the reset makes.
        const QStringList allowed{QStringLiteral("resetExclusions"),
                                  QStringLiteral("setExclusions"),
                                  QStringLiteral("resetGeneralDefaults"),
                                  QStringLiteral("enableWorkerDaemon"),
                                  QStringLiteral("workerDaemonIsEnabled"),
                                  QStringLiteral("isUserInteractionSuppressed"),
                                  QStringLiteral("allowsTestingOnBatteryPower"),
                                  QStringLiteral("getIdleSchedule"),
                                  QStringLiteral("systemSleepTimeAllowsIdleRun"),
                                  QStringLiteral("exclusions")};
        for (const QString &call : calls + after)
            QVERIFY2(allowed.contains(call), qPrintable(call));
        QVERIFY(daemon()->workerDaemonIsEnabled());
        QTRY_VERIFY(window.schedulingPane()->testingCheckBox()->isChecked());
        QCOMPARE(standin.stop(), 0);
    }

    void theSleepWarningShowsWhatTheDaemonSays()
    {
        // The built-in scenario with the sleep time too short.
        QProcess print;
        print.start(QStringLiteral(ORVEX_STANDIN_PATH),
                    {QStringLiteral("--print-default-scenario")});
        QVERIFY(print.waitForFinished(10000));
        QByteArray text = print.readAllStandardOutput();
        QVERIFY(text.contains("\"systemSleepTimeAllowsIdleRun\": true"));
        text.replace("\"systemSleepTimeAllowsIdleRun\": true",
                     "\"systemSleepTimeAllowsIdleRun\": false");
        QFile scenario(m_root.filePath(QStringLiteral("scenario.json")));
        QVERIFY(scenario.open(QIODevice::WriteOnly));
        scenario.write(text);
        scenario.close();
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--status-view-port"), QStringLiteral("0"),
                               QStringLiteral("--scenario"), scenario.fileName()}));
        daemon()->enableWorkerDaemon();
        HXSchedulingController scheduling(schedulingOptions());
        HXPreferencesWindowController::Options options;
        options.schedulingController = &scheduling;
        bool revealed = false;
        options.revealPowerSettings = [&revealed] {
            revealed = true;
        };
        HXPreferencesWindowController window(options);
        window.show();
        QTRY_VERIFY_WITH_TIMEOUT(loaded(window), 5000);
        QTRY_VERIFY(window.schedulingPane()->sleepWarning()->isVisible());
        Q_EMIT window.schedulingPane()->sleepWarning()->linkActivated(QStringLiteral("#"));
        QVERIFY(revealed);
        // Testing off: no warning, whatever the daemon says.
        window.schedulingPane()->testingCheckBox()->click();
        QTRY_VERIFY(!window.schedulingPane()->sleepWarning()->isVisible());
        QCOMPARE(standin.stop(), 0);
    }

    void aStoppedDaemonDoesNotFreezeTheWindow()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        HXSchedulingController scheduling(schedulingOptions());
        HXPreferencesWindowController::Options options;
        options.schedulingController = &scheduling;
        HXPreferencesWindowController window(options);
        window.show();
        QTRY_VERIFY_WITH_TIMEOUT(loaded(window), 5000);
        standin.signal(SIGSTOP);
        HXSchedulingPane *pane = window.schedulingPane();
        // Clicks, a choice, and refresh ticks while the daemon does not answer.
        const bool wasEnabled = pane->testingCheckBox()->isChecked();
        QVERIFY(stallOf([&] { pane->testingCheckBox()->click(); }) < 300);
        QVERIFY(stallOf([&] { pane->alertsCheckBox()->click(); }) < 300);
        QVERIFY(stallOf([&] { window.showExclusions(); }) < 300);
        QElapsedTimer clock;
        clock.start();
        qint64 worst = 0;
        while (clock.elapsed() < 3500)
            worst = std::max(worst, stallOf([] { QTest::qWait(20); }) - 20);
        QVERIFY2(worst < 300, qPrintable(QString::number(worst)));
        // The control keeps what the person chose.
        QCOMPARE(pane->testingCheckBox()->isChecked(), !wasEnabled);
        standin.signal(SIGCONT);
        QTRY_VERIFY_WITH_TIMEOUT(daemon()->workerDaemonIsEnabled() == !wasEnabled, 8000);
        daemon()->enableWorkerDaemon();
        daemon()->setSuppressUserInteraction(false);
        QCOMPARE(standin.stop(), 0);
    }
};

QTEST_MAIN(TestPreferencesWindow)
#include "tst_preferenceswindow.moc"
