#pragma once

#include <QObject>

class QWidget;

// Whether a control shows its focus mark: only when the keyboard brought the
// focus there (Tab, Shift+Tab, a shortcut), or the window moved it there in
// answer to a key (Escape closing a box, Space changing the tab), never after
// a click. A tracked widget has a "keyboardFocus" property that says so, for
// style sheets ([keyboardFocus="true"]); widgets that draw their own mark ask
// shows().
class HXKeyboardFocus : public QObject
{
    Q_OBJECT

public:
    static void track(QWidget *widget);
    static bool shows(const QWidget *widget);
    // Whether the last key or button pressed in the application was a key.
    static bool keyboardInUse();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    HXKeyboardFocus();
    static HXKeyboardFocus *instance();
    static void setShows(QWidget *widget, bool shows);

    bool m_keyboardInUse = false;
};
