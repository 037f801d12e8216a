#include "HXWorkerLogFile.h"

#include "HXConstants.h"
#include "HXProductPaths.h"
#include "HXReportLog.h"
#include "HXSystemLog.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QMutex>
#include <atomic>
#include <cstdio>

namespace {

std::atomic_bool g_failureSaid = false;
std::atomic_bool g_echo = true;
QMutex g_fileMutex;

void printLine(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, size_t(line.size()), stdout);
    std::fflush(stdout);
}

} // namespace

QString HXWorkerLogFile::path()
{
    return HXProductPaths::logsFolder() + QStringLiteral("/OrvexWorkerDaemon.log");
}

void HXWorkerLogFile::install()
{
    HXReportLogSetLineSink([](const QByteArray &line) {
        printLine(line);
        append(line);
    });
}

void HXWorkerLogFile::note(const QString &message)
{
    const QString date = QDateTime::currentDateTime().toString(HXDTestResultDateFormat);
    const QByteArray line = QStringLiteral("%1 Info: %2\n").arg(date, message).toUtf8();
    if (g_echo)
        printLine(line);
    append(line);
}

void HXWorkerLogFile::setEcho(bool echo)
{
    g_echo = echo;
}

bool HXWorkerLogFile::append(const QByteArray &line)
{
    QMutexLocker lock(&g_fileMutex);
    // Opened for each line, so that a log rotated away is started anew.
    QDir().mkpath(HXProductPaths::logsFolder());
    QFile file(path());
    const bool written = file.open(QIODevice::WriteOnly | QIODevice::Append) &&
                         file.write(line) == line.size() && file.flush();
    if (!written && !g_failureSaid.exchange(true))
        HXSystemLog::write(QStringLiteral("The worker's log %1 cannot be written: %2")
                               .arg(path(), file.errorString()));
    if (written)
        g_failureSaid = false;
    return written;
}
