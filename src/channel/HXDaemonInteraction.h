#pragma once

#include "HXIdleDaemonProxy.h"
#include "HXPeerProxies.h"
#include "HXWorkerDaemonProxy.h"

#include <memory>

// The proxies to the daemons' published objects, each in its own cache.
//
// An accessor returns the cached proxy while its connection is valid;
// otherwise it makes one fresh lookup (no retry, no delay) and keeps the
// result only if the peer publishes the expected protocol. A missing proxy
// means the peer is not running; callers skip their call (see HXAsk). Each
// cache has its own serial queue, so the accessors are safe from any thread.
class HXDaemonInteraction
{
public:
    static std::shared_ptr<HXIdleDaemonProxy> idleDaemonProxy();
    static std::shared_ptr<HXWorkerDaemonProxy> workerDaemonProxy();
    // Looked up on the session bus, where the application publishes it.
    static std::shared_ptr<HXStatusViewProxy> statusViewProxy();
};

// A call through a proxy that may be missing, answering what a message to
// nobody answers: false, 0, an empty value, or nothing.
//   bool forced = HXAsk(HXDaemonInteraction::idleDaemonProxy(), &HXIdleDaemonProxy::forceFailures, true);
template<class Proxy, class Result, class... Params, class... Args>
Result HXAsk(const std::shared_ptr<Proxy> &proxy, Result (Proxy::*method)(Params...), Args &&...args)
{
    if (!proxy)
        return Result();
    return ((*proxy).*method)(std::forward<Args>(args)...);
}
