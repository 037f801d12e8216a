#include "HXPeerProxies.h"

#include "hxauserinteractionprotocol_proxy.h"
#include "hxremotedictionary_proxy.h"
#include "hxstatusviewactionsprotocol_proxy.h"

const QString HXStatusViewProxy::kConnectionName = QStringLiteral("OrvexStatusView");
const QString HXStatusViewProxy::kProtocol = QStringLiteral("HXStatusViewActionsProtocol");

HXStatusViewProxy::HXStatusViewProxy(HXPeer peer)
    : HXRemoteProxy(std::move(peer))
    , m_remote(makeInterface<ComTalvornHXStatusViewActionsProtocolInterface>())
{
}

HXStatusViewProxy::~HXStatusViewProxy() = default;

void HXStatusViewProxy::updateTestStatus()
{
    await(m_remote->updateTestStatus(), "updateTestStatus");
}

const QString HXAgentProxy::kProtocol = QStringLiteral("HXAUserInteractionProtocol");

HXAgentProxy::HXAgentProxy(HXPeer peer)
    : HXRemoteProxy(std::move(peer))
    , m_remote(makeInterface<ComTalvornHXAUserInteractionProtocolInterface>())
{
}

HXAgentProxy::~HXAgentProxy() = default;

void HXAgentProxy::alertUserToFinderNeedsRelaunch()
{
    await(m_remote->alertUserToFinderNeedsRelaunch(), "alertUserToFinderNeedsRelaunch");
}

bool HXAgentProxy::showsStatusMenu()
{
    return await(m_remote->showsStatusMenu(), "showsStatusMenu");
}

void HXAgentProxy::setShowsStatusMenu(bool shows)
{
    await(m_remote->setShowsStatusMenu(shows), "setShowsStatusMenu");
}

const QString HXRemoteDictionaryProxy::kProtocol = QStringLiteral("HXRemoteDictionary");

HXRemoteDictionaryProxy::HXRemoteDictionaryProxy(HXPeer peer)
    : HXRemoteProxy(std::move(peer))
    , m_remote(makeInterface<ComTalvornHXRemoteDictionaryInterface>())
{
}

HXRemoteDictionaryProxy::~HXRemoteDictionaryProxy() = default;

qint64 HXRemoteDictionaryProxy::count()
{
    return await(m_remote->count(), "count");
}

QStringList HXRemoteDictionaryProxy::allKeys()
{
    return await(m_remote->allKeys(), "allKeys");
}

QVariant HXRemoteDictionaryProxy::objectForKey(const QString &key)
{
    const QByteArray bytes = await(m_remote->objectForKey(key), "objectForKey");
    // An absent key answers no bytes at all, not a malformed list.
    if (bytes.isEmpty())
        return {};
    return decodeCopy(bytes, "objectForKey", QMetaType::UnknownType);
}
