#include "HXDaemonInteraction.h"

#include "HXDBusNames.h"
#include "HXSerialQueue.h"
#include "HXSystemLog.h"

#include <functional>

namespace {

enum class LookupLog { Quiet, StatusView };

// One cache slot and the queue that serialises its lookups.
template<class Proxy>
class ProxySlot
{
public:
    ProxySlot(const char *label, std::function<QDBusConnection()> bus, LookupLog log)
        : m_queue(QString::fromLatin1(label))
        , m_bus(std::move(bus))
        , m_log(log)
    {
    }

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

} // namespace

std::shared_ptr<HXIdleDaemonProxy> HXDaemonInteraction::idleDaemonProxy()
{
    static ProxySlot<HXIdleDaemonProxy> slot("com.talvorn.hxdaemoninteraction.idledaemonproxy",
                                             HXDBusNames::daemonBus, LookupLog::Quiet);
    return slot.proxy();
}

std::shared_ptr<HXWorkerDaemonProxy> HXDaemonInteraction::workerDaemonProxy()
{
    static ProxySlot<HXWorkerDaemonProxy> slot("com.talvorn.hxdaemoninteraction.workerdaemonproxy",
                                               HXDBusNames::daemonBus, LookupLog::Quiet);
    return slot.proxy();
}

std::shared_ptr<HXStatusViewProxy> HXDaemonInteraction::statusViewProxy()
{
    static ProxySlot<HXStatusViewProxy> slot("com.talvorn.hxdaemoninteraction.statusviewproxy",
                                             &QDBusConnection::sessionBus, LookupLog::StatusView);
    return slot.proxy();
}
