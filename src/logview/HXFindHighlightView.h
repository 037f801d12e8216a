#pragma once

#include <QImage>
#include <QPointer>
#include <QTimer>
#include <QWidget>

// Covers a view to point at one rectangle of it: everything else dims, the
// rectangle stays bright with a badge of text over it. It fades in on a
// 0.033 s timer (alpha +0.05 a tick, up to 0.25), the badge grows and
// settles, then it fades out (alpha -0.1 and the badge's -0.25 a tick) and
// removes itself. Clicks on it are swallowed.
class HXFindHighlightView : public QWidget
{
    Q_OBJECT

public:
    static constexpr int kTickMilliseconds = 33;
    static constexpr double kMaximumAlpha = 0.25;

    // Covers `findView` (as a child of it, over its whole area).
    explicit HXFindHighlightView(QWidget *findView);

    QWidget *findView() const { return m_findView; }
    // `selectedTextRect` in the find view's coordinates; `snapshot` is what
    // that rectangle shows.
    void highlightSelectedText(const QString &text, const QRect &selectedTextRect,
                               const QImage &snapshot = {});

    double alpha() const { return m_alpha; }
    double badgeAlpha() const { return m_badgeAlpha; }
    double badgeScale() const { return m_badgeScale; }
    QString text() const { return m_text; }
    QRect selectedRect() const { return m_rect; }

Q_SIGNALS:
    void finished();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    enum class Stage { FadeIn, Grow, Settle, Hold, FadeOut };
    void tick();

    QPointer<QWidget> m_findView;
    QTimer m_timer;
    Stage m_stage = Stage::FadeIn;
    int m_ticksInStage = 0;
    double m_alpha = 0.0;
    double m_badgeAlpha = 1.0;
    double m_badgeScale = 1.0;
    QString m_text;
    QRect m_rect;
    QImage m_snapshot;
};
