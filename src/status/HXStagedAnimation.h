#pragma once

#include <QObject>
#include <QThreadPool>
#include <atomic>
#include <functional>
#include <vector>

// A long interface sequence (sliding panels, opening and closing a result
// box): a background thread sleeps between the stages and hands every stage
// to the main thread, waiting until it has run. The interface never waits.
class HXStagedAnimation
{
public:
    struct Stage
    {
        std::function<void()> step; // on the main thread
        int waitAfterMs = 0;        // nominal, scaled by HXAnimationTiming
        // After the wait: when the cancel flag is set, clear it and stop.
        bool checkCancel = false;
    };

    explicit HXStagedAnimation(std::atomic<bool> &cancel);
    // Stops what runs (no further stage starts) and waits for its threads.
    ~HXStagedAnimation();

    void run(std::vector<Stage> stages);
    // Whether a sequence has stages left.
    bool isRunning() const { return m_running > 0; }
    void stop();

private:
    bool runOnMain(const std::function<void()> &step);

    std::atomic<bool> &m_cancel;
    QThreadPool m_threads;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_running{0};
    QObject m_mainThreadContext;
};
