#pragma once

#include <QString>
#include <sys/types.h>

// Which file a path named when it was looked at: its inode and the size and
// modification time it had. Files here are replaced by rename, so a new
// version is a new inode; the size and the time catch a file rewritten in
// place.
struct FileStamp
{
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    qint64 size = 0;
    qint64 modifiedNs = 0;

    // A stamp that does not exist when the path does not (or cannot be looked at).
    static FileStamp ofPath(const QString &path);
    static FileStamp ofDescriptor(int fd);

    bool operator==(const FileStamp &other) const = default;
};
