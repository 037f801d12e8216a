#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

// The idle daemon's settings: the idle schedule, the exclusions, testing on
// battery, testing enabled, suppressed interaction, debug mode and the
// recorded dates, kept in a property-list file under the root and written
// after every change. A damaged file is moved aside, never overwritten, and
// the defaults stand in.
class IdleDaemonSettings
{
public:
    static const QString kScheduleKey;
    static const QString kEnabledKey;
    static const QString kBatteryKey;
    static const QString kExclusionsKey;
    static const QString kSuppressKey;
    static const QString kDebugKey;
    static const QString kPOSTDateKey;
    static const QString kReviewDateKey;
    static const QString kReviewedKey;
    static const QString kRelaunchKey;

    static QString file();

    IdleDaemonSettings(); // loads

    QVariant value(const QString &key) const { return m_values.value(key); }
    QVariantMap all() const { return m_values; }
    QVariantMap schedule() const { return value(kScheduleKey).toMap(); }

    // Each writes the file once.
    void set(const QString &key, const QVariant &value) { set({{key, value}}); }
    void set(const QVariantMap &values);
    void remove(const QString &key);
    void resetGeneralDefaults();

private:
    void load();
    void save();

    QVariantMap m_values;
};
