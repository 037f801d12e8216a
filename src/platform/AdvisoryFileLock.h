#pragma once

#include <QString>

// An exclusive flock(2) on a lock file, the way cooperating processes take
// turns at a shared file: every writer opens the same lock file and holds the
// lock for the whole of its read, change and write. The lock file is made
// when missing and never removed; only read access is needed to lock it, so
// a file made by one user serves all of them. The lock goes with the object,
// and with the process should it die.
class AdvisoryFileLock
{
public:
    explicit AdvisoryFileLock(QString lockPath);
    ~AdvisoryFileLock();
    AdvisoryFileLock(const AdvisoryFileLock &) = delete;
    AdvisoryFileLock &operator=(const AdvisoryFileLock &) = delete;

    enum class Outcome { Locked, Busy, Failed };
    // Waits up to `timeoutMs` for another holder to let go (0: only tries,
    // negative: waits as long as it takes). Busy when the time ran out,
    // Failed when the lock file cannot be opened (see error()).
    Outcome lock(int timeoutMs);
    void unlock();
    bool isLocked() const { return m_fd >= 0; }
    QString error() const { return m_error; }
    QString path() const { return m_path; }

private:
    QString m_path;
    QString m_error;
    int m_fd = -1;
};
