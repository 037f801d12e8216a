#pragma once

#include "HXSurfaceScan.h"

#include <QString>
#include <optional>

// Where an interrupted surface scan of one disk stopped, kept in a small file
// per disk under the worker's state folder so that the next pass goes on
// from there. The disk is known by its identity; a point taken on a disk of
// another size (a grown or replaced volume behind the same name) is not used.
class HXScanResumePoint
{
public:
    qint64 sizeBytes = 0;
    int blockSize = 512;
    qint64 offset = 0;
    HXBadBlockList badBlocks; // found before the interruption

    // The point kept for the disk; nothing when there is none. A file that
    // cannot be read or makes no sense is answered as none, with `why` set.
    static std::optional<HXScanResumePoint> load(const QString &folder, const QString &diskId,
                                                 QString *why);
    bool save(const QString &folder, const QString &diskId, QString *why) const;
    static void remove(const QString &folder, const QString &diskId);

    static QString filePath(const QString &folder, const QString &diskId);
};
