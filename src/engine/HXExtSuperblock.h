#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// What an ext2/3/4 superblock says about the file system's health, read from
// the device without mounting or locking anything. The kernel records errors
// there as it meets them (the state's error bit, a count, and where the first
// and the last error happened), so a mounted file system can be judged
// without a checker, which could not run on it.
struct HXExtSuperblock
{
    static constexpr qint64 Offset = 1024;
    static constexpr int Size = 1024;

    quint16 state = 0;         // s_state: 0x0001 cleanly unmounted, 0x0002 errors detected
    quint32 errorCount = 0;    // s_error_count
    QString lastErrorFunction; // s_last_error_func: the kernel function that met the last error
    quint32 lastErrorLine = 0;
    quint32 lastErrorInode = 0;
    quint64 lastErrorBlock = 0;
    qint64 lastErrorTime = 0; // seconds since the epoch, 0 when never

    bool hasErrors() const { return (state & 0x0002) != 0 || errorCount > 0; }
    // "clean", or "with errors (3 errors recorded; the last in ext4_lookup,
    // inode 12)".
    QString stateText() const;

    // The superblock's 1024 bytes; nothing, with the reason, when they are
    // not an ext superblock.
    static std::optional<HXExtSuperblock> parse(const QByteArray &bytes, QString *why);
    static std::optional<HXExtSuperblock> read(const QString &devicePath, QString *why);
};
