#include "HXLogScroller.h"

#include <QPainter>
#include <QStyleOptionSlider>

HXLogScroller::HXLogScroller(QWidget *parent)
    : QScrollBar(Qt::Vertical, parent)
{
    setAccessibleName(tr("Log scroller"));
}

void HXLogScroller::setManualDraw(bool manualDraw)
{
    m_manualDraw = manualDraw;
    update();
}

void HXLogScroller::setHighlight(bool highlight)
{
    m_highlight = highlight;
    update();
}

void HXLogScroller::paintEvent(QPaintEvent *event)
{
    if (!m_manualDraw) {
        QScrollBar::paintEvent(event);
        return;
    }
    QStyleOptionSlider option;
    initStyleOption(&option);
    const QRect knob =
        style()->subControlRect(QStyle::CC_ScrollBar, &option, QStyle::SC_ScrollBarSlider, this);
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), QColor(0, 0, 0, 12));
    if (maximum() <= minimum())
        return;
    const QRectF shape = QRectF(knob).adjusted(3, 2, -3, -2);
    const bool active = m_highlight || isSliderDown();
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0, 0, 0, active ? 150 : 90));
    painter.drawRoundedRect(shape, shape.width() / 2, shape.width() / 2);
}

void HXLogScroller::enterEvent(QEnterEvent *event)
{
    setHighlight(true);
    QScrollBar::enterEvent(event);
}

void HXLogScroller::leaveEvent(QEvent *event)
{
    setHighlight(false);
    QScrollBar::leaveEvent(event);
}
