#include "HXFade.h"

#include "HXAnimationTiming.h"

#include <QGraphicsOpacityEffect>
#include <QPropertyAnimation>
#include <QWidget>

QGraphicsOpacityEffect *HXOpacityEffect(QWidget *widget)
{
    auto *effect = qobject_cast<QGraphicsOpacityEffect *>(widget->graphicsEffect());
    if (!effect) {
        effect = new QGraphicsOpacityEffect(widget);
        effect->setOpacity(1.0);
        widget->setGraphicsEffect(effect);
    }
    return effect;
}

void HXFade(QWidget *widget, double opacity, int milliseconds)
{
    QGraphicsOpacityEffect *effect = HXOpacityEffect(widget);
    if (milliseconds <= 0) {
        effect->setOpacity(opacity);
        return;
    }
    auto *fade = new QPropertyAnimation(effect, "opacity", widget);
    fade->setDuration(HXAnimationTiming::milliseconds(milliseconds));
    fade->setEndValue(opacity);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}
