#pragma once

#include "HXStatusBoard.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <optional>

// What a testing pass finds: the disks of the pretend machine and, in the
// order they run, the outcome of each test run. Read from JSON (the format is
// in `orvex-standin --help`); a file that does not fit is refused whole with a
// sentence saying where.
struct StandinDisk
{
    QString id;
    QString bsdName;
    QString name;
    QString uuid;
};

enum class StandinOutcome { Passed, Warning, Error, NotApplicable };

struct StandinTestRun
{
    HXTest test = HXTest::SMART;
    StandinOutcome outcome = StandinOutcome::Passed;
    QString diskId;       // empty for tests of the whole machine
    QString log;          // the result's log line; made up when empty
    QStringList files;    // damaged files, listed under the log line
    QVariantMap info;     // more testInfo details
};

struct StandinScenario
{
    int stepMilliseconds = 600;
    bool systemSleepTimeAllowsIdleRun = true;
    QList<StandinDisk> disks;
    QList<StandinTestRun> runs;
    // Files the idle daemon sees and the user may not (another user's), by
    // path, with their owner's name.
    QMap<QString, QString> daemonOnlyFiles;

    // Two disks, a warning, an error, a test that does not apply, a damaged
    // file list: every state the application shows.
    static StandinScenario defaultScenario();
    static std::optional<StandinScenario> fromJson(const QByteArray &json, QString *error);
    QByteArray toJson() const;

    const StandinDisk *disk(const QString &id) const;
};

// The key of a test in scenario files ("SMART", "SurfaceScan", ...).
QString StandinTestKey(HXTest test);
std::optional<HXTest> StandinTestFromKey(const QString &key);
QString StandinOutcomeKey(StandinOutcome outcome);
