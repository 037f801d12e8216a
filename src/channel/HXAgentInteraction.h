#pragma once

#include "HXPeerProxies.h"

#include <memory>

// The agent's identity: "com.talvorn.OrvexAgent-<login>", or
// "com.talvorn.OrvexAgent" alone for an empty login name. It is the object
// of the distributed notifications addressed to the agent.
QString HXAgentLocalConnectionString();
QString HXAgentLocalConnectionString(const QString &loginName);

// The agent's connection name, "OrvexAgent-<login>" (the suffix stays even
// when the login name is empty).
QString HXAgentConnectionName(const QString &loginName);

// Notifications to the agent, and their user-info keys.
inline const QString HXOrvexAgentShowsStatusMenuDidChangeNotification =
    QStringLiteral("HXOrvexAgentShowsStatusMenuDidChangeNotification");
inline const QString HXOrvexAgentShowsStatusMenuKey = QStringLiteral("HXOrvexAgentShowsStatusMenuKey");
inline const QString HXOrvexAgentSuppressUserInteractionDidChangeNotification =
    QStringLiteral("HXOrvexAgentSuppressUserInteractionDidChangeNotification");
inline const QString HXIOrvexSuppressUserInteractionKey = QStringLiteral("HXIOrvexSuppressUserInteractionKey");

// The agent of the logged-in user, on the session bus. Main thread only.
class HXAgentInteraction
{
public:
    // A found agent stays cached even when it does not publish the protocol:
    // it is not returned by the lookup that found it, but is by the next
    // ones while its connection lives. A missing agent logs two lines.
    static std::shared_ptr<HXAgentProxy> agentProxy();
    static std::shared_ptr<HXAgentProxy> agentProxy(const QString &loginName);
};
