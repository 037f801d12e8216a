// The status tab's transitions: the panel rises into place when the tab is
// shown and sinks away when it leaves, the group views slide in and out with
// it, and the panel's own icons fade while a result box is open.
#include "HXAnimationTiming.h"
#include "HXFade.h"
#include "HXIconAnimate.h"
#include "HXStatusViewController.h"

#include <QLabel>
#include <QPointer>
#include <QPropertyAnimation>
#include <QTimer>

void HXStatusViewController::slideStatusView(int y, int milliseconds)
{
    auto *slide = new QPropertyAnimation(m_statusView, "pos", m_statusView);
    slide->setDuration(HXAnimationTiming::milliseconds(milliseconds));
    slide->setEasingCurve(QEasingCurve::OutQuad);
    slide->setEndValue(QPoint(0, y));
    slide->start(QAbstractAnimation::DeleteWhenStopped);
}

bool HXStatusViewController::isOnScreen() const
{
    return !m_statusView || m_statusView->y() == 0;
}

bool HXStatusViewController::statusViewIsTransparent() const
{
    return m_statusView && m_statusViewOpacity == 0.0;
}

void HXStatusViewController::fadeStatusView(double to, int milliseconds)
{
    m_statusViewOpacity = to;
    for (HXIconAnimate *icon : m_icons) {
        auto *fade = new QPropertyAnimation(icon, "fade", icon);
        fade->setDuration(HXAnimationTiming::milliseconds(milliseconds));
        fade->setEndValue(to);
        fade->start(QAbstractAnimation::DeleteWhenStopped);
    }
    const auto captions = m_statusView->findChildren<QLabel *>(QStringLiteral("caption"));
    for (QLabel *caption : captions) {
        // Faded out, they are hidden too, so that a screen reader does not
        // read them as showing.
        if (to > 0.0)
            caption->show();
        HXFade(caption, to, milliseconds);
    }
    if (to <= 0.0) {
        QPointer<QWidget> panel(m_statusView);
        QTimer::singleShot(
            HXAnimationTiming::milliseconds(milliseconds), m_statusView, [this, panel] {
                if (!panel || m_statusViewOpacity > 0.0)
                    return;
                for (QLabel *caption : panel->findChildren<QLabel *>(QStringLiteral("caption")))
                    caption->hide();
            });
    }
}

void HXStatusViewController::viewWillAppearHX()
{
    view();
    for (HXAnimView *group : groupViews())
        group->viewWillAppear();
    // One panel height down, out of sight, to rise into place.
    m_statusView->move(0, m_statusView->height());
}

void HXStatusViewController::viewDidAppearHX()
{
    view();
    m_stages.run({{[this] { slideStatusView(0, 125); }, 125, false}, {[this] {
                      for (HXAnimView *group : groupViews())
                          group->viewDidAppear();
                  }}});
    updateTestStatus();
}

long long HXStatusViewController::viewWillDisappearHX()
{
    view();
    const auto slideOut = [this] {
        slideStatusView(m_statusView->height(), 125);
    };
    const auto groupsLeave = [this] {
        for (HXAnimView *group : groupViews())
            group->viewWillDisappear();
    };
    if (statusViewIsTransparent()) {
        m_stages.run({{[this] {
                           cancelAnimation = true;
                           showAllBoxes();
                       },
                       1500},
                      {[this] { cancelAnimation = false; }, 0},
                      {groupsLeave, 250},
                      {slideOut}});
        return HXAnimationTiming::microseconds(2000000);
    }
    m_stages.run({{groupsLeave, 250}, {slideOut}});
    return HXAnimationTiming::microseconds(500000);
}

void HXStatusViewController::viewDidDisappearHX()
{
    for (HXAnimView *group : groupViews())
        group->viewDidDisappear();
}

void HXStatusViewController::showAllBoxes(bool animated)
{
    Q_UNUSED(animated);
    showAllBoxes();
}
