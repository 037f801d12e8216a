// The log tab with 50,000 log entries (every tenth with three file
// children), on the offscreen platform, in the main window as the
// application builds it, beside a plain QTreeWidget tab filled with the same
// rows. Each side runs in a fresh process, in this order:
//   held:        the heap the log tab's controller and its (hidden) view take
//                when made, before the tab is ever shown;
//   shown:       the window shows the status tab and has painted it: that is
//                the baseline; then the log tab is chosen, and the time from
//                the choice to the end of the first paint of its rows;
//                resident size and heap above the baseline once it is shown;
//   first paint: from handing the reporter a report read anew (it sends its
//                report-changed signal then) to the end of the next paint
//                of the viewport;
//   reload:      a new report (one entry more) with 1,000 rows expanded,
//                to the end of the next paint, the expansions kept;
//   scrolling:   page by page from top to bottom, each viewport paint timed
//                in the process (worst and median; the worst also as the
//                time the thread spent on the processor, which a loaded
//                machine does not stretch);
//   used:        resident size and heap above the baseline after all that;
//   report:      the heap the decoded report takes, as report_memory
//                measures it (small blocks only, which leaves out the
//                entries' list, mapped on its own: the smaller figure).
// The tab's heap counts every block, mapped ones too (the larger figure).
#include "HXAnimationTiming.h"
#include "HXArtwork.h"
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXMachineProbes.h"
#include "HXMainWindowController.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"
#include "HXSystemLog.h"
#include "LogBenchSupport.h"
#include "ReportFactory.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <cstdio>
#include <memory>

using namespace LogBenchSupport;

namespace {

constexpr int kEntries = 50000;
constexpr int kExpanded = 1000;

HXStatusReportRef withOneMore(const HXStatusReportRef &report)
{
    auto next = HXStatusReport::report();
    HXLogEntryList log = report->log();
    log.append(HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"),
                                                       QStringLiteral("Passed: one more")));
    next->setLog(log);
    return next;
}

// The same entries in a report of its own, as when the file is read anew.
HXStatusReportRef readAnew(const HXStatusReportRef &report)
{
    auto next = HXStatusReport::report();
    next->setLog(report->log());
    return next;
}

class AboutTab : public HXViewController
{
public:
    AboutTab() { setTitle(QStringLiteral("About View")); }

protected:
    QWidget *makeView() override { return new QWidget; }
};

// What either kind of log tab offers the measurement.
struct LogTab
{
    HXViewController *controller = nullptr;
    QAbstractScrollArea *area = nullptr;
    std::function<int()> expand;       // expands rows; answers how many
    std::function<int()> expandedRows; // as the tab remembers them
    std::function<bool()> settled = [] {
        return true;
    };
};

LogTab outlineTab(HXLogViewController *controller)
{
    LogTab tab;
    tab.controller = controller;
    HXLogOutlineView *outline = controller->outlineView();
    tab.area = outline;
    tab.expand = [controller, outline] {
        HXLogTreeModel *model = controller->model();
        int expanded = 0;
        for (int row = 0; row < model->rowCount() && expanded < kExpanded; ++row) {
            const QModelIndex index = model->index(row, 0);
            if (model->hasChildren(index)) {
                outline->expand(index);
                ++expanded;
            }
        }
        return expanded;
    };
    tab.expandedRows = [outline] {
        return int(outline->expandedRows().size());
    };
    tab.settled = [controller] {
        return controller->isOnScreen();
    };
    return tab;
}

LogTab treeWidgetTab(TreeWidgetLogTab *controller)
{
    LogTab tab;
    tab.controller = controller;
    QTreeWidget *tree = controller->tree();
    tab.area = tree;
    tab.expand = [controller, tree] {
        int expanded = 0;
        for (int row = 0; row < tree->topLevelItemCount() && expanded < kExpanded; ++row) {
            if (tree->topLevelItem(row)->childCount() > 0) {
                controller->expandRow(row);
                ++expanded;
            }
        }
        return expanded;
    };
    tab.expandedRows = [controller] {
        return controller->expandedRowCount();
    };
    return tab;
}

int measure(const QString &which, const QString &path)
{
    QTemporaryDir root;
    QDir().mkpath(root.filePath(QStringLiteral("var/lib/orvex")));
    qputenv("ORVEX_ROOT", root.path().toUtf8());
    Figures f;

    // The decoded report, as report_memory measures it: the heap it keeps
    // once the file's bytes are gone.
    HXStatusReportRef report;
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return 1;
        const QByteArray bytes = file.readAll();
        const MemorySample before = MemorySample::now();
        QString error;
        report = HXReportArchive::decodeReport(bytes, &error);
        if (!report)
            return 1;
        f.reportMb = MemorySample::now().smallHeapMbAbove(before);
    }

    HXNotificationCenter center;
    HXStatusReporter reporter(
        {root.filePath(QStringLiteral("Report.zrrpt")), &center, nullptr, false});
    reporter.setReport(report);
    reporter.waitForPendingReleases();

    // The log tab first, with its view made as the window will make it:
    // what it holds before it is ever shown.
    const MemorySample beforeTab = MemorySample::now();
    // LOG_BENCH_STAGES=1 tells the heap and resident size after each stage.
    const bool stages = qEnvironmentVariableIsSet("LOG_BENCH_STAGES");
    const auto stage = [&](const char *name) {
        if (!stages)
            return;
        const MemorySample::Growth g = MemorySample::now().above(beforeTab);
        std::fprintf(stderr, "%s: %s: heap %+.2f MB, RSS %+.2f MB above the report alone\n",
                     qPrintable(which), name, g.heapMb, g.rssMb);
    };
    std::unique_ptr<HXViewController> logController;
    LogTab tab;
    if (which == QLatin1String("outline")) {
        auto *controller = new HXLogViewController({&reporter, &center});
        logController.reset(controller);
        tab = outlineTab(controller);
    } else {
        auto *controller = new TreeWidgetLogTab(&reporter);
        logController.reset(controller);
        tab = treeWidgetTab(controller);
    }
    tab.controller->view();
    f.heldKb = MemorySample::now().heapMbAbove(beforeTab) * 1000;
    stage("tab made");

    HXStatusViewController::Options statusOptions;
    statusOptions.reporter = &reporter;
    statusOptions.localCenter = &center;
    statusOptions.listenerPort = 0;
    HXStatusViewController status(statusOptions);
    AboutTab about;
    QSettings defaults(root.filePath(QStringLiteral("defaults.conf")), QSettings::IniFormat);
    HXMainWindowController::Options options;
    options.controllers = {&status, tab.controller, &about};
    options.defaults = &defaults;
    options.localCenter = &center;
    HXMainWindowController window(options);
    window.windowDidLoad();
    window.show();
    if (!QTest::qWaitForWindowExposed(&window))
        return 1;
    QTest::qWait(300);
    window.repaint();
    if (window.selectedTabViewIdentifier() != HXTabViewStatusTabIdentifier ||
        window.isHandingOver())
        return 1;

    stage("status tab painted");
    // The baseline: the status tab on screen and painted.
    const MemorySample baseline = MemorySample::now();
    PaintTimer timer(tab.area->viewport());
    QElapsedTimer since;
    since.start();
    window.showLogTab();
    f.shown = untilNextPaint(timer, since);
    while (window.isHandingOver() || !tab.settled())
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    QTest::qWait(100);
    f.shownMemory = MemorySample::now().above(baseline);
    stage("log tab shown");

    // The clock starts before the report is handed over (which sends the
    // report-changed signal at once), and stops at the end of the paint
    // that follows.
    since.start();
    reporter.setReport(readAnew(report));
    reporter.waitForPendingReleases();
    f.firstPaint = untilNextPaint(timer, since);
    stage("report read anew");

    const int expanded = tab.expand();
    tab.area->viewport()->repaint();
    stage("rows expanded");
    // The report read anew replaces the old one, which goes.
    HXStatusReportRef next = withOneMore(report);
    report.reset();
    since.start();
    reporter.setReport(std::move(next));
    reporter.waitForPendingReleases();
    f.reload = untilNextPaint(timer, since);
    stage("reloaded");
    if (expanded != kExpanded || tab.expandedRows() != kExpanded)
        std::fprintf(stderr, "%s: %d rows expanded, %d after the reload\n", qPrintable(which),
                     expanded, tab.expandedRows());

    scrollThrough(tab.area, timer, &f);
    stage("scrolled through");
    f.usedMemory = MemorySample::now().above(baseline);
    f.print(which);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    HXSystemLog::setSink([](const QString &) {});
    HXAnimationTiming::setScale(0.0); // no slide in the way of the figures
    HXFakeMachineProbes machine;
    HXMachineProbes::setCurrent(&machine);
    HXArtwork::loadFonts();
    if (argc > 2)
        return measure(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]));

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
    {
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly))
            return 1;
        f.write(HXReportArchive::encodeReport(*ReportFactory::make(0, kEntries)));
    }
    std::printf("%d log entries, every tenth with three files; %d rows expanded for the reload\n",
                kEntries, kExpanded);
    std::printf("load average before: %s\n", qPrintable(loadAverage()));
    QStringList lines;
    int status = 0;
    for (const char *which : {"outline", "treewidget"}) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        child.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(which), path});
        child.waitForFinished(-1);
        status |= child.exitStatus() == QProcess::NormalExit ? child.exitCode() : 1;
        lines << QString::fromUtf8(child.readAllStandardOutput()).trimmed();
    }
    printTables(lines);
    std::printf("load average after:  %s\n", qPrintable(loadAverage()));
    return status;
}
