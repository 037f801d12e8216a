#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <mutex>

// A labelled serial queue. Work submitted with async() runs on the queue's
// own thread, one item at a time, in the order it was submitted; sync() runs
// its work on the calling thread, exclusive with the queue's own work (or
// directly when the caller is already the queue's thread).
//
// The thread starts with the first async() item. A queue that is destroyed
// finishes what it holds first, except that an item still blocked after
// `kDestructionGrace` is abandoned to its thread, so that a hung peer cannot
// hold up the end of the process.
class HXSerialQueue
{
public:
    explicit HXSerialQueue(QString label);
    ~HXSerialQueue();
    HXSerialQueue(const HXSerialQueue &) = delete;
    HXSerialQueue &operator=(const HXSerialQueue &) = delete;

    const QString &label() const { return m_label; }

    void async(std::function<void()> work);

    template<class Work> auto sync(Work &&work)
    {
        if (isCurrent())
            return work();
        std::lock_guard lock(exclusive());
        return work();
    }

    // Whether the calling thread is the queue's own.
    bool isCurrent() const;
    // Waits until everything submitted so far has run, at most `milliseconds`;
    // answers whether the queue is idle.
    bool waitForIdle(int milliseconds);

    static constexpr int kDestructionGrace = 1000;

private:
    struct State;
    std::mutex &exclusive();

    QString m_label;
    std::shared_ptr<State> m_state;
};
