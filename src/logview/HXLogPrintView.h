#pragma once

#include "HXStatusReport.h"

#include <QList>
#include <QString>
#include <functional>
#include <memory>
#include <set>

class HXLogOutlineView;
class HXLogTreeModel;
class QPagedPaintDevice;

// The log's print copy: an outline of its own over the same report, sorted
// by the "Log Message" column, with the files of the messages the screen
// shows expanded, as wide as the page and as high as all its rows. Pages
// break between rows, never inside one, so no word is cut in two.
class HXLogPrintView
{
public:
    // `expanded`: the entries whose files are listed (the screen's choice).
    HXLogPrintView(const HXStatusReportRef &report,
                   const std::set<const HXLogEntry *> &expanded = {});
    ~HXLogPrintView();

    HXLogOutlineView *outline() const { return m_outline.get(); }

    // Told now and then how many rows of how many are painted (0 of 0 while
    // the rows are still measured); answers false to stop. A large log takes seconds: the caller
    // keeps its window alive from here.
    using Progress = std::function<bool(int done, int total)>;

    // Paints the copy page by page on `device`; false when it cannot be
    // painted there or `progress` stopped it.
    bool render(QPagedPaintDevice *device, const Progress &progress = {}) const;
    // Renders it into a PDF at `path`; an existing file is replaced only by
    // a whole new one. False with the reason, or with none when `progress`
    // stopped it; either way a file that was there stays as it was.
    bool saveAsPdf(const QString &path, QString *error, const Progress &progress = {}) const;

private:
    struct Row;
    // The rows in print order, each with its height at `width` points.
    QList<Row> layoutRows(int width, const Progress &progress = {}) const;

    HXStatusReportRef m_report;
    std::unique_ptr<HXLogTreeModel> m_model;
    std::unique_ptr<HXLogOutlineView> m_outline;
};
