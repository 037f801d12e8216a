#include "HXIdleDaemonProxy.h"

#include "HXPeerProxies.h"
#include "hxidledaemonuserinteractionprotocol_proxy.h"

const QString HXIdleDaemonProxy::kConnectionName = QStringLiteral("OrvexIdleDaemon");
const QString HXIdleDaemonProxy::kProtocol = QStringLiteral("HXIdleDaemonUserInteractionProtocol");

HXIdleDaemonProxy::HXIdleDaemonProxy(HXPeer peer)
    : HXRemoteProxy(std::move(peer))
    , m_remote(makeInterface<ComTalvornHXIdleDaemonUserInteractionProtocolInterface>())
    , m_slowRemote(
          makeInterface<ComTalvornHXIdleDaemonUserInteractionProtocolInterface>(longCallTimeout()))
{
}

HXIdleDaemonProxy::~HXIdleDaemonProxy() = default;

bool HXIdleDaemonProxy::workerDaemonIsPaused()
{
    return await(m_remote->workerDaemonIsPaused(), "workerDaemonIsPaused");
}

bool HXIdleDaemonProxy::workerDaemonIsEnabled()
{
    return await(m_remote->workerDaemonIsEnabled(), "workerDaemonIsEnabled");
}

void HXIdleDaemonProxy::disableWorkerDaemon()
{
    await(m_remote->disableWorkerDaemon(), "disableWorkerDaemon");
}

void HXIdleDaemonProxy::enableWorkerDaemon()
{
    await(m_remote->enableWorkerDaemon(), "enableWorkerDaemon");
}

bool HXIdleDaemonProxy::workerDaemonIsTesting()
{
    return await(m_remote->workerDaemonIsTesting(), "workerDaemonIsTesting");
}

void HXIdleDaemonProxy::forceStartTesting()
{
    await(m_remote->forceStartTesting(), "forceStartTesting");
}

void HXIdleDaemonProxy::forceStopTesting()
{
    await(m_remote->forceStopTesting(), "forceStopTesting");
}

bool HXIdleDaemonProxy::forceFailures(bool force)
{
    return await(m_remote->forceFailures(force), "forceFailures");
}

void HXIdleDaemonProxy::forcePrimaryTime()
{
    await(m_remote->forcePrimaryTime(), "forcePrimaryTime");
}

void HXIdleDaemonProxy::forceSecondaryTime()
{
    await(m_remote->forceSecondaryTime(), "forceSecondaryTime");
}

void HXIdleDaemonProxy::requestIdleIgnore(bool ignore)
{
    await(m_remote->requestIdleIgnore(ignore), "requestIdleIgnore");
}

void HXIdleDaemonProxy::deleteWorkerDaemonPersistentStore()
{
    await(m_remote->deleteWorkerDaemonPersistentStore(), "deleteWorkerDaemonPersistentStore");
}

void HXIdleDaemonProxy::deleteStatusReport()
{
    await(m_remote->deleteStatusReport(), "deleteStatusReport");
}

void HXIdleDaemonProxy::clearStatusReport()
{
    await(m_remote->clearStatusReport(), "clearStatusReport");
}

void HXIdleDaemonProxy::clearStatusReportLogFile()
{
    await(m_remote->clearStatusReportLogFile(), "clearStatusReportLogFile");
}

void HXIdleDaemonProxy::restartIdleManager()
{
    await(m_remote->restartIdleManager(), "restartIdleManager");
}

void HXIdleDaemonProxy::exitDaemon()
{
    await(m_remote->exitDaemon(), "exitDaemon");
}

QVariantMap HXIdleDaemonProxy::idleDaemonPreferences()
{
    const QByteArray bytes = await(m_remote->idleDaemonPreferences(), "idleDaemonPreferences");
    return decodeCopy(bytes, "idleDaemonPreferences", QMetaType::QVariantMap).toMap();
}

void HXIdleDaemonProxy::setSuppressUserInteraction(bool suppress)
{
    await(m_remote->setSuppressUserInteraction(suppress), "setSuppressUserInteraction");
}

bool HXIdleDaemonProxy::isUserInteractionSuppressed()
{
    return await(m_remote->isUserInteractionSuppressed(), "isUserInteractionSuppressed");
}

bool HXIdleDaemonProxy::fileExistsAtPath(const QString &path)
{
    return await(m_remote->fileExistsAtPath(path), "fileExistsAtPath");
}

QString HXIdleDaemonProxy::fileOwnerNameForFileAtPath(const QString &path)
{
    return await(m_remote->fileOwnerNameForFileAtPath(path), "fileOwnerNameForFileAtPath");
}

void HXIdleDaemonProxy::requestLogDeletionForUser(const QString &user)
{
    await(m_remote->requestLogDeletionForUser(user), "requestLogDeletionForUser");
}

void HXIdleDaemonProxy::recordUserReviewedNewIssues(const QVariant &issues)
{
    const QByteArray bytes = encodeCopy(issues, "recordUserReviewedNewIssues");
    if (!bytes.isEmpty())
        await(m_remote->recordUserReviewedNewIssues(bytes), "recordUserReviewedNewIssues");
}

QDateTime HXIdleDaemonProxy::lastUserReviewDate()
{
    return HXDateFromDBus(await(m_remote->lastUserReviewDate(), "lastUserReviewDate"));
}

bool HXIdleDaemonProxy::finderNeedsRelaunchForUser(const QString &user)
{
    return await(m_remote->finderNeedsRelaunchForUser(user), "finderNeedsRelaunchForUser");
}

void HXIdleDaemonProxy::invalidateFinderNeedsRelaunchForUser(const QString &user)
{
    await(m_remote->invalidateFinderNeedsRelaunchForUser(user), "invalidateFinderNeedsRelaunchForUser");
}

void HXIdleDaemonProxy::scheduleFinderNeedsRelaunchForUsers(const QStringList &users)
{
    QVariantList list;
    for (const QString &user : users)
        list.append(user);
    const QByteArray bytes = encodeCopy(list, "scheduleFinderNeedsRelaunchForUsers");
    if (!bytes.isEmpty())
        await(m_remote->scheduleFinderNeedsRelaunchForUsers(bytes), "scheduleFinderNeedsRelaunchForUsers");
}

QVariantList HXIdleDaemonProxy::runningProcesses()
{
    const QByteArray bytes = await(m_remote->runningProcesses(), "runningProcesses");
    return decodeCopy(bytes, "runningProcesses", QMetaType::QVariantList).toList();
}

bool HXIdleDaemonProxy::processIsRunning(const QString &processName)
{
    return await(m_remote->processIsRunning(processName), "processIsRunning");
}

QVariantList HXIdleDaemonProxy::runningBlacklistedApps()
{
    const QByteArray bytes = await(m_remote->runningBlacklistedApps(), "runningBlacklistedApps");
    return decodeCopy(bytes, "runningBlacklistedApps", QMetaType::QVariantList).toList();
}

QString HXIdleDaemonProxy::sampleOfProcessName(const QString &processName)
{
    return await(m_slowRemote->sampleOfProcessName(processName), "sampleOfProcessName");
}

QVariantList HXIdleDaemonProxy::PIDsForProcessName(const QString &processName)
{
    const QByteArray bytes = await(m_remote->PIDsForProcessName(processName), "PIDsForProcessName");
    return decodeCopy(bytes, "PIDsForProcessName", QMetaType::QVariantList).toList();
}

QVariantList HXIdleDaemonProxy::exclusions()
{
    const QByteArray bytes = await(m_remote->exclusions(), "exclusions");
    return decodeCopy(bytes, "exclusions", QMetaType::QVariantList).toList();
}

void HXIdleDaemonProxy::setExclusions(const QVariantList &exclusions)
{
    const QByteArray bytes = encodeCopy(exclusions, "setExclusions");
    if (!bytes.isEmpty())
        await(m_remote->setExclusions(bytes), "setExclusions");
}

void HXIdleDaemonProxy::addExclusion(const QVariant &exclusion)
{
    const QByteArray bytes = encodeCopy(exclusion, "addExclusion");
    if (!bytes.isEmpty())
        await(m_remote->addExclusion(bytes), "addExclusion");
}

void HXIdleDaemonProxy::removeExclusion(const QVariant &exclusion)
{
    const QByteArray bytes = encodeCopy(exclusion, "removeExclusion");
    if (!bytes.isEmpty())
        await(m_remote->removeExclusion(bytes), "removeExclusion");
}

bool HXIdleDaemonProxy::allowsTestingOnBatteryPower()
{
    return await(m_remote->allowsTestingOnBatteryPower(), "allowsTestingOnBatteryPower");
}

void HXIdleDaemonProxy::setAllowsTestingOnBatteryPower(bool allows)
{
    await(m_remote->setAllowsTestingOnBatteryPower(allows), "setAllowsTestingOnBatteryPower");
}

bool HXIdleDaemonProxy::systemSleepTimeAllowsIdleRun()
{
    return await(m_remote->systemSleepTimeAllowsIdleRun(), "systemSleepTimeAllowsIdleRun");
}

void HXIdleDaemonProxy::setIdleSchedule(const QVariantMap &schedule)
{
    const QByteArray bytes = encodeCopy(schedule, "setIdleSchedule");
    if (!bytes.isEmpty())
        await(m_remote->setIdleSchedule(bytes), "setIdleSchedule");
}

QVariantMap HXIdleDaemonProxy::getIdleSchedule()
{
    const QByteArray bytes = await(m_remote->getIdleSchedule(), "getIdleSchedule");
    return decodeCopy(bytes, "getIdleSchedule", QMetaType::QVariantMap).toMap();
}

std::shared_ptr<HXRemoteDictionaryProxy> HXIdleDaemonProxy::idleSchedule()
{
    const QDBusObjectPath path = await(m_remote->idleSchedule(), "idleSchedule");
    HXPeer schedule = peer();
    schedule.path = path.path();
    return std::make_shared<HXRemoteDictionaryProxy>(std::move(schedule));
}

bool HXIdleDaemonProxy::isDebugModeEnabled()
{
    return await(m_remote->isDebugModeEnabled(), "isDebugModeEnabled");
}

void HXIdleDaemonProxy::setIsDebugModeEnabled(bool enabled)
{
    await(m_remote->setIsDebugModeEnabled(enabled), "setIsDebugModeEnabled");
}

void HXIdleDaemonProxy::resetGeneralDefaults()
{
    await(m_remote->resetGeneralDefaults(), "resetGeneralDefaults");
}

void HXIdleDaemonProxy::resetExclusions()
{
    await(m_remote->resetExclusions(), "resetExclusions");
}

QDateTime HXIdleDaemonProxy::POSTTestLastCheckDate()
{
    return HXDateFromDBus(await(m_remote->POSTTestLastCheckDate(), "POSTTestLastCheckDate"));
}

void HXIdleDaemonProxy::setPOSTTestLastCheckDate(const QDateTime &date)
{
    await(m_remote->setPOSTTestLastCheckDate(HXDateToDBus(date)), "setPOSTTestLastCheckDate");
}

void HXIdleDaemonProxy::framistan()
{
    await(m_remote->framistan(), "framistan");
}
