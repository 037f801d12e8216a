#pragma once

#include <QAccessibleWidget>
#include <QPointer>
#include <QTextDocument>
#include <vector>

class HXShapedTextView;

// The repair advice as a screen reader reads it: a read-only text, its
// links children of their own that open what they point to, and the open
// group view beside them.
class HXAccessibleAdvice : public QAccessibleWidget, public QAccessibleTextInterface
{
public:
    explicit HXAccessibleAdvice(HXShapedTextView *view);
    ~HXAccessibleAdvice() override;

    void *interface_cast(QAccessible::InterfaceType type) override;
    QAccessible::State state() const override;

    int childCount() const override;
    QAccessibleInterface *child(int index) const override;
    int indexOfChild(const QAccessibleInterface *child) const override;

    // QAccessibleTextInterface
    void selection(int selectionIndex, int *startOffset, int *endOffset) const override;
    int selectionCount() const override { return 0; }
    void addSelection(int, int) override {}
    void removeSelection(int) override {}
    void setSelection(int, int, int) override {}
    int cursorPosition() const override { return 0; }
    void setCursorPosition(int) override {}
    QString text(QAccessible::Text t) const override { return QAccessibleWidget::text(t); }
    QString text(int startOffset, int endOffset) const override;
    int characterCount() const override;
    QRect characterRect(int offset) const override;
    int offsetAtPoint(const QPoint &point) const override;
    void scrollToSubstring(int startIndex, int endIndex) override;
    QString attributes(int offset, int *startOffset, int *endOffset) const override;

    HXShapedTextView *view() const;

private:
    // The link children follow the document shown.
    void refreshLinks() const;
    void dropLinks() const;

    mutable QPointer<QTextDocument> m_linksOf;
    mutable int m_linksRevision = -1;
    mutable std::vector<QAccessible::Id> m_links;
};
