#include "HXStopSignals.h"

#include <QSocketNotifier>
#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {
sigset_t stopSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}
} // namespace

void HXStopSignals::block()
{
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

HXStopSignals::HXStopSignals(QObject *parent)
    : QObject(parent)
{
    const sigset_t set = stopSignals();
    m_fd = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    if (m_fd < 0)
        return;
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        signalfd_siginfo info{};
        while (::read(m_fd, &info, sizeof info) == ssize_t(sizeof info))
            Q_EMIT received(int(info.ssi_signo));
    });
}

HXStopSignals::~HXStopSignals()
{
    delete m_notifier;
    if (m_fd >= 0)
        ::close(m_fd);
}
