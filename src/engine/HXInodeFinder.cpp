#include "HXInodeFinder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// O_NOATIME keeps the walk from touching the directories' access times; the
// kernel allows it only to the owner (or a process with CAP_FOWNER).
DIR *openFolder(const QByteArray &path)
{
    int fd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NOATIME);
    if (fd < 0 && errno == EPERM)
        fd = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    DIR *folder = ::fdopendir(fd);
    if (!folder)
        ::close(fd);
    return folder;
}

QByteArray childPath(const QByteArray &folder, const char *name)
{
    return folder.endsWith('/') ? folder + name : folder + '/' + name;
}

} // namespace

HXInodeFinder::Result HXInodeFinder::find(const QString &mountPoint, const QSet<quint64> &inodes,
                                          const HXExclusions &exclusions,
                                          const std::atomic_bool *cancelled, const Limits &limits)
{
    Result result;
    const QString root = QDir::cleanPath(mountPoint);
    const QByteArray rootPath = QFile::encodeName(root);
    struct stat rootStat;
    if (::lstat(rootPath.constData(), &rootStat) != 0 || !S_ISDIR(rootStat.st_mode)) {
        result.complete = false;
        result.stopped = QStringLiteral("%1 cannot be read: %2").arg(root, qt_error_string(errno));
        return result;
    }
    if (inodes.contains(rootStat.st_ino))
        result.paths.insert(rootStat.st_ino, root);

    QElapsedTimer clock;
    clock.start();
    qint64 entries = 0;
    const auto mustStop = [&]() {
        if (cancelled && cancelled->load(std::memory_order_relaxed))
            result.stopped = QStringLiteral("the pass was stopped");
        else if (entries > limits.maxEntries)
            result.stopped = QStringLiteral("%1 entries were looked at").arg(limits.maxEntries);
        else if (clock.elapsed() > limits.maxMilliseconds)
            result.stopped = QStringLiteral("%1 seconds were spent looking")
                                 .arg(limits.maxMilliseconds / 1000.0);
        result.complete = result.stopped.isEmpty();
        return !result.complete;
    };
    QList<QByteArray> folders{rootPath};
    while (!folders.isEmpty() && result.paths.size() < inodes.size()) {
        if (mustStop())
            return result;
        const QByteArray folderPath = folders.takeLast();
        DIR *folder = openFolder(folderPath);
        if (!folder)
            continue; // gone since it was listed, or not readable: nothing to find there
        while (const dirent *entry = ::readdir(folder)) {
            const char *name = entry->d_name;
            if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0)))
                continue;
            if (((++entries & 1023) == 0 || entries > limits.maxEntries) && mustStop()) {
                ::closedir(folder);
                return result;
            }
            // The directory entry's inode number spares a stat() of every
            // file; it is confirmed below, since a mount point's entry shows
            // the folder beneath it.
            const bool wanted =
                inodes.contains(entry->d_ino) && !result.paths.contains(entry->d_ino);
            const bool maybeFolder = entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN;
            if (!wanted && !maybeFolder)
                continue;
            struct stat status;
            if (::fstatat(::dirfd(folder), name, &status, AT_SYMLINK_NOFOLLOW) != 0 ||
                status.st_dev != rootStat.st_dev)
                continue;
            const QByteArray path = childPath(folderPath, name);
            const bool isFolder = S_ISDIR(status.st_mode);
            const bool found =
                inodes.contains(status.st_ino) && !result.paths.contains(status.st_ino);
            if (!isFolder && !found)
                continue;
            const QString pathText = QFile::decodeName(path);
            if (exclusions.excludesFromFileTest(pathText)) {
                result.excludedPaths.append(pathText);
                continue;
            }
            if (found)
                result.paths.insert(status.st_ino, pathText);
            if (isFolder)
                folders.append(path);
        }
        ::closedir(folder);
    }
    return result;
}
