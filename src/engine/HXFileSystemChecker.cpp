#include "HXFileSystemChecker.h"

#include <QRegularExpression>

namespace {

QStringList linesOf(const QByteArray &output)
{
    // e2fsck asks and answers on the problem's line: "... are invalid.  Fix? no"
    static const QRegularExpression answer(QStringLiteral(R"((^|\s+)[\w ]+\? no$)"));
    QStringList lines;
    for (const QString &line : QString::fromUtf8(output).split(QLatin1Char('\n'))) {
        const QString clean = QString(line).remove(answer).trimmed();
        if (!clean.isEmpty())
            lines << clean;
    }
    return lines;
}

// Lines that say nothing about this file system: versions, the passes and
// phases as they go by, the checkers' own closing words.
bool isNoise(const QString &line)
{
    static const QRegularExpression noise(QStringLiteral(
        R"(^(\S+ \d+\.\d+(\.\d+)? \(.*\)$|exfatprogs version|Pass \d|Phase \d|- |\[\d+/\d+\]|)"
        R"(Opening filesystem|Checking filesystem on|UUID:|IGNORED|Leaving filesystem unchanged|)"
        R"(No modify flag set|Warning: skipping journal recovery|.*\*{5} WARNING: Filesystem still has errors|)"
        R"(\S+: aborted$))"));
    return noise.match(line).hasMatch();
}

// The checker's own summary of a clean file system.
QString cleanLine(const QStringList &lines)
{
    for (const QString &line : lines) {
        if (line.contains(QLatin1String("no error found")))
            return line; // btrfs
    }
    for (auto it = lines.crbegin(); it != lines.crend(); ++it) {
        if (!isNoise(*it))
            return *it;
    }
    return lines.isEmpty() ? QString() : lines.constLast();
}

// The first line naming a problem; what the checker printed as an error
// before what it printed as it went.
QString problemLine(const QStringList &errors, const QStringList &output)
{
    for (const QStringList *lines : {&errors, &output}) {
        for (const QString &line : *lines) {
            if (!isNoise(line))
                return line;
        }
    }
    return errors.isEmpty() ? QString() : errors.constLast();
}

} // namespace

HXFileSystemChecker::HXFileSystemChecker(Kind kind, const QString &program)
    : m_kind(kind)
    , m_program(program)
{
}

std::optional<HXFileSystemChecker> HXFileSystemChecker::forType(const QString &fsType)
{
    if (fsType == QLatin1String("ext2") || fsType == QLatin1String("ext3") ||
        fsType == QLatin1String("ext4"))
        return HXFileSystemChecker(Kind::Ext, QStringLiteral("e2fsck"));
    if (fsType == QLatin1String("vfat") || fsType == QLatin1String("msdos"))
        return HXFileSystemChecker(Kind::Fat, QStringLiteral("fsck.vfat"));
    if (fsType == QLatin1String("xfs"))
        return HXFileSystemChecker(Kind::Xfs, QStringLiteral("xfs_repair"));
    if (fsType == QLatin1String("btrfs"))
        return HXFileSystemChecker(Kind::Btrfs, QStringLiteral("btrfs"));
    if (fsType == QLatin1String("exfat"))
        return HXFileSystemChecker(Kind::ExFat, QStringLiteral("fsck.exfat"));
    return std::nullopt;
}

QStringList HXFileSystemChecker::arguments(const HXVolume &volume) const
{
    switch (m_kind) {
    case Kind::Ext:
        // -f: check even a file system marked clean; -n: open it read-only
        // and answer no to every question.
        return {QStringLiteral("-fn"), volume.devicePath};
    case Kind::Fat:
    case Kind::Xfs:
    case Kind::ExFat:
        return {QStringLiteral("-n"), volume.devicePath};
    case Kind::Btrfs:
        // A file system mounted read-only does not change under the check,
        // which btrfs refuses on any mounted one unless forced.
        if (!volume.mountPoint.isEmpty())
            return {QStringLiteral("check"), QStringLiteral("--readonly"),
                    QStringLiteral("--force"), volume.devicePath};
        return {QStringLiteral("check"), QStringLiteral("--readonly"), volume.devicePath};
    }
    return {};
}

QString HXFileSystemChecker::commandLine(const HXVolume &volume) const
{
    return (QStringList{m_program} + arguments(volume)).join(QLatin1Char(' '));
}

HXCheckerVerdict::Outcome HXFileSystemChecker::outcomeOf(const HXProgramRun &run) const
{
    using Outcome = HXCheckerVerdict::Outcome;
    const int code = run.exitCode;
    const QByteArray all = run.out + run.err;
    switch (m_kind) {
    case Kind::Ext:
    case Kind::ExFat:
        // The fsck convention: 4 errors left uncorrected, 8 operational
        // error, 16 usage error, 32 cancelled, 128 shared-library error; 1
        // and 2 (errors corrected) cannot happen where nothing may change.
        if (code & 4)
            return Outcome::Damaged;
        return (code & ~3) == 0 ? Outcome::Clean : Outcome::NotChecked;
    case Kind::Fat:
        // 1: recoverable errors or an inconsistency; 2: usage error, and
        // other codes when it could not open or read the device.
        return code == 0 ? Outcome::Clean : code == 1 ? Outcome::Damaged : Outcome::NotChecked;
    case Kind::Xfs:
        // With -n: 1 when it found corruption, but also when it stopped on
        // an error of its own before checking anything ("fatal error",
        // "cannot open"): only a run that got to its phases found corruption.
        if (code == 0)
            return Outcome::Clean;
        if (code == 1 && all.contains("Phase 1") && !all.contains("fatal error"))
            return Outcome::Damaged;
        return Outcome::NotChecked;
    case Kind::Btrfs:
        // Any failure is non-zero; the closing line tells a damaged file
        // system ("found ... bytes used, error(s) found") from a check that
        // could not run.
        if (code == 0)
            return Outcome::Clean;
        return all.contains("error(s) found") || all.contains("errors found") ? Outcome::Damaged
                                                                              : Outcome::NotChecked;
    }
    return Outcome::NotChecked;
}

HXCheckerVerdict HXFileSystemChecker::interpret(const HXProgramRun &run) const
{
    HXCheckerVerdict verdict;
    if (!run.finished()) {
        verdict.keyLine = run.problem(m_program);
        return verdict;
    }
    verdict.outcome = outcomeOf(run);
    const QStringList output = linesOf(run.out);
    const QStringList errors = linesOf(run.err);
    if (verdict.outcome == HXCheckerVerdict::Outcome::Clean)
        verdict.keyLine = cleanLine(output);
    else
        verdict.keyLine = problemLine(errors, output);
    if (verdict.keyLine.isEmpty())
        verdict.keyLine = QStringLiteral("%1 exited with code %2").arg(m_program).arg(run.exitCode);
    return verdict;
}
