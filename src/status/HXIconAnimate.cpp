#include "HXIconAnimate.h"

#include "HXAccessibility.h"
#include "HXAccessibleWords.h"
#include "HXAnimationTiming.h"
#include "HXArtwork.h"

#include <QAccessible>
#include <QPainter>
#include <QPropertyAnimation>

HXIconAnimate::HXIconAnimate(const QString &imageName, QWidget *parent)
    : QWidget(parent)
    , m_imageName(imageName)
    , m_shown(imageName)
{
    HXAccessibility::install();
}

void HXIconAnimate::setTitle(const QString &title)
{
    m_title = title;
    updateAccessibleName();
}

void HXIconAnimate::updateAccessibleName()
{
    // Setting the name tells a screen reader that it changed.
    const QString name = HXAccessibleWords::liveIconName(m_title, m_status);
    if (!m_title.isEmpty())
        HXAccessibility::setName(this, name);
}

void HXIconAnimate::setOpacity(double opacity)
{
    m_opacity = opacity;
    update();
}

void HXIconAnimate::setFade(double fade)
{
    const bool wasShowing = m_fade > 0.0;
    m_fade = fade;
    update();
    if (wasShowing != (fade > 0.0)) {
        QAccessible::State changed;
        changed.invisible = true;
        QAccessibleStateChangeEvent event(this, changed);
        QAccessible::updateAccessibility(&event);
    }
}

void HXIconAnimate::setStatus(qint32 status)
{
    m_status = status;
    updateAccessibleName();
    QString variant = m_imageName;
    switch (status) {
    case 0:
        show(m_imageName);
        return;
    case 1:
        stopPulse();
        show(variant.replace(QLatin1String("Orange"), QLatin1String("Gray")));
        return;
    case 2:
        startPulse();
        return;
    case 3:
        stopPulse();
        show(variant.replace(QLatin1String("Orange"), QLatin1String("Red")));
        return;
    case 4:
        stopPulse();
        show(variant.replace(QLatin1String("Orange"), QLatin1String("Green")));
        return;
    default:
        return;
    }
}

void HXIconAnimate::show(const QString &imageName)
{
    m_shown = imageName;
    update();
}

bool HXIconAnimate::isPulsing() const
{
    return m_pulse != nullptr;
}

void HXIconAnimate::startPulse()
{
    if (m_pulse)
        return; // one pulse, however often the status says running
    m_pulse = new QPropertyAnimation(this, "opacity", this);
    // From 0.1 to 1.0 in half a second and back, without end.
    const int half = HXAnimationTiming::milliseconds(500);
    m_pulse->setDuration(2 * half);
    m_pulse->setKeyValueAt(0.0, 0.1);
    m_pulse->setKeyValueAt(0.5, 1.0);
    m_pulse->setKeyValueAt(1.0, 0.1);
    m_pulse->setEasingCurve(QEasingCurve::Linear);
    m_pulse->setLoopCount(-1);
    m_animationComplete = false;
    m_pulse->start();
}

void HXIconAnimate::stopPulse()
{
    if (!m_pulse)
        return;
    m_pulse->stop();
    delete m_pulse;
    m_pulse = nullptr;
    setOpacity(1.0);
    m_animationComplete = true;
}

void HXIconAnimate::paintEvent(QPaintEvent *)
{
    const int side = std::min(width(), height());
    const QRect square((width() - side) / 2, (height() - side) / 2, side, side);
    QPainter p(this);
    p.setOpacity(m_opacity * m_fade);
    p.drawPixmap(square, HXArtwork::pixmap(m_shown, square.size(), devicePixelRatioF()));
}
