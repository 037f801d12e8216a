#include "IdleDaemonSettings.h"

#include "HXDaemonFiles.h"
#include "HXProductPaths.h"
#include "HXSystemLog.h"

#include <QFile>

const QString IdleDaemonSettings::kScheduleKey = QStringLiteral("HXOrvexIdleScheduleDefaultsKey");
const QString IdleDaemonSettings::kEnabledKey = QStringLiteral("HXOrvexWorkerIsEnabledKey");
const QString IdleDaemonSettings::kBatteryKey = QStringLiteral("HXOrvexAllowTestingOnBatteryPower");
const QString IdleDaemonSettings::kExclusionsKey = QStringLiteral("exclusions");
const QString IdleDaemonSettings::kSuppressKey = QStringLiteral("suppressUserInteraction");
const QString IdleDaemonSettings::kDebugKey = QStringLiteral("debugModeEnabled");
const QString IdleDaemonSettings::kPOSTDateKey = QStringLiteral("POSTTestLastCheckDate");
const QString IdleDaemonSettings::kReviewDateKey = QStringLiteral("lastUserReviewDate");
const QString IdleDaemonSettings::kReviewedKey = QStringLiteral("reviewedIssues");
const QString IdleDaemonSettings::kRelaunchKey = QStringLiteral("finderNeedsRelaunchForUsers");

namespace {

QVariantMap defaultSchedule()
{
    return {{QStringLiteral("HXOrvexIdleScheduleIsAutomaticScheduleKey"), true},
            {QStringLiteral("HXOrvexIdleScheduleHourKey"), 2},
            {QStringLiteral("HXOrvexIdleScheduleDurationKey"), 4 * 3600},
            {QStringLiteral("HXOrvexIdleScheduleWakeFromSleepKey"), false}};
}

QVariantMap generalDefaults()
{
    return {{IdleDaemonSettings::kScheduleKey, defaultSchedule()},
            {IdleDaemonSettings::kEnabledKey, true},
            {IdleDaemonSettings::kBatteryKey, false},
            {IdleDaemonSettings::kSuppressKey, false},
            {IdleDaemonSettings::kDebugKey, false}};
}

} // namespace

QString IdleDaemonSettings::file()
{
    return HXProductPaths::idleDaemonSettingsFile();
}

IdleDaemonSettings::IdleDaemonSettings()
{
    load();
}

void IdleDaemonSettings::load()
{
    m_values = generalDefaults();
    m_values.insert(kExclusionsKey, QVariantList());
    const QString path = file();
    if (!QFile::exists(path))
        return;
    QString why;
    const QVariant stored = HXDaemonReadPlistFile(path, &why);
    if (stored.metaType().id() != QMetaType::QVariantMap) {
        const QString aside = path + QStringLiteral(".damaged");
        QFile::remove(aside);
        QFile::rename(path, aside);
        HXSystemLog::write(
            QStringLiteral("The idle daemon's settings %1 could not be read (%2); they were "
                           "moved to %3 and the defaults are used")
                .arg(path, why.isEmpty() ? QStringLiteral("not a dictionary") : why, aside));
        return;
    }
    const QVariantMap map = stored.toMap();
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        m_values.insert(it.key(), it.value());
}

void IdleDaemonSettings::save()
{
    QString why;
    if (!HXDaemonWritePlistFile(file(), m_values, &why))
        HXSystemLog::write(
            QStringLiteral("Could not save the idle daemon's settings: %1").arg(why));
}

void IdleDaemonSettings::set(const QVariantMap &values)
{
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        m_values.insert(it.key(), it.value());
    save();
}

void IdleDaemonSettings::remove(const QString &key)
{
    m_values.remove(key);
    save();
}

void IdleDaemonSettings::resetGeneralDefaults()
{
    set(generalDefaults());
}
