#include "IdleDaemonService.h"

#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "HXProductPaths.h"
#include "HXRemoteProxy.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "StandinFiles.h"
#include "WorkerDaemonService.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

const QString IdleDaemonService::kSchedulePath = QStringLiteral("/IdleSchedule");

namespace {

const QString kScheduleKey = QStringLiteral("HXOrvexIdleScheduleDefaultsKey");
const QString kEnabledKey = QStringLiteral("HXOrvexWorkerIsEnabledKey");
const QString kBatteryKey = QStringLiteral("HXOrvexAllowTestingOnBatteryPower");
const QString kExclusionsKey = QStringLiteral("exclusions");
const QString kSuppressKey = QStringLiteral("suppressUserInteraction");
const QString kDebugKey = QStringLiteral("debugModeEnabled");
const QString kPOSTDateKey = QStringLiteral("POSTTestLastCheckDate");
const QString kReviewDateKey = QStringLiteral("lastUserReviewDate");
const QString kReviewedKey = QStringLiteral("reviewedIssues");
const QString kRelaunchKey = QStringLiteral("finderNeedsRelaunchForUsers");

// Processes that keep disks too busy for a fair surface scan.
const QStringList kBlacklistedApps = {QStringLiteral("badblocks"), QStringLiteral("e2fsck"),
                                      QStringLiteral("fsck"), QStringLiteral("shred")};

QVariantMap defaultSchedule()
{
    return {{QStringLiteral("HXOrvexIdleScheduleIsAutomaticScheduleKey"), true},
            {QStringLiteral("HXOrvexIdleScheduleHourKey"), 2},
            {QStringLiteral("HXOrvexIdleScheduleDurationKey"), 4 * 3600},
            {QStringLiteral("HXOrvexIdleScheduleWakeFromSleepKey"), false}};
}

QVariantMap generalDefaults()
{
    return {{kScheduleKey, defaultSchedule()}, {kEnabledKey, true},  {kBatteryKey, false},
            {kSuppressKey, false},             {kDebugKey, false}};
}

// Every process: its pid and its name (the kernel's short command name).
QList<std::pair<qint64, QString>> processes()
{
    QList<std::pair<qint64, QString>> found;
    const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        QFile comm(QStringLiteral("/proc/%1/comm").arg(entry));
        if (comm.open(QIODevice::ReadOnly)) // a process may end while we look
            found.append({pid, QString::fromLocal8Bit(comm.readAll()).trimmed()});
    }
    return found;
}

QList<qint64> pidsOf(const QString &name)
{
    QList<qint64> pids;
    for (const auto &[pid, processName] : processes()) {
        if (processName == name)
            pids.append(pid);
    }
    return pids;
}

} // namespace

IdleDaemonService::IdleDaemonService(WorkerDaemonService *worker, bool sleepTimeAllowsIdleRun, QObject *parent)
    : QObject(parent)
    , m_worker(worker)
    , m_sleepTimeAllowsIdleRun(sleepTimeAllowsIdleRun)
{
    load();
    connect(worker, &WorkerDaemonService::testingStopped, this,
            [] { QFile::remove(HXProductPaths::isIdleMarker()); });
}

QString IdleDaemonService::settingsFile()
{
    return HXProductPaths::map(QStringLiteral("/var/lib/orvex/OrvexIdleDaemon.plist"));
}

void IdleDaemonService::load()
{
    m_settings = generalDefaults();
    m_settings.insert(kExclusionsKey, QVariantList());
    const QString path = settingsFile();
    if (!QFile::exists(path))
        return;
    QString why;
    const QVariant stored = StandinReadPlistFile(path, &why);
    if (stored.metaType().id() != QMetaType::QVariantMap) {
        const QString aside = path + QStringLiteral(".damaged");
        QFile::remove(aside);
        QFile::rename(path, aside);
        HXSystemLog::write(QStringLiteral("The idle daemon's settings %1 could not be read (%2); they were "
                                          "moved to %3 and the defaults are used")
                               .arg(path, why.isEmpty() ? QStringLiteral("not a dictionary") : why, aside));
        return;
    }
    const QVariantMap map = stored.toMap();
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        m_settings.insert(it.key(), it.value());
}

void IdleDaemonService::save()
{
    QString why;
    if (!StandinWritePlistFile(settingsFile(), m_settings, &why))
        HXSystemLog::write(QStringLiteral("Could not save the idle daemon's settings: %1").arg(why));
}

void IdleDaemonService::set(const QString &key, const QVariant &value)
{
    m_settings.insert(key, value);
    save();
}

QVariant IdleDaemonService::setting(const QString &key) const
{
    return m_settings.value(key);
}

QVariantMap IdleDaemonService::schedule() const
{
    return setting(kScheduleKey).toMap();
}

QVariant IdleDaemonService::decodeArgument(const QByteArray &bytes, const char *method, int expected)
{
    QString why;
    const QVariant value = BinaryPlistReader::read(bytes, &why);
    if (value.isValid() && (expected == QMetaType::UnknownType || value.metaType().id() == expected))
        return value;
    const QString sentence = QStringLiteral("Refused %1 from %2: its argument is not %3 binary property list (%4)")
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
    return setting(kEnabledKey).toBool();
}

void IdleDaemonService::disableWorkerDaemon()
{
    set(kEnabledKey, false);
    m_worker->stopTesting();
}

void IdleDaemonService::enableWorkerDaemon()
{
    set(kEnabledKey, true);
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
    return encodeAnswer(m_settings);
}

void IdleDaemonService::setSuppressUserInteraction(bool suppress)
{
    set(kSuppressKey, suppress);
}

bool IdleDaemonService::isUserInteractionSuppressed()
{
    return setting(kSuppressKey).toBool();
}

bool IdleDaemonService::fileExistsAtPath(const QString &path)
{
    return QFileInfo::exists(path);
}

QString IdleDaemonService::fileOwnerNameForFileAtPath(const QString &path)
{
    return QFileInfo(path).owner();
}

void IdleDaemonService::requestLogDeletionForUser(const QString &user)
{
    HXSystemLog::write(QStringLiteral("Log deletion requested for user %1").arg(user));
}

void IdleDaemonService::recordUserReviewedNewIssues(const QByteArray &issues)
{
    const QVariant value = decodeArgument(issues, "recordUserReviewedNewIssues", QMetaType::UnknownType);
    if (!value.isValid())
        return;
    m_settings.insert(kReviewedKey, value);
    set(kReviewDateKey, QDateTime::currentDateTimeUtc());
}

double IdleDaemonService::lastUserReviewDate()
{
    return HXDateToDBus(setting(kReviewDateKey).toDateTime());
}

bool IdleDaemonService::finderNeedsRelaunchForUser(const QString &user)
{
    return setting(kRelaunchKey).toList().contains(user);
}

void IdleDaemonService::invalidateFinderNeedsRelaunchForUser(const QString &user)
{
    QVariantList users = setting(kRelaunchKey).toList();
    users.removeAll(user);
    set(kRelaunchKey, users);
}

void IdleDaemonService::scheduleFinderNeedsRelaunchForUsers(const QByteArray &users)
{
    const QVariant value = decodeArgument(users, "scheduleFinderNeedsRelaunchForUsers", QMetaType::QVariantList);
    if (value.isValid())
        set(kRelaunchKey, value);
}

QByteArray IdleDaemonService::runningProcesses()
{
    QVariantList names;
    for (const auto &process : processes())
        names.append(process.second);
    return encodeAnswer(names);
}

bool IdleDaemonService::processIsRunning(const QString &processName)
{
    return !pidsOf(processName).isEmpty();
}

QByteArray IdleDaemonService::runningBlacklistedApps()
{
    QVariantList running;
    for (const QString &name : kBlacklistedApps) {
        if (!pidsOf(name).isEmpty())
            running.append(name);
    }
    return encodeAnswer(running);
}

QString IdleDaemonService::sampleOfProcessName(const QString &processName)
{
    QString sample;
    for (const qint64 pid : pidsOf(processName)) {
        QFile status(QStringLiteral("/proc/%1/status").arg(pid));
        QFile stack(QStringLiteral("/proc/%1/wchan").arg(pid));
        sample += QStringLiteral("Process %1 [%2]\n").arg(processName).arg(pid);
        if (status.open(QIODevice::ReadOnly))
            sample += QString::fromLocal8Bit(status.readAll());
        if (stack.open(QIODevice::ReadOnly))
            sample += QStringLiteral("Waiting in: %1\n").arg(QString::fromLocal8Bit(stack.readAll()));
        sample += QLatin1Char('\n');
    }
    return sample.isEmpty() ? QStringLiteral("No process named %1 is running.\n").arg(processName) : sample;
}

QByteArray IdleDaemonService::PIDsForProcessName(const QString &processName)
{
    QVariantList pids;
    for (const qint64 pid : pidsOf(processName))
        pids.append(pid);
    return encodeAnswer(pids);
}

QByteArray IdleDaemonService::exclusions()
{
    return encodeAnswer(setting(kExclusionsKey).toList());
}

void IdleDaemonService::setExclusions(const QByteArray &exclusions)
{
    const QVariant value = decodeArgument(exclusions, "setExclusions", QMetaType::QVariantList);
    if (value.isValid())
        set(kExclusionsKey, value);
}

void IdleDaemonService::addExclusion(const QByteArray &exclusion)
{
    const QVariant value = decodeArgument(exclusion, "addExclusion", QMetaType::UnknownType);
    if (!value.isValid())
        return;
    QVariantList list = setting(kExclusionsKey).toList();
    list.append(value);
    set(kExclusionsKey, list);
}

void IdleDaemonService::removeExclusion(const QByteArray &exclusion)
{
    const QVariant value = decodeArgument(exclusion, "removeExclusion", QMetaType::UnknownType);
    if (!value.isValid())
        return;
    QVariantList list = setting(kExclusionsKey).toList();
    list.removeAll(value);
    set(kExclusionsKey, list);
}

bool IdleDaemonService::allowsTestingOnBatteryPower()
{
    return setting(kBatteryKey).toBool();
}

void IdleDaemonService::setAllowsTestingOnBatteryPower(bool allows)
{
    set(kBatteryKey, allows);
}

bool IdleDaemonService::systemSleepTimeAllowsIdleRun()
{
    return m_sleepTimeAllowsIdleRun;
}

void IdleDaemonService::setIdleSchedule(const QByteArray &schedule)
{
    const QVariant value = decodeArgument(schedule, "setIdleSchedule", QMetaType::QVariantMap);
    if (value.isValid())
        set(kScheduleKey, value);
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
    return setting(kDebugKey).toBool();
}

void IdleDaemonService::setIsDebugModeEnabled(bool enabled)
{
    set(kDebugKey, enabled);
}

void IdleDaemonService::resetGeneralDefaults()
{
    const QVariantMap defaults = generalDefaults();
    for (auto it = defaults.cbegin(); it != defaults.cend(); ++it)
        m_settings.insert(it.key(), it.value());
    save();
}

void IdleDaemonService::resetExclusions()
{
    set(kExclusionsKey, QVariantList());
}

double IdleDaemonService::POSTTestLastCheckDate()
{
    return HXDateToDBus(setting(kPOSTDateKey).toDateTime());
}

void IdleDaemonService::setPOSTTestLastCheckDate(double date)
{
    const QDateTime when = HXDateFromDBus(date);
    if (when.isValid())
        m_settings.insert(kPOSTDateKey, when);
    else
        m_settings.remove(kPOSTDateKey);
    save();
}

void IdleDaemonService::framistan()
{
}

IdleScheduleObject::IdleScheduleObject(IdleDaemonService *daemon)
    : QObject(daemon)
    , m_daemon(daemon)
{
}

qint64 IdleScheduleObject::count()
{
    return m_daemon->schedule().size();
}

QStringList IdleScheduleObject::allKeys()
{
    return m_daemon->schedule().keys();
}

QByteArray IdleScheduleObject::objectForKey(const QString &key)
{
    const QVariantMap schedule = m_daemon->schedule();
    if (!schedule.contains(key))
        return {};
    return BinaryPlistWriter::write(schedule.value(key));
}
