#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// A file-system error the kernel logged ("EXT4-fs error (device sda1): ...",
// "XFS (sda1): Metadata corruption detected at ...", "BTRFS error (device
// sda1): ...", "FAT-fs (sdb1): error, ...").
struct HXFileSystemLogError
{
    QString device;    // the kernel's name of the file system's device: "sda1", "dm-0"
    quint64 inode = 0; // the inode the message names; 0 when it names none
};

// The error record ext4 keeps in its superblock until the file system is
// checked, as /sys/fs/ext4/<device>/ shows it (errors_count,
// {first,last}_error_{time,ino,block,line,func}).
struct HXExt4ErrorRecord
{
    struct Error
    {
        qint64 time = 0;   // seconds since 1970; 0 when there was none
        quint64 inode = 0; // 0 when the error named no inode
        QString function;  // the kernel function that found it
    };
    qint64 count = 0;
    Error first;
    Error last;

    bool hasErrors() const { return count > 0 || first.time > 0; }
    // "3 errors recorded since the last check, the first on 2024-05-01 10:00:00 UTC
    // in ext4_lookup (inode 1234), the last on ..."
    QString describe() const;
};

// btrfs's per-device error counters, summed over the file system's devices
// (/sys/fs/btrfs/<fsid>/devinfo/<devid>/error_stats). They are kept on disk
// until reset with "btrfs device stats -z".
struct HXBtrfsErrorStats
{
    qint64 write = 0;
    qint64 read = 0;
    qint64 flush = 0;
    qint64 corruption = 0;
    qint64 generation = 0;
    int devices = 0;

    qint64 total() const { return write + read + flush + corruption + generation; }
    // "2 read errors and 1 corruption error"
    QString describe() const;
};

class HXFileSystemErrors
{
public:
    static std::optional<HXFileSystemLogError> parseLogLine(const QString &text);
    // "write_errs 0\nread_errs 2\n...": false when no counter could be read.
    static bool addErrorStats(const QByteArray &text, HXBtrfsErrorStats *stats);

    // The records under HXSystemRoot::sysfs(); nothing when the kernel keeps
    // none for that file system (not mounted, another type, an older kernel).
    static std::optional<HXExt4ErrorRecord> readExt4(const QString &deviceName);
    static std::optional<HXBtrfsErrorStats> readBtrfs(const QString &fsid);
};
