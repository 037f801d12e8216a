#include "LogBenchSupport.h"

#include <QCoreApplication>
#include <QFile>
#include <QHeaderView>
#include <QLocale>
#include <QScrollBar>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <malloc.h>
#include <string>

namespace LogBenchSupport {

namespace {

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

double threadCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) / 1e6;
}

double kbToMb(long kb)
{
    return double(kb) * 1024 / 1e6;
}

} // namespace

MemorySample MemorySample::now()
{
    malloc_trim(0);
    MemorySample s;
    // With the blocks the allocator maps on their own (large arrays).
    const struct mallinfo2 info = mallinfo2();
    s.heap = info.uordblks + info.hblkhd;
    s.smallHeap = info.uordblks;
    s.rssKb = statusKb("VmRSS");
    s.anonKb = statusKb("RssAnon");
    s.fileKb = statusKb("RssFile");
    return s;
}

double MemorySample::heapMbAbove(const MemorySample &before) const
{
    return (double(heap) - double(before.heap)) / 1e6;
}

double MemorySample::smallHeapMbAbove(const MemorySample &before) const
{
    return (double(smallHeap) - double(before.smallHeap)) / 1e6;
}

MemorySample::Growth MemorySample::above(const MemorySample &before) const
{
    return {kbToMb(rssKb - before.rssKb), heapMbAbove(before), kbToMb(anonKb - before.anonKb),
            kbToMb(fileKb - before.fileKb)};
}

void Figures::print(const QString &which) const
{
    std::printf("%s %.1f %.1f %.1f %.2f %.2f %d %.0f %.2f %.2f %.2f %.2f %.2f %.2f %.2f %.2f "
                "%.2f %.2f\n",
                qPrintable(which), shown, firstPaint, reload, worstScroll, medianScroll, pages,
                heldKb, shownMemory.rssMb, shownMemory.heapMb, shownMemory.anonMb,
                shownMemory.fileMb, usedMemory.rssMb, usedMemory.heapMb, usedMemory.anonMb,
                usedMemory.fileMb, reportMb, worstScrollCpu);
    std::fflush(stdout);
}

void printTables(const QStringList &lines)
{
    std::printf("\n%-11s %9s %9s %9s %9s %9s %9s %6s\n", "view", "shown ms", "first ms",
                "reload ms", "worst ms", "(on cpu)", "median ms", "pages");
    std::vector<QStringList> rows;
    for (const QString &line : lines) {
        const QStringList v = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (v.size() != 18) {
            std::printf("%-11s (no figures: %s)\n", "?", qPrintable(line));
            continue;
        }
        rows.push_back(v);
        std::printf("%-11s %9s %9s %9s %9s %9s %9s %6s\n", qPrintable(v[0]), qPrintable(v[1]),
                    qPrintable(v[2]), qPrintable(v[3]), qPrintable(v[4]), qPrintable(v[17]),
                    qPrintable(v[5]), qPrintable(v[6]));
    }
    std::printf("\nMemory in MB above the baseline (the status tab shown and painted);\n"
                "resident = own pages (anon) + file pages (code, fonts)\n");
    std::printf("%-11s %8s | %-29s | %-29s | %9s %9s\n", "view", "held KB",
                "tab shown: RSS heap anon file", "after use: RSS heap anon file", "report MB",
                "target <");
    for (const QStringList &v : rows) {
        std::printf("%-11s %8s | %6s %6s %6s %6s    | %6s %6s %6s %6s    | %9s %9.2f\n",
                    qPrintable(v[0]), qPrintable(v[7]), qPrintable(v[8]), qPrintable(v[9]),
                    qPrintable(v[10]), qPrintable(v[11]), qPrintable(v[12]), qPrintable(v[13]),
                    qPrintable(v[14]), qPrintable(v[15]), qPrintable(v[16]), v[16].toDouble() / 2);
    }
}

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("unknown");
    return QString::fromLatin1(file.readAll()).trimmed();
}

PaintTimer::PaintTimer(QWidget *viewport)
    : m_viewport(viewport)
{
    viewport->installEventFilter(this);
}

bool PaintTimer::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != m_viewport || event->type() != QEvent::Paint || m_inside)
        return false;
    m_inside = true;
    QElapsedTimer timer;
    timer.start();
    const double cpu = threadCpuMs();
    QCoreApplication::sendEvent(watched, event);
    milliseconds.push_back(double(timer.nsecsElapsed()) / 1e6);
    cpuMilliseconds.push_back(threadCpuMs() - cpu);
    m_inside = false;
    if (afterPaint)
        afterPaint();
    return true;
}

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
    timer.cpuMilliseconds.clear();
    while (bar->value() < bar->maximum()) {
        bar->setValue(bar->value() + bar->pageStep());
        area->viewport()->repaint();
    }
    std::vector<double> times = timer.milliseconds;
    std::sort(times.begin(), times.end());
    f->pages = int(times.size());
    f->worstScroll = times.empty() ? 0 : times.back();
    f->medianScroll = times.empty() ? 0 : times[times.size() / 2];
    f->worstScrollCpu =
        timer.cpuMilliseconds.empty()
            ? 0
            : *std::max_element(timer.cpuMilliseconds.begin(), timer.cpuMilliseconds.end());
}

TreeWidgetLogTab::TreeWidgetLogTab(HXStatusReporter *reporter)
    : m_reporter(reporter)
{
    setTitle(QStringLiteral("Log View"));
    QObject::connect(reporter, &HXStatusReporter::reportChanged, this, [this] {
        if (!m_filled)
            return;
        const int before = m_tree->topLevelItemCount();
        fill();
        // New entries arrive at the top: the expanded rows move down.
        const int shift = std::max(0, m_tree->topLevelItemCount() - before);
        for (int &row : m_expandedRows) {
            row += shift;
            if (QTreeWidgetItem *item = m_tree->topLevelItem(row))
                item->setExpanded(true);
        }
    });
}

QTreeWidget *TreeWidgetLogTab::tree()
{
    view();
    return m_tree;
}

QWidget *TreeWidgetLogTab::makeView()
{
    auto *page = new QWidget;
    auto *layout = new QVBoxLayout(page);
    layout->setContentsMargins(6, 6, 6, 6);
    m_tree = new QTreeWidget(page);
    m_tree->setColumnCount(3);
    m_tree->setHeaderLabels({QString(), QStringLiteral("Date"), QStringLiteral("Log Message")});
    m_tree->setWordWrap(true);
    m_tree->header()->resizeSection(0, 44);
    m_tree->header()->resizeSection(1, 80);
    layout->addWidget(m_tree);
    return page;
}

void TreeWidgetLogTab::viewWillAppearHX()
{
    if (!m_filled)
        fill();
}

void TreeWidgetLogTab::expandRow(int row)
{
    m_tree->topLevelItem(row)->setExpanded(true);
    m_expandedRows.push_back(row);
}

void TreeWidgetLogTab::fill()
{
    m_filled = true;
    const QLocale locale;
    const HXStatusReportRef report = m_reporter->report();
    const HXLogEntryList log = report ? report->log() : HXLogEntryList();
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
    m_tree->clear();
    m_tree->addTopLevelItems(items);
}

} // namespace LogBenchSupport
