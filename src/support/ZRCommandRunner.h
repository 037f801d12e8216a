#pragma once

#include <QString>
#include <QVariantMap>
#include <atomic>
#include <sys/types.h>

// Runs the help reporter's shell commands. Called from the collection
// blocks' worker threads, several at once; terminateProfile() from any thread.
class ZRCommandRunner
{
public:
    virtual ~ZRCommandRunner() = default;
    // Runs `command` with /bin/sh and waits; what it answers is ignored.
    virtual void run(const QString &command) = 0;
    // Runs `command` with /bin/bash -c as the profile task and waits, unless
    // terminateProfile() ends it first.
    virtual void runProfile(const QString &command) = 0;
    virtual void terminateProfile() = 0;
};

// The real runner: each command in a process group of its own, so that the
// profile's whole pipeline ends together.
class ZRShellRunner : public ZRCommandRunner
{
public:
    void run(const QString &command) override;
    void runProfile(const QString &command) override;
    void terminateProfile() override;

private:
    static pid_t spawn(const char *shell, const QString &command);
    static void wait(pid_t pid);

    std::atomic<pid_t> m_profile{0};
    std::atomic<bool> m_profileTerminated{false};
};

// What the help reporter asks the idle daemon for. Called from a worker thread.
class ZRDaemonFacts
{
public:
    virtual ~ZRDaemonFacts() = default;
    // A sample of the worker daemon's process; empty without the daemon.
    virtual QString sampleOfWorker() = 0;
    // The idle daemon's preferences; empty without the daemon.
    virtual QVariantMap idleDaemonPreferences() = 0;
};

// Through the daemon's proxy, on the calling (worker) thread, exclusive with
// the daemon's own queues.
class ZRIdleDaemonFacts : public ZRDaemonFacts
{
public:
    QString sampleOfWorker() override;
    QVariantMap idleDaemonPreferences() override;
};
