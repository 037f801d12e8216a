#pragma once

#include "ZRCollectionPlan.h"

#include <QObject>
#include <functional>
#include <memory>

class QThreadPool;
class ZRCommandRunner;
class ZRDaemonFacts;

// Runs the four collection blocks of a report at the same time on the report
// queue, each block's steps in order. Lives on the interface thread, which it
// never holds up: what the blocks report comes back as queued signals.
class ZRReportCollector : public QObject
{
    Q_OBJECT

public:
    ZRReportCollector(std::shared_ptr<ZRCommandRunner> runner,
                      std::shared_ptr<ZRDaemonFacts> daemon, QObject *parent = nullptr);
    ~ZRReportCollector() override;

    // The process-wide queue of the help reporter: made on first use, kept.
    static QThreadPool *reportQueue();

    // Starts a collection; one at a time.
    void start(const ZRCollectionPlan &plan);
    // Blocks stop before their next step; the running profile is ended.
    void cancel();
    bool isCancelled() const;
    bool isRunning() const { return m_running; }

    // Runs `work` on the report queue and hands its answer to `done` on the
    // interface thread, unless this collector is gone by then.
    void runOnQueue(std::function<unsigned()> work, std::function<void(unsigned)> done);

    // What the blocks share with the collector; holds the cancel flag.
    struct Shared;

Q_SIGNALS:
    // A block ran all its steps (a cancelled block says nothing).
    void blockFinished(int block, int share);
    // Every block has stopped, done or cancelled.
    void finished(bool cancelled);

private:
    void blockEnded(int block, bool completed);

    std::shared_ptr<Shared> m_shared;
    int m_remaining = 0;
    bool m_running = false;
};
