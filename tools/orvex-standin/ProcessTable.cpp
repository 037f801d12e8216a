#include "ProcessTable.h"

#include <QDir>
#include <QFile>

QList<std::pair<qint64, QString>> ProcessTable::processes()
{
    QList<std::pair<qint64, QString>> found;
    const QStringList entries =
        QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric)
            continue;
        QFile comm(QStringLiteral("/proc/%1/comm").arg(entry));
        if (comm.open(QIODevice::ReadOnly)) // a process may end while we look
            found.append({pid, QString::fromLocal8Bit(comm.readAll()).trimmed()});
    }
    return found;
}

QList<qint64> ProcessTable::pidsOf(const QString &name)
{
    QList<qint64> pids;
    for (const auto &[pid, processName] : processes()) {
        if (processName == name)
            pids.append(pid);
    }
    return pids;
}

QString ProcessTable::sample(const QString &name)
{
    QString sample;
    for (const qint64 pid : pidsOf(name)) {
        QFile status(QStringLiteral("/proc/%1/status").arg(pid));
        QFile stack(QStringLiteral("/proc/%1/wchan").arg(pid));
        sample += QStringLiteral("Process %1 [%2]\n").arg(name).arg(pid);
        if (status.open(QIODevice::ReadOnly))
            sample += QString::fromLocal8Bit(status.readAll());
        if (stack.open(QIODevice::ReadOnly))
            sample +=
                QStringLiteral("Waiting in: %1\n").arg(QString::fromLocal8Bit(stack.readAll()));
        sample += QLatin1Char('\n');
    }
    return sample.isEmpty() ? QStringLiteral("No process named %1 is running.\n").arg(name)
                            : sample;
}
