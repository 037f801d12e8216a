#include "HXDaemonInteraction.h"

#include "HXDBusNames.h"
#include "HXSerialQueue.h"
#include "HXSystemLog.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <algorithm>
#include <functional>

namespace {

enum class LookupLog { Quiet, StatusView };

// One cache slot and the queue that serialises its lookups.
template<class Proxy> class ProxySlot
{
public:
    ProxySlot(const char *label, std::function<QDBusConnection()> bus, LookupLog log)
        : m_queue(QString::fromLatin1(label))
        , m_bus(std::move(bus))
        , m_log(log)
    {
    }

    HXSerialQueue &queue() { return m_queue; }

    std::shared_ptr<Proxy> proxy()
    {
        return m_queue.sync([this] {
            if (m_cached && m_cached->isValid())
                return m_cached;
            m_cached.reset();
            if (auto peer = HXRemoteProxy::lookUp(m_bus(), Proxy::kConnectionName))
                m_cached = std::make_shared<Proxy>(std::move(*peer));
            if (m_log == LookupLog::StatusView)
                HXSystemLog::write(m_cached ? QStringLiteral("got _statusViewProxy")
                                            : QStringLiteral("couldn't get _statusViewProxy"));
            if (m_cached && !m_cached->conformsTo(Proxy::kProtocol))
                m_cached.reset();
            return m_cached;
        });
    }

private:
    HXSerialQueue m_queue;
    std::function<QDBusConnection()> m_bus;
    LookupLog m_log;
    std::shared_ptr<Proxy> m_cached;
};

// The slots outlive every static object that might still call into them
// from a queue's thread at exit, so they are never destroyed.
ProxySlot<HXIdleDaemonProxy> &idleSlot()
{
    static auto *slot =
        new ProxySlot<HXIdleDaemonProxy>("com.talvorn.hxdaemoninteraction.idledaemonproxy",
                                         HXDBusNames::daemonBus, LookupLog::Quiet);
    return *slot;
}

ProxySlot<HXWorkerDaemonProxy> &workerSlot()
{
    static auto *slot =
        new ProxySlot<HXWorkerDaemonProxy>("com.talvorn.hxdaemoninteraction.workerdaemonproxy",
                                           HXDBusNames::daemonBus, LookupLog::Quiet);
    return *slot;
}

ProxySlot<HXStatusViewProxy> &statusViewSlot()
{
    static auto *slot =
        new ProxySlot<HXStatusViewProxy>("com.talvorn.hxdaemoninteraction.statusviewproxy",
                                         &QDBusConnection::sessionBus, LookupLog::StatusView);
    return *slot;
}

} // namespace

std::shared_ptr<HXIdleDaemonProxy> HXDaemonInteraction::idleDaemonProxy()
{
    return idleSlot().proxy();
}

std::shared_ptr<HXWorkerDaemonProxy> HXDaemonInteraction::workerDaemonProxy()
{
    return workerSlot().proxy();
}

std::shared_ptr<HXStatusViewProxy> HXDaemonInteraction::statusViewProxy()
{
    return statusViewSlot().proxy();
}

HXSerialQueue &HXDaemonInteraction::idleDaemonQueue()
{
    return idleSlot().queue();
}

HXSerialQueue &HXDaemonInteraction::workerDaemonQueue()
{
    return workerSlot().queue();
}

HXSerialQueue &HXDaemonInteraction::slowIdleDaemonQueue()
{
    static auto *queue =
        new HXSerialQueue(QStringLiteral("com.talvorn.hxdaemoninteraction.idledaemonproxy.slow"));
    return *queue;
}

bool HXDaemonInteraction::waitForQueues(int milliseconds)
{
    QElapsedTimer clock;
    clock.start();
    bool allIdle = true;
    for (HXSerialQueue *queue :
         {&idleDaemonQueue(), &workerDaemonQueue(), &slowIdleDaemonQueue()}) {
        const int left = std::max(0, milliseconds - int(clock.elapsed()));
        allIdle = queue->waitForIdle(left) && allIdle;
    }
    return allIdle;
}

void HXDaemonInteraction::onMainThread(std::function<void()> work)
{
    // The application object lives as long as there is a main thread to
    // hand anything to; without it the answer has nobody to go to.
    if (QCoreApplication *app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::move(work), Qt::QueuedConnection);
}

void HXDaemonInteraction::logFailure(const QString &queue, const std::exception &failure)
{
    HXSystemLog::write(QStringLiteral("%1: %2").arg(queue, QString::fromStdString(failure.what())));
}
