#include "InotifyQueue.h"

#include <QFile>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>

namespace {
constexpr uint32_t kMask = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE |
                           IN_DELETE_SELF | IN_MOVE_SELF | IN_MOVED_FROM | IN_MOVED_TO;
}

InotifyQueue::InotifyQueue(QObject *parent)
    : QObject(parent)
{
    m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_fd < 0) {
        const int e = errno;
        m_creationError = QStringLiteral("%1/%2").arg(e).arg(QString::fromLocal8Bit(strerror(e)));
        return;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &InotifyQueue::readEvents);
}

InotifyQueue::~InotifyQueue()
{
    delete m_notifier;
    if (m_fd >= 0)
        ::close(m_fd);
}

int InotifyQueue::addWatch(const QString &path, QString *error, int *errorNumber)
{
    if (m_fd < 0) {
        if (error)
            *error = m_creationError;
        return -1;
    }
    const int wd = inotify_add_watch(m_fd, QFile::encodeName(path).constData(), kMask);
    if (wd < 0) {
        const int e = errno;
        if (errorNumber)
            *errorNumber = e;
        if (error)
            *error = QString::fromLocal8Bit(strerror(e));
    }
    return wd;
}

void InotifyQueue::readEvents()
{
    alignas(struct inotify_event) char buffer[16 * 1024];
    QList<int> fired;
    QList<int> lost;
    for (;;) {
        const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
        if (n < 0) {
            const int e = errno;
            if (e == EINTR)
                continue;
            if (e != EAGAIN)
                Q_EMIT readFailed(e, QString::fromLocal8Bit(strerror(e)));
            break;
        }
        if (n == 0)
            break;
        for (ssize_t at = 0; at < n;) {
            const auto *ev = reinterpret_cast<const struct inotify_event *>(buffer + at);
            at += ssize_t(sizeof(struct inotify_event) + ev->len);
            if (ev->wd < 0)
                continue;
            // IN_IGNORED only says the kernel dropped a watch (the path went
            // away, or it was removed below); the deletion itself was
            // reported before it.
            if (ev->mask & IN_IGNORED) {
                if (!lost.contains(ev->wd))
                    lost.append(ev->wd);
                continue;
            }
            if (!fired.contains(ev->wd))
                fired.append(ev->wd);
            if ((ev->mask & IN_MOVE_SELF) && !lost.contains(ev->wd)) {
                inotify_rm_watch(m_fd, ev->wd);
                lost.append(ev->wd);
            }
        }
    }
    if (!fired.isEmpty())
        Q_EMIT watchesFired(fired);
    if (!lost.isEmpty())
        Q_EMIT watchesLost(lost);
}
