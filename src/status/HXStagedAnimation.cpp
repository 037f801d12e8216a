#include "HXStagedAnimation.h"

#include "HXAnimationTiming.h"

#include <QSemaphore>
#include <QThread>
#include <memory>

HXStagedAnimation::HXStagedAnimation(std::atomic<bool> &cancel)
    : m_cancel(cancel)
{
    // A box can close while the tab leaves: a few sequences overlap.
    m_threads.setMaxThreadCount(4);
}

HXStagedAnimation::~HXStagedAnimation()
{
    stop();
}

void HXStagedAnimation::stop()
{
    m_stopping = true;
    m_threads.waitForDone();
}

bool HXStagedAnimation::runOnMain(const std::function<void()> &step)
{
    auto done = std::make_shared<QSemaphore>(0);
    QMetaObject::invokeMethod(
        &m_mainThreadContext,
        [step, done] {
            step();
            done->release();
        },
        Qt::QueuedConnection);
    // Polled, so that stopping never waits for a main thread that is itself
    // waiting for this one.
    while (!done->tryAcquire(1, 20)) {
        if (m_stopping)
            return false;
    }
    return true;
}

void HXStagedAnimation::run(std::vector<Stage> stages)
{
    if (m_stopping)
        return;
    ++m_running;
    m_threads.start([this, stages = std::move(stages)] {
        for (const Stage &stage : stages) {
            if (m_stopping || !runOnMain(stage.step))
                break;
            qint64 left =
                stage.waitAfterMs == 0 ? 0 : HXAnimationTiming::milliseconds(stage.waitAfterMs);
            while (left > 0 && !m_stopping) {
                QThread::msleep(static_cast<unsigned long>(std::min<qint64>(left, 20)));
                left -= 20;
            }
            if (stage.checkCancel && m_cancel.exchange(false))
                break;
        }
        --m_running;
    });
}
