#pragma once

#include "HXEngineTypes.h"

#include <QVariantList>

// The user's test exclusions as the idle daemon keeps them: a list of
// dictionaries with "path" and the three flags "isExcludedFromFileTest",
// "isExcludedFromVolTest" and "isExcludedFromSurfaceScanTest". A volume is
// named by its mount point (or its device node); a file or folder by its path.
class HXExclusions
{
public:
    HXExclusions() = default;
    // `mountPoints`: the machine's, so that a volume's exclusion covers the
    // files of that volume and not those of others mounted inside it (an
    // excluded "/" leaves a separate /home to the file test).
    static HXExclusions fromEntries(const QVariantList &entries,
                                    const QStringList &mountPoints = {});

    bool isEmpty() const { return m_entries.isEmpty(); }
    bool excludesFromVolumeTest(const HXVolume &volume) const;
    bool excludesFromSurfaceScan(const HXVolume &volume) const;
    // The path is an excluded path, lies inside an excluded folder, or lies
    // on an excluded volume.
    bool excludesFromFileTest(const QString &path) const;

private:
    struct Entry
    {
        QString path;
        bool fileTest = false;
        bool volumeTest = false;
        bool surfaceScan = false;
        bool isVolume = false; // "NSURLIsVolumeKey"
    };
    QString mountPointOf(const QString &path) const;
    bool namesVolume(const Entry &entry, const HXVolume &volume) const;

    QList<Entry> m_entries;
    QStringList m_mountPoints;
};
