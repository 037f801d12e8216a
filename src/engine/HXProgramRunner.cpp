#include "HXProgramRunner.h"

#include <QDeadlineTimer>
#include <QProcess>
#include <QStandardPaths>

QString HXProgramRun::problem(const QString &program) const
{
    switch (outcome) {
    case Outcome::Finished:
        return {};
    case Outcome::NotFound:
        return QStringLiteral("%1 is not installed").arg(program);
    case Outcome::FailedToStart:
        return QStringLiteral("%1 could not be started").arg(program);
    case Outcome::Crashed:
        return QStringLiteral("%1 crashed").arg(program);
    case Outcome::TimedOut:
        return QStringLiteral("%1 did not finish in time").arg(program);
    case Outcome::Cancelled:
        return QStringLiteral("%1 was stopped with the pass").arg(program);
    }
    return {};
}

QString HXProgramRunner::find(const QString &program)
{
    return QStandardPaths::findExecutable(program);
}

HXProgramRun HXProgramRunner::run(const QString &program, const QStringList &arguments,
                                  int timeoutMs, const std::atomic_bool *cancelled)
{
    HXProgramRun result;
    const QString path = find(program);
    if (path.isEmpty())
        return result;
    QProcess process;
    // The C locale, so the programs' words and numbers read as the parsers expect.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    process.setProcessEnvironment(environment);
    process.start(path, arguments, QIODevice::ReadOnly);
    if (!process.waitForStarted(5000)) {
        result.outcome = HXProgramRun::Outcome::FailedToStart;
        return result;
    }
    const QDeadlineTimer deadline(timeoutMs);
    while (!process.waitForFinished(100)) {
        // Drained as it comes, so a chatty program never blocks on a full pipe.
        result.out += process.readAllStandardOutput();
        result.err += process.readAllStandardError();
        const bool stop = cancelled && cancelled->load(std::memory_order_relaxed);
        if (stop || deadline.hasExpired() || process.state() == QProcess::NotRunning) {
            if (process.state() == QProcess::NotRunning)
                break;
            process.kill();
            process.waitForFinished(2000);
            result.outcome =
                stop ? HXProgramRun::Outcome::Cancelled : HXProgramRun::Outcome::TimedOut;
            return result;
        }
    }
    result.out += process.readAllStandardOutput();
    result.err += process.readAllStandardError();
    if (process.exitStatus() == QProcess::CrashExit) {
        result.outcome = HXProgramRun::Outcome::Crashed;
        return result;
    }
    result.outcome = HXProgramRun::Outcome::Finished;
    result.exitCode = process.exitCode();
    return result;
}
