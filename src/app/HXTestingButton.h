#pragma once

#include <QPushButton>

// Start Testing / Stop Testing: a momentary push button, so that a screen
// reader meets a button it can press rather than a toggle. Its state (on or
// off) is the one the window sets when a pass ends; like a momentary button
// elsewhere, it is kept, not drawn, and a click does not change it.
class HXTestingButton : public QPushButton
{
    Q_OBJECT

public:
    explicit HXTestingButton(const QString &title, QWidget *parent = nullptr);

    bool state() const { return m_state; }
    void setState(bool on) { m_state = on; }

private:
    bool m_state = false;
};
