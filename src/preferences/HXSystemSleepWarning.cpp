#include "HXSystemSleepWarning.h"

#include "HXDaemonInteractionException.h"
#include "HXPreferencesText.h"
#include "HXSystemLog.h"

bool HXSystemSleepWarning::shouldShow(bool testingEnabled,
                                      const std::optional<QVariantMap> &idleSchedule,
                                      const std::function<bool()> &sleepTimeAllowsIdleRun)
{
    try {
        if (!testingEnabled)
            return false;
        if (!idleSchedule)
            return false;
        if (idleSchedule->value(HXOrvexIdleScheduleWakeFromSleepKey).toBool())
            return false;
        if (!sleepTimeAllowsIdleRun)
            return false;
        return !sleepTimeAllowsIdleRun();
    } catch (const HXDaemonInteractionException &e) {
        HXSystemLog::write(
            QStringLiteral("HXSchedulingController::showSystemSleepWarning: exception: %1, %2")
                .arg(e.name(), e.reason()));
    } catch (const std::exception &e) {
        HXSystemLog::write(
            QStringLiteral("HXSchedulingController::showSystemSleepWarning: exception: %1, %2")
                .arg(QStringLiteral("std::exception"), QString::fromLocal8Bit(e.what())));
    }
    return false;
}

QString HXSystemSleepWarning::plainText(bool unifiedSleepSlider)
{
    if (unifiedSleepSlider)
        return HXPreferencesText("SleepWarningUnifiedSlider",
                                 "Warning: Orvex will not test as scheduled when the sleep setting "
                                 "in the power settings is set "
                                 "at 2 minutes or less and the “Prevent computer from sleeping "
                                 "automatically when the display "
                                 "is off” checkbox is unchecked.");
    return HXPreferencesText("SleepWarningDefault",
                             "Warning: Orvex will not test as scheduled when the sleep "
                             "setting in the power settings is set at 2 minutes or less.");
}

QString HXSystemSleepWarning::linkToolTip()
{
    return HXPreferencesText("Energy Saver Preferences", "Power settings");
}

QString HXSystemSleepWarning::text(bool unifiedSleepSlider)
{
    const QString plain = plainText(unifiedSleepSlider);
    const QString words = HXPreferencesText("Energy Saver", "power settings");
    const qsizetype at = plain.indexOf(words);
    if (at < 0)
        return plain.toHtmlEscaped();
    // The link's value is empty in meaning: any click opens the power settings.
    return plain.left(at).toHtmlEscaped() +
           QStringLiteral("<a href=\"#\" title=\"%1\">%2</a>")
               .arg(linkToolTip().toHtmlEscaped(), words.toHtmlEscaped()) +
           plain.mid(at + words.size()).toHtmlEscaped();
}
