#pragma once

class QGraphicsOpacityEffect;
class QWidget;

// A widget's opacity effect, made on first use at full opacity. Only leaves
// get one: effects on a widget and on one of its children do not nest.
QGraphicsOpacityEffect *HXOpacityEffect(QWidget *widget);
// Fades a widget to `opacity` over a nominal duration (scaled by
// HXAnimationTiming); at once when `milliseconds` is not positive.
void HXFade(QWidget *widget, double opacity, int milliseconds);
