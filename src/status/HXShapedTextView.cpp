#include "HXShapedTextView.h"

#include "HXAccessibility.h"
#include "HXKeyboardFocus.h"

#include <QAccessible>
#include <QLocale>
#include <QMouseEvent>
#include <QPainter>
#include <QResizeEvent>
#include <QScrollArea>
#include <QTextBlock>
#include <cmath>

HXShapedTextView::HXShapedTextView(QWidget *parent)
    : QWidget(parent)
    , m_japanese(QLocale().uiLanguages().value(0).startsWith(QLatin1String("ja")))
{
    setMouseTracking(true);
    HXAccessibility::install();
}

void HXShapedTextView::setDocument(std::unique_ptr<QTextDocument> document)
{
    const QString before = plainText();
    m_document = std::move(document);
    m_focusedLink = -1;
    relayout();
    textChanged(before);
}

void HXShapedTextView::clear()
{
    const QString before = plainText();
    m_document.reset();
    m_focusedLink = -1;
    relayout();
    textChanged(before);
}

void HXShapedTextView::textChanged(const QString &before)
{
    if (!QAccessible::isActive())
        return;
    QAccessibleTextUpdateEvent event(this, 0, before, plainText());
    QAccessible::updateAccessibility(&event);
}

void HXShapedTextView::setExclusionRect(const QRectF &rect)
{
    m_exclusion = rect;
    relayout();
}

qreal HXShapedTextView::containerWidthFor(int viewWidth)
{
    // Narrower than a few words the text cannot be read; the owner keeps the
    // view far wider than this.
    return std::max<qreal>(viewWidth - 2 * kInset, 120);
}

qreal HXShapedTextView::lineWidthAt(qreal top, qreal containerWidth) const
{
    if (m_exclusion.isNull())
        return containerWidth;
    const qreal bottom = m_exclusion.y() + m_exclusion.height() - (m_japanese ? 20 : 10);
    // The container's coordinates start at the inset.
    if (top + kInset < bottom)
        return std::min(m_exclusion.x() - kInset, containerWidth);
    return containerWidth;
}

qreal HXShapedTextView::layOut(qreal containerWidth,
                               std::vector<std::unique_ptr<QTextLayout>> *layouts) const
{
    qreal y = 0;
    if (!m_document)
        return y;
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
            const qreal width = lineWidthAt(y, containerWidth) - 2 * kLineFragmentPadding;
            line.setLineWidth(std::max<qreal>(width, 40));
            line.setPosition(QPointF(kLineFragmentPadding, y));
            y += line.height();
        }
        layout->endLayout();
        if (layouts)
            layouts->push_back(std::move(layout));
    }
    return y;
}

int HXShapedTextView::heightFor(qreal textHeight) const
{
    const qreal boxBottom = m_exclusion.isNull() ? 0 : m_exclusion.bottom();
    return int(std::ceil(std::max(textHeight + 2 * kInset, boxBottom + kInset)));
}

void HXShapedTextView::relayout()
{
    m_layouts.clear();
    m_blockPositions.clear();
    m_height = layOut(containerWidth(), &m_layouts);
    if (m_document) {
        for (QTextBlock block = m_document->begin(); block.isValid(); block = block.next())
            m_blockPositions.push_back(block.position());
    }
    // Tab stops here only for links to step through.
    setFocusPolicy(links().isEmpty() ? Qt::NoFocus : Qt::TabFocus);
    updateGeometry();
    update();
}

int HXShapedTextView::heightForWidth(int width) const
{
    return heightFor(width == this->width() ? m_height : layOut(containerWidthFor(width), nullptr));
}

QSize HXShapedTextView::sizeHint() const
{
    const int width = int(kContainerWidth + 2 * kInset);
    return {width, heightForWidth(width)};
}

QSize HXShapedTextView::minimumSizeHint() const
{
    return {0, 0};
}

void HXShapedTextView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (event->size().width() != event->oldSize().width())
        relayout();
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

QString HXShapedTextView::plainText() const
{
    return m_document ? m_document->toPlainText() : QString();
}

QList<HXShapedTextView::Link> HXShapedTextView::links() const
{
    QList<Link> links;
    if (!m_document)
        return links;
    for (QTextBlock block = m_document->begin(); block.isValid(); block = block.next()) {
        for (const QTextLayout::FormatRange &range : block.textFormats()) {
            if (!range.format.isAnchor() || range.format.anchorHref().isEmpty())
                continue;
            links.append({block.text().mid(range.start, range.length), range.format.anchorHref(),
                          block.position() + range.start, range.length});
        }
    }
    return links;
}

QList<QRectF> HXShapedTextView::textRects(int start, int length) const
{
    QList<QRectF> rects;
    for (size_t b = 0; b < m_layouts.size(); ++b) {
        const QTextLayout &layout = *m_layouts[b];
        const int from = std::max(0, start - m_blockPositions[b]);
        const int to = std::min(int(layout.text().size()), start + length - m_blockPositions[b]);
        if (from >= to)
            continue;
        for (int i = 0; i < layout.lineCount(); ++i) {
            const QTextLine line = layout.lineAt(i);
            const int lineEnd = line.textStart() + line.textLength();
            const int a = std::max(from, line.textStart());
            const int z = std::min(to, lineEnd);
            if (a >= z)
                continue;
            const qreal left = line.cursorToX(a);
            const qreal right = line.cursorToX(z);
            rects.append(QRectF(QPointF(std::min(left, right), line.y()),
                                QPointF(std::max(left, right), line.y() + line.height()))
                             .translated(layout.position() + QPointF(kInset, kInset)));
        }
    }
    return rects;
}

QRectF HXShapedTextView::textRect(int start, int length) const
{
    QRectF united;
    for (const QRectF &rect : textRects(start, length))
        united |= rect;
    return united;
}

int HXShapedTextView::positionAt(const QPointF &point) const
{
    const QPointF inContainer = point - QPointF(kInset, kInset);
    for (size_t b = 0; b < m_layouts.size(); ++b) {
        const QTextLayout &layout = *m_layouts[b];
        for (int i = 0; i < layout.lineCount(); ++i) {
            const QTextLine line = layout.lineAt(i);
            if (line.naturalTextRect().contains(inContainer))
                return m_blockPositions[b] +
                       line.xToCursor(inContainer.x(), QTextLine::CursorOnCharacter);
        }
    }
    return -1;
}

void HXShapedTextView::setTextOpacity(double opacity)
{
    const bool wasShowing = m_textOpacity > 0.0;
    m_textOpacity = opacity;
    update();
    // Faded out, the text is not showing to a screen reader either.
    if (wasShowing != (opacity > 0.0)) {
        QAccessible::State changed;
        changed.invisible = true;
        QAccessibleStateChangeEvent event(this, changed);
        QAccessible::updateAccessibility(&event);
    }
}

void HXShapedTextView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setOpacity(m_textOpacity);
    p.setPen(palette().color(QPalette::Text));
    for (const auto &layout : m_layouts)
        layout->draw(&p, QPointF(kInset, kInset));
    // The keyboard's mark on its link, in the window's highlight colour:
    // only Tab puts it there, never a click.
    const QList<Link> all = links();
    if (hasFocus() && m_focusedLink >= 0 && m_focusedLink < all.size()) {
        const Link &link = all[m_focusedLink];
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(QColor(0xf0, 0x8a, 0x24), 2));
        p.setBrush(Qt::NoBrush);
        // Line by line: a link that wraps is outlined where its words are.
        for (const QRectF &part : textRects(link.start, link.length))
            p.drawRoundedRect(part.adjusted(-3, -1, 3, 1), 4, 4);
    }
}

void HXShapedTextView::setFocusedLink(int index)
{
    m_focusedLink = index;
    update();
    const QList<Link> all = links();
    if (index < 0 || index >= all.size())
        return;
    // Scrolled into sight, as Tab does with any control.
    const QRect shown = textRect(all[index].start, all[index].length).toAlignedRect();
    for (QWidget *up = parentWidget(); up; up = up->parentWidget()) {
        if (auto *scroll = qobject_cast<QScrollArea *>(up)) {
            const QPoint centre = mapTo(scroll->widget(), shown.center());
            scroll->ensureVisible(centre.x(), centre.y(), 0, shown.height());
            break;
        }
    }
    // A screen reader follows the keyboard to the link.
    if (QAccessible::isActive()) {
        if (QAccessibleInterface *advice = QAccessible::queryAccessibleInterface(this)) {
            if (QAccessibleInterface *link = advice->child(index)) {
                QAccessibleEvent event(link, QAccessible::Focus);
                QAccessible::updateAccessibility(&event);
            }
        }
    }
}

void HXShapedTextView::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    // Only a key steps onto a link: the focus also passes through here when
    // the control that had it is disabled or hidden.
    const qsizetype count = HXKeyboardFocus::keyboardInUse() ? links().size() : 0;
    if (event->reason() == Qt::TabFocusReason && count > 0)
        setFocusedLink(0);
    else if (event->reason() == Qt::BacktabFocusReason && count > 0)
        setFocusedLink(int(count) - 1);
}

void HXShapedTextView::focusOutEvent(QFocusEvent *event)
{
    QWidget::focusOutEvent(event);
    // Held by a popup or another window, the keyboard comes back to the
    // same link.
    if (event->reason() != Qt::PopupFocusReason && event->reason() != Qt::ActiveWindowFocusReason)
        setFocusedLink(-1);
}

bool HXShapedTextView::focusNextPrevChild(bool next)
{
    // Only when this view itself has the keyboard: a control inside it (the
    // open group view) passes Tab up through here too.
    if (hasFocus()) {
        const int to = next ? m_focusedLink + 1 : m_focusedLink - 1;
        if (to >= 0 && to < links().size() && !(m_focusedLink < 0 && !next)) {
            setFocusedLink(to);
            return true;
        }
    }
    return QWidget::focusNextPrevChild(next);
}

void HXShapedTextView::keyPressEvent(QKeyEvent *event)
{
    const QList<Link> all = links();
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && event->modifiers() == Qt::NoModifier && m_focusedLink >= 0 &&
        m_focusedLink < all.size()) {
        Q_EMIT linkActivated(all[m_focusedLink].href);
        return;
    }
    QWidget::keyPressEvent(event);
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

bool HXAdviceScrollArea::focusNextPrevChild(bool next)
{
    if (!QWidget::focusNextPrevChild(next))
        return false;
    QWidget *focus = focusWidget();
    if (focus && focus != widget() && widget() && widget()->isAncestorOf(focus))
        ensureWidgetVisible(focus);
    return true;
}
