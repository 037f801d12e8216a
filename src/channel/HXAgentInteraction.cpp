#include "HXAgentInteraction.h"

#include "HXDBusNames.h"
#include "HXSystemLog.h"

QString HXAgentLocalConnectionString()
{
    return HXAgentLocalConnectionString(HXLoginName());
}

QString HXAgentLocalConnectionString(const QString &loginName)
{
    const QString agent = QStringLiteral("com.talvorn.OrvexAgent");
    if (loginName.isEmpty())
        return agent;
    return QStringLiteral("%1-%2").arg(agent, loginName);
}

QString HXAgentConnectionName(const QString &loginName)
{
    return QStringLiteral("OrvexAgent-%1").arg(loginName);
}

std::shared_ptr<HXAgentProxy> HXAgentInteraction::agentProxy()
{
    return agentProxy(HXLoginName());
}

std::shared_ptr<HXAgentProxy> HXAgentInteraction::agentProxy(const QString &loginName)
{
    static std::shared_ptr<HXAgentProxy> cached;
    const QString name = HXAgentConnectionName(loginName);
    const QDBusConnection bus = QDBusConnection::sessionBus();
    // A live cached agent is returned as it is, checked or not: the check is
    // made once, when the agent is found.
    if (cached && cached->peer().busName == HXDBusNames::busName(name) && cached->isValid())
        return cached;
    cached.reset();

    if (auto peer = HXRemoteProxy::lookUp(bus, name)) {
        cached = std::make_shared<HXAgentProxy>(std::move(*peer));
        return cached->conformsTo(HXAgentProxy::kProtocol) ? cached : nullptr;
    }
    HXSystemLog::write(QStringLiteral("Could not connect to agent using connection name: %1").arg(name));
    const QString owner = HXRemoteProxy::nameOwner(bus, HXDBusNames::busName(name));
    HXSystemLog::write(QStringLiteral("connection: %1").arg(owner.isEmpty() ? QStringLiteral("(null)") : owner));
    return nullptr;
}
