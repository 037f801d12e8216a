#include "AdvisoryFileLock.h"

#include "FileStamp.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QThread>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

AdvisoryFileLock::AdvisoryFileLock(QString lockPath)
    : m_path(std::move(lockPath))
{
}

AdvisoryFileLock::~AdvisoryFileLock()
{
    unlock();
}

AdvisoryFileLock::Outcome AdvisoryFileLock::lock(int timeoutMs)
{
    if (m_fd >= 0)
        return Outcome::Locked;
    const QByteArray name = QFile::encodeName(m_path);
    const QDeadlineTimer deadline =
        timeoutMs < 0 ? QDeadlineTimer(QDeadlineTimer::Forever) : QDeadlineTimer(timeoutMs);
    int pauseMs = 1;
    for (;;) {
        const int fd = ::open(name.constData(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0) {
            m_error = QString::fromLocal8Bit(strerror(errno));
            return Outcome::Failed;
        }
        int r;
        do {
            r = ::flock(fd, LOCK_EX | LOCK_NB);
        } while (r != 0 && errno == EINTR);
        if (r == 0) {
            // Whoever removed or replaced the lock file while we waited has
            // left us holding a lock nobody else will look at: take the
            // one that is there now.
            const FileStamp held = FileStamp::ofDescriptor(fd);
            const FileStamp there = FileStamp::ofPath(m_path);
            if (there.exists && held.device == there.device && held.inode == there.inode) {
                m_fd = fd;
                return Outcome::Locked;
            }
            ::close(fd);
            continue;
        }
        const int e = errno;
        ::close(fd);
        if (e != EWOULDBLOCK) {
            m_error = QString::fromLocal8Bit(strerror(e));
            return Outcome::Failed;
        }
        if (deadline.hasExpired())
            return Outcome::Busy;
        // Holders keep the lock for one read, change and write: short
        // pauses at first, never long ones.
        qint64 pause = pauseMs;
        if (!deadline.isForever())
            pause = std::min(pause, std::max<qint64>(1, deadline.remainingTime()));
        QThread::msleep(ulong(pause));
        pauseMs = std::min(pauseMs * 2, 20);
    }
}

void AdvisoryFileLock::unlock()
{
    if (m_fd < 0)
        return;
    ::flock(m_fd, LOCK_UN);
    ::close(m_fd);
    m_fd = -1;
}
