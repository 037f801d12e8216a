#pragma once

#include "HXLogEntry.h"

#include <QPointer>
#include <QTreeView>
#include <set>

class HXFindHighlightView;
class HXLogCell;
class HXLogScroller;
class HXLogTreeModel;

// The log's outline: a row per message, its files below it. The rows the
// user expanded stay expanded through every reload of the log; new entries
// arrive at the top, so when the log grows the remembered rows move down by
// as many rows as it grew. Double-click, Enter or Space shows or hides a
// message's files; Ctrl+Enter, or a click on a file's mark, asks for the
// file to be shown in the file manager.
class HXLogOutlineView : public QTreeView
{
    Q_OBJECT

public:
    explicit HXLogOutlineView(QWidget *parent = nullptr);

    void setLogModel(HXLogTreeModel *model);
    HXLogTreeModel *logModel() const { return m_model; }
    HXLogCell *cell() const { return m_cell; }
    HXLogScroller *scroller() const { return m_scroller; }

    // Width allowance of the Date column, in points.
    void setDateColumnAllowance(double allowance);
    double dateColumnAllowance() const { return m_dateAllowance; }
    // The Date column as wide as 12 December 2012 in the short date style
    // plus the allowance; the Log Message column takes the rest. Neither
    // can be resized by the user.
    void sizeColumns();
    int dateColumnWidth() const;

    // Points at a top-level row: dims the rest, shows its date and message
    // on a badge ("<date> - <message>"), then fades.
    void highlightRow(int row);
    HXFindHighlightView *highlightView() const;

    // Shows or hides the files of a message row; answers whether it could.
    bool toggleExpansion(const QModelIndex &index);
    // The top-level rows expanded now, as this view remembers them.
    const std::set<int> &expandedRows() const { return m_expandedRows; }
    // The entries whose files are shown, for the print copy.
    std::set<const HXLogEntry *> expandedEntries() const;

Q_SIGNALS:
    void showInFileManagerRequested(const QModelIndex &index);
    void localeChanged();

protected:
    void focusInEvent(QFocusEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void updateGeometries() override;
    void changeEvent(QEvent *event) override;
    void drawBranches(QPainter *painter, const QRect &rect,
                      const QModelIndex &index) const override;

private:
    void rememberExpansions();
    void restoreExpansions();

    HXLogTreeModel *m_model = nullptr;
    HXLogCell *m_cell = nullptr;
    HXLogScroller *m_scroller = nullptr;
    QPointer<HXFindHighlightView> m_highlight;
    double m_dateAllowance = 14.0;
    std::set<int> m_expandedRows;
    std::set<int> m_beforeReload;
    int m_rowsBeforeReload = 0;
    bool m_geometriesPending = false;
};
