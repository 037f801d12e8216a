#include "HXFindHighlightView.h"

#include "HXAnimationTiming.h"

#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

namespace {
constexpr int kGrowTicks = 4;
constexpr int kSettleTicks = 4;
constexpr double kGrownScale = 1.25;
// Long enough to read the badge (about a second and a half).
constexpr int kHoldTicks = 45;
} // namespace

HXFindHighlightView::HXFindHighlightView(QWidget *findView)
    : QWidget(findView)
    , m_findView(findView)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setGeometry(findView->rect());
    findView->installEventFilter(this);
    setAccessibleName(tr("Highlight"));
    m_timer.setInterval(HXAnimationTiming::milliseconds(kTickMilliseconds));
    connect(&m_timer, &QTimer::timeout, this, &HXFindHighlightView::tick);
}

void HXFindHighlightView::highlightSelectedText(const QString &text, const QRect &selectedTextRect,
                                                const QImage &snapshot)
{
    m_text = text;
    m_rect = selectedTextRect;
    m_snapshot = snapshot;
    m_stage = Stage::FadeIn;
    m_ticksInStage = 0;
    m_alpha = 0.0;
    m_badgeAlpha = 1.0;
    m_badgeScale = 1.0;
    setAccessibleDescription(text);
    show();
    raise();
    m_timer.start();
}

void HXFindHighlightView::tick()
{
    ++m_ticksInStage;
    switch (m_stage) {
    case Stage::FadeIn:
        m_alpha = std::min(kMaximumAlpha, m_alpha + 0.05);
        if (m_alpha >= kMaximumAlpha - 1e-9) {
            m_stage = Stage::Grow;
            m_ticksInStage = 0;
        }
        break;
    case Stage::Grow:
        m_badgeScale = 1.0 + (kGrownScale - 1.0) * m_ticksInStage / kGrowTicks;
        if (m_ticksInStage >= kGrowTicks) {
            m_stage = Stage::Settle;
            m_ticksInStage = 0;
        }
        break;
    case Stage::Settle:
        m_badgeScale = kGrownScale - (kGrownScale - 1.0) * m_ticksInStage / kSettleTicks;
        if (m_ticksInStage >= kSettleTicks) {
            m_stage = Stage::Hold;
            m_ticksInStage = 0;
        }
        break;
    case Stage::Hold:
        if (m_ticksInStage >= kHoldTicks) {
            m_stage = Stage::FadeOut;
            m_ticksInStage = 0;
        }
        break;
    case Stage::FadeOut:
        m_alpha = std::max(0.0, m_alpha - 0.1);
        m_badgeAlpha = std::max(0.0, m_badgeAlpha - 0.25);
        if (m_alpha <= 0.0 && m_badgeAlpha <= 0.0) {
            m_timer.stop();
            Q_EMIT finished();
            close();
            return;
        }
        break;
    }
    update();
}

void HXFindHighlightView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath dimmed;
    dimmed.addRect(rect());
    QPainterPath bright;
    bright.addRoundedRect(m_rect, 4, 4);
    painter.fillPath(dimmed.subtracted(bright), QColor(0, 0, 0, int(255 * m_alpha)));
    if (!m_snapshot.isNull())
        painter.drawImage(m_rect, m_snapshot);

    if (m_text.isEmpty() || m_badgeAlpha <= 0.0)
        return;
    QFont font = this->font();
    font.setPixelSize(13);
    painter.setFont(font);
    const QFontMetrics metrics(font);
    const int maxWidth = std::max(40, width() - 24);
    const QString shown = metrics.elidedText(m_text, Qt::ElideRight, maxWidth - 20);
    QRectF badge(0, 0, metrics.horizontalAdvance(shown) + 20, metrics.height() + 10);
    badge.moveCenter(QPointF(m_rect.center()));
    badge.moveLeft(std::clamp(badge.left(), 4.0, std::max(4.0, width() - badge.width() - 4)));
    painter.setOpacity(m_badgeAlpha);
    painter.translate(badge.center());
    painter.scale(m_badgeScale, m_badgeScale);
    painter.translate(-badge.center());
    painter.setPen(QColor(0x9a, 0x7a, 0x00));
    painter.setBrush(QColor(0xff, 0xe0, 0x4a));
    painter.drawRoundedRect(badge, 6, 6);
    painter.setPen(Qt::black);
    painter.drawText(badge, Qt::AlignCenter, shown);
}

void HXFindHighlightView::mousePressEvent(QMouseEvent *event)
{
    event->accept();
}

void HXFindHighlightView::mouseReleaseEvent(QMouseEvent *event)
{
    event->accept();
}

void HXFindHighlightView::mouseDoubleClickEvent(QMouseEvent *event)
{
    event->accept();
}

bool HXFindHighlightView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_findView && event->type() == QEvent::Resize)
        setGeometry(m_findView->rect());
    return QWidget::eventFilter(watched, event);
}
