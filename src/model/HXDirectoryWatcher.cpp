#include "HXDirectoryWatcher.h"

#include "HXSystemLog.h"
#include "InotifyQueue.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

HXDirectoryWatcher::HXDirectoryWatcher(QObject *parent)
    : QObject(parent)
    , m_queue(new InotifyQueue(this))
{
    if (!m_queue->isValid())
        HXSystemLog::write(QStringLiteral("could not create inotify queue.  Error is %1")
                               .arg(m_queue->creationError()));
    connect(m_queue, &InotifyQueue::watchesFired, this, &HXDirectoryWatcher::deliver);
    connect(m_queue, &InotifyQueue::watchesLost, this, &HXDirectoryWatcher::forget);
    connect(m_queue, &InotifyQueue::readFailed, this, [](int e, const QString &text) {
        HXSystemLog::write(QStringLiteral("could not pick up event.  Error is %1/%2").arg(e).arg(text));
    });
}

HXDirectoryWatcher::~HXDirectoryWatcher() = default;

void HXDirectoryWatcher::watchFile(const QString &path, EventBlock block)
{
    m_filePath = path;
    m_fileBlock = block;
    m_recovering = false;
    arm(path, block, false);
}

void HXDirectoryWatcher::arm(const QString &path, const EventBlock &block, bool isBridge)
{
    setWatchPath(path);
    if (QFileInfo::exists(path)) {
        setEventBlock(block);
        watchDirectory(path);
        // What was made in the path before the watch took effect raised no
        // event: a bridge looks for the next step down at once, and the
        // caller, back at a path that had gone, has a look too.
        if (isBridge) {
            block(path);
        } else if (m_recovering && path == m_filePath) {
            m_recovering = false;
            block(path);
        }
        return;
    }
    QString parent = path;
    while (parent.size() > 1 && parent.endsWith(QLatin1Char('/')))
        parent.chop(1);
    parent = parent.left(qMax(parent.lastIndexOf(QLatin1Char('/')), 1));
    HXSystemLog::write(QStringLiteral("%1:: Watching parent dir: '%2' because file does not exist "
                                      "at path: '%3'")
                           .arg(QLatin1String(metaObject()->className()), parent, path));
    // The bridge only moves the watch over; the caller's block first runs on
    // the first change after the move.
    const EventBlock bridge = [this, path, parent, block, isBridge](const QString &) {
        if (QFileInfo::exists(path)) {
            stopWatchingDirectory(parent);
            arm(path, block, isBridge);
        }
    };
    arm(parent, bridge, true);
}

void HXDirectoryWatcher::watchPath(const QString &path, EventBlock block)
{
    // A path asked for here is watched as it is, not followed if it goes.
    m_filePath.clear();
    m_fileBlock = nullptr;
    setEventBlock(std::move(block));
    watchDirectory(path);
}

void HXDirectoryWatcher::watchDirectory(const QString &path)
{
    QString error;
    int errorNumber = 0;
    const int wd = m_queue->addWatch(path, &error, &errorNumber);
    if (wd < 0) {
        HXSystemLog::write(QStringLiteral("could not watch %1.  Error is %2/%3")
                               .arg(path)
                               .arg(errorNumber)
                               .arg(error));
        return;
    }
    // The kernel answers the same descriptor for the same inode; the first
    // path registered for it is the one the block receives.
    if (!m_paths.contains(wd))
        m_paths.insert(wd, path);
}

void HXDirectoryWatcher::stopWatchingDirectory(const QString &path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        const int e = errno;
        HXSystemLog::write(QStringLiteral("could not open %1.  Error is %2/%3")
                               .arg(path)
                               .arg(e)
                               .arg(QString::fromLocal8Bit(strerror(e))));
        return;
    }
    ::close(fd);
}

void HXDirectoryWatcher::deliver(const QList<int> &watchDescriptors)
{
    for (int wd : watchDescriptors) {
        const auto it = m_paths.constFind(wd);
        if (it == m_paths.cend())
            continue;
        // A copy: the block may replace itself (the parent-folder bridge does).
        const EventBlock block = m_eventBlock;
        const QString path = *it;
        if (block)
            block(path);
    }
}

void HXDirectoryWatcher::forget(const QList<int> &watchDescriptors)
{
    bool lostCurrent = false;
    for (int wd : watchDescriptors) {
        const QString path = m_paths.take(wd);
        if (!path.isEmpty() && path == m_watchPath)
            lostCurrent = true;
    }
    if (!lostCurrent || m_filePath.isEmpty())
        return;
    HXSystemLog::write(QStringLiteral("%1:: '%2' went away; watching for '%3' to come back")
                           .arg(QLatin1String(metaObject()->className()), m_watchPath, m_filePath));
    m_recovering = true;
    arm(m_filePath, m_fileBlock, false);
}
