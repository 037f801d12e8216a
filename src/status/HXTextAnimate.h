#pragma once

#include <QLabel>

class QPropertyAnimation;

// A text that slides up out of the way and back down.
class HXTextAnimate : public QLabel
{
    Q_OBJECT
    Q_PROPERTY(double translationY READ translationY WRITE setTranslationY)

public:
    using QLabel::QLabel;

    qint32 status() const { return m_status; }
    void setStatus(qint32 status) { m_status = status; }

    // Up 30 points over a second, staying there.
    void slideUp();
    // Back down over a second.
    void slideDown();
    void stopAnimation();

    double translationY() const { return m_translationY; }
    void setTranslationY(double y);
    bool isAnimating() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void animate(double from, double to);

    qint32 m_status = 0;
    double m_translationY = 0.0;
    QPropertyAnimation *m_animation = nullptr;
};
