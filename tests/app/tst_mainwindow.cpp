// The main window's rules: which tab opens at launch (through real settings
// files), the hand-over between recording view controllers, tab requests.
#include "HXAnimationTiming.h"
#include "HXDBusNotificationCenter.h"
#include "HXKeyboardFocus.h"
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXMainWindowController.h"
#include "HXNotificationCenter.h"
#include "HXProgress.h"
#include "HXRemoteProxy.h"
#include "HXStatusBoard.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "HXTabButton.h"
#include "HXTestingButton.h"
#include "HXViewController.h"
#include "StandinProcess.h"

#include <QAccessible>
#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

namespace {

struct Journal
{
    QStringList calls;
    QElapsedTimer clock;
    qint64 swappedAt = -1;
};

class RecordingController : public HXViewController
{
public:
    RecordingController(const QString &title, Journal *journal, long long wait)
        : m_journal(journal)
        , m_wait(wait)
    {
        setTitle(title);
    }
    long long viewWillDisappearHX() override
    {
        record(QStringLiteral("willDisappear"));
        return m_wait;
    }
    void viewWillAppearHX() override { record(QStringLiteral("willAppear")); }
    void viewDidDisappearHX() override
    {
        m_journal->swappedAt = m_journal->clock.nsecsElapsed() / 1000;
        record(QStringLiteral("didDisappear"));
    }
    void viewDidAppearHX() override { record(QStringLiteral("didAppear")); }

protected:
    QWidget *makeView() override { return new QWidget; }

private:
    void record(const QString &hook) { m_journal->calls.append(title() + QLatin1Char(':') + hook); }
    Journal *m_journal;
    long long m_wait;
};

struct Window
{
    Journal journal;
    HXNotificationCenter local;
    std::unique_ptr<RecordingController> status, log, about;
    std::unique_ptr<HXMainWindowController> window;

    Window(QSettings *defaults, long long wait = 0, HXDBusNotificationCenter *distributed = nullptr)
        : status(std::make_unique<RecordingController>(QStringLiteral("Status View"), &journal, wait))
        , log(std::make_unique<RecordingController>(QStringLiteral("Log View"), &journal, wait))
        , about(std::make_unique<RecordingController>(QStringLiteral("About View"), &journal, wait))
    {
        HXMainWindowController::Options options;
        options.controllers = {status.get(), log.get(), about.get()};
        options.defaults = defaults;
        options.localCenter = &local;
        options.distributedCenter = distributed;
        window = std::make_unique<HXMainWindowController>(options);
    }
    bool settled() const { return !window->isHandingOver(); }
};

} // namespace

class TestMainWindow : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QStringList m_log;

    std::unique_ptr<QSettings> settings(const QString &name)
    {
        return std::make_unique<QSettings>(m_dir.filePath(name), QSettings::IniFormat);
    }

private Q_SLOTS:
    void initTestCase()
    {
        HXAnimationTiming::setScale(0.02);
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }
    void init() { m_log.clear(); }

    void launchTab_data()
    {
        QTest::addColumn<QVariant>("storedCount");
        QTest::addColumn<QString>("storedTab");
        QTest::addColumn<QString>("opened");
        QTest::addColumn<int>("countAfter");
        QTest::newRow("first launch") << QVariant() << QString() << HXTabViewStatusTabIdentifier << 1;
        QTest::newRow("second") << QVariant(1) << QString() << HXTabViewStatusTabIdentifier << 2;
        QTest::newRow("fifth") << QVariant(4) << QString() << HXTabViewStatusTabIdentifier << 5;
        QTest::newRow("sixth: about") << QVariant(5) << QString() << HXTabViewAboutTabIdentifier << 1;
        QTest::newRow("stored tab wins, counter stays") << QVariant(3) << HXTabViewLogTabIdentifier
                                                        << HXTabViewLogTabIdentifier << 3;
        QTest::newRow("stored tab at first launch") << QVariant() << HXTabViewLogTabIdentifier
                                                    << HXTabViewLogTabIdentifier << 1;
    }

    void launchTab()
    {
        QFETCH(QVariant, storedCount);
        QFETCH(QString, storedTab);
        QFETCH(QString, opened);
        QFETCH(int, countAfter);
        const QString file = QStringLiteral("%1.conf").arg(QString::fromLatin1(QTest::currentDataTag()).replace(QLatin1Char(' '), QLatin1Char('_')).remove(QLatin1Char(':')).remove(QLatin1Char(',')));
        {
            auto before = settings(file);
            if (storedCount.isValid())
                before->setValue(HXOrvexLaunchCount, storedCount);
            if (!storedTab.isEmpty())
                before->setValue(HXOrvexAppMainWindowTabIDKey, storedTab);
        }
        auto defaults = settings(file);
        Window w(defaults.get());
        w.window->windowDidLoad();
        QTRY_VERIFY(w.settled() && w.window->selectedTabViewIdentifier() == opened);
        defaults.reset(); // written out; read back from the file
        auto after = settings(file);
        QCOMPARE(after->value(HXOrvexLaunchCount).toInt(), countAfter);
        QVERIFY(!after->contains(HXOrvexAppMainWindowTabIDKey));
    }

    void handOverWaitsOffTheMainThreadWithButtonsDisabled()
    {
        auto defaults = settings(QStringLiteral("handover.conf"));
        constexpr long long kWait = 150000; // microseconds
        Window w(defaults.get(), kWait);
        w.window->windowDidLoad();
        w.window->show();
        // The first tab's own appearing, after its wait.
        QTRY_VERIFY(w.journal.calls.contains(QStringLiteral("Status View:didAppear")));
        w.journal.calls.clear();

        w.journal.clock.start();
        QTest::mouseClick(w.window->logsButton(), Qt::LeftButton);
        QVERIFY(w.window->isHandingOver());
        QCOMPARE(w.journal.calls, QStringList({QStringLiteral("Status View:willDisappear"), QStringLiteral("Log View:willAppear")}));
        // The window keeps painting meanwhile, and a second click is refused.
        QTest::mouseClick(w.window->aboutButton(), Qt::LeftButton);
        QCOMPARE(w.window->selectedTabViewIdentifier(), HXTabViewStatusTabIdentifier);
        QTRY_VERIFY(w.settled());
        QVERIFY2(w.journal.swappedAt >= kWait, qPrintable(QString::number(w.journal.swappedAt)));
        QCOMPARE(w.journal.calls, QStringList({QStringLiteral("Status View:willDisappear"), QStringLiteral("Log View:willAppear"),
                                               QStringLiteral("Status View:didDisappear"), QStringLiteral("Log View:didAppear")}));
        QCOMPARE(w.window->selectedTabViewIdentifier(), HXTabViewLogTabIdentifier);
        QCOMPARE(w.window->logsButton()->imageName(), QStringLiteral("rightTabPressed.png"));
        QCOMPARE(w.window->statusButton()->imageName(), QStringLiteral("leftTab.png"));

        // The tab already shown: no appearing again.
        w.journal.calls.clear();
        w.window->toolbarItemSelected(HXTabViewLogTabIdentifier);
        QVERIFY(w.settled());
        QVERIFY(!w.journal.calls.contains(QStringLiteral("Log View:willAppear")));

        // Senders that name no tab change nothing at all.
        w.window->toolbarItemSelected(QStringLiteral("HXElsewhere"));
        w.window->toolbarItemSelected(QVariant::fromValue(QSize(1, 1)));
        QCOMPARE(w.journal.calls, QStringList());
    }

    void keyboardStaysOnThePressedTabButton()
    {
        auto defaults = settings(QStringLiteral("keyboard.conf"));
        Window w(defaults.get(), 150000);
        w.window->windowDidLoad();
        w.window->show();
        w.window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.window.get()));
        QTRY_VERIFY(w.settled());

        // Whatever the keyboard passes through during the hand-over, it is
        // never a control that Space would work, and it ends where it began.
        QList<QWidget *> focused;
        // Dies before the list does: the window's own destruction moves the
        // focus too, after the list has gone.
        QObject listener;
        QObject::connect(qApp, &QApplication::focusChanged, &listener,
                         [&focused](QWidget *, QWidget *now) { focused.append(now); });
        w.window->logsButton()->setFocus(Qt::TabFocusReason);
        QTest::keyClick(w.window->logsButton(), Qt::Key_Space);
        QVERIFY(w.window->isHandingOver());
        QTRY_VERIFY(w.settled());
        QCOMPARE(w.window->selectedTabViewIdentifier(), HXTabViewLogTabIdentifier);
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget *>(w.window->logsButton()));
        QVERIFY(!focused.contains(w.window->startButton()));
        QVERIFY(!focused.contains(w.window->stopButton()));

        // Back to the status button by Shift+Tab, and the same there.
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab); // about
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Backtab); // status
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget *>(w.window->statusButton()));
        QTest::keyClick(w.window->statusButton(), Qt::Key_Space);
        QTRY_VERIFY(w.settled());
        QCOMPARE(w.window->selectedTabViewIdentifier(), HXTabViewStatusTabIdentifier);
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget *>(w.window->statusButton()));
        QVERIFY(!focused.contains(w.window->startButton()));
    }

    void testingButtonsArePushButtons()
    {
        auto defaults = settings(QStringLiteral("pushbuttons.conf"));
        Window w(defaults.get());
        w.window->windowDidLoad();
        QTRY_VERIFY(w.settled());
        w.window->showLogTab();
        QTRY_VERIFY(w.settled() &&
                    w.window->selectedTabViewIdentifier() == HXTabViewLogTabIdentifier);

        // To a screen reader both are buttons that can be pressed, not
        // toggles; pressing Start through it starts, as a click does.
        for (HXTestingButton *button : {w.window->startButton(), w.window->stopButton()}) {
            QAccessibleInterface *iface = QAccessible::queryAccessibleInterface(button);
            QVERIFY(iface);
            QCOMPARE(iface->role(), QAccessible::Button);
            QVERIFY(!iface->state().checkable);
            QVERIFY(iface->actionInterface());
            QVERIFY(iface->actionInterface()->actionNames().contains(
                QAccessibleActionInterface::pressAction()));
        }
        QCOMPARE(
            QAccessible::queryAccessibleInterface(w.window->startButton())->text(QAccessible::Name),
            QStringLiteral("Start Testing"));
        QSignalSpy started(w.window->startButton(), &QAbstractButton::clicked);
        QAccessible::queryAccessibleInterface(w.window->startButton())
            ->actionInterface()
            ->doAction(QAccessibleActionInterface::pressAction());
        QTRY_COMPARE(started.count(), 1); // pressed as a click, which shows for a moment
        QTRY_VERIFY(w.settled() &&
                    w.window->selectedTabViewIdentifier() == HXTabViewStatusTabIdentifier);

        // A click leaves the state as it was; the end of a pass sets it.
        QVERIFY(!w.window->startButton()->state());
        w.window->testingFinishedStatus();
        QVERIFY(w.window->startButton()->state());
        QVERIFY(!w.window->stopButton()->state());
        QTest::mouseClick(w.window->startButton(), Qt::LeftButton);
        QVERIFY(w.window->startButton()->state());
        QVERIFY(!w.window->startButton()->isChecked());
    }

    void focusMarkFollowsTheKeyboardOnly()
    {
        auto defaults = settings(QStringLiteral("focusmark.conf"));
        Window w(defaults.get());
        w.window->windowDidLoad();
        w.window->show();
        w.window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w.window.get()));
        QTRY_VERIFY(w.settled());

        // The mark is the highlight colour drawn round the button.
        const auto markPixels = [](QWidget *widget) {
            const QImage image = widget->grab().toImage();
            int count = 0;
            for (int y = 0; y < image.height(); ++y) {
                for (int x = 0; x < image.width(); ++x) {
                    const QColor c = image.pixelColor(x, y);
                    if (std::abs(c.red() - 0xf0) < 40 && std::abs(c.green() - 0x8a) < 40 &&
                        std::abs(c.blue() - 0x24) < 50)
                        ++count;
                }
            }
            return count;
        };
        HXTabButton *about = w.window->aboutButton();
        HXTabButton *logs = w.window->logsButton();
        // A click changes the tab, and shows no mark.
        about->setFocus(Qt::MouseFocusReason);
        QTest::mouseClick(about, Qt::LeftButton);
        QTRY_VERIFY(w.settled() &&
                    w.window->selectedTabViewIdentifier() == HXTabViewAboutTabIdentifier);
        QVERIFY(!HXKeyboardFocus::shows(about));
        about->setFocus(Qt::MouseFocusReason);
        QVERIFY(!HXKeyboardFocus::shows(about));
        const int logsUnmarked = markPixels(logs);

        // Tab brings it to the next button, marked.
        QTest::keyClick(about, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget *>(logs));
        QVERIFY(HXKeyboardFocus::shows(logs));
        QVERIFY2(markPixels(logs) > logsUnmarked + 150,
                 qPrintable(QString::number(markPixels(logs))));
        // Space changes the tab; the window gives the focus back to the
        // button after the hand-over, still marked: the keyboard did it.
        QTest::keyClick(logs, Qt::Key_Space);
        QTRY_VERIFY(w.settled() &&
                    w.window->selectedTabViewIdentifier() == HXTabViewLogTabIdentifier);
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget *>(logs));
        QVERIFY(HXKeyboardFocus::shows(logs));
        // A click on the marked button takes the mark away.
        QTest::mouseClick(logs, Qt::LeftButton);
        QTRY_VERIFY(w.settled());
        QVERIFY(!HXKeyboardFocus::shows(logs));

        // The testing buttons' style sheet reads the same mark.
        HXTestingButton *start = w.window->startButton();
        start->setFocus(Qt::MouseFocusReason);
        QCOMPARE(QApplication::focusWidget(), static_cast<QWidget *>(start));
        QVERIFY(!start->property("keyboardFocus").toBool());
        const int startUnmarked = markPixels(start);
        w.window->stopButton()->setFocus(Qt::TabFocusReason);
        start->setFocus(Qt::BacktabFocusReason);
        QVERIFY(start->property("keyboardFocus").toBool());
        QVERIFY2(markPixels(start) > startUnmarked + 100,
                 qPrintable(QString::number(markPixels(start))));
    }

    void controllerWithoutTabStopsLoading()
    {
        auto defaults = settings(QStringLiteral("missing.conf"));
        Window w(defaults.get());
        w.status->setTitle(QStringLiteral("Disk Health"));
        try {
            w.window->windowDidLoad();
            QFAIL("loaded without the tab");
        } catch (const HXTabViewControllerMissingIdentifierException &e) {
            QCOMPARE(QString::fromLatin1(e.what()), QStringLiteral("Could not find identifier \"HXDiskHealth\" in tabView"));
        }
    }

    void showLogViewRequests()
    {
        auto defaults = settings(QStringLiteral("showlog.conf"));
        Window w(defaults.get());
        w.window->windowDidLoad();
        QTRY_VERIFY(w.settled());
        QList<HXNotification> posted;
        for (const QString &name : {HXShowResultNotification, HXScrollLogViewToTopNotification})
            w.local.addObserver(name, w.window.get(), [&](const HXNotification &n) { posted.append(n); });

        const QVariantMap info{{QStringLiteral("ResultIndex"), 42}, {QStringLiteral("ScrollToTop"), true}};
        w.local.post(HXShowLogViewNotification, nullptr, info);
        QTRY_VERIFY(w.settled() && w.window->selectedTabViewIdentifier() == HXTabViewLogTabIdentifier);
        QCOMPARE(posted.size(), 2);
        QCOMPARE(posted[0].name, HXScrollLogViewToTopNotification);
        QCOMPARE(posted[1].name, HXShowResultNotification);
        QCOMPARE(posted[1].userInfo, info);

        posted.clear();
        w.local.post(HXShowLogViewNotification, nullptr, {{QStringLiteral("ResultIndex"), HXResultIndexNotFound}});
        QVERIFY(posted.isEmpty());
    }

    // The go-to-log arrow's way end to end: the window switches to the log
    // tab, which selects and points at the entry.
    void showLogViewReachesTheLogTab()
    {
        HXNotificationCenter local;
        HXStatusReporter reporter({m_dir.filePath(QStringLiteral("golog.zrrpt")), &local, nullptr, false});
        auto report = HXStatusReport::report();
        report->setLog({HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Error"), QStringLiteral("Error: oldest")),
                        HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"), QStringLiteral("Passed: newest"))});
        reporter.setReport(report);
        auto defaults = settings(QStringLiteral("golog.conf"));
        Journal journal;
        RecordingController status(QStringLiteral("Status View"), &journal, 0);
        RecordingController about(QStringLiteral("About View"), &journal, 0);
        HXLogViewController log({&reporter, &local});
        HXMainWindowController::Options options;
        options.controllers = {&status, &log, &about};
        options.defaults = defaults.get();
        options.localCenter = &local;
        HXMainWindowController window(options);
        window.windowDidLoad();
        window.show();
        QTRY_VERIFY(!window.isHandingOver());

        local.post(HXShowLogViewNotification, nullptr, {{QStringLiteral("ResultIndex"), 0}});
        QTRY_VERIFY(!window.isHandingOver() && window.selectedTabViewIdentifier() == HXTabViewLogTabIdentifier);
        const QModelIndex current = log.outlineView()->currentIndex();
        QVERIFY(current.isValid());
        QCOMPARE(log.model()->entryForIndex(current)->string(), QStringLiteral("Error: oldest"));
        QVERIFY(log.outlineView()->highlightView());
        QTRY_VERIFY(log.isOnScreen());
    }

    void agentTabRequestsOverTheBus()
    {
        auto defaults = settings(QStringLiteral("agent.conf"));
        HXDBusNotificationCenter center(QDBusConnection::sessionBus(), {QDBusConnection::sessionBus()});
        Window w(defaults.get(), 0, &center);
        w.window->windowDidLoad();
        QTRY_VERIFY(w.settled());
        center.postNotification(HXAgentRequestTabViewChangeNotification, QStringLiteral("com.talvorn.OrvexAgent-me"),
                                {{HXOrvexAppMainWindowTabIDKey, HXTabViewAboutTabIdentifier}}, true);
        QTRY_VERIFY(w.settled() && w.window->selectedTabViewIdentifier() == HXTabViewAboutTabIdentifier);
        center.postNotification(HXAgentRequestTabViewChangeNotification, QString(),
                                {{HXOrvexAppMainWindowTabIDKey, QStringLiteral("HXNowhere")}}, true);
        QTRY_COMPARE(m_log, QStringList{QStringLiteral("Cannot find tab view item for the identifier: HXNowhere")});
        QCOMPARE(w.window->selectedTabViewIdentifier(), HXTabViewAboutTabIdentifier);
    }

    void startAndStopTestingThroughTheWorker()
    {
        QTemporaryDir root;
        qputenv("ORVEX_ROOT", root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        HXRemoteProxy::setCallTimeout(3000);
        QFile scenario(root.filePath(QStringLiteral("scenario.json")));
        QVERIFY(scenario.open(QIODevice::WriteOnly));
        scenario.write(R"({"stepMilliseconds": 300, "tests": [{"test": "SMART"}, {"test": "Memory"}, {"test": "RAID"},
                          {"test": "Battery"}, {"test": "IO"}, {"test": "POST"}]})");
        scenario.close();
        StandinProcess standin(root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("worker"), QStringLiteral("--status-view-port"),
                               QStringLiteral("0"), QStringLiteral("--scenario"), scenario.fileName()}));

        auto defaults = settings(QStringLiteral("testing.conf"));
        Window w(defaults.get());
        w.window->windowDidLoad();
        QTRY_VERIFY(w.settled());
        w.window->showLogTab();
        QTRY_VERIFY(w.settled() && w.window->selectedTabViewIdentifier() == HXTabViewLogTabIdentifier);

        QTest::mouseClick(w.window->startButton(), Qt::LeftButton);
        QTRY_VERIFY(w.settled() && w.window->selectedTabViewIdentifier() == HXTabViewStatusTabIdentifier);
        QCOMPARE(w.window->testProgress()->maximum(), 8.0);
        // The bar follows the worker's test each time the worker says so.
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                w.local.post(HXUpdateTestStatusNotification, nullptr);
                return w.window->testProgress()->value() >= 2.0;
            }(),
            5000);
        QVERIFY(w.window->testProgress()->value() <= 8.0);

        QTest::mouseClick(w.window->stopButton(), Qt::LeftButton);
        QCOMPARE(w.window->testProgress()->value(), 0.0);
        QTRY_VERIFY(standin.standardError().contains(QLatin1String("Worker: deactivate")));
        QVERIFY(standin.standardError().contains(QLatin1String("Worker: activate")));
        QVERIFY(standin.standardError().contains(QLatin1String("Testing pass stopped")));
    }

    void aSecondStartBringsTheFirstForward()
    {
        QTemporaryDir root;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), root.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), root.path());
        env.insert(QStringLiteral("ORVEX_ROOT"), root.path());
        QProcess first;
        first.setProcessEnvironment(env);
        first.start(QStringLiteral(ORVEX_APP_PATH));
        QTRY_VERIFY_WITH_TIMEOUT(
            !HXRemoteProxy::nameOwner(QDBusConnection::sessionBus(), QStringLiteral("com.talvorn.Orvex")).isEmpty(), 10000);
        QProcess second;
        second.setProcessEnvironment(env);
        second.start(QStringLiteral(ORVEX_APP_PATH));
        QVERIFY(second.waitForFinished(10000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(first.state(), QProcess::Running);
        first.terminate();
        QVERIFY(first.waitForFinished(10000));
    }

    void pretendProgress()
    {
        auto defaults = settings(QStringLiteral("pretend.conf"));
        Window w(defaults.get());
        w.window->pretendToTest();
        QVERIFY(w.window->isTesting());
        QTRY_VERIFY(w.window->testProgress()->value() >= 3);
        w.window->stopTesting();
        QVERIFY(!w.window->isTesting());
        QCOMPARE(w.window->testProgress()->value(), 0.0);
        // The step already scheduled still adds its one, then the bar stops.
        // The marker runs on the bar's own clock: two steps' time, started
        // after the stop, so a step that the last one scheduled would come
        // before it.
        bool marked = false;
        QTimer::singleShot(100, w.window.get(), [&] {
            QTimer::singleShot(100, w.window.get(), [&] { marked = true; });
        });
        QTRY_VERIFY(marked);
        QCOMPARE(w.window->testProgress()->value(), 1.0);
    }
};

QTEST_MAIN(TestMainWindow)
#include "tst_mainwindow.moc"
