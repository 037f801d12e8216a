#include "HXDescriptionField.h"

#include "HXAnimationTiming.h"

#include <QGraphicsOpacityEffect>
#include <QPropertyAnimation>

HXDescriptionField::HXDescriptionField(QWidget *parent)
    : QLabel(parent)
    , m_opacity(new QGraphicsOpacityEffect(this))
{
    m_opacity->setOpacity(1.0);
    setGraphicsEffect(m_opacity);
}

void HXDescriptionField::fadeIn()
{
    m_opacity->setOpacity(0.0);
    show();
    auto *fade = new QPropertyAnimation(m_opacity, "opacity", this);
    fade->setDuration(HXAnimationTiming::milliseconds(2000));
    fade->setStartValue(0.0);
    fade->setEndValue(1.0);
    fade->setEasingCurve(QEasingCurve::Linear);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

double HXDescriptionField::opacity() const
{
    return m_opacity->opacity();
}
