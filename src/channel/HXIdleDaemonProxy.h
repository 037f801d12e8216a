#pragma once

#include "HXRemoteProxy.h"

#include <QDateTime>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

class ComTalvornHXIdleDaemonUserInteractionProtocolInterface;
class HXRemoteDictionaryProxy;

// The idle daemon's published object (HXIdleDaemonUserInteractionProtocol),
// every method in the protocol's order. Dates cross as seconds since 1970;
// a date the daemon never set arrives invalid.
class HXIdleDaemonProxy : public HXRemoteProxy
{
public:
    static const QString kConnectionName; // "OrvexIdleDaemon"
    static const QString kProtocol;       // "HXIdleDaemonUserInteractionProtocol"

    explicit HXIdleDaemonProxy(HXPeer peer);
    ~HXIdleDaemonProxy() override;

    bool workerDaemonIsPaused();
    bool workerDaemonIsEnabled();
    void disableWorkerDaemon();
    void enableWorkerDaemon();
    bool workerDaemonIsTesting();
    void forceStartTesting();
    void forceStopTesting();
    bool forceFailures(bool force);
    void forcePrimaryTime();
    void forceSecondaryTime();
    void requestIdleIgnore(bool ignore);
    void deleteWorkerDaemonPersistentStore();
    void deleteStatusReport();
    void clearStatusReport();
    void clearStatusReportLogFile();
    void restartIdleManager();
    void exitDaemon();
    QVariantMap idleDaemonPreferences();
    void setSuppressUserInteraction(bool suppress);
    bool isUserInteractionSuppressed();
    bool fileExistsAtPath(const QString &path);
    QString fileOwnerNameForFileAtPath(const QString &path);
    void requestLogDeletionForUser(const QString &user);
    void recordUserReviewedNewIssues(const QVariant &issues);
    QDateTime lastUserReviewDate();
    bool finderNeedsRelaunchForUser(const QString &user);
    void invalidateFinderNeedsRelaunchForUser(const QString &user);
    void scheduleFinderNeedsRelaunchForUsers(const QStringList &users);
    QVariantList runningProcesses();
    bool processIsRunning(const QString &processName);
    QVariantList runningBlacklistedApps();
    QString sampleOfProcessName(const QString &processName);
    QVariantList PIDsForProcessName(const QString &processName);
    QVariantList exclusions();
    void setExclusions(const QVariantList &exclusions);
    void addExclusion(const QVariant &exclusion);
    void removeExclusion(const QVariant &exclusion);
    bool allowsTestingOnBatteryPower();
    void setAllowsTestingOnBatteryPower(bool allows);
    bool systemSleepTimeAllowsIdleRun();
    void setIdleSchedule(const QVariantMap &schedule);
    QVariantMap getIdleSchedule();
    // By reference: the daemon's live schedule, read through a proxy.
    std::shared_ptr<HXRemoteDictionaryProxy> idleSchedule();
    bool isDebugModeEnabled();
    void setIsDebugModeEnabled(bool enabled);
    void resetGeneralDefaults();
    void resetExclusions();
    QDateTime POSTTestLastCheckDate();
    void setPOSTTestLastCheckDate(const QDateTime &date);
    void framistan();

private:
    std::unique_ptr<ComTalvornHXIdleDaemonUserInteractionProtocolInterface> m_remote;
    // For the calls that do slow work in the daemon, with the long timeout.
    std::unique_ptr<ComTalvornHXIdleDaemonUserInteractionProtocolInterface> m_slowRemote;
};
