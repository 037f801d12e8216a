#include "HXShapedTextView.h"

#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QTextBlock>

HXShapedTextView::HXShapedTextView(QWidget *parent)
    : QWidget(parent)
    , m_japanese(QLocale().uiLanguages().value(0).startsWith(QLatin1String("ja")))
{
    setMouseTracking(true);
}

void HXShapedTextView::setDocument(std::unique_ptr<QTextDocument> document)
{
    m_document = std::move(document);
    relayout();
}

void HXShapedTextView::clear()
{
    m_document.reset();
    relayout();
}

void HXShapedTextView::setExclusionRect(const QRectF &rect)
{
    m_exclusion = rect;
    relayout();
}

qreal HXShapedTextView::lineWidthAt(qreal top) const
{
    if (m_exclusion.isNull())
        return kContainerWidth;
    const qreal bottom = m_exclusion.y() + m_exclusion.height() - (m_japanese ? 20 : 10);
    // The container's coordinates start at the inset.
    if (top + kInset < bottom)
        return m_exclusion.x() - kInset;
    return kContainerWidth;
}

void HXShapedTextView::relayout()
{
    m_layouts.clear();
    m_blockPositions.clear();
    qreal y = 0;
    if (m_document) {
        for (QTextBlock block = m_document->begin(); block.isValid(); block = block.next()) {
            auto layout = std::make_unique<QTextLayout>(block.text(), m_document->defaultFont());
            layout->setFormats(block.textFormats());
            QTextOption option;
            option.setWrapMode(QTextOption::WordWrap);
            layout->setTextOption(option);
            layout->beginLayout();
            while (true) {
                QTextLine line = layout->createLine();
                if (!line.isValid())
                    break;
                const qreal width = lineWidthAt(y) - 2 * kLineFragmentPadding;
                line.setLineWidth(std::max<qreal>(width, 40));
                line.setPosition(QPointF(kLineFragmentPadding, y));
                y += line.height();
            }
            layout->endLayout();
            m_blockPositions.push_back(block.position());
            m_layouts.push_back(std::move(layout));
        }
    }
    m_height = y;
    updateGeometry();
    resize(std::max(width(), int(kContainerWidth + 2 * kInset)), sizeHint().height());
    update();
}

QSize HXShapedTextView::sizeHint() const
{
    const qreal boxBottom = m_exclusion.isNull() ? 0 : m_exclusion.bottom();
    return {int(kContainerWidth + 2 * kInset), int(std::max(m_height + 2 * kInset, boxBottom + kInset))};
}

QList<QRectF> HXShapedTextView::lineRects() const
{
    QList<QRectF> rects;
    for (const auto &layout : m_layouts) {
        for (int i = 0; i < layout->lineCount(); ++i)
            rects.append(layout->lineAt(i).naturalTextRect().translated(kInset, kInset));
    }
    return rects;
}

QString HXShapedTextView::linkAt(const QPointF &point) const
{
    const QPointF inContainer = point - QPointF(kInset, kInset);
    for (size_t b = 0; b < m_layouts.size(); ++b) {
        const QTextLayout &layout = *m_layouts[b];
        for (int i = 0; i < layout.lineCount(); ++i) {
            const QTextLine line = layout.lineAt(i);
            if (!line.naturalTextRect().contains(inContainer))
                continue;
            const int position = line.xToCursor(inContainer.x(), QTextLine::CursorOnCharacter);
            const QTextBlock block = m_document->findBlock(m_blockPositions[b]);
            for (const QTextLayout::FormatRange &range : block.textFormats()) {
                if (position >= range.start && position < range.start + range.length && range.format.isAnchor())
                    return range.format.anchorHref();
            }
            return {};
        }
    }
    return {};
}

void HXShapedTextView::setTextOpacity(double opacity)
{
    m_textOpacity = opacity;
    update();
}

void HXShapedTextView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setOpacity(m_textOpacity);
    p.setPen(palette().color(QPalette::Text));
    for (const auto &layout : m_layouts)
        layout->draw(&p, QPointF(kInset, kInset));
}

void HXShapedTextView::mouseMoveEvent(QMouseEvent *event)
{
    setCursor(linkAt(event->position()).isEmpty() ? Qt::ArrowCursor : Qt::PointingHandCursor);
    QWidget::mouseMoveEvent(event);
}

void HXShapedTextView::mouseReleaseEvent(QMouseEvent *event)
{
    const QString href = linkAt(event->position());
    if (event->button() == Qt::LeftButton && !href.isEmpty())
        Q_EMIT linkActivated(href);
    QWidget::mouseReleaseEvent(event);
}
