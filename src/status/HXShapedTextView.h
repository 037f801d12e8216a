#pragma once

#include <QRectF>
#include <QScrollArea>
#include <QTextDocument>
#include <QTextLayout>
#include <QWidget>

class QResizeEvent;

#include <memory>
#include <vector>

// The advice text beside an open result box. Its text container is as wide
// as the view less an inset of 16 on each side (580 points at the view's
// natural width) and as high as the text, and its lines flow around the box:
// a line whose top lies above the box's bottom (10 points above it, 20 in
// Japanese) ends at the box's left edge; every other line takes the full
// width. The view's height follows its width (heightForWidth), so that its
// owner can fit it to any window without a horizontal scroll bar.
class HXShapedTextView : public QWidget
{
    Q_OBJECT
    // The text fades by painting, so that the box inside keeps its own look.
    Q_PROPERTY(double textOpacity READ textOpacity WRITE setTextOpacity)

public:
    static constexpr qreal kContainerWidth = 580;
    static constexpr qreal kInset = 16;
    static constexpr qreal kLineFragmentPadding = 5;

    explicit HXShapedTextView(QWidget *parent = nullptr);

    QTextDocument *document() const { return m_document.get(); }
    // Takes the document; lays it out anew.
    void setDocument(std::unique_ptr<QTextDocument> document);
    void clear();

    // The box the text flows around, in this view's coordinates.
    void setExclusionRect(const QRectF &rect);
    QRectF exclusionRect() const { return m_exclusion; }

    // The width a line with this top (in the container's coordinates) may take.
    qreal lineWidthAt(qreal top) const { return lineWidthAt(top, containerWidth()); }
    qreal containerWidth() const { return containerWidthFor(width()); }
    // The laid-out lines, for tests: the rectangle of each, in view coordinates.
    QList<QRectF> lineRects() const;
    // The link under a point, or empty.
    QString linkAt(const QPointF &point) const;

    // What a screen reader reads: the text, its links, where its characters
    // stand (in view coordinates).
    struct Link
    {
        QString text;
        QString href;
        int start = 0; // in plainText()
        int length = 0;
    };
    QString plainText() const;
    QList<Link> links() const;
    QRectF textRect(int start, int length) const;
    // The same, one rectangle a line.
    QList<QRectF> textRects(int start, int length) const;
    // The text position at a point, or -1.
    int positionAt(const QPointF &point) const;
    // As a click on the link would.
    void activateLink(const QString &href) { Q_EMIT linkActivated(href); }
    // The link the keyboard is on (an index of links()), or -1. Tab and
    // Shift+Tab step through the links before they leave the view; Enter
    // activates the one the keyboard is on.
    int focusedLink() const { return m_focusedLink; }

    double textOpacity() const { return m_textOpacity; }
    void setTextOpacity(double opacity);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

Q_SIGNALS:
    void linkActivated(const QString &href);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    bool focusNextPrevChild(bool next) override;

private:
    static qreal containerWidthFor(int viewWidth);
    qreal lineWidthAt(qreal top, qreal containerWidth) const;
    // Lays the text out for a container width; the height of the text.
    qreal layOut(qreal containerWidth, std::vector<std::unique_ptr<QTextLayout>> *layouts) const;
    int heightFor(qreal textHeight) const;
    void relayout();
    void textChanged(const QString &before);
    void setFocusedLink(int index);

    std::unique_ptr<QTextDocument> m_document;
    std::vector<std::unique_ptr<QTextLayout>> m_layouts;
    std::vector<int> m_blockPositions;
    QRectF m_exclusion;
    qreal m_height = 0;
    double m_textOpacity = 1.0;
    int m_focusedLink = -1;
    bool m_japanese;
};

// The scroll area the advice stands in. Tab into the advice must not centre
// the whole (tall) text, as a plain scroll area does with the widget that
// takes the focus: the advice scrolls its own link into sight instead.
class HXAdviceScrollArea : public QScrollArea
{
    Q_OBJECT

public:
    using QScrollArea::QScrollArea;

protected:
    bool focusNextPrevChild(bool next) override;
};
