#include "HXKeyboardFocus.h"

#include <QApplication>
#include <QFocusEvent>
#include <QPointer>
#include <QStyle>
#include <QWidget>

namespace {

constexpr char kProperty[] = "keyboardFocus";

} // namespace

HXKeyboardFocus::HXKeyboardFocus()
    : QObject(QCoreApplication::instance())
{
    QCoreApplication::instance()->installEventFilter(this);
}

HXKeyboardFocus *HXKeyboardFocus::instance()
{
    static QPointer<HXKeyboardFocus> one;
    if (!one && QCoreApplication::instance())
        one = new HXKeyboardFocus;
    return one;
}

void HXKeyboardFocus::track(QWidget *widget)
{
    // The application's filter sees the widget's events; the property
    // marks the widget as one whose focus mark it keeps.
    if (instance())
        widget->setProperty(kProperty, false);
}

bool HXKeyboardFocus::shows(const QWidget *widget)
{
    return widget->hasFocus() && widget->property(kProperty).toBool();
}

bool HXKeyboardFocus::keyboardInUse()
{
    const HXKeyboardFocus *self = instance();
    return self && self->m_keyboardInUse;
}

void HXKeyboardFocus::setShows(QWidget *widget, bool shows)
{
    if (widget->property(kProperty).toBool() == shows)
        return;
    widget->setProperty(kProperty, shows);
    // A style sheet reads the property when the widget is polished.
    if (!widget->styleSheet().isEmpty()) {
        widget->style()->unpolish(widget);
        widget->style()->polish(widget);
    }
    widget->update();
}

bool HXKeyboardFocus::eventFilter(QObject *watched, QEvent *event)
{
    switch (event->type()) {
    case QEvent::KeyPress:
    case QEvent::ShortcutOverride:
        m_keyboardInUse = true;
        break;
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
        m_keyboardInUse = false;
        // A click on the control that has the focus hides its mark.
        if (watched->isWidgetType() && watched->property(kProperty).isValid())
            setShows(static_cast<QWidget *>(watched), false);
        break;
    case QEvent::FocusIn:
        if (watched->isWidgetType() && watched->property(kProperty).isValid()) {
            const Qt::FocusReason reason = static_cast<QFocusEvent *>(event)->reason();
            bool byKeyboard = m_keyboardInUse;
            if (reason == Qt::TabFocusReason || reason == Qt::BacktabFocusReason ||
                reason == Qt::ShortcutFocusReason)
                byKeyboard = true;
            else if (reason == Qt::MouseFocusReason)
                byKeyboard = false;
            setShows(static_cast<QWidget *>(watched), byKeyboard);
        }
        break;
    case QEvent::FocusOut:
        if (watched->isWidgetType() && watched->property(kProperty).isValid())
            setShows(static_cast<QWidget *>(watched), false);
        break;
    default:
        break;
    }
    return false;
}
