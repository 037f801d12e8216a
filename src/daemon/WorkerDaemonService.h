#pragma once

#include "HXStatusBoard.h"
#include "HXTestingPass.h"

#include <QDBusConnection>
#include <QObject>
#include <array>

class HXDBusNotificationCenter;
class HXStatusReporter;

// The worker daemon's published object: the live status of the eight tests
// that have one, and the testing pass, whoever supplies its outcomes (the
// stand-in's scenario or the machine itself). Every change of a live status is
// announced twice, as the worker does: the distributed notification
// "OrvexWorkerDaemonTestStatusChangedNotification" and the command
// "updateTestStatus" to the status view's listener; "testingFinished" goes
// there when a pass ends.
class WorkerDaemonService : public QObject
{
    Q_OBJECT

public:
    // The pass is not owned and must outlive the service.
    WorkerDaemonService(HXTestingPass *pass, HXDBusNotificationCenter *center,
                        quint16 statusViewPort, QObject *parent = nullptr);

    // Starts a pass unless one runs; false when one did.
    bool startTesting();
    void stopTesting();
    bool isTesting() const { return m_pass->isRunning(); }

    static int liveSlot(HXTest test); // -1 for tests without a live status

    // For tests of the application: die without answering when a live status
    // is asked for, as a worker that crashes in the middle of a call.
    void setExitDuringStatusCall(bool exit) { m_exitDuringStatusCall = exit; }

Q_SIGNALS:
    void testingStopped();

public Q_SLOTS: // HXDWorkerActionsProtocol
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
    bool testDOConnection();
    bool testServerMessage(const QString &message);

private:
    qint32 status(HXTest test) const;
    void setStatus(HXTest test, qint32 status);
    void announce();
    void tellStatusView(const QString &command);
    void passFinished(bool completed);
    void recordPassInStore(bool completed);

    HXTestingPass *m_pass;
    HXDBusNotificationCenter *m_center;
    quint16 m_statusViewPort;
    std::array<qint32, 8> m_live{};
    qint64 m_testsComplete = 0;
    qint32 m_currentTestType = 0;
    bool m_exitDuringStatusCall = false;
};
