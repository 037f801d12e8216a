#include "HXLogCell.h"

#include "HXLogIcons.h"
#include "HXLogTreeModel.h"

#include <QApplication>
#include <QHeaderView>
#include <QPainter>
#include <QTextLayout>
#include <QTreeView>
#include <cmath>

namespace {
constexpr int kHorizontalPadding = 4;
constexpr int kTopPadding = HXLogCell::kVerticalPadding / 2;
} // namespace

HXLogCell::HXLogCell(QTreeView *view)
    : QStyledItemDelegate(view)
    , m_view(view)
{
}

QString HXLogCell::hintText()
{
    return tr("(Double-click to show/hide files.)");
}

QFont HXLogCell::hintFont(const QFont &cellFont)
{
    QFont font = cellFont;
    font.setPixelSize(12);
    font.setUnderline(true);
    return font;
}

int HXLogCell::messageTextWidth(const QString &message, bool hint, const QFont &cellFont)
{
    int width = QFontMetrics(cellFont).horizontalAdvance(message);
    if (hint)
        width += QFontMetrics(cellFont).horizontalAdvance(QLatin1Char(' ')) +
                 QFontMetrics(hintFont(cellFont)).horizontalAdvance(hintText());
    return width;
}

int HXLogCell::messageRowHeight(int textWidth, int columnWidth, const QFontMetrics &metrics)
{
    const int usable = std::max(1, columnWidth - kMessageWidthAllowance);
    const int lines = std::max(1, int(std::ceil(double(textWidth) / usable)));
    return std::max(kMinimumMessageRowHeight, lines * metrics.height() + kVerticalPadding);
}

QSize HXLogCell::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const int width = m_view->header()->sectionSize(index.column());
    // Every column of a row answers the same height, so the message column
    // alone is measured.
    if (index.column() != HXLogTreeModel::MessageColumn)
        return {width, kShortRowHeight};
    const auto kind = HXLogTreeModel::RowKind(index.data(HXLogTreeModel::RowKindRole).toInt());
    if (kind != HXLogTreeModel::MessageRow)
        return {width, kShortRowHeight};
    const QString message = index.data(Qt::DisplayRole).toString();
    const bool hint = index.data(HXLogTreeModel::HintRole).toBool();
    const int textWidth = messageTextWidth(message, hint, option.font);
    return {width, messageRowHeight(textWidth, width, QFontMetrics(option.font))};
}

QRect HXLogCell::fileMarkRect(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QRect text = option.rect.adjusted(kHorizontalPadding, 0, -kHorizontalPadding, 0);
    const int mark = HXLogIcons::kFileIconSize;
    const QString name = index.data(Qt::DisplayRole).toString();
    const int room = std::max(0, text.width() - mark);
    const int nameWidth = std::min(room, QFontMetrics(option.font).horizontalAdvance(name));
    return QRect(text.left() + nameWidth, text.top() + (text.height() - mark) / 2, mark, mark);
}

void HXLogCell::paint(QPainter *painter, const QStyleOptionViewItem &option,
                      const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    // The selection and focus background, without the item's own text.
    opt.text.clear();
    opt.icon = QIcon();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, widget);

    const auto kind = HXLogTreeModel::RowKind(index.data(HXLogTreeModel::RowKindRole).toInt());
    if (kind == HXLogTreeModel::SpacerRow)
        return;
    const bool selected = option.state & QStyle::State_Selected;
    const QColor colour =
        option.palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QRect cell =
        option.rect.adjusted(kHorizontalPadding, kTopPadding, -kHorizontalPadding, 0);

    switch (index.column()) {
    case HXLogTreeModel::TypeColumn: {
        const QIcon icon = qvariant_cast<QIcon>(index.data(Qt::DecorationRole));
        if (icon.isNull())
            return;
        const int size = HXLogIcons::kTypeIconSize;
        const QRect target(option.rect.left() + (option.rect.width() - size) / 2,
                           option.rect.top() +
                               std::min(kTopPadding + 2, (option.rect.height() - size) / 2),
                           size, size);
        icon.paint(painter, target);
        return;
    }
    case HXLogTreeModel::DateColumn:
        painter->save();
        painter->setFont(option.font);
        painter->setPen(colour);
        painter->drawText(cell, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap,
                          index.data(Qt::DisplayRole).toString());
        painter->restore();
        return;
    case HXLogTreeModel::MessageColumn:
        if (kind == HXLogTreeModel::FileRow)
            paintFile(painter, option, index, colour);
        else
            paintMessage(painter, cell, index, option.font, colour);
        return;
    default:
        return;
    }
}

void HXLogCell::paintMessage(QPainter *painter, const QRect &rect, const QModelIndex &index,
                             const QFont &font, const QColor &colour) const
{
    const QString message = index.data(Qt::DisplayRole).toString();
    const bool hint = index.data(HXLogTreeModel::HintRole).toBool();
    painter->save();
    painter->setPen(colour);
    painter->setFont(font);
    if (!hint) {
        painter->drawText(rect, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, message);
        painter->restore();
        return;
    }
    // The message, a blank and the hint in its own lettering, wrapped as one
    // paragraph.
    const QString text = message + QLatin1Char(' ') + hintText();
    QTextLayout layout(text, font);
    QTextCharFormat hintFormat;
    hintFormat.setFont(hintFont(font));
    layout.setFormats({{int(message.size()) + 1, int(hintText().size()), hintFormat}});
    QTextOption wrap;
    wrap.setWrapMode(QTextOption::WordWrap);
    layout.setTextOption(wrap);
    layout.beginLayout();
    qreal y = 0;
    while (true) {
        QTextLine line = layout.createLine();
        if (!line.isValid())
            break;
        line.setLineWidth(rect.width());
        line.setPosition(QPointF(0, y));
        y += line.height();
    }
    layout.endLayout();
    painter->setClipRect(rect.adjusted(0, -kTopPadding, 0, 0));
    layout.draw(painter, rect.topLeft());
    painter->restore();
}

void HXLogCell::paintFile(QPainter *painter, const QStyleOptionViewItem &option,
                          const QModelIndex &index, const QColor &colour) const
{
    const QRect mark = fileMarkRect(option, index);
    const int left = option.rect.left() + kHorizontalPadding;
    const int room =
        std::max(0, option.rect.right() - kHorizontalPadding - HXLogIcons::kFileIconSize - left);
    const QString name = index.data(Qt::DisplayRole).toString();
    const QFontMetrics metrics(option.font);
    const QString shown = metrics.horizontalAdvance(name) <= room
                              ? name
                              : metrics.elidedText(name, Qt::ElideMiddle, room);
    painter->save();
    painter->setFont(option.font);
    painter->setPen(colour);
    painter->drawText(QRect(left, option.rect.top(), room, option.rect.height()),
                      Qt::AlignLeft | Qt::AlignVCenter, shown);
    painter->restore();
    qvariant_cast<QIcon>(index.data(Qt::DecorationRole)).paint(painter, mark);
}
