#pragma once

#include "HXExclusions.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <atomic>

// Finds the paths of inodes the kernel named, by walking a mounted file
// system from its mount point. The walk stays on that file system (another
// mounted on a folder inside is not entered), goes into no path the user
// excluded from the file test, reads directories without changing their
// access times where the kernel allows it, and stops at its limits or when
// the pass is cancelled. A file with several hard links is found under one.
class HXInodeFinder
{
public:
    struct Limits
    {
        qint64 maxEntries = 1000000;
        int maxMilliseconds = 20000;
    };

    struct Result
    {
        QHash<quint64, QString> paths; // inode → path, for those found
        QStringList excludedPaths;     // excluded paths met and left out
        bool complete = true;          // false when stopped before the whole walk
        QString stopped;               // why it stopped early, or could not start
    };

    static Result find(const QString &mountPoint, const QSet<quint64> &inodes,
                       const HXExclusions &exclusions, const std::atomic_bool *cancelled,
                       const Limits &limits);
    static Result find(const QString &mountPoint, const QSet<quint64> &inodes,
                       const HXExclusions &exclusions, const std::atomic_bool *cancelled)
    {
        return find(mountPoint, inodes, exclusions, cancelled, Limits());
    }
};
