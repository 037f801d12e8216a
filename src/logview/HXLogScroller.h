#pragma once

#include <QScrollBar>

// The log's vertical scroller, drawn by the program when `manualDraw` is set:
// a slim rounded knob on a clear track, brighter while `highlight` is set
// (the mouse over it or a drag).
class HXLogScroller : public QScrollBar
{
    Q_OBJECT
    Q_PROPERTY(bool manualDraw READ manualDraw WRITE setManualDraw)
    Q_PROPERTY(bool highlight READ highlight WRITE setHighlight)

public:
    explicit HXLogScroller(QWidget *parent = nullptr);

    bool manualDraw() const { return m_manualDraw; }
    void setManualDraw(bool manualDraw);
    bool highlight() const { return m_highlight; }
    void setHighlight(bool highlight);

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    bool m_manualDraw = true;
    bool m_highlight = false;
};
