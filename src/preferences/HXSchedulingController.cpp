#include "HXSchedulingController.h"

#include "HXAgentInteraction.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXMachineProbes.h"
#include "HXSchedulingDurationTransformer.h"
#include "HXSystemSleepWarning.h"

#include <QSettings>
#include <QTimer>

struct HXSchedulingController::Values
{
    bool answered = false;
    bool testingEnabled = false;
    bool suppressed = false;
    bool battery = false;
    bool automatic = false;
    bool sleepWarning = false;
};

HXSchedulingController::HXSchedulingController(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    if (!m_options.center)
        m_options.center = HXDBusNotificationCenter::defaultCenter();
    if (!m_options.showsStatusMenu)
        m_options.showsStatusMenu = &HXSchedulingController::agentShowsStatusMenu;
    m_menubarIcon = m_options.showsStatusMenu();
    // The controls follow what the daemons, the agent or another user change.
    m_refreshTimer = new QTimer(this);
    m_refreshTimer->setInterval(kRefreshInterval);
    connect(m_refreshTimer, &QTimer::timeout, this, &HXSchedulingController::updateValues);
    m_refreshTimer->start();
}

HXSchedulingController::~HXSchedulingController() = default;

bool HXSchedulingController::agentShowsStatusMenu()
{
    const QSettings agent(QStringLiteral("talvorn"), QStringLiteral("OrvexAgent"));
    return agent.value(HXOrvexAgentShowsStatusMenuKey, false).toBool();
}

bool HXSchedulingController::hasBatteryAvailable() const
{
    if (m_options.hasBatteryAvailable)
        return m_options.hasBatteryAvailable();
    return HXMachineProbes::current().hasInternalBattery();
}

void HXSchedulingController::setIsTestingEnabled(bool enabled)
{
    userChanged();
    m_testingEnabled = enabled;
    Q_EMIT isTestingEnabledChanged();
    HXDaemonInteraction::tellIdleDaemon([enabled](HXIdleDaemonProxy &idle) {
        if (enabled)
            idle.enableWorkerDaemon();
        else
            idle.disableWorkerDaemon();
    });
}

void HXSchedulingController::setShowAlertDialogs(bool show)
{
    userChanged();
    m_showAlertDialogs = show;
    Q_EMIT showAlertDialogsChanged();
    const bool suppress = !show;
    // The agent hears of it once the daemon has it (or is found missing).
    HXDaemonInteraction::askIdleDaemon(
        this, [suppress](HXIdleDaemonProxy &idle) { idle.setSuppressUserInteraction(suppress); },
        [this, suppress] {
            m_options.center->postNotification(
                HXOrvexAgentSuppressUserInteractionDidChangeNotification,
                HXAgentLocalConnectionString(), {{HXIOrvexSuppressUserInteractionKey, suppress}},
                true);
        });
}

void HXSchedulingController::setAllowsTestingOnBatteryPower(bool allows)
{
    userChanged();
    m_battery = allows;
    Q_EMIT allowsTestingOnBatteryPowerChanged();
    HXDaemonInteraction::tellIdleDaemon(
        [allows](HXIdleDaemonProxy &idle) { idle.setAllowsTestingOnBatteryPower(allows); });
}

void HXSchedulingController::setIsAutomaticallyScheduled(bool automatic)
{
    userChanged();
    m_automatic = automatic;
    if (m_idleSchedule)
        m_idleSchedule->insert(HXOrvexIdleScheduleIsAutomaticScheduleKey, automatic);
    Q_EMIT isAutomaticallyScheduledChanged();
}

void HXSchedulingController::setShowMenubarIcon(bool show)
{
    userChanged();
    m_menubarIcon = show;
    Q_EMIT showMenubarIconChanged();
    m_options.center->postNotification(HXOrvexAgentShowsStatusMenuDidChangeNotification,
                                       HXAgentLocalConnectionString(),
                                       {{HXOrvexAgentShowsStatusMenuKey, show}}, true);
}

void HXSchedulingController::setIdleScheduleValue(const QString &key, const QVariant &value)
{
    if (!m_idleSchedule)
        return;
    userChanged();
    m_idleSchedule->insert(key, value);
    Q_EMIT idleScheduleChanged();
}

void HXSchedulingController::updateIdleSchedule()
{
    // Without the daemon's schedule there is nothing of it to send back: an
    // empty one would replace what the daemon holds.
    if (!m_idleSchedule)
        return;
    QVariantMap schedule = *m_idleSchedule;
    schedule.insert(HXOrvexIdleScheduleDurationKey,
                    HXSchedulingDurationTransformer::transformedValue(
                        schedule.value(HXOrvexIdleScheduleDurationKey)));
    HXDaemonInteraction::tellIdleDaemon(
        [schedule](HXIdleDaemonProxy &idle) { idle.setIdleSchedule(schedule); });
}

void HXSchedulingController::refreshIdleSchedule()
{
    const quint64 asked = m_generation;
    HXDaemonInteraction::askIdleDaemon(
        this,
        [](HXIdleDaemonProxy &idle) { return std::optional<QVariantMap>(idle.getIdleSchedule()); },
        [this, asked](std::optional<QVariantMap> schedule) {
            if (!schedule)
                return; // no daemon, or it did not answer: the copy stays
            if (asked != m_generation && m_idleSchedule)
                return; // the user has edited the copy since
            schedule->insert(HXOrvexIdleScheduleDurationKey,
                             HXSchedulingDurationTransformer::reverseTransformedValue(
                                 schedule->value(HXOrvexIdleScheduleDurationKey)));
            m_idleSchedule = std::move(schedule);
            Q_EMIT idleScheduleChanged();
            setLoaded(true, m_valuesLoaded);
        });
}

void HXSchedulingController::updateValues()
{
    if (m_valuesAsked) {
        // A daemon that is slow to answer gets one question at a time.
        m_askAgain = true;
        return;
    }
    m_valuesAsked = true;
    m_askAgain = false;
    const quint64 asked = m_generation;
    const std::optional<QVariantMap> schedule = m_idleSchedule;
    HXDaemonInteraction::askIdleDaemon(
        this,
        [schedule](HXIdleDaemonProxy &idle) {
            Values v;
            v.testingEnabled = idle.workerDaemonIsEnabled();
            v.suppressed = idle.isUserInteractionSuppressed();
            v.battery = idle.allowsTestingOnBatteryPower();
            v.automatic =
                idle.getIdleSchedule().value(HXOrvexIdleScheduleIsAutomaticScheduleKey).toBool();
            v.sleepWarning = HXSystemSleepWarning::shouldShow(v.testingEnabled, schedule, [&idle] {
                return idle.systemSleepTimeAllowsIdleRun();
            });
            v.answered = true;
            return v;
        },
        [this, asked](const Values &values) {
            m_valuesAsked = false;
            if (values.answered && asked == m_generation)
                takeValues(values);
            else if (values.answered)
                m_askAgain = true; // answered before the user's change reached the daemon
            if (m_askAgain)
                updateValues();
        });
}

void HXSchedulingController::takeValues(const Values &values)
{
    m_testingEnabled = values.testingEnabled;
    m_showAlertDialogs = !values.suppressed;
    m_battery = values.battery;
    m_automatic = values.automatic;
    m_menubarIcon = m_options.showsStatusMenu();
    m_sleepWarning = values.sleepWarning;
    // Every key is announced, in this order, so that each control re-reads.
    Q_EMIT isTestingEnabledChanged();
    Q_EMIT showAlertDialogsChanged();
    Q_EMIT allowsTestingOnBatteryPowerChanged();
    Q_EMIT isAutomaticallyScheduledChanged();
    Q_EMIT showMenubarIconChanged();
    Q_EMIT showSystemSleepWarningChanged();
    setLoaded(m_scheduleLoaded, true);
}

void HXSchedulingController::setLoaded(bool schedule, bool values)
{
    const bool was = isLoaded();
    m_scheduleLoaded = schedule;
    m_valuesLoaded = values;
    if (was != isLoaded())
        Q_EMIT loadedChanged(isLoaded());
}

void HXSchedulingController::daemonAppeared()
{
    refreshIdleSchedule();
    updateValues();
}

void HXSchedulingController::daemonWentAway()
{
    setLoaded(false, false);
}
