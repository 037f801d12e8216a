// The result box of the status tab: a group view slides to the right edge,
// its repair advice flows around it, and it slides back when closed.
#include "HXAnimationTiming.h"
#include "HXArtwork.h"
#include "HXFade.h"
#include "HXMachineProbes.h"
#include "HXRepairAdvice.h"
#include "HXShapedTextView.h"
#include "HXStatusViewController.h"

#include <QFrame>
#include <QLabel>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTextDocument>

namespace {

// The text's rule lets a line start up to ten points (twenty in Japanese)
// above the bottom of the box it flows around. The group view is drawn to the
// edge of its frame, so the text flows around a rectangle that reaches that
// far below it, and no line runs over the box's lower edge.
QRect exclusionFor(const QRect &box)
{
    return box.adjusted(0, 0, 0, 20);
}

} // namespace

QFont HXStatusViewController::adviceFont() const
{
    QFont font = m_root ? m_root->font() : QFont();
    font.setPointSize(20);
    return font;
}

void HXStatusViewController::fadeAdvice(double to, int milliseconds)
{
    if (milliseconds <= 0) {
        m_adviceView->setTextOpacity(to);
        return;
    }
    auto *fade = new QPropertyAnimation(m_adviceView, "textOpacity", m_adviceView);
    fade->setDuration(HXAnimationTiming::milliseconds(milliseconds));
    fade->setEndValue(to);
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

void HXStatusViewController::showHardwareRepairAdvice()
{
    showView(m_hardwareView, HXRepairAdvice::hardwareAdvice(HXAnimView::batteryExists()), {});
}

void HXStatusViewController::showSystemRepairAdvice()
{
    const QString sentence = m_repairAdviceExtraStrings.value(HXRepairAdvice::ombrelVersionWorksWithOSVersion());
    showView(m_systemView, HXRepairAdvice::systemAdvice(sentence), {});
}

void HXStatusViewController::showDrivesRepairAdvice()
{
    const HXMachineProbes &machine = HXMachineProbes::current();
    const QString sentence = m_repairAdviceExtraStrings.value(HXRepairAdvice::ombrelVersionWorksWithOSVersion());
    showView(m_drivesView, HXRepairAdvice::drivesAdvice(sentence, machine.raidExists(), machine.smartExists()), {});
}

void HXStatusViewController::showFilesRepairAdvice()
{
    showView(m_filesView, HXRepairAdvice::filesAdvice(), {});
}

void HXStatusViewController::showTestRepairAdvice(HXTest test)
{
    const QString sentence = m_repairAdviceExtraStrings.value(HXRepairAdvice::ombrelVersionWorksWithOSVersion());
    showView(nullptr, HXRepairAdvice::singleTestAdvice(test, sentence), m_board.results(test));
}

void HXStatusViewController::showView(HXAnimView *view, const QString &advice, const QList<HXResultEntry> &results)
{
    if (!m_root)
        return;
    // A click while a box is open closes it.
    if (m_showingBox) {
        showAllBoxes();
        return;
    }
    m_previousBoxFrame = view ? view->geometry() : QRect();
    const int viewWidth = view ? view->width() : 0;

    // One row per listed result, with an invisible button over it that shows
    // the result in the log.
    QList<QPointer<QWidget>> extras;
    int y = 20;
    for (const HXResultEntry &entry : results) {
        const QVariantMap disk = entry.result->testInfoMap().value(QStringLiteral("disk")).toMap();
        if (view) {
            auto *row = new QLabel(tr("Disk: %1 Volume: %2")
                                       .arg(disk.value(QStringLiteral("bsdName")).toString(),
                                            disk.value(QStringLiteral("volumeName")).toString()),
                                   view);
            QFont rowFont = row->font();
            rowFont.setPointSize(14);
            row->setFont(rowFont);
            row->setGeometry(20, y, viewWidth - 40, 20);
            HXFade(row, 0.0, 0);
            auto *button = new QPushButton(row);
            button->setFlat(true);
            button->setStyleSheet(QStringLiteral("background: transparent; border: none;"));
            button->setGeometry(0, 0, row->width(), row->height());
            button->setCursor(Qt::PointingHandCursor);
            button->setAccessibleName(row->text());
            const qint64 tag = entry.index;
            connect(button, &QPushButton::clicked, this, [this, tag] { individualStatusButtonClicked(tag); });
            row->show();
            extras.append(row);
        }
        y += 40;
    }
    m_showingBoxExtras = extras;
    QRect target(m_root->width() - 16 - viewWidth, 0, viewWidth, view ? view->height() : 0);
    if (!results.isEmpty() && view) {
        target.setHeight(target.height() + y);
        auto *separator = new QFrame(view);
        separator->setFrameShape(QFrame::Box);
        separator->setStyleSheet(QStringLiteral("border: 1px solid gray;"));
        separator->setGeometry(20, y, viewWidth - 40, 2);
        HXFade(separator, 0.0, 0);
        separator->show();
        m_showingBoxExtras.append(separator);
    }

    // The advice, its tags made links, flowing around the box.
    auto document = std::make_unique<QTextDocument>();
    document->setDefaultFont(adviceFont());
    document->setPlainText(advice);
    HXRepairAdvice::linkifyTaggedString(document.get(), adviceFont(), HXRepairAdvice::ombrelProExists());
    m_adviceView->setExclusionRect(view ? exclusionFor(target) : target);
    m_adviceView->setDocument(std::move(document));
    m_adviceView->move(0, 0);
    fitAdvice();
    fadeAdvice(0.0, 0);
    m_adviceView->show();
    m_repairAdviceView->show();
    m_repairAdviceView->raise();
    m_repairAdviceView->verticalScrollBar()->setValue(0);

    // The group view moves over to the advice, where it stands on screen.
    if (view) {
        const QPoint onScreen = m_statusView->mapTo(m_root, view->pos());
        view->setParent(m_adviceView);
        view->move(onScreen);
        view->show();
        view->setFixedHeight(target.height());
        // Tab reads the box first, then the advice's links, then leaves.
        QWidget *last = view;
        for (QWidget *next = view->nextInFocusChain(); next != view && view->isAncestorOf(next);
             next = next->nextInFocusChain())
            last = next;
        QWidget::setTabOrder(last, m_adviceView);
    }
    // The keyboard waits on the advice, not on whatever control follows the
    // disabled groups, until the box is open.
    m_adviceView->setFocus(Qt::OtherFocusReason);
    for (HXAnimView *group : groupViews())
        group->setEnabled(false);
    m_showingBox = view;

    QPointer<HXAnimView> box(view);
    m_stages.run({{[this, box] {
                       fadeStatusView(0.0, 250);
                       for (HXAnimView *group : groupViews()) {
                           if (group != box)
                               group->fadeOut();
                       }
                   },
                   500, true},
                  {[box, target] {
                       if (!box)
                           return;
                       auto *move = new QPropertyAnimation(box, "pos", box);
                       move->setDuration(HXAnimationTiming::milliseconds(250));
                       move->setEasingCurve(QEasingCurve::OutQuad);
                       move->setEndValue(target.topLeft());
                       move->start(QAbstractAnimation::DeleteWhenStopped);
                   },
                   500, true},
                  {[this, box] {
                      // The window may have changed size while the box moved.
                      layoutOpenBox();
                      fadeAdvice(1.0, 250);
                      for (QWidget *extra : showingBoxExtras())
                          HXFade(extra, 1.0, 250);
                      if (box) {
                          box->activate();
                          box->setEnabled(true);
                      }
                      // The keyboard goes on to the open box (the advice
                      // when there is none), unless it went elsewhere.
                      const QWidget *focus = m_root->window()->focusWidget();
                      if (!focus || focus == m_adviceView ||
                          m_repairAdviceView->isAncestorOf(focus)) {
                          if (box)
                              box->setFocus(Qt::OtherFocusReason);
                          else
                              m_adviceView->setFocus(Qt::OtherFocusReason);
                      }
                      cancelAnimation = false;
                  }}});
}

void HXStatusViewController::layoutOpenBox()
{
    HXAnimView *box = m_showingBox;
    if (box && m_root) {
        // At the right edge of the tab, as wide as the group's place in the
        // panel; its height stays the one it opened with.
        const int width = m_previousBoxFrame.width();
        const QRect target(m_root->width() - 16 - width, 0, width, box->height());
        box->setGeometry(target);
        for (QWidget *extra : showingBoxExtras()) {
            extra->resize(width - 40, extra->height());
            for (QWidget *inside : extra->findChildren<QPushButton *>())
                inside->resize(extra->size());
        }
        m_adviceView->setExclusionRect(exclusionFor(target));
    }
    fitAdvice();
}

void HXStatusViewController::fitAdvice()
{
    if (!m_adviceView)
        return;
    // As wide as the scroll area shows, less the vertical scroll bar when the
    // text is taller than the area: never a horizontal scroll bar.
    const QSize area = m_repairAdviceView->maximumViewportSize();
    int width = area.width();
    if (m_adviceView->heightForWidth(width) > area.height())
        width -= m_repairAdviceView->verticalScrollBar()->sizeHint().width();
    m_adviceView->resize(width, m_adviceView->heightForWidth(width));
}

void HXStatusViewController::showAllBoxes()
{
    if (!m_root || (!m_showingBox && m_showingBoxExtras.isEmpty() && !m_repairAdviceView->isVisible()))
        return;
    QPointer<HXAnimView> box(m_showingBox);
    const QRect previous = m_previousBoxFrame;
    m_repairAdviceView->verticalScrollBar()->setValue(0);
    // The keyboard waits on the advice while the box closes, and then goes
    // back to the group view that opened it.
    const auto focusInBox = [this] {
        const QWidget *focus = m_root->window()->focusWidget();
        return !focus || focus == m_adviceView || m_repairAdviceView->isAncestorOf(focus);
    };
    if (box && focusInBox())
        m_adviceView->setFocus(Qt::OtherFocusReason);
    if (box)
        box->setEnabled(false);
    // Cleared before the stages run, which then work on the cleared list:
    // the rows stay in the group view.
    m_showingBox = nullptr;
    m_showingBoxExtras.clear();
    m_stages.run({{[this, box] {
                       fadeAdvice(0.0, 250);
                       for (QWidget *extra : showingBoxExtras())
                           HXFade(extra, 0.0, 250);
                       if (box)
                           box->deactivate();
                   },
                   500},
                  {[this, box, previous] {
                       if (!box)
                           return;
                       auto *move = new QPropertyAnimation(box, "pos", box);
                       move->setDuration(HXAnimationTiming::milliseconds(250));
                       move->setEasingCurve(QEasingCurve::OutQuad);
                       move->setEndValue(m_statusView->mapTo(m_root, previous.topLeft()));
                       move->start(QAbstractAnimation::DeleteWhenStopped);
                   },
                   500},
                  {[this, box] {
                       fadeStatusView(1.0, 250);
                       for (HXAnimView *group : groupViews()) {
                           if (group != box)
                               group->fadeIn();
                       }
                   },
                   500},
                  {[this, box, previous, focusInBox] {
                      if (box) {
                          box->setParent(m_statusView);
                          box->setMinimumHeight(0);
                          box->setMaximumHeight(QWIDGETSIZE_MAX);
                          box->setGeometry(previous);
                          // Back in its place among the groups, which is
                          // the order a screen reader reads them in.
                          const QList<HXAnimView *> groups = groupViews();
                          if (HXAnimView *next = groups.value(groups.indexOf(box) + 1))
                              box->stackUnder(next);
                          box->show();
                      }
                      for (QWidget *extra : showingBoxExtras())
                          extra->deleteLater();
                      for (HXAnimView *group : groupViews())
                          group->setEnabled(true);
                      if (box && focusInBox())
                          box->setFocus(Qt::OtherFocusReason);
                      m_repairAdviceView->hide();
                      fadeAdvice(0.0, 0);
                      m_adviceView->hide();
                      m_adviceView->clear();
                      layoutStatusView();
                  }}});
}
