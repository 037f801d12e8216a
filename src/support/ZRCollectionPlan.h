#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <array>
#include <functional>

class ZRReportFolder;

// One step of a collection block.
struct ZRStep
{
    enum Kind {
        Shell,        // a command for /bin/sh; its status is ignored
        Profile,      // the system profile: /bin/bash -c, ended by Cancel
        WorkerSample, // the idle daemon's sample of the worker, into `path`, added to `archive`
        IdlePrefs,    // the idle daemon's preferences, into `path`, added to `archive`
    };
    Kind kind = Shell;
    QString command;
    QString path;
    QString archive;

    bool operator==(const ZRStep &) const = default;
};

// The four collection blocks of a report with their Linux commands, each
// block's steps in the order they run, and each block's share of the progress.
struct ZRCollectionPlan
{
    enum Block { InstallDebug, DiskInfo, Logs, SystemProfile, BlockCount };
    static constexpr std::array<int, BlockCount> kShares{15, 15, 10, 25};

    std::array<QList<ZRStep>, BlockCount> blocks;

    // What the machine offers, looked up once: which programs are installed
    // and which whole disks exist. Tests describe another machine.
    struct Machine
    {
        std::function<bool(const QString &program)> hasProgram;
        QStringList disks; // names in /sys/block, in directory order
        QString home;

        static Machine current();
    };

    static ZRCollectionPlan make(const ZRReportFolder &folder, const Machine &machine);
};

// A path for /bin/sh, quoted so that blanks and quotes in it are kept.
QString ZRShellQuote(const QString &path);
// "zip --junk-paths -r <archive> <source>" (quiet); `source` is given as it
// should stand, so that shell patterns in it still expand.
QString ZRHelpReporterZipPOSIXPath(const QString &source, const QString &archive);
