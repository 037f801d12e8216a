// The debug controls: the controller's marker-file rules, its daemon actions
// against the stand-ins, and the two small windows.
#include "HXDaemonInteraction.h"
#include "HXDebugController.h"
#include "HXDebugWindowController.h"
#include "HXNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXRemoteProxy.h"
#include "HXSystemLog.h"
#include "HXWorkerDaemonController.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QApplication>
#include <QButtonGroup>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

using TestSupport::answerAlert;

class TestDebugControls : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;

    static QString idle() { return HXProductPaths::isIdleMarker(); }

    // Lets the daemon queues run what they were given and hands their
    // answers to whoever asked.
    static void settle()
    {
        QVERIFY(HXDaemonInteraction::waitForQueues(10000));
        QCoreApplication::processEvents();
    }

    static QPushButton *buttonTitled(QWidget *window, const QString &title)
    {
        const auto buttons = window->findChildren<QPushButton *>();
        for (QPushButton *b : buttons) {
            if (b->text() == title)
                return b;
        }
        return nullptr;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        HXRemoteProxy::setCallTimeout(3000);
        HXSystemLog::setSink([](const QString &) {});
    }

    void init()
    {
        QDir(HXProductPaths::root() + QStringLiteral("/var")).removeRecursively();
    }

    void labelsFollowEveryAssignmentOnlyWhileObserving()
    {
        HXDebugController c;
        c.setWorkerIsActive(true);
        QCOMPARE(c.workerActiveStatusLabel(), QString());
        c.load(); // no marker files: both false, and the labels are set all the same
        QCOMPARE(c.workerActiveStatusLabel(), QStringLiteral("Inactive"));
        QCOMPARE(c.forcedFailuresLabel(), QStringLiteral("Failures: Normal"));
        c.setFailuresAreForced(true);
        QCOMPARE(c.forcedFailuresLabel(), QStringLiteral("Failures: Forced"));
        c.removeObservers();
        c.setFailuresAreForced(false);
        QCOMPARE(c.forcedFailuresLabel(), QStringLiteral("Failures: Forced"));
    }

    void withoutTheDaemonTheMarkerFilesDecide()
    {
        HXDebugController c;
        c.load();
        // Stopping by file with no marker sets inactive and touches nothing.
        c.forceStopWorkerUsingIdleFile();
        QVERIFY(!c.workerIsActive());
        QVERIFY(!QFile::exists(HXProductPaths::libraryFolder()));

        c.forceStartWorkerUsingIdleFile();
        c.forceStartWorkerUsingIdleFile();
        QVERIFY(c.workerIsActive());
        QCOMPARE(c.workerActiveStatusLabel(), QStringLiteral("Active"));
        QVERIFY(QFile::exists(idle()));
        QVERIFY(QFile::exists(HXProductPaths::isIdlePrimaryMarker()));

        // The daemon's actions still refresh from the marker; failures cannot
        // be forced without it.
        c.forceStopWorker();
        QVERIFY(c.workerIsActive());
        c.forceTestFailures();
        QCOMPARE(c.forcedFailuresLabel(), QStringLiteral("Failures: Normal"));
        c.deleteStatusReport(); // nobody to ask: nothing happens

        c.forceStopWorkerUsingIdleFile();
        QVERIFY(!c.workerIsActive());
        QVERIFY(!QFile::exists(idle()));
        QVERIFY(QFile::exists(HXProductPaths::isIdlePrimaryMarker()));
    }

    void aFolderThatCannotBeMadeIsShownToTheUser()
    {
        // The library folder's parent is a file.
        QDir().mkpath(HXProductPaths::root() + QStringLiteral("/var"));
        QFile blocker(HXProductPaths::root() + QStringLiteral("/var/lib"));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        HXDebugController c;
        QStringList shown;
        c.setErrorPresenter([&](const QString &error) { shown.append(error); });
        c.load();
        c.forceStartWorkerUsingIdleFile();
        QCOMPARE(shown.size(), 1);
        QVERIFY(shown[0].contains(HXProductPaths::libraryFolder()));
        QVERIFY(!c.workerIsActive());
    }

    void withTheDaemon()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"), QStringLiteral("--status-view-port"),
                               QStringLiteral("0")}));
        HXDebugController c;
        c.load();
        c.forceStartWorker();
        settle();
        QVERIFY(c.workerIsActive());
        QCOMPARE(c.workerActiveStatusLabel(), QStringLiteral("Active"));
        c.forceStopWorker();
        settle();
        QVERIFY(!c.workerIsActive());
        c.forceTestFailures();
        settle();
        QCOMPARE(c.forcedFailuresLabel(), QStringLiteral("Failures: Forced"));
        QVERIFY(QFile::exists(HXProductPaths::forceFailuresMarker()));
        c.disableForcedFailures();
        settle();
        QCOMPARE(c.forcedFailuresLabel(), QStringLiteral("Failures: Normal"));

        QFile report(HXProductPaths::reportFile());
        QVERIFY(report.open(QIODevice::WriteOnly));
        report.close();
        QFile store(HXProductPaths::workerStoreFile());
        QVERIFY(store.open(QIODevice::WriteOnly));
        store.close();
        c.deleteStatusReport();
        c.deleteDataStore();
        settle();
        QVERIFY(!QFile::exists(HXProductPaths::reportFile()));
        QVERIFY(!QFile::exists(HXProductPaths::workerStoreFile()));
    }

    void debugWindow()
    {
        QFile::remove(idle());
        HXDebugWindowController window;
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        auto *workerLabel = window.findChild<QLabel *>(QStringLiteral("workerActiveStatusLabel"));
        QVERIFY(workerLabel);
        QCOMPARE(workerLabel->text(), QStringLiteral("Inactive"));
        QTest::mouseClick(buttonTitled(&window, QStringLiteral("Start by Idle File")), Qt::LeftButton);
        QCOMPARE(workerLabel->text(), QStringLiteral("Active"));

        int posted = 0;
        const auto token = HXNotificationCenter::defaultCenter().addObserver(
            HXDebugShowAllNotification, &window, [&](const HXNotification &n) {
                QVERIFY(n.userInfo.isEmpty());
                ++posted;
            });
        QTest::mouseClick(buttonTitled(&window, QStringLiteral("Show All UI")), Qt::LeftButton);
        HXNotificationCenter::defaultCenter().removeObserver(token);
        QCOMPARE(posted, 1);
    }

    void workerDaemonPanel()
    {
        HXWorkerDaemonController panel;
        panel.messageTextField()->setText(QStringLiteral("hello"));
        const QStringList alert = answerAlert([&] {
            panel.sendMessage();
            settle();
        });
        QCOMPARE(alert, QStringList({QStringLiteral("Distributed Object Connection Error"),
                                     QStringLiteral("Could not connect to Daemon using connection name 'OrvexWorkerDaemon'"),
                                     QStringLiteral("OK"), QStringLiteral("Cancel")}));
        QVERIFY(!answerAlert([&] {
                     panel.testConnection();
                     settle();
                 }).isEmpty());
        // Without a worker, selecting either state sends nothing and shows nothing.
        panel.statusControl()->button(HXWorkerDaemonController::kActiveTag)->setChecked(true);
        QVERIFY(answerAlert([&] {
                    panel.updateDaemonStatus();
                    settle();
                }).isEmpty());

        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("worker"), QStringLiteral("--status-view-port"),
                               QStringLiteral("0")}));
        panel.messageTextField()->clear();
        QVERIFY(answerAlert([&] {
                    panel.sendMessage();
                    settle();
                }).isEmpty()); // nothing to send
        panel.messageTextField()->setText(QStringLiteral("hello worker"));
        QVERIFY(answerAlert([&] {
                    panel.sendMessage();
                    settle();
                }).isEmpty());
        QVERIFY(answerAlert([&] {
                    panel.testConnection();
                    settle();
                }).isEmpty());
        QTRY_VERIFY(standin.standardError().contains(QLatin1String("Message from a client: hello worker")));

        // The worker is inactive: selecting inactive sends nothing.
        panel.statusControl()->button(HXWorkerDaemonController::kInactiveTag)->setChecked(true);
        panel.updateDaemonStatus();
        panel.statusControl()->button(HXWorkerDaemonController::kActiveTag)->setChecked(true);
        panel.updateDaemonStatus();
        panel.updateDaemonStatus(); // already active now
        panel.statusControl()->button(HXWorkerDaemonController::kInactiveTag)->setChecked(true);
        panel.updateDaemonStatus();
        settle();
        QCOMPARE(standin.stop(), 0);
        const QString log = standin.standardError();
        QCOMPARE(log.count(QLatin1String("Worker: activate")), 1);
        QCOMPARE(log.count(QLatin1String("Worker: deactivate")), 1);
        QVERIFY(log.indexOf(QLatin1String("Worker: activate")) < log.indexOf(QLatin1String("Worker: deactivate")));
    }
};

QTEST_MAIN(TestDebugControls)
#include "tst_debugcontrols.moc"
