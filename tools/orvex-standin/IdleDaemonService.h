#pragma once

#include "IdleDaemonSettings.h"

#include <QDBusContext>
#include <QDBusObjectPath>
#include <QMap>
#include <QObject>
#include <QVariantMap>

class WorkerDaemonService;

// The idle daemon's published object: its settings (IdleDaemonSettings), the
// machine's processes, and forcing, which starts or stops the worker's pass
// and keeps the marker files as the daemon does.
class IdleDaemonService : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    static const QString kSchedulePath; // the schedule passed by reference

    IdleDaemonService(WorkerDaemonService *worker, bool sleepTimeAllowsIdleRun, QObject *parent = nullptr);

    QVariantMap schedule() const;

public Q_SLOTS: // HXIdleDaemonUserInteractionProtocol
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
    QByteArray idleDaemonPreferences();
    void setSuppressUserInteraction(bool suppress);
    bool isUserInteractionSuppressed();
    // Files only this daemon sees (another user's), with their owners.
    void setDaemonOnlyFiles(const QMap<QString, QString> &files) { m_daemonOnlyFiles = files; }
    // Answers fileExistsAtPath, then dies without answering when asked for
    // the owner: a daemon gone between the two questions.
    void setExitAfterFileExists(bool exit) { m_exitAfterFileExists = exit; }
    bool fileExistsAtPath(const QString &path);
    QString fileOwnerNameForFileAtPath(const QString &path);
    void requestLogDeletionForUser(const QString &user);
    void recordUserReviewedNewIssues(const QByteArray &issues);
    double lastUserReviewDate();
    bool finderNeedsRelaunchForUser(const QString &user);
    void invalidateFinderNeedsRelaunchForUser(const QString &user);
    void scheduleFinderNeedsRelaunchForUsers(const QByteArray &users);
    QByteArray runningProcesses();
    bool processIsRunning(const QString &processName);
    QByteArray runningBlacklistedApps();
    QString sampleOfProcessName(const QString &processName);
    QByteArray PIDsForProcessName(const QString &processName);
    QByteArray exclusions();
    void setExclusions(const QByteArray &exclusions);
    void addExclusion(const QByteArray &exclusion);
    void removeExclusion(const QByteArray &exclusion);
    bool allowsTestingOnBatteryPower();
    void setAllowsTestingOnBatteryPower(bool allows);
    bool systemSleepTimeAllowsIdleRun();
    void setIdleSchedule(const QByteArray &schedule);
    QByteArray getIdleSchedule();
    QDBusObjectPath idleSchedule();
    bool isDebugModeEnabled();
    void setIsDebugModeEnabled(bool enabled);
    void resetGeneralDefaults();
    void resetExclusions();
    double POSTTestLastCheckDate();
    void setPOSTTestLastCheckDate(double date);
    void framistan();

private:
    // The by-copy argument, or an invalid value after refusing the call.
    QVariant decodeArgument(const QByteArray &bytes, const char *method, int expected);
    QByteArray encodeAnswer(const QVariant &value);
    void startForced(const QString &marker);

    WorkerDaemonService *m_worker;
    bool m_sleepTimeAllowsIdleRun;
    bool m_idleIgnoreRequested = false;
    QMap<QString, QString> m_daemonOnlyFiles;
    bool m_exitAfterFileExists = false;
    bool m_answeredFileExists = false;
    IdleDaemonSettings m_settings;
};
