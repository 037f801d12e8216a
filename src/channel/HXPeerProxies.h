#pragma once

#include "HXRemoteProxy.h"

#include <QStringList>

class ComTalvornHXStatusViewActionsProtocolInterface;
class ComTalvornHXAUserInteractionProtocolInterface;
class ComTalvornHXRemoteDictionaryInterface;

// The status view's published object (HXStatusViewActionsProtocol).
class HXStatusViewProxy : public HXRemoteProxy
{
public:
    static const QString kConnectionName; // "OrvexStatusView"
    static const QString kProtocol;       // "HXStatusViewActionsProtocol"

    explicit HXStatusViewProxy(HXPeer peer);
    ~HXStatusViewProxy() override;

    void updateTestStatus();

private:
    std::unique_ptr<ComTalvornHXStatusViewActionsProtocolInterface> m_remote;
};

// The user's agent (HXAUserInteractionProtocol).
class HXAgentProxy : public HXRemoteProxy
{
public:
    static const QString kProtocol; // "HXAUserInteractionProtocol"

    explicit HXAgentProxy(HXPeer peer);
    ~HXAgentProxy() override;

    void alertUserToFinderNeedsRelaunch();
    bool showsStatusMenu();
    void setShowsStatusMenu(bool shows);

private:
    std::unique_ptr<ComTalvornHXAUserInteractionProtocolInterface> m_remote;
};

// A dictionary a peer passed by reference: each read asks the peer, so it
// shows the peer's dictionary as it is now.
class HXRemoteDictionaryProxy : public HXRemoteProxy
{
public:
    static const QString kProtocol; // "HXRemoteDictionary"

    explicit HXRemoteDictionaryProxy(HXPeer peer);
    ~HXRemoteDictionaryProxy() override;

    qint64 count();
    QStringList allKeys();
    // Invalid when the key is absent.
    QVariant objectForKey(const QString &key);

private:
    std::unique_ptr<ComTalvornHXRemoteDictionaryInterface> m_remote;
};
