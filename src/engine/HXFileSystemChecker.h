#pragma once

#include "HXEngineTypes.h"
#include "HXProgramRunner.h"

#include <optional>

// What a checker's run says about a file system.
struct HXCheckerVerdict
{
    enum class Outcome {
        Clean,     // the checker found nothing wrong
        Damaged,   // it found problems (which it was not allowed to fix)
        NotChecked // it could not check: not installed, could not open, usage error...
    };
    Outcome outcome = Outcome::NotChecked;
    QString keyLine; // the checker's own line that says it best, to quote in the log
};

// The file system checkers the volume-structure test runs, each only in its
// mode that changes nothing (e2fsck -fn, fsck.vfat -n, xfs_repair -n,
// btrfs check --readonly, fsck.exfat -n), and how each one's exit code and
// words are read.
class HXFileSystemChecker
{
public:
    // The checker for a type blkid names ("ext4", "vfat"...); nothing when
    // there is none we know to have a mode that changes nothing.
    static std::optional<HXFileSystemChecker> forType(const QString &fsType);

    const QString &program() const { return m_program; }
    QStringList arguments(const HXVolume &volume) const;
    // "e2fsck -fn /dev/sdb1", for the log.
    QString commandLine(const HXVolume &volume) const;
    HXCheckerVerdict interpret(const HXProgramRun &run) const;

private:
    enum class Kind { Ext, Fat, Xfs, Btrfs, ExFat };
    HXFileSystemChecker(Kind kind, const QString &program);
    HXCheckerVerdict::Outcome outcomeOf(const HXProgramRun &run) const;

    Kind m_kind;
    QString m_program;
};
