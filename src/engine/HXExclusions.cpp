#include "HXExclusions.h"

#include <QDir>

HXExclusions HXExclusions::fromEntries(const QVariantList &entries, const QStringList &mountPoints)
{
    HXExclusions exclusions;
    for (const QString &mountPoint : mountPoints)
        exclusions.m_mountPoints.append(QDir::cleanPath(mountPoint));
    for (const QVariant &value : entries) {
        const QVariantMap map = value.toMap();
        Entry entry;
        entry.path = QDir::cleanPath(map.value(QStringLiteral("path")).toString());
        if (entry.path.isEmpty() || !entry.path.startsWith(QLatin1Char('/')))
            continue;
        entry.fileTest = map.value(QStringLiteral("isExcludedFromFileTest")).toBool();
        entry.volumeTest = map.value(QStringLiteral("isExcludedFromVolTest")).toBool();
        entry.surfaceScan = map.value(QStringLiteral("isExcludedFromSurfaceScanTest")).toBool();
        entry.isVolume = map.value(QStringLiteral("NSURLIsVolumeKey")).toBool();
        exclusions.m_entries.append(entry);
    }
    return exclusions;
}

bool HXExclusions::namesVolume(const Entry &entry, const HXVolume &volume) const
{
    return (!volume.mountPoint.isEmpty() && entry.path == QDir::cleanPath(volume.mountPoint)) ||
           entry.path == volume.devicePath;
}

bool HXExclusions::excludesFromVolumeTest(const HXVolume &volume) const
{
    for (const Entry &entry : m_entries) {
        if (entry.volumeTest && namesVolume(entry, volume))
            return true;
    }
    return false;
}

bool HXExclusions::excludesFromSurfaceScan(const HXVolume &volume) const
{
    for (const Entry &entry : m_entries) {
        if (entry.surfaceScan && namesVolume(entry, volume))
            return true;
    }
    return false;
}

QString HXExclusions::mountPointOf(const QString &path) const
{
    QString best;
    for (const QString &mountPoint : m_mountPoints) {
        const bool inside = path == mountPoint || mountPoint == QLatin1String("/") ||
                            path.startsWith(mountPoint + QLatin1Char('/'));
        if (inside && mountPoint.size() > best.size())
            best = mountPoint;
    }
    return best;
}

bool HXExclusions::excludesFromFileTest(const QString &path) const
{
    const QString clean = QDir::cleanPath(path);
    for (const Entry &entry : m_entries) {
        if (!entry.fileTest)
            continue;
        const bool inside = clean == entry.path || entry.path == QLatin1String("/") ||
                            clean.startsWith(entry.path + QLatin1Char('/'));
        if (!inside)
            continue;
        // A volume's files end where another volume is mounted inside it.
        if (entry.isVolume && m_mountPoints.contains(entry.path) &&
            mountPointOf(clean) != entry.path)
            continue;
        return true;
    }
    return false;
}
