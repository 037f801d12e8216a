#include "HXExclusions.h"

#include <QDir>

HXExclusions HXExclusions::fromEntries(const QVariantList &entries)
{
    HXExclusions exclusions;
    for (const QVariant &value : entries) {
        const QVariantMap map = value.toMap();
        Entry entry;
        entry.path = QDir::cleanPath(map.value(QStringLiteral("path")).toString());
        if (entry.path.isEmpty() || !entry.path.startsWith(QLatin1Char('/')))
            continue;
        entry.fileTest = map.value(QStringLiteral("isExcludedFromFileTest")).toBool();
        entry.volumeTest = map.value(QStringLiteral("isExcludedFromVolTest")).toBool();
        entry.surfaceScan = map.value(QStringLiteral("isExcludedFromSurfaceScanTest")).toBool();
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

bool HXExclusions::excludesFromFileTest(const QString &path) const
{
    const QString clean = QDir::cleanPath(path);
    for (const Entry &entry : m_entries) {
        if (!entry.fileTest)
            continue;
        if (clean == entry.path || entry.path == QLatin1String("/") ||
            clean.startsWith(entry.path + QLatin1Char('/')))
            return true;
    }
    return false;
}
