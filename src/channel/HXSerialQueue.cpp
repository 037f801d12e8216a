#include "HXSerialQueue.h"

#include "HXSystemLog.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <thread>

// Shared with the thread, so that a thread abandoned at destruction still
// has its queue to look at when its blocked item finally returns.
struct HXSerialQueue::State
{
    std::mutex mutex;
    std::mutex exclusive; // held while an item runs, and by sync()
    std::condition_variable wake;
    std::condition_variable idle;
    std::deque<std::function<void()>> items;
    std::thread thread;
    std::thread::id threadId;
    bool running = false; // an item is being run
    bool stopping = false;
};

HXSerialQueue::HXSerialQueue(QString label)
    : m_label(std::move(label))
    , m_state(std::make_shared<State>())
{
}

HXSerialQueue::~HXSerialQueue()
{
    std::unique_lock lock(m_state->mutex);
    if (!m_state->thread.joinable())
        return;
    m_state->stopping = true;
    m_state->wake.notify_all();
    const bool finished =
        m_state->idle.wait_for(lock, std::chrono::milliseconds(kDestructionGrace),
                               [this] { return m_state->items.empty() && !m_state->running; });
    std::thread thread = std::move(m_state->thread);
    lock.unlock();
    if (finished) {
        thread.join();
    } else {
        HXSystemLog::write(
            QStringLiteral("%1: abandoning work still waiting for a peer").arg(m_label));
        thread.detach();
    }
}

std::mutex &HXSerialQueue::exclusive()
{
    return m_state->exclusive;
}

bool HXSerialQueue::isCurrent() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->thread.joinable() && m_state->threadId == std::this_thread::get_id();
}

void HXSerialQueue::async(std::function<void()> work)
{
    std::lock_guard lock(m_state->mutex);
    m_state->items.push_back(std::move(work));
    if (!m_state->thread.joinable()) {
        m_state->thread = std::thread([state = m_state, label = m_label] {
            for (;;) {
                std::function<void()> item;
                {
                    std::unique_lock lock(state->mutex);
                    state->wake.wait(lock,
                                     [&] { return state->stopping || !state->items.empty(); });
                    if (state->items.empty())
                        return; // stopping, and nothing left
                    item = std::move(state->items.front());
                    state->items.pop_front();
                    state->running = true;
                }
                try {
                    std::lock_guard exclusive(state->exclusive);
                    item();
                } catch (const std::exception &e) {
                    HXSystemLog::write(
                        QStringLiteral("%1: %2").arg(label, QString::fromUtf8(e.what())));
                }
                std::lock_guard lock(state->mutex);
                state->running = false;
                if (state->items.empty())
                    state->idle.notify_all();
            }
        });
        m_state->threadId = m_state->thread.get_id();
    }
    m_state->wake.notify_one();
}

bool HXSerialQueue::waitForIdle(int milliseconds)
{
    std::unique_lock lock(m_state->mutex);
    return m_state->idle.wait_for(lock, std::chrono::milliseconds(milliseconds),
                                  [this] { return m_state->items.empty() && !m_state->running; });
}
