#pragma once

// What log_bench measures with, and its naive log tab: a QTreeWidget that
// copies the report's rows into items.
#include "HXStatusReporter.h"
#include "HXViewController.h"

#include <QAbstractScrollArea>
#include <QElapsedTimer>
#include <QStringList>
#include <QTreeWidget>
#include <functional>
#include <vector>

namespace LogBenchSupport {

// The process's memory at one moment, after the allocator has given back
// what it could (so that resident sizes compare).
struct MemorySample
{
    size_t heap = 0;      // bytes in use on the heap, blocks mapped on their own too
    size_t smallHeap = 0; // without those, as report_memory counts
    long rssKb = 0;
    long anonKb = 0; // resident pages of the process's own
    long fileKb = 0; // resident pages of files: code, fonts, as first touched

    static MemorySample now();
    double heapMbAbove(const MemorySample &before) const;
    double smallHeapMbAbove(const MemorySample &before) const;

    struct Growth
    {
        double rssMb = 0, heapMb = 0, anonMb = 0, fileMb = 0;
    };
    Growth above(const MemorySample &before) const;
};

struct Figures
{
    double shown = 0;      // ms from choosing the tab to its first paint
    double firstPaint = 0; // ms from report-changed to the next paint
    double reload = 0;
    double worstScroll = 0;
    double medianScroll = 0;
    double worstScrollCpu = 0; // the same paint's time on the processor
    int pages = 0;
    double heldKb = 0; // heap of the tab before it is ever shown
    MemorySample::Growth shownMemory;
    MemorySample::Growth usedMemory;
    double reportMb = 0;

    // One line on standard output, for printTables().
    void print(const QString &which) const;
};

// The children's lines as a table of times and a table of sizes.
void printTables(const QStringList &lines);
QString loadAverage();

// Times every paint of a viewport, from its start to its end, on the clock
// and on the processor (what the thread itself spent, without the time other
// processes of a loaded machine took from it).
class PaintTimer : public QObject
{
public:
    explicit PaintTimer(QWidget *viewport);
    std::vector<double> milliseconds;
    std::vector<double> cpuMilliseconds;
    std::function<void()> afterPaint;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *m_viewport;
    bool m_inside = false;
};

// Waits for the next paint of the viewport (through the event loop, as the
// window would) and answers when it ended, in ms after `since`.
double untilNextPaint(PaintTimer &timer, const QElapsedTimer &since);
// Page by page from the top to the bottom, each page painted at once.
void scrollThrough(QAbstractScrollArea *area, PaintTimer &timer, Figures *f);

// The naive alternative: the rows copied into items, all of them anew on
// every change of the report, the expansions put back by position. It fills
// itself when first shown, as the outline lays itself out only then.
class TreeWidgetLogTab : public HXViewController
{
public:
    explicit TreeWidgetLogTab(HXStatusReporter *reporter);

    QTreeWidget *tree();
    void expandRow(int row);
    int expandedRowCount() const { return int(m_expandedRows.size()); }

    void viewWillAppearHX() override;

protected:
    QWidget *makeView() override;

private:
    void fill();

    HXStatusReporter *m_reporter;
    QTreeWidget *m_tree = nullptr;
    bool m_filled = false;
    std::vector<int> m_expandedRows;
};

} // namespace LogBenchSupport
