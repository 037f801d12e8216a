#pragma once

#include <QWidget>

class QPropertyAnimation;

// A live test icon. Its image name, as given, names the pending (orange)
// image; the status picks the variant: 0 pending, 1 not applicable (gray),
// 2 running (the icon pulses), 3 failed (red), 4 passed (green). Any other
// status is only stored.
class HXIconAnimate : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(double opacity READ opacity WRITE setOpacity)
    Q_PROPERTY(double fade READ fade WRITE setFade)

public:
    explicit HXIconAnimate(const QString &imageName, QWidget *parent = nullptr);

    // What the icon stands for, as a screen reader names it with its state:
    // "SMART: failed".
    void setTitle(const QString &title);
    QString title() const { return m_title; }

    qint32 status() const { return m_status; }
    void setStatus(qint32 status);
    QString imageName() const { return m_imageName; }
    // The image shown now.
    QString shownImageName() const { return m_shown; }
    bool isPulsing() const;
    double opacity() const { return m_opacity; }
    void setOpacity(double opacity);
    // A second factor, for fading the icon with its panel.
    double fade() const { return m_fade; }
    void setFade(double fade);
    bool animationComplete() const { return m_animationComplete; }

    QSize sizeHint() const override { return {48, 48}; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void show(const QString &imageName);
    void startPulse();
    void stopPulse();
    void updateAccessibleName();

    qint32 m_status = 0;
    QString m_title;
    QString m_imageName;
    QString m_shown;
    bool m_animationComplete = true;
    double m_opacity = 1.0;
    double m_fade = 1.0;
    QPropertyAnimation *m_pulse = nullptr;
};
