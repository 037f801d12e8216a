#include "ZRReportCollector.h"

#include "AtomicFileWriter.h"
#include "PropertyList.h"
#include "ZRCommandRunner.h"

#include <QPointer>
#include <QThreadPool>
#include <atomic>

struct ZRReportCollector::Shared
{
    std::shared_ptr<ZRCommandRunner> runner;
    std::shared_ptr<ZRDaemonFacts> daemon;
    std::atomic<bool> cancelled{false};
};

namespace {

void writeAndAdd(ZRCommandRunner &runner, const ZRStep &step, const QByteArray &data)
{
    // Private to the user, like the folder it is in.
    if (AtomicFileWriter::write(step.path, data, 0600, QString()).written)
        runner.run(ZRHelpReporterZipPOSIXPath(ZRShellQuote(step.path), step.archive));
}

void runStep(ZRReportCollector::Shared &shared, const ZRStep &step)
{
    ZRCommandRunner &runner = *shared.runner;
    switch (step.kind) {
    case ZRStep::Shell:
        runner.run(step.command);
        break;
    case ZRStep::Profile:
        runner.runProfile(step.command);
        break;
    case ZRStep::WorkerSample:
        if (shared.daemon) {
            const QString sample = shared.daemon->sampleOfWorker();
            if (!sample.isEmpty())
                writeAndAdd(runner, step, sample.toUtf8());
        }
        break;
    case ZRStep::IdlePrefs:
        if (shared.daemon) {
            const QVariantMap preferences = shared.daemon->idleDaemonPreferences();
            QString error;
            const QByteArray xml =
                preferences.isEmpty() ? QByteArray() : writeXmlPropertyList(preferences, &error);
            if (!xml.isEmpty())
                writeAndAdd(runner, step, xml);
        }
        break;
    }
}
} // namespace

ZRReportCollector::ZRReportCollector(std::shared_ptr<ZRCommandRunner> runner,
                                     std::shared_ptr<ZRDaemonFacts> daemon, QObject *parent)
    : QObject(parent)
    , m_shared(std::make_shared<Shared>())
{
    m_shared->runner = std::move(runner);
    m_shared->daemon = std::move(daemon);
}

ZRReportCollector::~ZRReportCollector()
{
    // Blocks still running finish on their own; they hold what they use.
    cancel();
}

QThreadPool *ZRReportCollector::reportQueue()
{
    static QThreadPool *queue = [] {
        auto *pool = new QThreadPool;
        // The four blocks and the mailing at once.
        pool->setMaxThreadCount(5);
        pool->setExpiryTimeout(30000);
        return pool;
    }();
    return queue;
}

void ZRReportCollector::start(const ZRCollectionPlan &plan)
{
    if (m_running)
        return;
    m_running = true;
    m_shared->cancelled = false;
    m_remaining = ZRCollectionPlan::BlockCount;
    QPointer<ZRReportCollector> self(this);
    for (int block = 0; block < ZRCollectionPlan::BlockCount; ++block) {
        reportQueue()->start([self, shared = m_shared, steps = plan.blocks[size_t(block)], block] {
            bool completed = true;
            for (const ZRStep &step : steps) {
                if (shared->cancelled) {
                    completed = false;
                    break;
                }
                runStep(*shared, step);
            }
            completed = completed && !shared->cancelled;
            QMetaObject::invokeMethod(
                self.data(),
                [self, block, completed] {
                    if (self)
                        self->blockEnded(block, completed);
                },
                Qt::QueuedConnection);
        });
    }
}

void ZRReportCollector::blockEnded(int block, bool completed)
{
    if (completed)
        Q_EMIT blockFinished(block, ZRCollectionPlan::kShares[size_t(block)]);
    if (--m_remaining > 0)
        return;
    m_running = false;
    Q_EMIT finished(m_shared->cancelled);
}

void ZRReportCollector::cancel()
{
    m_shared->cancelled = true;
    m_shared->runner->terminateProfile();
}

bool ZRReportCollector::isCancelled() const
{
    return m_shared->cancelled;
}

void ZRReportCollector::runOnQueue(std::function<unsigned()> work,
                                   std::function<void(unsigned)> done)
{
    QPointer<ZRReportCollector> self(this);
    reportQueue()->start([self, work = std::move(work), done = std::move(done)] {
        const unsigned answer = work();
        QMetaObject::invokeMethod(
            self.data(),
            [self, done, answer] {
                if (self)
                    done(answer);
            },
            Qt::QueuedConnection);
    });
}
