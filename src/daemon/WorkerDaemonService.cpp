#include "WorkerDaemonService.h"

#include "CommandSender.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonFiles.h"
#include "HXProductPaths.h"
#include "HXSystemLog.h"

#include <QDateTime>
#include <QFile>
#include <cstdlib>

WorkerDaemonService::WorkerDaemonService(HXTestingPass *pass, HXDBusNotificationCenter *center,
                                         quint16 statusViewPort, QObject *parent)
    : QObject(parent)
    , m_pass(pass)
    , m_center(center)
    , m_statusViewPort(statusViewPort)
{
    connect(m_pass, &HXTestingPass::testStarted, this, [this](HXTest test) {
        // The test type counts the live tests of the pass, one to eight, so
        // a progress bar over 0...8 rises through a pass; the two tests
        // without a live status leave it where it is.
        if (liveSlot(test) >= 0) {
            ++m_currentTestType;
            setStatus(test, HXLiveTestStatusRunning);
        } else {
            announce();
        }
    });
    connect(m_pass, &HXTestingPass::testFinished, this, [this](HXTest test, qint32 live) {
        ++m_testsComplete;
        if (liveSlot(test) >= 0)
            setStatus(test, live);
        else
            announce();
    });
    connect(m_pass, &HXTestingPass::finished, this, &WorkerDaemonService::passFinished);
}

int WorkerDaemonService::liveSlot(HXTest test)
{
    switch (test) {
    case HXTest::POST:
        return 0;
    case HXTest::IO:
        return 1;
    case HXTest::Battery:
        return 2;
    case HXTest::Memory:
        return 3;
    case HXTest::SMART:
        return 4;
    case HXTest::RAID:
        return 5;
    case HXTest::VolumeStructures:
        return 6;
    case HXTest::PartitionMap:
        return 7;
    case HXTest::SurfaceScan:
    case HXTest::FileStructures:
        break;
    }
    return -1;
}

bool WorkerDaemonService::startTesting()
{
    if (m_pass->isRunning())
        return false;
    m_live.fill(HXLiveTestStatusPending);
    m_testsComplete = 0;
    m_currentTestType = 0;
    HXSystemLog::write(QStringLiteral("Testing pass started"));
    announce();
    return m_pass->start();
}

void WorkerDaemonService::stopTesting()
{
    m_pass->stop();
}

void WorkerDaemonService::passFinished(bool completed)
{
    m_currentTestType = 0;
    // A test stopped while it ran did not end: it waits for the next pass.
    for (qint32 &status : m_live) {
        if (status == HXLiveTestStatusRunning)
            status = HXLiveTestStatusPending;
    }
    HXSystemLog::write(
        completed ? QStringLiteral("Testing pass finished: %1 tests complete").arg(m_testsComplete)
                  : QStringLiteral("Testing pass stopped after %1 tests").arg(m_testsComplete));
    recordPassInStore(completed);
    announce();
    tellStatusView(QStringLiteral("testingFinished"));
    Q_EMIT testingStopped();
}

void WorkerDaemonService::recordPassInStore(bool completed)
{
    // The worker's own store: what it has done, kept across restarts until
    // someone deletes it.
    const QString path = HXProductPaths::workerStoreFile();
    QVariantMap store;
    if (QFile::exists(path)) {
        QString why;
        store = HXDaemonReadPlistFile(path, &why).toMap();
    }
    const QString key =
        completed ? QStringLiteral("passesCompleted") : QStringLiteral("passesStopped");
    store.insert(key, store.value(key).toLongLong() + 1);
    store.insert(QStringLiteral("testsCompleted"),
                 store.value(QStringLiteral("testsCompleted")).toLongLong() + m_testsComplete);
    store.insert(QStringLiteral("lastPassDate"), QDateTime::currentDateTimeUtc());
    QString why;
    if (!HXDaemonWritePlistFile(path, store, &why))
        HXSystemLog::write(
            QStringLiteral("Could not update the worker's store %1: %2").arg(path, why));
}

qint32 WorkerDaemonService::status(HXTest test) const
{
    if (m_exitDuringStatusCall) {
        HXSystemLog::write(QStringLiteral("Worker: exiting during a status call"));
        std::_Exit(3);
    }
    return m_live[size_t(liveSlot(test))];
}

void WorkerDaemonService::setStatus(HXTest test, qint32 status)
{
    m_live[size_t(liveSlot(test))] = status;
    announce();
}

void WorkerDaemonService::announce()
{
    m_center->postNotification(OrvexWorkerDaemonTestStatusChangedNotification,
                               QStringLiteral("OrvexWorkerDaemon"), {}, true);
    tellStatusView(QStringLiteral("updateTestStatus"));
}

void WorkerDaemonService::tellStatusView(const QString &command)
{
    if (m_statusViewPort == 0)
        return;
    CommandSender::sendCommandWithParams({{QStringLiteral("command"), command},
                                          {QStringLiteral("address"), QStringLiteral("localhost")},
                                          {QStringLiteral("port"), int(m_statusViewPort)},
                                          {QStringLiteral("willReceiveData"), false}});
}

void WorkerDaemonService::activate()
{
    HXSystemLog::write(QStringLiteral("Worker: activate"));
    startTesting();
}

void WorkerDaemonService::deactivate()
{
    HXSystemLog::write(QStringLiteral("Worker: deactivate"));
    stopTesting();
}

bool WorkerDaemonService::isActive()
{
    return m_pass->isRunning();
}

qint64 WorkerDaemonService::numTestsComplete()
{
    return m_testsComplete;
}

qint32 WorkerDaemonService::currentTestType()
{
    return m_currentTestType;
}

#define LIVE_STATUS(getter, setter, test)                                                          \
    qint32 WorkerDaemonService::getter()                                                           \
    {                                                                                              \
        return status(test);                                                                       \
    }                                                                                              \
    void WorkerDaemonService::setter(qint32 value)                                                 \
    {                                                                                              \
        setStatus(test, value);                                                                    \
    }

LIVE_STATUS(postStatus, setPostStatus, HXTest::POST)
LIVE_STATUS(ioStatus, setIoStatus, HXTest::IO)
LIVE_STATUS(batteryStatus, setBatteryStatus, HXTest::Battery)
LIVE_STATUS(memoryStatus, setMemoryStatus, HXTest::Memory)
LIVE_STATUS(smartStatus, setSmartStatus, HXTest::SMART)
LIVE_STATUS(raidStatus, setRaidStatus, HXTest::RAID)
LIVE_STATUS(volStructsStatus, setVolStructsStatus, HXTest::VolumeStructures)
LIVE_STATUS(partitionMapStatus, setPartitionMapStatus, HXTest::PartitionMap)

#undef LIVE_STATUS

bool WorkerDaemonService::testDOConnection()
{
    return true;
}

bool WorkerDaemonService::testServerMessage(const QString &message)
{
    HXSystemLog::write(QStringLiteral("Message from a client: %1").arg(message));
    return true;
}
