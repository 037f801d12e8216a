#pragma once

#include "HXDaemonInteractionException.h"

#include <QDBusConnection>
#include <QDBusPendingReply>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

class QDateTime;

// Dates cross D-Bus as seconds since 1970 UTC; NaN stands for no date.
QDateTime HXDateFromDBus(double seconds);
double HXDateToDBus(const QDateTime &date);

// A peer found on a bus: the well-known name it was looked up by and the
// unique connection that owned that name at the time.
struct HXPeer
{
    QDBusConnection bus;
    QString busName;
    QString owner;
    QString path;
};

// The common part of every proxy to a published object. A proxy talks to the
// connection it was made for, never to a later owner of the same name, so a
// daemon that restarted is only reached through a fresh lookup.
//
// Remote calls block the calling thread for the round trip and are safe from
// any thread. A call that fails (the peer died, did not answer within the
// call timeout, or refused it) throws HXDaemonInteractionException. A value
// passed by copy that does not decode is refused with one line in the system
// log and answers as if nothing had been returned.
class HXRemoteProxy
{
public:
    explicit HXRemoteProxy(HXPeer peer);
    virtual ~HXRemoteProxy();
    HXRemoteProxy(const HXRemoteProxy &) = delete;
    HXRemoteProxy &operator=(const HXRemoteProxy &) = delete;

    const HXPeer &peer() const { return m_peer; }

    // The connection is still valid: the name has the owner it had when the
    // proxy was made.
    bool isValid() const;

    // The peer publishing `connectionName` on `bus` now, if any.
    static std::optional<HXPeer> lookUp(const QDBusConnection &bus, const QString &connectionName);
    // Whether the peer's introspection data lists the protocol's interface.
    bool conformsTo(const QString &protocol) const;

    // The unique connection owning `busName`, or empty when nobody does.
    static QString nameOwner(const QDBusConnection &bus, const QString &busName);
    // Whether the peer's introspection data lists `interface` at its path.
    static bool publishesInterface(const HXPeer &peer, const QString &interface);

    // Milliseconds a remote call may take before it fails. Calls are made on
    // a daemon's queue, never on the interface thread, but the interface waits
    // for their answers (a button stays disabled, an icon keeps its state), so
    // the usual limit is short: 5 s unless changed. Calls that do slow work in
    // the daemon (sampling a process) have a long one: 5 minutes.
    static int callTimeout();
    static void setCallTimeout(int milliseconds);
    static int longCallTimeout();
    static void setLongCallTimeout(int milliseconds);

protected:
    // Waits for the reply; throws when it is an error.
    template<typename... Types>
    static auto await(QDBusPendingReply<Types...> reply, const char *method)
    {
        reply.waitForFinished();
        if (reply.isError())
            throwCallError(reply.error(), method);
        if constexpr (sizeof...(Types) > 0)
            return reply.template argumentAt<0>();
    }

    // A by-copy value from the peer; `expected` is the kind the protocol
    // promises (QMetaType::QVariantMap, QVariantList, or UnknownType for any).
    QVariant decodeCopy(const QByteArray &bytes, const char *method, int expected) const;
    // A by-copy value for the peer; empty (and logged) when it has no
    // property-list form, in which case the call is not made.
    static QByteArray encodeCopy(const QVariant &value, const char *method);

    template<class Interface>
    std::unique_ptr<Interface> makeInterface(int timeout = callTimeout()) const
    {
        auto remote = std::make_unique<Interface>(m_peer.owner, m_peer.path, m_peer.bus);
        remote->setTimeout(timeout);
        // Calls never need an event loop; without a thread the object can
        // be used and destroyed from whichever thread holds the proxy last.
        remote->moveToThread(nullptr);
        return remote;
    }

private:
    [[noreturn]] static void throwCallError(const QDBusError &error, const char *method);

    HXPeer m_peer;
};
