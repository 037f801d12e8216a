#pragma once

#include <QList>
#include <QString>

#include <utility>

// The machine's processes as /proc shows them, for the idle daemon's
// questions about what runs.
namespace ProcessTable {

// Every process: its pid and its name (the kernel's short command name).
QList<std::pair<qint64, QString>> processes();
QList<qint64> pidsOf(const QString &name);
// What each process of that name is doing: its status and where it waits.
QString sample(const QString &name);

} // namespace ProcessTable
