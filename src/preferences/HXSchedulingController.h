#pragma once

#include <QObject>
#include <QVariantMap>
#include <functional>
#include <optional>

class HXDistributedNotificationCenter;
class QTimer;

// The schedule and the other testing switches. None of them is kept here:
// the idle daemon owns them and the agent owns the menu-bar icon. The
// controller shows the last answers and sends every change on.
//
// The window never waits for the daemon: the getters' round trips run on
// the idle daemon's queue, all of them in one turn, and the properties change
// (with their signals, always in the same order) when the answers arrive on
// the main thread. A refresh whose answer comes after a change the user made
// meanwhile is dropped, so a control never jumps back to a value it had.
class HXSchedulingController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool isTestingEnabled READ isTestingEnabled WRITE setIsTestingEnabled NOTIFY
                   isTestingEnabledChanged)
    Q_PROPERTY(bool showAlertDialogs READ showAlertDialogs WRITE setShowAlertDialogs NOTIFY
                   showAlertDialogsChanged)
    Q_PROPERTY(bool allowsTestingOnBatteryPower READ allowsTestingOnBatteryPower WRITE
                   setAllowsTestingOnBatteryPower NOTIFY allowsTestingOnBatteryPowerChanged)
    Q_PROPERTY(bool isAutomaticallyScheduled READ isAutomaticallyScheduled WRITE
                   setIsAutomaticallyScheduled NOTIFY isAutomaticallyScheduledChanged)
    Q_PROPERTY(bool showMenubarIcon READ showMenubarIcon WRITE setShowMenubarIcon NOTIFY
                   showMenubarIconChanged)
    Q_PROPERTY(bool showSystemSleepWarning READ showSystemSleepWarning NOTIFY
                   showSystemSleepWarningChanged)

public:
    static constexpr int kRefreshInterval = 1500;

    struct Options
    {
        HXDistributedNotificationCenter *center = nullptr; // the application's if none
        // The agent's "HXOrvexAgentShowsStatusMenuKey"; its preferences if none.
        std::function<bool()> showsStatusMenu;
        std::function<bool()> hasBatteryAvailable; // the machine's probes if none
    };

    explicit HXSchedulingController(Options options, QObject *parent = nullptr);
    explicit HXSchedulingController(QObject *parent = nullptr)
        : HXSchedulingController(Options(), parent)
    {
    }
    ~HXSchedulingController() override;

    bool isTestingEnabled() const { return m_testingEnabled; }
    bool showAlertDialogs() const { return m_showAlertDialogs; }
    bool allowsTestingOnBatteryPower() const { return m_battery; }
    bool isAutomaticallyScheduled() const { return m_automatic; }
    bool showMenubarIcon() const { return m_menubarIcon; }
    bool showSystemSleepWarning() const { return m_sleepWarning; }

    void setIsTestingEnabled(bool enabled);
    void setShowAlertDialogs(bool show);
    void setAllowsTestingOnBatteryPower(bool allows);
    // In the working copy only; sent with the next updateIdleSchedule().
    void setIsAutomaticallyScheduled(bool automatic);
    // Told to the agent only.
    void setShowMenubarIcon(bool show);

    bool hasBatteryAvailable() const;

    // The working copy of the daemon's schedule, its duration as the popup's
    // index; nothing until the daemon has answered.
    const std::optional<QVariantMap> &idleSchedule() const { return m_idleSchedule; }
    void setIdleScheduleValue(const QString &key, const QVariant &value);
    // Sends the working copy, its duration in seconds.
    void updateIdleSchedule();
    void refreshIdleSchedule();
    // Asks the daemon for the six values again.
    void updateValues();

    // Both the schedule and the values have come from the daemon since it
    // last appeared: before that no change may be sent.
    bool isLoaded() const { return m_scheduleLoaded && m_valuesLoaded; }
    // The daemon appeared: load everything anew. It went away: not loaded.
    void daemonAppeared();
    void daemonWentAway();

    // The agent's preference as the agent last wrote it; no when never.
    static bool agentShowsStatusMenu();

Q_SIGNALS:
    void isTestingEnabledChanged();
    void showAlertDialogsChanged();
    void allowsTestingOnBatteryPowerChanged();
    void isAutomaticallyScheduledChanged();
    void showMenubarIconChanged();
    void showSystemSleepWarningChanged();
    void idleScheduleChanged();
    void loadedChanged(bool loaded);

private:
    struct Values;
    void takeValues(const Values &values);
    void setLoaded(bool schedule, bool values);
    void userChanged() { ++m_generation; }

    Options m_options;
    QTimer *m_refreshTimer = nullptr;
    std::optional<QVariantMap> m_idleSchedule;
    bool m_testingEnabled = false;
    bool m_showAlertDialogs = false;
    bool m_battery = false;
    bool m_automatic = false;
    bool m_menubarIcon = false;
    bool m_sleepWarning = false;
    bool m_scheduleLoaded = false;
    bool m_valuesLoaded = false;
    bool m_valuesAsked = false; // an answer is on its way
    bool m_askAgain = false;    // asked for while one was on its way
    quint64 m_generation = 0;   // counts the user's changes
};
