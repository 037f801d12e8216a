#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <atomic>

// Runs one of the programs a test relies on (smartctl, journalctl, e2fsck...)
// found through PATH, so that tests put a fake of their own first. Blocks the
// calling thread, never the interface's, until the program ends, the time
// limit passes or the pass is cancelled; the program is killed in the last
// two cases.
struct HXProgramRun
{
    enum class Outcome { Finished, NotFound, FailedToStart, Crashed, TimedOut, Cancelled };
    Outcome outcome = Outcome::NotFound;
    int exitCode = -1;
    QByteArray out;
    QByteArray err;

    bool finished() const { return outcome == Outcome::Finished; }
    // One sentence on why there is no exit code ("smartctl is not installed").
    QString problem(const QString &program) const;
};

class HXProgramRunner
{
public:
    static QString find(const QString &program); // empty when PATH has none
    static HXProgramRun run(const QString &program, const QStringList &arguments, int timeoutMs,
                            const std::atomic_bool *cancelled = nullptr);
};
