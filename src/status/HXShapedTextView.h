#pragma once

#include <QRectF>
#include <QTextDocument>
#include <QTextLayout>
#include <QWidget>

#include <memory>
#include <vector>

// The advice text beside an open result box. Its text container is 580
// points wide and as high as the text, inset 16 by 16, and its lines flow
// around the box: a line whose top lies above the box's bottom (10 points
// above it, 20 in Japanese) ends at the box's left edge; every other line
// takes the full width.
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
    qreal lineWidthAt(qreal top) const;
    // The laid-out lines, for tests: the rectangle of each, in view coordinates.
    QList<QRectF> lineRects() const;
    // The link under a point, or empty.
    QString linkAt(const QPointF &point) const;

    double textOpacity() const { return m_textOpacity; }
    void setTextOpacity(double opacity);

    QSize sizeHint() const override;

Q_SIGNALS:
    void linkActivated(const QString &href);

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void relayout();

    std::unique_ptr<QTextDocument> m_document;
    std::vector<std::unique_ptr<QTextLayout>> m_layouts;
    std::vector<int> m_blockPositions;
    QRectF m_exclusion;
    qreal m_height = 0;
    double m_textOpacity = 1.0;
    bool m_japanese;
};
