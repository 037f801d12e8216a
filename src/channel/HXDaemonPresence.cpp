#include "HXDaemonPresence.h"

#include "HXDBusNames.h"
#include "HXIdleDaemonProxy.h"
#include "HXWorkerDaemonProxy.h"

#include <QDBusConnectionInterface>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

HXDaemonPresence::HXDaemonPresence(QObject *parent)
    : HXDaemonPresence(HXDBusNames::daemonBus(),
                       {HXWorkerDaemonProxy::kConnectionName, HXIdleDaemonProxy::kConnectionName},
                       parent)
{
}

HXDaemonPresence::HXDaemonPresence(const QDBusConnection &bus, const QStringList &connectionNames,
                                   QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    for (const QString &name : connectionNames)
        m_busNames.append(HXDBusNames::busName(name));
    m_missing = QSet<QString>(m_busNames.cbegin(), m_busNames.cend());
    if (!m_bus.isConnected() || !m_bus.interface()) {
        // No bus at all: nobody is there, and nobody will come. Said from the
        // event loop, as an answer from the bus would be, so that whoever
        // connects after construction hears it.
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_known = true;
                Q_EMIT daemonsAreRunningChanged(false);
            },
            Qt::QueuedConnection);
        return;
    }
    // Watch first, then ask, so that no change falls between the two.
    m_watcher =
        new QDBusServiceWatcher(QString(), m_bus, QDBusServiceWatcher::WatchForOwnerChange, this);
    m_watcher->setWatchedServices(m_busNames);
    connect(m_watcher, &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString &service, const QString &, const QString &newOwner) {
                setOwned(service, !newOwner.isEmpty());
            });
    m_unanswered = int(m_busNames.size());
    for (const QString &busName : std::as_const(m_busNames)) {
        auto *pending = new QDBusPendingCallWatcher(
            m_bus.interface()->asyncCall(QStringLiteral("NameHasOwner"), busName), this);
        connect(pending, &QDBusPendingCallWatcher::finished, this,
                [this, busName](QDBusPendingCallWatcher *call) {
                    call->deleteLater();
                    const QDBusPendingReply<bool> reply = *call;
                    // An error answer (a bus that went away) counts as nobody there.
                    // An owner change heard since is newer than this answer, which
                    // Qt may hand over after the change's signal.
                    const bool owned = !reply.isError() && reply.value();
                    if (!m_heardOf.contains(busName)) {
                        if (owned)
                            m_missing.remove(busName);
                        else
                            m_missing.insert(busName);
                    }
                    if (--m_unanswered == 0) {
                        m_known = true;
                        Q_EMIT daemonsAreRunningChanged(daemonsAreRunning());
                    }
                });
    }
}

void HXDaemonPresence::setOwned(const QString &busName, bool owned)
{
    const bool before = daemonsAreRunning();
    m_heardOf.insert(busName);
    if (owned)
        m_missing.remove(busName);
    else
        m_missing.insert(busName);
    if (m_known && daemonsAreRunning() != before)
        Q_EMIT daemonsAreRunningChanged(daemonsAreRunning());
}
