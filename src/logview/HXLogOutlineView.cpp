#include "HXLogOutlineView.h"

#include "HXFindHighlightView.h"
#include "HXLogCell.h"
#include "HXLogEntryText.h"
#include "HXLogScroller.h"
#include "HXLogTreeModel.h"

#include <QFocusEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace {
constexpr int kTypeColumnWidth = 44;
constexpr int kIndentation = 14;
} // namespace

HXLogOutlineView::HXLogOutlineView(QWidget *parent)
    : QTreeView(parent)
    , m_cell(new HXLogCell(this))
    , m_scroller(new HXLogScroller(this))
{
    setObjectName(QStringLiteral("logOutlineView"));
    setAccessibleName(tr("Log"));
    setAccessibleDescription(tr("The report's log, newest first. Enter shows or hides a "
                                "message's files; Ctrl+Enter shows a file in the file manager."));
    setItemDelegate(m_cell);
    setVerticalScrollBar(m_scroller);
    setUniformRowHeights(false);
    setExpandsOnDoubleClick(false);
    setAllColumnsShowFocus(true);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setIndentation(kIndentation);
    setAnimated(true);
    setTextElideMode(Qt::ElideMiddle);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    header()->setStretchLastSection(false);
    header()->setSectionsMovable(false);
    header()->setSectionResizeMode(QHeaderView::Fixed);
    connect(this, &QTreeView::expanded, this, [this](const QModelIndex &index) {
        if (!index.parent().isValid())
            m_expandedRows.insert(index.row());
    });
    connect(this, &QTreeView::collapsed, this, [this](const QModelIndex &index) {
        if (!index.parent().isValid())
            m_expandedRows.erase(index.row());
    });
}

void HXLogOutlineView::setLogModel(HXLogTreeModel *model)
{
    m_model = model;
    setModel(model);
    m_expandedRows.clear();
    // After the view's own reset, so that the rows are expanded in the
    // layout the reset schedules, in one pass.
    connect(model, &QAbstractItemModel::modelAboutToBeReset, this,
            &HXLogOutlineView::rememberExpansions);
    connect(model, &QAbstractItemModel::modelReset, this, &HXLogOutlineView::restoreExpansions);
    sizeColumns();
}

void HXLogOutlineView::rememberExpansions()
{
    // The row it points at may be elsewhere, or gone, after the reload.
    if (m_highlight)
        m_highlight->close();
    m_beforeReload = m_expandedRows;
    m_rowsBeforeReload = m_model->rowCount();
}

void HXLogOutlineView::restoreExpansions()
{
    m_expandedRows.clear();
    const int rows = m_model->rowCount();
    // New entries arrive at the top: the rows that were there move down.
    const int shift = rows > m_rowsBeforeReload ? rows - m_rowsBeforeReload : 0;
    for (const int row : m_beforeReload) {
        const QModelIndex index = m_model->index(row + shift, 0);
        if (index.isValid() && m_model->hasChildren(index))
            expand(index);
    }
    m_beforeReload.clear();
}

std::set<const HXLogEntry *> HXLogOutlineView::expandedEntries() const
{
    std::set<const HXLogEntry *> entries;
    for (const int row : m_expandedRows) {
        if (const HXLogEntryRef entry = m_model->entryForIndex(m_model->index(row, 0)))
            entries.insert(entry.get());
    }
    return entries;
}

bool HXLogOutlineView::toggleExpansion(const QModelIndex &index)
{
    const QModelIndex first = index.siblingAtColumn(0);
    if (!first.isValid() || !m_model || !m_model->hasChildren(first))
        return false;
    setExpanded(first, !isExpanded(first));
    return true;
}

void HXLogOutlineView::setDateColumnAllowance(double allowance)
{
    m_dateAllowance = allowance;
    sizeColumns();
}

int HXLogOutlineView::dateColumnWidth() const
{
    const QString sample = QLocale().toString(QDate(2012, 12, 12), QLocale::ShortFormat);
    return int(std::ceil(fontMetrics().horizontalAdvance(sample) + m_dateAllowance));
}

void HXLogOutlineView::sizeColumns()
{
    if (!m_model)
        return;
    const int date = dateColumnWidth();
    const int message = std::max(60, viewport()->width() - kTypeColumnWidth - date);
    const bool changed = header()->sectionSize(HXLogTreeModel::MessageColumn) != message ||
                         header()->sectionSize(HXLogTreeModel::DateColumn) != date;
    header()->setMinimumSectionSize(0);
    header()->resizeSection(HXLogTreeModel::TypeColumn, kTypeColumnWidth);
    header()->resizeSection(HXLogTreeModel::DateColumn, date);
    header()->resizeSection(HXLogTreeModel::MessageColumn, message);
    // Message rows wrap to the column: their heights change with it.
    if (changed)
        scheduleDelayedItemsLayout();
}

void HXLogOutlineView::resizeEvent(QResizeEvent *event)
{
    QTreeView::resizeEvent(event);
    sizeColumns();
}

// Sizing the scroll bar makes QTreeView lay out every row of the log, which
// takes a record per row. A tab that is not shown waits with it until it is,
// so a log nobody looks at costs neither the time nor the memory.
void HXLogOutlineView::updateGeometries()
{
    if (!isVisible()) {
        m_geometriesPending = true;
        return;
    }
    m_geometriesPending = false;
    QTreeView::updateGeometries();
}

void HXLogOutlineView::showEvent(QShowEvent *event)
{
    QTreeView::showEvent(event);
    if (m_geometriesPending)
        updateGeometries();
}

void HXLogOutlineView::changeEvent(QEvent *event)
{
    QTreeView::changeEvent(event);
    if (event->type() == QEvent::LocaleChange) {
        sizeColumns();
        Q_EMIT localeChanged();
    }
}

void HXLogOutlineView::focusInEvent(QFocusEvent *event)
{
    QTreeView::focusInEvent(event);
    // The keyboard arrives on the newest message, not on nothing: the first
    // rows are spacers, which the view's own choice would stop at, and a
    // screen reader would have no row to read.
    if (event->reason() != Qt::MouseFocusReason && !currentIndex().isValid() && m_model &&
        m_model->entryCount() > 0)
        setCurrentIndex(m_model->index(m_model->rowForPosition(0), 0));
}

void HXLogOutlineView::keyPressEvent(QKeyEvent *event)
{
    const QModelIndex current = currentIndex();
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && (event->modifiers() & Qt::ControlModifier)) {
        Q_EMIT showInFileManagerRequested(current);
        event->accept();
        return;
    }
    if ((enter || event->key() == Qt::Key_Space) && current.isValid()) {
        if (toggleExpansion(current)) {
            event->accept();
            return;
        }
    }
    QTreeView::keyPressEvent(event);
}

void HXLogOutlineView::mousePressEvent(QMouseEvent *event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    if (index.isValid() && index.column() == HXLogTreeModel::MessageColumn &&
        m_model->rowKind(index) == HXLogTreeModel::FileRow) {
        QStyleOptionViewItem option;
        initViewItemOption(&option);
        option.rect = visualRect(index);
        if (m_cell->fileMarkRect(option, index).contains(event->position().toPoint())) {
            setCurrentIndex(index);
            Q_EMIT showInFileManagerRequested(index);
            event->accept();
            return;
        }
    }
    QTreeView::mousePressEvent(event);
}

void HXLogOutlineView::drawBranches(QPainter *painter, const QRect &rect,
                                    const QModelIndex &index) const
{
    if (!m_model || index.parent().isValid() || !m_model->hasChildren(index))
        return;
    // A solid triangle in the text's colour (black on a light page), turned
    // down when the files are shown.
    const QRect box(rect.right() - kIndentation + 1, rect.top(), kIndentation,
                    std::min(rect.height(), 28));
    const QPointF c = QRectF(box).center();
    QPainterPath triangle;
    triangle.moveTo(-3.0, -4.5);
    triangle.lineTo(4.5, 0.0);
    triangle.lineTo(-3.0, 4.5);
    triangle.closeSubpath();
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(c);
    if (isExpanded(index))
        painter->rotate(90);
    painter->fillPath(triangle, palette().color(QPalette::Text));
    painter->restore();
}

HXFindHighlightView *HXLogOutlineView::highlightView() const
{
    return m_highlight;
}

void HXLogOutlineView::highlightRow(int row)
{
    if (!m_model)
        return;
    const QModelIndex first = m_model->index(row, 0);
    const HXLogEntryRef entry = m_model->entryForIndex(first);
    if (!entry)
        return;
    scrollTo(first, QAbstractItemView::PositionAtCenter);
    const QModelIndex last = first.siblingAtColumn(HXLogTreeModel::MessageColumn);
    QRect rowRect = visualRect(first).united(visualRect(last));
    rowRect.setLeft(0);
    const QImage snapshot = viewport()->grab(rowRect).toImage();
    const QString date =
        QLocale().toString(entry->timestamp().toLocalTime().date(), QLocale::ShortFormat);
    const QString message =
        HXLogEntryText::message(HXLogEntryText::withoutTrailingComma(entry->string()));
    if (m_highlight)
        m_highlight->close();
    m_highlight = new HXFindHighlightView(viewport());
    m_highlight->highlightSelectedText(QStringLiteral("%1 - %2").arg(date, message), rowRect,
                                       snapshot);
}
