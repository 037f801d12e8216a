#include "ZRCommandRunner.h"

#include "HXDaemonInteraction.h"
#include "HXSystemLog.h"

#include <QFile>
#include <cerrno>
#include <csignal>
#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

pid_t ZRShellRunner::spawn(const char *shell, const QString &command)
{
    const QByteArray text = command.toLocal8Bit();
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setpgroup(&attributes, 0);
    // The application may block or ignore signals that the tools expect.
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGTERM);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                              POSIX_SPAWN_SETSIGDEF);
    char *argv[] = {const_cast<char *>(shell), const_cast<char *>("-c"),
                    const_cast<char *>(text.constData()), nullptr};
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, shell, nullptr, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    return failed ? 0 : pid;
}

void ZRShellRunner::wait(pid_t pid)
{
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
}

void ZRShellRunner::run(const QString &command)
{
    if (const pid_t pid = spawn("/bin/sh", command))
        wait(pid);
}

void ZRShellRunner::runProfile(const QString &command)
{
    m_profileTerminated = false;
    const pid_t pid = spawn("/bin/bash", command);
    if (!pid)
        return;
    m_profile = pid;
    // Cancel may have come between the spawn and the line above.
    if (m_profileTerminated)
        kill(-pid, SIGTERM);
    wait(pid);
    m_profile = 0;
}

void ZRShellRunner::terminateProfile()
{
    m_profileTerminated = true;
    // The group: bash and whatever it started.
    if (const pid_t pid = m_profile)
        kill(-pid, SIGTERM);
}

QString ZRIdleDaemonFacts::sampleOfWorker()
{
    try {
        return HXDaemonInteraction::slowIdleDaemonQueue().sync([] {
            const auto idle = HXDaemonInteraction::idleDaemonProxy();
            return idle ? idle->sampleOfProcessName(QStringLiteral("OrvexWorkerDaemon"))
                        : QString();
        });
    } catch (const std::exception &failure) {
        HXSystemLog::write(QStringLiteral("Help reporter: no sample of the worker daemon: %1")
                               .arg(QString::fromLocal8Bit(failure.what())));
        return {};
    }
}

QVariantMap ZRIdleDaemonFacts::idleDaemonPreferences()
{
    try {
        return HXDaemonInteraction::idleDaemonQueue().sync([] {
            const auto idle = HXDaemonInteraction::idleDaemonProxy();
            return idle ? idle->idleDaemonPreferences() : QVariantMap();
        });
    } catch (const std::exception &failure) {
        HXSystemLog::write(QStringLiteral("Help reporter: no idle daemon preferences: %1")
                               .arg(QString::fromLocal8Bit(failure.what())));
        return {};
    }
}
