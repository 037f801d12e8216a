#pragma once

#include <QFont>
#include <QStyledItemDelegate>

class QTreeView;

// Draws the log's cells and gives its rows their heights. Spacer and file
// rows are 20 points high; a message row is as high as its wrapped message:
// lines = text width / (Log Message column width - 30), rounded up;
// height = lines x text height + 10, at least 30. File rows truncate their
// name in the middle and end with the file's mark; every other cell wraps by
// words. A message with files ends with the underlined hint
// "(Double-click to show/hide files.)".
class HXLogCell : public QStyledItemDelegate
{
    Q_OBJECT

public:
    static constexpr int kShortRowHeight = 20;
    static constexpr int kMinimumMessageRowHeight = 30;
    static constexpr int kMessageWidthAllowance = 30;
    static constexpr int kVerticalPadding = 10;

    explicit HXLogCell(QTreeView *view);

    static QString hintText();
    // The hint's lettering: the 12-point system font, a point being a
    // device-independent pixel, as everywhere in the log's measures.
    static QFont hintFont(const QFont &cellFont);
    // The width the message row's text takes on one line.
    static int messageTextWidth(const QString &message, bool hint, const QFont &cellFont);
    static int messageRowHeight(int textWidth, int columnWidth, const QFontMetrics &metrics);

    // Where a file row's mark is drawn in its cell, for clicks on it.
    QRect fileMarkRect(const QStyleOptionViewItem &option, const QModelIndex &index) const;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

private:
    void paintMessage(QPainter *painter, const QRect &rect, const QModelIndex &index,
                      const QFont &font, const QColor &colour) const;
    void paintFile(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index,
                   const QColor &colour) const;

    QTreeView *m_view;
};
