#include "HXTextAnimate.h"

#include "HXAnimationTiming.h"

#include <QPainter>
#include <QPropertyAnimation>

void HXTextAnimate::slideUp()
{
    animate(0.0, 30.0);
}

void HXTextAnimate::slideDown()
{
    animate(30.0, 0.0);
}

void HXTextAnimate::animate(double from, double to)
{
    stopAnimation();
    m_animation = new QPropertyAnimation(this, "translationY", this);
    m_animation->setDuration(HXAnimationTiming::milliseconds(1000));
    m_animation->setStartValue(from);
    m_animation->setEndValue(to);
    m_animation->start();
}

void HXTextAnimate::stopAnimation()
{
    if (!m_animation)
        return;
    m_animation->stop();
    delete m_animation;
    m_animation = nullptr;
    setTranslationY(0.0);
}

bool HXTextAnimate::isAnimating() const
{
    return m_animation && m_animation->state() == QAbstractAnimation::Running;
}

void HXTextAnimate::setTranslationY(double y)
{
    m_translationY = y;
    update();
}

void HXTextAnimate::paintEvent(QPaintEvent *event)
{
    if (m_translationY == 0.0) {
        QLabel::paintEvent(event);
        return;
    }
    // Drawn shifted: the text moves, the layout stays.
    QPainter p(this);
    p.setFont(font());
    p.setPen(palette().color(foregroundRole()));
    p.drawText(rect().translated(0, -qRound(m_translationY)), int(alignment()) | Qt::TextWordWrap, text());
}
