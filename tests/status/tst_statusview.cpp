// The status tab: the rebuild into four groups, the machine's not-applicable
// tests, the result box with its advice flowing around it, the tab hooks, and
// one testing pass of the stand-in daemons seen end to end.
#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXDBusNames.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXDaemonPresence.h"
#include "HXIconAnimate.h"
#include "HXLabel.h"
#include "HXMachineProbes.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXShapedTextView.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"
#include "HXTextField.h"
#include "LiveStatusView.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>
#include <QTextDocument>

using TestSupport::answerAlert;

namespace {

HXTestResultRef result(const QString &type, const QString &name)
{
    return HXTestResult::resultWithType(type, name, name + QLatin1Char(' ') + type, QVariant());
}

QString bulletColour(HXAnimView *view, int slot)
{
    return view->subFields()[2 * slot]->styleSheet();
}

} // namespace

class TestStatusView : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    HXFakeMachineProbes m_machine;
    HXNotificationCenter m_local;

    QString reportPath() const
    {
        return m_root.filePath(QStringLiteral("var/lib/orvex/Report.zrrpt"));
    }

    void writeReport(const HXTestResultList &results)
    {
        HXStatusReport report;
        report.setTestResults(results);
        QFile file(reportPath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(HXReportArchive::encodeReport(report));
    }

    std::unique_ptr<HXStatusReporter> reporter()
    {
        return std::make_unique<HXStatusReporter>(
            HXStatusReporter::Options{reportPath(), &m_local, nullptr, true});
    }

    std::unique_ptr<HXStatusViewController> controller(HXStatusReporter *reporter, quint16 port = 0)
    {
        HXStatusViewController::Options options;
        options.reporter = reporter;
        options.localCenter = &m_local;
        options.listenerPort = port;
        auto c = std::make_unique<HXStatusViewController>(options);
        c->view()->resize(884, 500);
        return c;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        QDir().mkpath(m_root.filePath(QStringLiteral("var/lib/orvex")));
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        HXAnimationTiming::setScale(0.02);
        HXRemoteProxy::setCallTimeout(3000);
        HXMachineProbes::setCurrent(&m_machine);
    }

    void init() { m_machine = HXFakeMachineProbes(); }

    void saysWhenTheDaemonsAreNotRunning()
    {
        auto source = reporter();
        auto c = controller(source.get());
        QLabel *line = c->daemonsMissingText();
        QCOMPARE(line->text(), QStringLiteral("The Orvex daemons are not running."));
        QTRY_VERIFY(!line->isHidden());

        // The idle daemon alone is not enough. A watcher of the idle daemon
        // alone on the same bus is the marker: once it has seen the daemon
        // come, so has the status tab.
        HXDaemonPresence idleOnly(HXDBusNames::daemonBus(), {QStringLiteral("OrvexIdleDaemon")});
        StandinProcess idle(m_root.path());
        QVERIFY(idle.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        QTRY_VERIFY(idleOnly.daemonsAreRunning());
        QVERIFY(!line->isHidden());

        StandinProcess worker(m_root.path());
        QVERIFY(worker.start({QStringLiteral("--serve"), QStringLiteral("worker"),
                              QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        QTRY_VERIFY(line->isHidden());
        QCOMPARE(worker.stop(), 0);
        QTRY_VERIFY(!line->isHidden());
        QCOMPARE(idle.stop(), 0);

        // Both already there when the tab is made: the line never shows.
        QVERIFY(idle.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"),
                            QStringLiteral("--status-view-port"), QStringLiteral("0")}));
        auto later = controller(source.get());
        // Made after the tab's watcher, so answered after it: once it knows
        // the daemons are there, the tab's watcher has said so too.
        HXDaemonPresence marker;
        QTRY_VERIFY(marker.isKnown());
        QVERIFY(marker.daemonsAreRunning());
        QVERIFY(later->daemonsMissingText()->isHidden());
        QCOMPARE(idle.stop(), 0);
    }

    void groupsFollowTheReport()
    {
        writeReport(
            {result(HXDTestResultWarningType, HXDSMARTCheckTestName),
             result(HXDTestResultErrorType, HXDSMARTCheckTestName + QStringLiteral(" on sdb")),
             result(HXDTestResultSuccessType, HXDSMARTCheckTestName),
             result(HXDTestResultWarningType, HXDPartitionMapCheckTestName),
             result(HXDTestResultSuccessType, HXDSurfaceScanTestName),
             result(HXDTestResultSuccessType, HXDMemoryTestName),
             result(HXDTestResultWarningType, HXDBatteryTestName)});
        m_machine.raid = false;
        m_machine.battery = false;
        auto source = reporter();
        auto c = controller(source.get());

        // Drives: volume structures 0, partition map 2, RAID 4, surface scan 1, SMART 3.
        QCOMPARE(c->drivesView()->testStatus(), 3);
        QCOMPARE(c->drivesView()->statusField()->realString(), QStringLiteral("FAILED"));
        QCOMPARE(c->drivesView()->statusField()->textColor(), QColor(0xe5, 0x48, 0x4d));
        QVERIFY(bulletColour(c->drivesView(), 1)
                    .contains(QLatin1String("#f5c518"))); // partition map: yellow
        QVERIFY(bulletColour(c->drivesView(), 2).contains(QLatin1String("#7d858f"))); // RAID: gray
        QCOMPARE(c->resultIndex(HXTest::SMART), 1);
        // The partition map's warning is listed with the volume structures.
        QCOMPARE(c->board().results(HXTest::VolumeStructures).size(), 1);
        QCOMPARE(c->board().results(HXTest::PartitionMap).size(), 0);
        // A desktop: the battery's warning counts for nothing, memory decides.
        QCOMPARE(c->hardwareView()->batteryStatus(), 4);
        QCOMPARE(c->hardwareView()->testStatus(), 1);
        QCOMPARE(c->systemView()->testStatus(), 0);
        QCOMPARE(c->systemView()->statusField()->realString(), QStringLiteral("PENDING..."));
        QCOMPARE(c->icon(HXTest::Battery)->shownImageName(), QStringLiteral("batteryGray"));
        QCOMPARE(c->icon(HXTest::RAID)->shownImageName(), QStringLiteral("raidGray"));
        QCOMPARE(c->icon(HXTest::Memory)->shownImageName(), QStringLiteral("memoryOrange"));

        // The embossed titles stand whole inside their panels, above the
        // status plates.
        c->view()->show();
        QVERIFY(QTest::qWaitForWindowExposed(c->view()));
        const QList<std::pair<HXAnimView *, QString>> titles = {
            {c->hardwareView(), QStringLiteral("Hardware")},
            {c->systemView(), QStringLiteral("System")},
            {c->drivesView(), QStringLiteral("Drives")},
            {c->filesView(), QStringLiteral("Files")}};
        for (const auto &[group, name] : titles) {
            const HXLabel *title = group->titleField();
            QCOMPARE(title->text(), name);
            const QRectF line = title->textRect().translated(title->pos());
            QVERIFY(QRectF(title->geometry()).contains(line));
            QVERIFY(line.top() >= 0 && line.right() < group->width());
            QVERIFY(title->y() + title->baseline() < group->statusField()->y());
        }

        // A new report is seen and shown.
        writeReport({result(HXDTestResultErrorType, HXDIOErrorTestName)});
        QTRY_COMPARE(c->systemView()->testStatus(), 3);
        QCOMPARE(c->drivesView()->testStatus(), 0);
        QCOMPARE(c->resultIndex(HXTest::SMART), 1); // an index outlives its result
    }

    void notApplicableTestsExplainThemselves()
    {
        m_machine.raid = false;
        m_machine.smart = true;
        writeReport({});
        auto source = reporter();
        auto c = controller(source.get());
        c->view()->show();
        QCOMPARE(
            answerAlert([&] { QTest::mouseClick(c->drivesView()->raidField(), Qt::LeftButton); }),
            QStringList({QStringLiteral("No RAID Array"),
                         QStringLiteral("Your computer is not equiped with a RAID Array."),
                         QStringLiteral("OK")}));
        QVERIFY(answerAlert([&] {
                    QTest::mouseClick(c->drivesView()->smartField(), Qt::LeftButton);
                }).isEmpty());
        m_machine.battery = false;
        QCOMPARE(answerAlert([&] {
                     QTest::mouseClick(c->hardwareView()->batteryField(), Qt::LeftButton);
                 }).value(0),
                 QStringLiteral("No Battery"));
        m_machine.partitionMap = false;
        QCOMPARE(answerAlert([&] {
                     QTest::mouseClick(c->drivesView()->partitionMapField(), Qt::LeftButton);
                 }).value(1),
                 QStringLiteral("The partition map test is available on this system."));
        m_machine.smart = false;
        QCOMPARE(answerAlert([&] {
                     QTest::mouseClick(c->drivesView()->smartField(), Qt::LeftButton);
                 }).value(0),
                 QStringLiteral("SMART Not Supported"));
        // The click on a name is not a click on the group.
        QVERIFY(!c->showingBox());
    }

    void logRequestsAndTheDebugSwitch()
    {
        writeReport({result(HXDTestResultSuccessType, HXDMemoryTestName),
                     result(HXDTestResultErrorType, HXDMemoryTestName)});
        auto source = reporter();
        auto c = controller(source.get());
        QList<QVariantMap> requests;
        // The center outlives this test: the observer, whose handler holds
        // this test's locals, goes with it (a later controller may be given
        // the same address).
        const auto token =
            m_local.addObserver(QStringLiteral("ShowLogViewNotification"), c.get(),
                                [&](const HXNotification &n) { requests.append(n.userInfo); });
        auto forget = qScopeGuard([&] { m_local.removeObserver(token); });
        c->showInLog(HXTest::Memory);
        c->individualStatusButtonClicked(7);
        c->showInLog(HXTest::PartitionMap); // it has none
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests[0], (QVariantMap{{QStringLiteral("ScrollToTop"), true},
                                           {QStringLiteral("ResultIndex"), qint64(1)}}));
        QCOMPARE(requests[1], (QVariantMap{{QStringLiteral("ScrollToTop"), false},
                                           {QStringLiteral("ResultIndex"), qint64(7)}}));

        QVERIFY(!c->showAll());
        m_local.post(HXDebugShowAllNotification, nullptr);
        QVERIFY(c->showAll());
        m_local.post(HXDebugShowAllNotification, nullptr, {{QStringLiteral("ShowAll"), true}});
        QVERIFY(c->showAll());
        m_local.post(HXDebugShowAllNotification, nullptr);
        QVERIFY(!c->showAll());

        // A group's arrows ask for their own tests' results; the partition
        // map has no arrow.
        c->view()->show();
        QVERIFY(QTest::qWaitForWindowExposed(c->view()));
        c->setShowAll(true);
        requests.clear();
        QTest::mouseClick(c->hardwareView()->logButton(HXTest::Battery), Qt::LeftButton);
        QTest::mouseClick(c->hardwareView()->logButton(HXTest::Memory), Qt::LeftButton);
        QCOMPARE(requests.size(), 2);
        QCOMPARE(requests[0].value(QStringLiteral("ResultIndex")).toLongLong(),
                 HXResultIndexNotFound);
        QCOMPARE(requests[1].value(QStringLiteral("ResultIndex")).toLongLong(), 1);
        QVERIFY(!c->drivesView()->logButton(HXTest::PartitionMap));
        QVERIFY(c->drivesView()->logButton(HXTest::SMART));
    }

    void namedSettersPutEachCodeOnItsTest()
    {
        // Two rounds, so that every two tests differ in one of them.
        HXDrivesView drives;
        drives.setStatusForVolumeStructures(1, 2, 3, 0, 2);
        QCOMPARE(
            (QList<qint32>{drives.volumeStructuresStatus(), drives.partitionMapStatus(),
                           drives.raidStatus(), drives.surfaceScanStatus(), drives.smartStatus()}),
            (QList<qint32>{1, 2, 3, 0, 2}));
        QCOMPARE(drives.testStatus(), 3);
        drives.setStatusForVolumeStructures(2, 3, 0, 1, 1);
        QCOMPARE(
            (QList<qint32>{drives.volumeStructuresStatus(), drives.partitionMapStatus(),
                           drives.raidStatus(), drives.surfaceScanStatus(), drives.smartStatus()}),
            (QList<qint32>{2, 3, 0, 1, 1}));
        QCOMPARE(bulletColour(&drives, drives.tests().indexOf(HXTest::PartitionMap)),
                 QStringLiteral("color: #e5484d;"));

        HXHardwareView hardware;
        hardware.setStatusForMemory(2, 1);
        QCOMPARE(hardware.memoryStatus(), 2);
        QCOMPARE(hardware.batteryStatus(), 1);
        m_machine.battery = false; // a desktop: the battery's code does not count
        hardware.setStatusForMemory(1, 3);
        QCOMPARE(hardware.batteryStatus(), 4);
        QCOMPARE(hardware.testStatus(), 1);

        HXSystemView system;
        system.setStatusForIO(0, 3);
        QCOMPARE(system.ioStatus(), 0);
        QCOMPARE(system.postStatus(), 3);
        HXFilesView files;
        files.setStatusForFileStructures(2);
        QCOMPARE(files.testStatus(), 2);
        QCOMPARE(files.statusField()->realString(), QStringLiteral("WARNING"));
    }

    void adviceFlowsAroundTheBox()
    {
        HXShapedTextView text;
        text.resize(612, 400); // a container of 580
        text.setExclusionRect(QRectF(300, 0, 200, 100));
        QCOMPARE(text.lineWidthAt(0), 284.0);
        QCOMPARE(text.lineWidthAt(73.9), 284.0); // top 89.9: above the bottom of 90
        QCOMPARE(text.lineWidthAt(74), 580.0);   // top 90: below it
        auto document = std::make_unique<QTextDocument>();
        QFont font;
        font.setPointSize(20);
        document->setDefaultFont(font);
        document->setPlainText(QString(QStringLiteral("word ")).repeated(200));
        text.setDocument(std::move(document));
        const QList<QRectF> lines = text.lineRects();
        QVERIFY(lines.size() > 10);
        for (const QRectF &line : lines) {
            if (line.top() < 90)
                QVERIFY2(line.right() <= 300, qPrintable(QString::number(line.right())));
            else
                QVERIFY(line.right() <= 16 + 580);
        }
        QVERIFY(std::any_of(lines.cbegin(), lines.cend(),
                            [](const QRectF &l) { return l.top() >= 90 && l.right() > 310; }));
    }

    void resultBoxOpensAndEscapeClosesIt()
    {
        writeReport({result(HXDTestResultErrorType, HXDFilesystemCheckTestName)});
        auto source = reporter();
        auto c = controller(source.get());
        QWidget *root = c->view();
        root->show();
        QVERIFY(QTest::qWaitForWindowExposed(root));

        QTest::mouseClick(c->drivesView(), Qt::LeftButton);
        QCOMPARE(c->showingBox(), c->drivesView());
        QTRY_VERIFY(!c->isAnimatingBox());
        QCOMPARE(c->drivesView()->parentWidget(), c->adviceView());
        QTRY_COMPARE(c->drivesView()->pos(),
                     QPoint(root->width() - 16 - c->drivesView()->width(), 0));
        QVERIFY(c->statusViewIsTransparent());
        const QString advice = c->adviceView()->document()->toPlainText();
        QVERIFY(advice.startsWith(
            QLatin1String("Volume Structures\nThere are a number of invisible files")));
        QVERIFY(!advice.contains(QLatin1String("<Disk Utility>")));
        // Lines beside the box end at its left edge.
        const QRectF box = c->adviceView()->exclusionRect();
        for (const QRectF &line : c->adviceView()->lineRects()) {
            if (line.top() < box.bottom() - 10)
                QVERIFY(line.right() <= box.left());
        }
        // The other groups are disabled meanwhile; a click on the open one closes it.
        QVERIFY(!c->filesView()->isEnabled());
        QTest::mouseClick(c->drivesView(), Qt::LeftButton);
        QVERIFY(!c->showingBox());
        QTRY_VERIFY(!c->isAnimatingBox());
        QCOMPARE(c->drivesView()->parentWidget(), c->statusView());
        QVERIFY(!c->repairAdviceView()->isVisible());

        // Escape closes an open box once the close button holds it.
        QTest::mouseClick(c->filesView(), Qt::LeftButton);
        QTRY_VERIFY(!c->isAnimatingBox());
        QTRY_COMPARE(c->filesView()->closeButton()->shortcut(), QKeySequence(Qt::Key_Escape));
        root->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(root));
        QTest::keyClick(root->windowHandle(), Qt::Key_Escape);
        QTRY_VERIFY(!c->showingBox()); // a shortcut clicks after the button's short press
        QTRY_VERIFY(!c->isAnimatingBox());
        QTRY_VERIFY(!c->statusViewIsTransparent());
    }

    void tabHooksWait()
    {
        writeReport({});
        auto source = reporter();
        auto c = controller(source.get());
        c->view()->show();
        QCOMPARE(c->viewWillDisappearHX(), HXAnimationTiming::microseconds(500000));
        QTRY_VERIFY(!c->isAnimatingBox());
        c->viewWillAppearHX();
        QVERIFY(!c->isOnScreen());
        c->viewDidAppearHX();
        QTRY_VERIFY(c->isOnScreen());
        c->showFilesRepairAdvice();
        QTRY_VERIFY(!c->isAnimatingBox());
        QVERIFY(c->statusViewIsTransparent());
        // Leaving with a box open closes it first and takes longer.
        QCOMPARE(c->viewWillDisappearHX(), HXAnimationTiming::microseconds(2000000));
        QTRY_VERIFY(!c->showingBox());
        QTRY_VERIFY(!c->isAnimatingBox());
    }

    void oneTestingPassEndToEnd()
    {
        m_machine = HXFakeMachineProbes(); // every test applies
        QFile::remove(reportPath());
        LiveStatusView live(reportPath(), &m_local);
        // On screen and drawn before the pass starts, as the user sees it.
        QVERIFY(live.show());
        HXStatusViewController &c = live.controller();

        const QString scenario = m_root.filePath(QStringLiteral("scenario.json"));
        QFile file(scenario);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(R"({"stepMilliseconds": 150,
            "disks": [{"id": "a", "bsdName": "sda", "uuid": "u-a"}],
            "tests": [{"test": "SMART", "disk": "a", "outcome": "warning"}, {"test": "FileStructures", "disk": "a",
                       "outcome": "error", "files": ["/x/damaged"]}, {"test": "Memory"}, {"test": "RAID", "outcome": "notApplicable"},
                      {"test": "IO"}, {"test": "POST"}]})");
        file.close();
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start(
            {QStringLiteral("--serve"), QStringLiteral("worker"), QStringLiteral("--scenario"),
             scenario, QStringLiteral("--status-view-port"), QString::number(live.port())}));
        const auto worker = HXDaemonInteraction::workerDaemonProxy();
        QVERIFY(worker);
        worker->activate();

        QTRY_VERIFY_WITH_TIMEOUT(c.icon(HXTest::SMART)->isPulsing(), 5000); // running
        QTRY_COMPARE_WITH_TIMEOUT(live.passesFinished(), 1, 10000);         // "testingFinished"
        QTRY_COMPARE_WITH_TIMEOUT(c.icon(HXTest::POST)->shownImageName(),
                                  QStringLiteral("postGreen"), 5000);
        QVERIFY(!c.icon(HXTest::SMART)->isPulsing());
        QCOMPARE(c.icon(HXTest::SMART)->shownImageName(), QStringLiteral("smartRed"));
        QCOMPARE(c.icon(HXTest::RAID)->shownImageName(), QStringLiteral("raidGray"));
        QTRY_COMPARE(c.filesView()->testStatus(), 3);
        QCOMPARE(c.drivesView()->testStatus(), 2);
        QCOMPARE(c.hardwareView()->testStatus(), 1);
        QCOMPARE(c.systemView()->testStatus(), 1);

        QList<QVariantMap> requests;
        const auto token =
            m_local.addObserver(QStringLiteral("ShowLogViewNotification"), &c,
                                [&](const HXNotification &n) { requests.append(n.userInfo); });
        auto forget = qScopeGuard([&] { m_local.removeObserver(token); });
        QTest::mouseClick(c.filesView(), Qt::LeftButton);
        QTRY_VERIFY(!c.isAnimatingBox());
        QVERIFY(c.adviceView()->document()->toPlainText().contains(
            QLatin1String("File Structures test checks")));
        QTest::mouseClick(c.filesView()->logButton(HXTest::FileStructures), Qt::LeftButton);
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].value(QStringLiteral("ResultIndex")).toLongLong(),
                 1); // the error, second in the report
        QCOMPARE(standin.stop(), 0);
    }
};

QTEST_MAIN(TestStatusView)
#include "tst_statusview.moc"
