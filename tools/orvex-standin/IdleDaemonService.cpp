#include "IdleDaemonService.h"

#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "HXProductPaths.h"
#include "HXRemoteProxy.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "ProcessTable.h"
#include "WorkerDaemonService.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <cstdlib>

const QString IdleDaemonService::kSchedulePath = QStringLiteral("/IdleSchedule");

namespace {

// Processes that keep disks too busy for a fair surface scan.
const QStringList kBlacklistedApps = {QStringLiteral("badblocks"), QStringLiteral("e2fsck"),
                                      QStringLiteral("fsck"), QStringLiteral("shred")};

} // namespace

IdleDaemonService::IdleDaemonService(WorkerDaemonService *worker, bool sleepTimeAllowsIdleRun,
                                     QObject *parent)
    : QObject(parent)
    , m_worker(worker)
    , m_sleepTimeAllowsIdleRun(sleepTimeAllowsIdleRun)
{
    connect(worker, &WorkerDaemonService::testingStopped, this,
            [] { QFile::remove(HXProductPaths::isIdleMarker()); });
}

QVariantMap IdleDaemonService::schedule() const
{
    return m_settings.schedule();
}

QVariant IdleDaemonService::decodeArgument(const QByteArray &bytes, const char *method,
                                           int expected)
{
    QString why;
    const QVariant value = BinaryPlistReader::read(bytes, &why);
    if (value.isValid() &&
        (expected == QMetaType::UnknownType || value.metaType().id() == expected))
        return value;
    const QString sentence =
        QStringLiteral("Refused %1 from %2: its argument is not %3 binary property list (%4)")
            .arg(QLatin1String(method), message().service(),
                 expected == QMetaType::QVariantMap    ? QStringLiteral("a dictionary as a")
                 : expected == QMetaType::QVariantList ? QStringLiteral("an array as a")
                                                       : QStringLiteral("a"),
                 why.isEmpty() ? QStringLiteral("another kind of value") : why);
    HXSystemLog::write(sentence);
    sendErrorReply(QDBusError::InvalidArgs, sentence);
    return {};
}

QByteArray IdleDaemonService::encodeAnswer(const QVariant &value)
{
    return BinaryPlistWriter::write(value);
}

bool IdleDaemonService::workerDaemonIsPaused()
{
    return m_idleIgnoreRequested;
}

bool IdleDaemonService::workerDaemonIsEnabled()
{
    return m_settings.value(IdleDaemonSettings::kEnabledKey).toBool();
}

void IdleDaemonService::disableWorkerDaemon()
{
    m_settings.set(IdleDaemonSettings::kEnabledKey, false);
    m_worker->stopTesting();
}

void IdleDaemonService::enableWorkerDaemon()
{
    m_settings.set(IdleDaemonSettings::kEnabledKey, true);
}

bool IdleDaemonService::workerDaemonIsTesting()
{
    return m_worker->isTesting();
}

void IdleDaemonService::startForced(const QString &marker)
{
    QDir().mkpath(HXProductPaths::libraryFolder());
    QFile(marker).open(QIODevice::WriteOnly);
    QFile(HXProductPaths::isIdleMarker()).open(QIODevice::WriteOnly);
    m_worker->startTesting();
}

void IdleDaemonService::forceStartTesting()
{
    startForced(HXProductPaths::isIdlePrimaryMarker());
}

void IdleDaemonService::forceStopTesting()
{
    m_worker->stopTesting();
    QFile::remove(HXProductPaths::isIdleMarker());
}

bool IdleDaemonService::forceFailures(bool force)
{
    const QString marker = HXProductPaths::forceFailuresMarker();
    if (force) {
        QDir().mkpath(HXProductPaths::libraryFolder());
        QFile(marker).open(QIODevice::WriteOnly);
    } else {
        QFile::remove(marker);
    }
    return QFileInfo::exists(marker);
}

void IdleDaemonService::forcePrimaryTime()
{
    startForced(HXProductPaths::isIdlePrimaryMarker());
}

void IdleDaemonService::forceSecondaryTime()
{
    startForced(HXProductPaths::isIdleSecondaryMarker());
}

void IdleDaemonService::requestIdleIgnore(bool ignore)
{
    m_idleIgnoreRequested = ignore;
}

void IdleDaemonService::deleteWorkerDaemonPersistentStore()
{
    QFile::remove(HXProductPaths::workerStoreFile());
    // What the report holds at this moment tells whoever reset the product
    // whether the log was cleared first.
    HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
    reporter->loadStatusFile();
    HXSystemLog::write(
        QStringLiteral("Worker daemon store deleted; the report's log holds %1 entries")
            .arg(reporter->report()->countOfLog()));
}

void IdleDaemonService::deleteStatusReport()
{
    HXStatusReporter::sharedReporter()->removeStatusFile();
}

void IdleDaemonService::clearStatusReport()
{
    HXStatusReporter::sharedReporter()->clearReport();
}

void IdleDaemonService::clearStatusReportLogFile()
{
    HXStatusReporter::sharedReporter()->clearReportLog();
}

void IdleDaemonService::restartIdleManager()
{
    m_idleIgnoreRequested = false;
    HXSystemLog::write(QStringLiteral("Idle manager restarted"));
}

void IdleDaemonService::exitDaemon()
{
    // After the reply has gone out.
    QTimer::singleShot(0, QCoreApplication::instance(), &QCoreApplication::quit);
}

QByteArray IdleDaemonService::idleDaemonPreferences()
{
    return encodeAnswer(m_settings.all());
}

void IdleDaemonService::setSuppressUserInteraction(bool suppress)
{
    m_settings.set(IdleDaemonSettings::kSuppressKey, suppress);
}

bool IdleDaemonService::isUserInteractionSuppressed()
{
    return m_settings.value(IdleDaemonSettings::kSuppressKey).toBool();
}

bool IdleDaemonService::fileExistsAtPath(const QString &path)
{
    m_answeredFileExists = true;
    return m_daemonOnlyFiles.contains(path) || QFileInfo::exists(path);
}

QString IdleDaemonService::fileOwnerNameForFileAtPath(const QString &path)
{
    if (m_exitAfterFileExists && m_answeredFileExists) {
        HXSystemLog::write(
            QStringLiteral("Idle daemon: exiting before naming the owner of %1").arg(path));
        std::_Exit(3);
    }
    const auto hidden = m_daemonOnlyFiles.constFind(path);
    return hidden != m_daemonOnlyFiles.cend() ? *hidden : QFileInfo(path).owner();
}

void IdleDaemonService::requestLogDeletionForUser(const QString &user)
{
    HXSystemLog::write(QStringLiteral("Log deletion requested for user %1").arg(user));
}

void IdleDaemonService::recordUserReviewedNewIssues(const QByteArray &issues)
{
    const QVariant value =
        decodeArgument(issues, "recordUserReviewedNewIssues", QMetaType::UnknownType);
    if (!value.isValid())
        return;
    m_settings.set({{IdleDaemonSettings::kReviewedKey, value},
                    {IdleDaemonSettings::kReviewDateKey, QDateTime::currentDateTimeUtc()}});
}

double IdleDaemonService::lastUserReviewDate()
{
    return HXDateToDBus(m_settings.value(IdleDaemonSettings::kReviewDateKey).toDateTime());
}

bool IdleDaemonService::finderNeedsRelaunchForUser(const QString &user)
{
    return m_settings.value(IdleDaemonSettings::kRelaunchKey).toList().contains(user);
}

void IdleDaemonService::invalidateFinderNeedsRelaunchForUser(const QString &user)
{
    QVariantList users = m_settings.value(IdleDaemonSettings::kRelaunchKey).toList();
    users.removeAll(user);
    m_settings.set(IdleDaemonSettings::kRelaunchKey, users);
}

void IdleDaemonService::scheduleFinderNeedsRelaunchForUsers(const QByteArray &users)
{
    const QVariant value =
        decodeArgument(users, "scheduleFinderNeedsRelaunchForUsers", QMetaType::QVariantList);
    if (value.isValid())
        m_settings.set(IdleDaemonSettings::kRelaunchKey, value);
}

QByteArray IdleDaemonService::runningProcesses()
{
    QVariantList names;
    for (const auto &process : ProcessTable::processes())
        names.append(process.second);
    return encodeAnswer(names);
}

bool IdleDaemonService::processIsRunning(const QString &processName)
{
    return !ProcessTable::pidsOf(processName).isEmpty();
}

QByteArray IdleDaemonService::runningBlacklistedApps()
{
    QVariantList running;
    for (const QString &name : kBlacklistedApps) {
        if (!ProcessTable::pidsOf(name).isEmpty())
            running.append(name);
    }
    return encodeAnswer(running);
}

QString IdleDaemonService::sampleOfProcessName(const QString &processName)
{
    return ProcessTable::sample(processName);
}

QByteArray IdleDaemonService::PIDsForProcessName(const QString &processName)
{
    QVariantList pids;
    for (const qint64 pid : ProcessTable::pidsOf(processName))
        pids.append(pid);
    return encodeAnswer(pids);
}

QByteArray IdleDaemonService::exclusions()
{
    return encodeAnswer(m_settings.value(IdleDaemonSettings::kExclusionsKey).toList());
}

void IdleDaemonService::setExclusions(const QByteArray &exclusions)
{
    const QVariant value = decodeArgument(exclusions, "setExclusions", QMetaType::QVariantList);
    if (value.isValid())
        m_settings.set(IdleDaemonSettings::kExclusionsKey, value);
}

void IdleDaemonService::addExclusion(const QByteArray &exclusion)
{
    const QVariant value = decodeArgument(exclusion, "addExclusion", QMetaType::UnknownType);
    if (!value.isValid())
        return;
    QVariantList list = m_settings.value(IdleDaemonSettings::kExclusionsKey).toList();
    list.append(value);
    m_settings.set(IdleDaemonSettings::kExclusionsKey, list);
}

void IdleDaemonService::removeExclusion(const QByteArray &exclusion)
{
    const QVariant value = decodeArgument(exclusion, "removeExclusion", QMetaType::UnknownType);
    if (!value.isValid())
        return;
    QVariantList list = m_settings.value(IdleDaemonSettings::kExclusionsKey).toList();
    list.removeAll(value);
    m_settings.set(IdleDaemonSettings::kExclusionsKey, list);
}

bool IdleDaemonService::allowsTestingOnBatteryPower()
{
    return m_settings.value(IdleDaemonSettings::kBatteryKey).toBool();
}

void IdleDaemonService::setAllowsTestingOnBatteryPower(bool allows)
{
    m_settings.set(IdleDaemonSettings::kBatteryKey, allows);
}

bool IdleDaemonService::systemSleepTimeAllowsIdleRun()
{
    return m_sleepTimeAllowsIdleRun;
}

void IdleDaemonService::setIdleSchedule(const QByteArray &schedule)
{
    const QVariant value = decodeArgument(schedule, "setIdleSchedule", QMetaType::QVariantMap);
    if (value.isValid())
        m_settings.set(IdleDaemonSettings::kScheduleKey, value);
}

QByteArray IdleDaemonService::getIdleSchedule()
{
    return encodeAnswer(schedule());
}

QDBusObjectPath IdleDaemonService::idleSchedule()
{
    return QDBusObjectPath(kSchedulePath);
}

bool IdleDaemonService::isDebugModeEnabled()
{
    return m_settings.value(IdleDaemonSettings::kDebugKey).toBool();
}

void IdleDaemonService::setIsDebugModeEnabled(bool enabled)
{
    m_settings.set(IdleDaemonSettings::kDebugKey, enabled);
}

void IdleDaemonService::resetGeneralDefaults()
{
    m_settings.resetGeneralDefaults();
}

void IdleDaemonService::resetExclusions()
{
    m_settings.set(IdleDaemonSettings::kExclusionsKey, QVariantList());
}

double IdleDaemonService::POSTTestLastCheckDate()
{
    return HXDateToDBus(m_settings.value(IdleDaemonSettings::kPOSTDateKey).toDateTime());
}

void IdleDaemonService::setPOSTTestLastCheckDate(double date)
{
    const QDateTime when = HXDateFromDBus(date);
    if (when.isValid())
        m_settings.set(IdleDaemonSettings::kPOSTDateKey, when);
    else
        m_settings.remove(IdleDaemonSettings::kPOSTDateKey);
}

void IdleDaemonService::framistan() {}
