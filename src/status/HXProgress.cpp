#include "HXProgress.h"

#include "HXArtwork.h"

#include <QPainter>

HXProgress::HXProgress(QWidget *parent)
    : QWidget(parent)
{
    setAttribute(Qt::WA_TranslucentBackground);
}

void HXProgress::setMinimum(double minimum)
{
    m_minimum = minimum;
    update();
}

void HXProgress::setMaximum(double maximum)
{
    m_maximum = maximum;
    update();
}

void HXProgress::setValue(double value)
{
    m_value = value;
    update();
}

QRectF HXProgress::barRect() const
{
    if (m_value == 0.0 || m_maximum == m_minimum)
        return {};
    // Single precision, as the bar has always computed it.
    const float fraction = float(m_value) / float(m_maximum - m_minimum);
    if (fraction == 0.0f)
        return {};
    return {2.0, 5.0, double(fraction) * width() - 4.0, height() - 10.0};
}

void HXProgress::paintEvent(QPaintEvent *)
{
    m_progressOffset += 1.0;
    if (m_progressOffset > 7.0)
        m_progressOffset = 0.0;

    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    // The groove the bar runs in.
    const QRectF groove = QRectF(rect()).adjusted(1.5, 4.5, -1.5, -4.5);
    p.setPen(QPen(QColor(0, 0, 0, 140), 1.0));
    p.setBrush(QColor(0, 0, 0, 70));
    p.drawRoundedRect(groove, groove.height() / 2, groove.height() / 2);

    const QRectF bar = barRect();
    if (bar.isEmpty())
        return;
    const qreal dpr = devicePixelRatioF();
    const qreal capWidth = std::min(bar.height() * 8.0 / 14.0, bar.width() / 2.0);
    const QSize capSize(qCeil(capWidth), qCeil(bar.height()));
    const QRectF left(bar.left(), bar.top(), capWidth, bar.height());
    const bool rightCap = showsRightCap();
    const QRectF right(bar.right() - capWidth, bar.top(), capWidth, bar.height());
    const QRectF middle(left.right(), bar.top(), (rightCap ? right.left() : bar.right()) - left.right(), bar.height());
    p.drawPixmap(left, HXArtwork::pixmap(QStringLiteral("progressLeft"), capSize, dpr), QRectF());
    if (middle.width() > 0)
        p.drawPixmap(middle, HXArtwork::pixmap(QStringLiteral("progressCenter.png"), middle.size().toSize() + QSize(1, 0), dpr),
                     QRectF());
    if (rightCap)
        p.drawPixmap(right, HXArtwork::pixmap(QStringLiteral("progressRight"), capSize, dpr), QRectF());
}
