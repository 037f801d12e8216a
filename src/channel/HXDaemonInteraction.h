#pragma once

#include "HXDaemonInteractionException.h"
#include "HXIdleDaemonProxy.h"
#include "HXPeerProxies.h"
#include "HXWorkerDaemonProxy.h"

#include <QObject>
#include <QPointer>
#include <exception>
#include <functional>
#include <memory>
#include <type_traits>

class HXSerialQueue;

// The proxies to the daemons' published objects, each in its own cache.
//
// An accessor returns the cached proxy while its connection is valid;
// otherwise it makes one fresh lookup (no retry, no delay) and keeps the
// result only if the peer publishes the expected protocol. A missing proxy
// means the peer is not running; callers skip their call. Each
// cache has its own serial queue, so the accessors are safe from any thread.
//
// The interface thread never calls a daemon itself: a lookup asks the peer
// for its introspection data, and a stopped daemon answers nothing until the
// call times out. It goes through askIdleDaemon() / askWorkerDaemon() instead,
// which run the lookup and the call on the daemon's serial queue, in the order
// they were asked for, and hand the answer back to the main thread.
class HXDaemonInteraction
{
public:
    static std::shared_ptr<HXIdleDaemonProxy> idleDaemonProxy();
    static std::shared_ptr<HXWorkerDaemonProxy> workerDaemonProxy();
    // Looked up on the session bus, where the application publishes it.
    static std::shared_ptr<HXStatusViewProxy> statusViewProxy();

    static HXSerialQueue &idleDaemonQueue();
    static HXSerialQueue &workerDaemonQueue();
    static HXSerialQueue &slowIdleDaemonQueue();

    // Runs `call(proxy)` on the daemon's queue and `done(answer)` on the main
    // thread afterwards, unless `context` is gone by then. Without the daemon,
    // or when the call fails (which is written to the system log), `done` gets
    // what a message to nobody answers: false, 0 or an empty value.
    template<class Call, class Done>
    static void askIdleDaemon(QObject *context, Call call, Done done)
    {
        run(idleDaemonQueue(), context, withProxy(&idleDaemonProxy, std::move(call)),
            std::move(done));
    }
    template<class Call, class Done>
    static void askWorkerDaemon(QObject *context, Call call, Done done)
    {
        run(workerDaemonQueue(), context, withProxy(&workerDaemonProxy, std::move(call)),
            std::move(done));
    }
    // For calls that do slow work in the idle daemon (sampling a process, with
    // the long time-out): on a queue of their own, so that they hold up no
    // other call to it. Only the lookup waits its turn on the daemon's queue.
    template<class Call, class Done>
    static void askIdleDaemonSlowly(QObject *context, Call call, Done done)
    {
        run(slowIdleDaemonQueue(), context, withProxy(&idleDaemonProxy, std::move(call)),
            std::move(done));
    }
    // The same for a call whose answer nobody waits for.
    template<class Call> static void tellIdleDaemon(Call call)
    {
        run(idleDaemonQueue(), nullptr, withProxy(&idleDaemonProxy, std::move(call)), nullptr);
    }
    template<class Call> static void tellWorkerDaemon(Call call)
    {
        run(workerDaemonQueue(), nullptr, withProxy(&workerDaemonProxy, std::move(call)), nullptr);
    }

    // Runs `work()` on `queue` and `done(answer)` on the main thread, as above;
    // for work that finds its peer its own way.
    template<class Work, class Done>
    static void run(HXSerialQueue &queue, QObject *context, Work work, Done done);

    // Waits, at most `milliseconds` in all, for the daemon queues to run
    // what they hold; answers whether they did.
    static bool waitForQueues(int milliseconds);

private:
    static void onMainThread(std::function<void()> work);
    static void logFailure(const QString &queue, const std::exception &failure);

    template<class Proxy, class Call>
    static auto withProxy(std::shared_ptr<Proxy> (*lookUp)(), Call call)
    {
        return [lookUp, call = std::move(call)]() mutable {
            using Result = std::invoke_result_t<Call, Proxy &>;
            const auto proxy = lookUp();
            if constexpr (std::is_void_v<Result>) {
                if (proxy)
                    call(*proxy);
            } else {
                return proxy ? call(*proxy) : Result();
            }
        };
    }
};

#include "HXSerialQueue.h"

template<class Work, class Done>
void HXDaemonInteraction::run(HXSerialQueue &queue, QObject *context, Work work, Done done)
{
    using Result = std::invoke_result_t<Work &>;
    constexpr bool answers = !std::is_same_v<Done, std::nullptr_t>;
    QPointer<QObject> guard(context);
    queue.async([label = queue.label(), guard, work = std::move(work),
                 done = std::move(done)]() mutable {
        if constexpr (std::is_void_v<Result>) {
            try {
                work();
            } catch (const std::exception &failure) {
                // A failed call (HXDaemonInteractionException) or anything
                // else: the asker still hears back.
                logFailure(label, failure);
            }
            if constexpr (answers) {
                onMainThread([guard, done = std::move(done)]() mutable {
                    if (guard)
                        done();
                });
            }
        } else {
            Result answer{};
            try {
                answer = work();
            } catch (const std::exception &failure) {
                // A failed call (HXDaemonInteractionException) or anything
                // else: the asker still hears back.
                logFailure(label, failure);
            }
            if constexpr (answers) {
                onMainThread([guard, done = std::move(done), answer = std::move(answer)]() mutable {
                    if (guard)
                        done(std::move(answer));
                });
            }
        }
    });
}
