// The status tab at every window size from the smallest to a large screen:
// the result box stays inside the window with its close button in sight, the
// advice flows around it without a horizontal scroll bar, also after a trip
// to the log and back and when the window changes size with the box open.
#include "HXAnimationTiming.h"
#include "HXArtwork.h"
#include "HXConstants.h"
#include "HXMachineProbes.h"
#include "HXMainWindowController.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXShapedTextView.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"
#include "HXSystemLog.h"
#include "HXTabButton.h"

#include <QDir>
#include <QFile>
#include <QLayout>
#include <QMenuBar>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

namespace {

class PlainController : public HXViewController
{
public:
    explicit PlainController(const QString &title) { setTitle(title); }

protected:
    QWidget *makeView() override { return new QWidget; }
};

HXTestResultRef result(const QString &type, const QString &name, const QString &disk)
{
    const QVariantMap info{{QStringLiteral("disk"),
                            QVariantMap{{QStringLiteral("bsdName"), disk},
                                        {QStringLiteral("volumeName"), disk + QStringLiteral("1")},
                                        {QStringLiteral("uuid"), disk}}}};
    return HXTestResult::resultWithType(type, name, name + QLatin1Char(' ') + type, info);
}

QRect inWindow(const QWidget *widget)
{
    return QRect(widget->mapTo(widget->window(), QPoint(0, 0)), widget->size());
}

QString describe(const QRect &r)
{
    return QStringLiteral("(%1,%2 %3x%4)").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
}

} // namespace

class TestWindowSizes : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    HXFakeMachineProbes m_machine;
    HXNotificationCenter m_local;
    std::unique_ptr<QSettings> m_defaults;
    std::unique_ptr<HXStatusReporter> m_reporter;
    std::unique_ptr<HXStatusViewController> m_status;
    PlainController m_log{QStringLiteral("Log View")};
    PlainController m_about{QStringLiteral("About View")};
    std::unique_ptr<HXMainWindowController> m_window;

    HXStatusViewController *status() const { return m_status.get(); }
    bool settled() const { return !m_window->isHandingOver() && !m_status->isAnimatingBox(); }

    void resizeWindow(int width, int height)
    {
        m_window->resize(width, height);
        QTRY_COMPARE(m_window->size(), QSize(width, height));
    }

    void openDrivesBox()
    {
        QVERIFY(!status()->showingBox());
        QTest::mouseClick(status()->drivesView(), Qt::LeftButton);
        QCOMPARE(status()->showingBox(), status()->drivesView());
        QTRY_VERIFY2(settled(), qPrintable(QStringLiteral("%1 %2")
                                               .arg(m_window->isHandingOver())
                                               .arg(m_status->isAnimatingBox())));
    }

    void closeBox()
    {
        QTest::mouseClick(status()->drivesView()->closeButton(), Qt::LeftButton);
        QTRY_VERIFY(!status()->showingBox());
        QTRY_VERIFY(settled());
    }

    // What the user must see of an open box at the window's present size.
    void verifyOpenBox()
    {
        HXAnimView *box = status()->showingBox();
        QVERIFY(box);
        QScrollArea *area = status()->repairAdviceView();
        HXShapedTextView *advice = status()->adviceView();
        const QRect window = m_window->rect();
        const QRect viewport = inWindow(area->viewport());
        const QRect boxRect = inWindow(box);
        const QString sizes = QStringLiteral("window %1, viewport %2, advice %3, box %4")
                                  .arg(describe(window), describe(viewport),
                                       describe(inWindow(advice)), describe(boxRect));

        // The box lies wholly inside the window and inside what the scroll
        // area shows, at the tab's right edge.
        QVERIFY2(window.contains(boxRect), qPrintable(sizes));
        QVERIFY2(viewport.contains(boxRect), qPrintable(sizes));
        QVERIFY2(advice->rect().contains(box->geometry()),
                 qPrintable(sizes)); // not cut by its parent
        QCOMPARE(box->geometry().right() + 1, status()->view()->width() - 16);
        // As wide as its place in the panel (no wider than half the tab).
        QVERIFY2(box->width() <= status()->view()->width() / 2, qPrintable(sizes));

        // Its close button is shown, and in sight.
        QPushButton *close = box->closeButton();
        QVERIFY(close->isVisible());
        QVERIFY2(boxRect.contains(inWindow(close)), qPrintable(sizes));
        QVERIFY2(viewport.contains(inWindow(close)), qPrintable(sizes));

        // The advice is as wide as the scroll area shows, never wider.
        QVERIFY2(advice->width() <= area->viewport()->width(), qPrintable(sizes));
        QVERIFY2(advice->width() >= area->viewport()->width() - 1, qPrintable(sizes));
        QVERIFY(!area->horizontalScrollBar()->isVisible());

        // Its lines end at the box beside it and at the view's edge below
        // it; none runs over the box, not even over its lower edge.
        const QRectF exclusion = advice->exclusionRect();
        const QRect boxFrame = box->geometry();
        QCOMPARE(exclusion.topLeft(), QPointF(boxFrame.topLeft()));
        QCOMPARE(exclusion.width(), qreal(boxFrame.width()));
        QVERIFY(exclusion.bottom() >= boxFrame.bottom());
        for (const QRectF &line : advice->lineRects()) {
            if (line.top() <= boxFrame.bottom() + 1 && line.bottom() >= boxFrame.top())
                QVERIFY2(line.right() <= boxFrame.left(), qPrintable(sizes));
            else
                QVERIFY2(line.right() <= advice->width() - HXShapedTextView::kInset,
                         qPrintable(sizes));
        }
        // Lines below the box use the width the window gives them.
        const QList<QRectF> lines = advice->lineRects();
        QVERIFY(std::any_of(lines.cbegin(), lines.cend(), [&](const QRectF &line) {
            return line.top() >= exclusion.bottom() && line.right() > exclusion.left() + 40;
        }));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        HXAnimationTiming::setScale(0.02);
        HXMachineProbes::setCurrent(&m_machine);
        HXSystemLog::setSink([](const QString &) {});
        HXArtwork::loadFonts();

        const QString path = m_root.filePath(QStringLiteral("Report.zrrpt"));
        HXStatusReport report;
        report.setTestResults(
            {result(HXDTestResultWarningType, HXDSurfaceScanTestName, QStringLiteral("sda")),
             result(HXDTestResultErrorType, HXDFileStructureTestName, QStringLiteral("sdb"))});
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(HXReportArchive::encodeReport(report));
        file.close();
        m_reporter = std::make_unique<HXStatusReporter>(
            HXStatusReporter::Options{path, &m_local, nullptr, false});

        HXStatusViewController::Options statusOptions;
        statusOptions.reporter = m_reporter.get();
        statusOptions.localCenter = &m_local;
        statusOptions.listenerPort = 0;
        m_status = std::make_unique<HXStatusViewController>(statusOptions);
        m_defaults = std::make_unique<QSettings>(m_root.filePath(QStringLiteral("defaults.conf")),
                                                 QSettings::IniFormat);
        HXMainWindowController::Options options;
        options.controllers = {m_status.get(), &m_log, &m_about};
        options.defaults = m_defaults.get();
        options.localCenter = &m_local;
        m_window = std::make_unique<HXMainWindowController>(options);
        // The application's menus take their row as in the application.
        auto *menus = new QMenuBar(m_window.get());
        for (const QString &title : {QStringLiteral("&File"), QStringLiteral("&Log"),
                                     QStringLiteral("&Window"), QStringLiteral("&Help")})
            menus->addMenu(title);
        m_window->layout()->setMenuBar(menus);
        m_window->windowDidLoad();
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        QTRY_VERIFY(settled());
        QCOMPARE(m_window->selectedTabViewIdentifier(), HXTabViewStatusTabIdentifier);
        QCOMPARE(status()->drivesView()->testStatus(), 2);
    }

    // Each case starts on the status tab with no box open, whatever the last left.
    void init()
    {
        if (status()->showingBox())
            status()->showAllBoxes();
        if (m_window->selectedTabViewIdentifier() != HXTabViewStatusTabIdentifier)
            m_window->showStatusTab();
        QTRY_VERIFY(settled() && !status()->showingBox());
    }

    void cleanupTestCase()
    {
        m_window.reset();
        m_status.reset();
    }

    void aBoxAtEverySize_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("the smallest") << QSize(920, 651);
        QTest::newRow("1280x800") << QSize(1280, 800);
        QTest::newRow("1920x1080") << QSize(1920, 1080);
    }
    void aBoxAtEverySize()
    {
        QFETCH(QSize, size);
        resizeWindow(size.width(), size.height());
        // The four groups lie side by side in the tab, none over another.
        const QRect tab = status()->view()->rect();
        const QList<HXAnimView *> groups = {status()->hardwareView(), status()->systemView(),
                                            status()->drivesView(), status()->filesView()};
        for (HXAnimView *group : groups) {
            QVERIFY2(tab.contains(group->geometry()), qPrintable(describe(group->geometry())));
            for (HXAnimView *other : groups)
                QVERIFY(other == group || !other->geometry().intersects(group->geometry()));
        }
        openDrivesBox();
        verifyOpenBox();

        // The arrow of a test takes the user to the log; the box closes on the way.
        QPushButton *arrow = status()->drivesView()->logButton(HXTest::SurfaceScan);
        QVERIFY(arrow && arrow->isVisible());
        QTest::mouseClick(arrow, Qt::LeftButton);
        QTRY_COMPARE(m_window->selectedTabViewIdentifier(), HXTabViewLogTabIdentifier);
        QTRY_VERIFY(settled());
        QVERIFY(!status()->showingBox());
        QTest::mouseClick(m_window->statusButton(), Qt::LeftButton);
        QTRY_COMPARE(m_window->selectedTabViewIdentifier(), HXTabViewStatusTabIdentifier);
        QTRY_VERIFY(settled());
        QVERIFY(!status()->repairAdviceView()->horizontalScrollBar()->isVisible());

        // Back on the status tab, the box opens as it did.
        openDrivesBox();
        verifyOpenBox();
        closeBox();
        QCOMPARE(status()->drivesView()->parentWidget(), status()->statusView());
    }

    void theWindowChangesSizeWithTheBoxOpen()
    {
        resizeWindow(1920, 1080);
        openDrivesBox();
        verifyOpenBox();
        resizeWindow(920, 651);
        verifyOpenBox();
        resizeWindow(1280, 800);
        verifyOpenBox();
        // It goes back to its place in the panel at the window's new size.
        const QRect place = status()->filesView()->geometry().translated(
            -status()->filesView()->x() + 14, 0); // the left column, the files' row
        closeBox();
        QCOMPARE(status()->drivesView()->geometry(), place);
    }
};

QTEST_MAIN(TestWindowSizes)
#include "tst_windowsizes.moc"
