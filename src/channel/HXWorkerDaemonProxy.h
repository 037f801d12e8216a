#pragma once

#include "HXRemoteProxy.h"

class ComTalvornHXDWorkerActionsProtocolInterface;

// The worker daemon's published object (HXDWorkerActionsProtocol). Statuses
// are live test status codes (0 pending, 1 not applicable, 2 running,
// 3 failed, 4 passed).
class HXWorkerDaemonProxy : public HXRemoteProxy
{
public:
    static const QString kConnectionName; // "OrvexWorkerDaemon"
    static const QString kProtocol;       // "HXDWorkerActionsProtocol"

    explicit HXWorkerDaemonProxy(HXPeer peer);
    ~HXWorkerDaemonProxy() override;

    void activate();
    void deactivate();
    bool isActive();
    qint64 numTestsComplete();
    qint32 currentTestType();
    qint32 postStatus();
    void setPostStatus(qint32 status);
    qint32 ioStatus();
    void setIoStatus(qint32 status);
    qint32 batteryStatus();
    void setBatteryStatus(qint32 status);
    qint32 memoryStatus();
    void setMemoryStatus(qint32 status);
    qint32 smartStatus();
    void setSmartStatus(qint32 status);
    qint32 raidStatus();
    void setRaidStatus(qint32 status);
    qint32 volStructsStatus();
    void setVolStructsStatus(qint32 status);
    qint32 partitionMapStatus();
    void setPartitionMapStatus(qint32 status);
    // Optional in the protocol: a peer without them refuses the call.
    bool testDOConnection();
    bool testServerMessage(const QString &message);

private:
    std::unique_ptr<ComTalvornHXDWorkerActionsProtocolInterface> m_remote;
};
