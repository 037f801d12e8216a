#include "HXWorkerDaemonProxy.h"

#include "hxdworkeractionsprotocol_proxy.h"

const QString HXWorkerDaemonProxy::kConnectionName = QStringLiteral("OrvexWorkerDaemon");
const QString HXWorkerDaemonProxy::kProtocol = QStringLiteral("HXDWorkerActionsProtocol");

HXWorkerDaemonProxy::HXWorkerDaemonProxy(HXPeer peer)
    : HXRemoteProxy(std::move(peer))
    , m_remote(makeInterface<ComTalvornHXDWorkerActionsProtocolInterface>())
{
}

HXWorkerDaemonProxy::~HXWorkerDaemonProxy() = default;

void HXWorkerDaemonProxy::activate()
{
    await(m_remote->activate(), "activate");
}

void HXWorkerDaemonProxy::deactivate()
{
    await(m_remote->deactivate(), "deactivate");
}

bool HXWorkerDaemonProxy::isActive()
{
    return await(m_remote->isActive(), "isActive");
}

qint64 HXWorkerDaemonProxy::numTestsComplete()
{
    return await(m_remote->numTestsComplete(), "numTestsComplete");
}

qint32 HXWorkerDaemonProxy::currentTestType()
{
    return await(m_remote->currentTestType(), "currentTestType");
}

qint32 HXWorkerDaemonProxy::postStatus()
{
    return await(m_remote->postStatus(), "postStatus");
}

void HXWorkerDaemonProxy::setPostStatus(qint32 status)
{
    await(m_remote->setPostStatus(status), "setPostStatus");
}

qint32 HXWorkerDaemonProxy::ioStatus()
{
    return await(m_remote->ioStatus(), "ioStatus");
}

void HXWorkerDaemonProxy::setIoStatus(qint32 status)
{
    await(m_remote->setIoStatus(status), "setIoStatus");
}

qint32 HXWorkerDaemonProxy::batteryStatus()
{
    return await(m_remote->batteryStatus(), "batteryStatus");
}

void HXWorkerDaemonProxy::setBatteryStatus(qint32 status)
{
    await(m_remote->setBatteryStatus(status), "setBatteryStatus");
}

qint32 HXWorkerDaemonProxy::memoryStatus()
{
    return await(m_remote->memoryStatus(), "memoryStatus");
}

void HXWorkerDaemonProxy::setMemoryStatus(qint32 status)
{
    await(m_remote->setMemoryStatus(status), "setMemoryStatus");
}

qint32 HXWorkerDaemonProxy::smartStatus()
{
    return await(m_remote->smartStatus(), "smartStatus");
}

void HXWorkerDaemonProxy::setSmartStatus(qint32 status)
{
    await(m_remote->setSmartStatus(status), "setSmartStatus");
}

qint32 HXWorkerDaemonProxy::raidStatus()
{
    return await(m_remote->raidStatus(), "raidStatus");
}

void HXWorkerDaemonProxy::setRaidStatus(qint32 status)
{
    await(m_remote->setRaidStatus(status), "setRaidStatus");
}

qint32 HXWorkerDaemonProxy::volStructsStatus()
{
    return await(m_remote->volStructsStatus(), "volStructsStatus");
}

void HXWorkerDaemonProxy::setVolStructsStatus(qint32 status)
{
    await(m_remote->setVolStructsStatus(status), "setVolStructsStatus");
}

qint32 HXWorkerDaemonProxy::partitionMapStatus()
{
    return await(m_remote->partitionMapStatus(), "partitionMapStatus");
}

void HXWorkerDaemonProxy::setPartitionMapStatus(qint32 status)
{
    await(m_remote->setPartitionMapStatus(status), "setPartitionMapStatus");
}

bool HXWorkerDaemonProxy::testDOConnection()
{
    return await(m_remote->testDOConnection(), "testDOConnection");
}

bool HXWorkerDaemonProxy::testServerMessage(const QString &message)
{
    return await(m_remote->testServerMessage(message), "testServerMessage");
}
