#pragma once

#include <QWidget>

// The testing progress bar: an orange three-part bar over the window's own
// groove. Nothing is drawn at 0; the right cap appears only at the maximum.
class HXProgress : public QWidget
{
    Q_OBJECT

public:
    explicit HXProgress(QWidget *parent = nullptr);

    double minimum() const { return m_minimum; }
    void setMinimum(double minimum);
    double maximum() const { return m_maximum; }
    void setMaximum(double maximum);
    double value() const { return m_value; }
    void setValue(double value);
    // Advanced on every draw, back to 0 past 7; it takes part in no drawing.
    double progressOffset() const { return m_progressOffset; }

    // The bar's rectangle for the current value (empty when nothing is drawn)
    // and whether it ends with the right cap.
    QRectF barRect() const;
    bool showsRightCap() const { return m_value == m_maximum; }

    QSize sizeHint() const override { return {240, 24}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    double m_minimum = 0.0;
    double m_maximum = 100.0;
    double m_value = 0.0;
    double m_progressOffset = 0.0;
};
