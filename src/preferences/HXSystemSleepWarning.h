#pragma once

#include <QString>
#include <QVariantMap>
#include <functional>
#include <optional>

inline const QString HXOrvexIdleScheduleIsAutomaticScheduleKey =
    QStringLiteral("HXOrvexIdleScheduleIsAutomaticScheduleKey");
inline const QString HXOrvexIdleScheduleHourKey = QStringLiteral("HXOrvexIdleScheduleHourKey");
inline const QString HXOrvexIdleScheduleDurationKey =
    QStringLiteral("HXOrvexIdleScheduleDurationKey");
inline const QString HXOrvexIdleScheduleWakeFromSleepKey =
    QStringLiteral("HXOrvexIdleScheduleWakeFromSleepKey");

// Whether to warn that the system's sleep setting keeps scheduled testing
// from happening, and the warning's words.
class HXSystemSleepWarning
{
public:
    // Checked in this order: testing off → no; no schedule → no; the
    // schedule wakes the computer → no; no idle daemon (a null
    // `sleepTimeAllowsIdleRun`) → no; otherwise yes exactly when the daemon
    // says the sleep time does not allow an idle run. A call that fails is
    // logged and answers no.
    static bool shouldShow(bool testingEnabled, const std::optional<QVariantMap> &idleSchedule,
                           const std::function<bool()> &sleepTimeAllowsIdleRun);

    // The warning under the schedule's controls, as rich text in which the
    // first "power settings" is a link.
    static QString text(bool unifiedSleepSlider = false);
    static QString plainText(bool unifiedSleepSlider = false);
    static QString linkToolTip();
};
