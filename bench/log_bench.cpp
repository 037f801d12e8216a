// The log tab with 50,000 log entries (every tenth with three file
// children), on the offscreen platform, beside a plain QTreeWidget filled
// with the same rows. Each side runs in a fresh process:
//   first paint: from the reporter's report-changed signal to the end of the
//                first paint of the viewport showing rows;
//   reload:      a new report (one entry more) with 1,000 rows expanded,
//                to the end of the next paint, the expansions kept;
//   scrolling:   page by page from top to bottom, each viewport paint timed
//                in the process (worst and median);
//   memory:      resident size and heap after the tab is shown with the log
//                (and reloaded and scrolled), above what the process held
//                with the decoded report and an empty window already up,
//                beside the heap the decoded report itself takes.
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "ReportFactory.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QHeaderView>
#include <QProcess>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <malloc.h>
#include <string>
#include <vector>

namespace {

constexpr int kEntries = 50000;
constexpr int kExpanded = 1000;

long statusKb(const char *field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(status, line)) {
        if (line.rfind(prefix, 0) == 0)
            return std::stol(line.substr(prefix.size()));
    }
    return -1;
}

// LOG_BENCH_STAGES=1 prints the outline's memory after each stage.

// Times every paint of a viewport, from its start to its end.
class PaintTimer : public QObject
{
public:
    explicit PaintTimer(QWidget *viewport)
        : m_viewport(viewport)
    {
        viewport->installEventFilter(this);
    }
    std::vector<double> milliseconds;
    std::function<void()> afterPaint;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched != m_viewport || event->type() != QEvent::Paint || m_inside)
            return false;
        m_inside = true;
        QElapsedTimer timer;
        timer.start();
        QCoreApplication::sendEvent(watched, event);
        milliseconds.push_back(double(timer.nsecsElapsed()) / 1e6);
        m_inside = false;
        if (afterPaint)
            afterPaint();
        return true;
    }

private:
    QWidget *m_viewport;
    bool m_inside = false;
};

struct Figures
{
    double firstPaint = 0;
    double reload = 0;
    double worstScroll = 0;
    double medianScroll = 0;
    int pages = 0;
    double rssMb = 0;
    double heapMb = 0;
};

// Waits for the next paint of the viewport (through the event loop, as the
// window would) and answers when it ended, in ms after `since`.
double untilNextPaint(PaintTimer &timer, const QElapsedTimer &since)
{
    double ended = -1;
    timer.afterPaint = [&] {
        ended = double(since.nsecsElapsed()) / 1e6;
    };
    while (ended < 0)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    timer.afterPaint = nullptr;
    return ended;
}

void scrollThrough(QAbstractScrollArea *area, PaintTimer &timer, Figures *f)
{
    QScrollBar *bar = area->verticalScrollBar();
    bar->setValue(0);
    area->viewport()->repaint();
    timer.milliseconds.clear();
    while (bar->value() < bar->maximum()) {
        bar->setValue(bar->value() + bar->pageStep());
        area->viewport()->repaint();
    }
    std::vector<double> times = timer.milliseconds;
    std::sort(times.begin(), times.end());
    f->pages = int(times.size());
    f->worstScroll = times.empty() ? 0 : times.back();
    f->medianScroll = times.empty() ? 0 : times[times.size() / 2];
}

HXStatusReportRef withOneMore(const HXStatusReportRef &report)
{
    auto next = HXStatusReport::report();
    HXLogEntryList log = report->log();
    log.append(HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"),
                                                       QStringLiteral("Passed: one more")));
    next->setLog(log);
    return next;
}

Figures measureOutline(HXStatusReportRef report, QWidget *window, long rssBefore, size_t heapBefore)
{
    Figures f;
    // The resident size in two parts: pages of the process's own (heap,
    // pixmaps) and pages of files (the libraries' code and fonts, as they
    // are first touched).
    const long anonBefore = statusKb("RssAnon");
    const long fileBefore = statusKb("RssFile");
    QTemporaryDir dir;
    HXNotificationCenter center;
    HXStatusReporter reporter(
        {dir.filePath(QStringLiteral("Report.zrrpt")), &center, nullptr, false});
    QElapsedTimer since;
    // Connected before the view's model: the clock starts with the signal.
    QObject::connect(&reporter, &HXStatusReporter::reportChanged, [&] { since.start(); });
    HXLogViewController controller({&reporter, &center});
    QWidget *page = controller.view();
    page->setParent(window);
    page->resize(window->size());
    page->show();
    HXLogOutlineView *outline = controller.outlineView();
    PaintTimer timer(outline->viewport());
    QCoreApplication::processEvents();

    const auto stage = [&](const char *name) {
        if (qEnvironmentVariableIsSet("LOG_BENCH_STAGES")) {
            malloc_trim(0);
            std::fprintf(stderr,
                         "%s: heap +%.1f MB, RSS +%.1f MB (own pages +%.1f, file pages +%.1f)\n",
                         name, double(mallinfo2().uordblks - heapBefore) / 1e6,
                         double(statusKb("VmRSS") - rssBefore) * 1024 / 1e6,
                         double(statusKb("RssAnon") - anonBefore) * 1024 / 1e6,
                         double(statusKb("RssFile") - fileBefore) * 1024 / 1e6);
        }
    };
    stage("empty tab shown");
    reporter.setReport(report);
    f.firstPaint = untilNextPaint(timer, since);
    stage("log shown");

    HXLogTreeModel *model = controller.model();
    int expanded = 0;
    for (int row = 0; row < model->rowCount() && expanded < kExpanded; ++row) {
        const QModelIndex index = model->index(row, 0);
        if (model->hasChildren(index)) {
            outline->expand(index);
            ++expanded;
        }
    }
    outline->viewport()->repaint();
    stage("rows expanded");
    // The report read anew replaces the old one, which goes.
    HXStatusReportRef next = withOneMore(report);
    report.reset();
    reporter.setReport(std::move(next));
    reporter.waitForPendingReleases();
    f.reload = untilNextPaint(timer, since);
    if (int(outline->expandedRows().size()) != kExpanded)
        std::fprintf(stderr, "outline: %zu rows expanded after the reload\n",
                     outline->expandedRows().size());

    stage("reloaded");
    scrollThrough(outline, timer, &f);
    stage("scrolled");
    malloc_trim(0);
    f.rssMb = double(statusKb("VmRSS") - rssBefore) * 1024 / 1e6;
    f.heapMb = double(mallinfo2().uordblks - heapBefore) / 1e6;
    return f;
}

// The naive alternative: the rows copied into items, all of them anew on
// every change, the expansions put back by position.
void fill(QTreeWidget *tree, const HXStatusReportRef &report)
{
    const QLocale locale;
    const HXLogEntryList log = report->log();
    QList<QTreeWidgetItem *> items;
    items.reserve(log.size());
    for (auto it = log.crbegin(); it != log.crend(); ++it) {
        const HXLogEntryRef &e = *it;
        auto *item = new QTreeWidgetItem(
            {QString(), locale.toString(e->timestamp().date(), QLocale::ShortFormat),
             e->string().section(QLatin1Char(':'), 1).trimmed()});
        const HXLogEntryList children = e->children().value_or(HXLogEntryList());
        for (const HXLogEntryRef &c : children)
            item->addChild(new QTreeWidgetItem({QString(), QString(), c->string()}));
        items.append(item);
    }
    tree->clear();
    tree->addTopLevelItems(items);
}

Figures measureTreeWidget(HXStatusReportRef report, QWidget *window, long rssBefore,
                          size_t heapBefore)
{
    Figures f;
    QTemporaryDir dir;
    HXNotificationCenter center;
    HXStatusReporter reporter(
        {dir.filePath(QStringLiteral("Report.zrrpt")), &center, nullptr, false});
    QTreeWidget tree(window);
    tree.setColumnCount(3);
    tree.setWordWrap(true);
    tree.setGeometry(6, 6, window->width() - 12, window->height() - 12);
    tree.header()->resizeSection(0, 44);
    tree.header()->resizeSection(1, 80);
    QElapsedTimer since;
    std::vector<int> expandedRows;
    QObject::connect(&reporter, &HXStatusReporter::reportChanged, [&] {
        since.start();
        fill(&tree, reporter.report());
        for (const int row : expandedRows)
            tree.topLevelItem(row + 1)->setExpanded(true); // one new row on top
    });
    tree.show();
    PaintTimer timer(tree.viewport());
    QCoreApplication::processEvents();

    reporter.setReport(report);
    f.firstPaint = untilNextPaint(timer, since);
    for (int row = 0; row < tree.topLevelItemCount() && int(expandedRows.size()) < kExpanded;
         ++row) {
        if (tree.topLevelItem(row)->childCount() > 0) {
            tree.topLevelItem(row)->setExpanded(true);
            expandedRows.push_back(row);
        }
    }
    tree.viewport()->repaint();
    HXStatusReportRef next = withOneMore(report);
    report.reset();
    reporter.setReport(std::move(next));
    reporter.waitForPendingReleases();
    f.reload = untilNextPaint(timer, since);

    scrollThrough(&tree, timer, &f);
    malloc_trim(0);
    f.rssMb = double(statusKb("VmRSS") - rssBefore) * 1024 / 1e6;
    f.heapMb = double(mallinfo2().uordblks - heapBefore) / 1e6;
    return f;
}

int measure(const QString &which, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return 1;
    malloc_trim(0);
    const size_t heapEmpty = mallinfo2().uordblks;
    HXStatusReportRef report;
    {
        const QByteArray bytes = file.readAll();
        QString error;
        report = HXReportArchive::decodeReport(bytes, &error);
    }
    if (!report)
        return 1;
    malloc_trim(0);
    const double reportMb = double(mallinfo2().uordblks - heapEmpty) / 1e6;
    // The window is up before the tab shows, as in the application: what
    // the toolkit takes for its first window is not the tab's.
    QWidget window;
    window.resize(900, 700);
    window.show();
    QTest::qWait(50);
    malloc_trim(0);
    const size_t heapBefore = mallinfo2().uordblks;
    const long rssBefore = statusKb("VmRSS");
    const Figures f = which == QLatin1String("outline")
                          ? measureOutline(std::move(report), &window, rssBefore, heapBefore)
                          : measureTreeWidget(std::move(report), &window, rssBefore, heapBefore);
    std::printf("%-11s %9.1f %9.1f %9.2f %9.2f %6d %9.1f %9.1f %9.1f\n", qPrintable(which),
                f.firstPaint, f.reload, f.worstScroll, f.medianScroll, f.pages, f.rssMb, f.heapMb,
                reportMb);
    std::fflush(stdout);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    HXSystemLog::setSink([](const QString &) {});
    if (argc > 2)
        return measure(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
    {
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(HXReportArchive::encodeReport(*ReportFactory::make(0, kEntries)));
    }
    std::printf("%d log entries, every tenth with three files; %d rows expanded for the reload\n",
                kEntries, kExpanded);
    std::printf("%-11s %9s %9s %9s %9s %6s %9s %9s %9s\n", "view", "first ms", "reload ms",
                "worst ms", "median ms", "pages", "RSS +MB", "heap +MB", "report MB");
    int status = 0;
    for (const char *which : {"outline", "treewidget"}) {
        QProcess child;
        child.setProcessChannelMode(QProcess::ForwardedChannels);
        child.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(which), path});
        child.waitForFinished(-1);
        status |= child.exitCode();
    }
    return status;
}
