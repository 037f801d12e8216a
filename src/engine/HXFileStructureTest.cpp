#include "HXFileStructureTest.h"

#include "HXConstants.h"
#include "HXFileSystemErrors.h"
#include "HXInodeFinder.h"
#include "HXKernelLog.h"

#include <QHash>
#include <optional>

namespace {

// What the kernel keeps about one mounted file system's errors.
struct VolumeRecords
{
    std::optional<HXExt4ErrorRecord> ext4;
    std::optional<HXBtrfsErrorStats> btrfs;
    bool logRead = false;
    int logErrors = 0;
    QString firstLogMessage;
    QList<quint64> inodes; // named by the records, in the order met

    bool any() const { return ext4 || btrfs || logRead; }
    bool hasErrors() const
    {
        return (ext4 && ext4->hasErrors()) || (btrfs && btrfs->total() > 0) || logErrors > 0;
    }
    void addInode(quint64 inode)
    {
        if (inode != 0 && !inodes.contains(inode))
            inodes.append(inode);
    }
};

struct LogErrors
{
    int count = 0;
    QString first;
    QList<quint64> inodes;
};

QString volumeName(const HXVolume &volume)
{
    return QStringLiteral("%1 (%2)").arg(volume.mountPoint, volume.kernelName);
}

VolumeRecords recordsOf(const HXVolume &volume, const QHash<QString, LogErrors> *log)
{
    VolumeRecords records;
    if (volume.isExt() || volume.fsType.isEmpty())
        records.ext4 = HXFileSystemErrors::readExt4(volume.kernelName);
    if (volume.fsType == QLatin1String("btrfs"))
        records.btrfs = HXFileSystemErrors::readBtrfs(volume.uuid);
    if (records.ext4) {
        records.addInode(records.ext4->first.inode);
        records.addInode(records.ext4->last.inode);
    }
    if (log) {
        records.logRead = true;
        const LogErrors errors = log->value(volume.kernelName);
        records.logErrors = errors.count;
        records.firstLogMessage = errors.first;
        for (quint64 inode : errors.inodes)
            records.addInode(inode);
    }
    return records;
}

QString describe(const VolumeRecords &records)
{
    QStringList parts;
    if (records.ext4 && records.ext4->hasErrors())
        parts.append(QStringLiteral("ext4 has %1").arg(records.ext4->describe()));
    if (records.btrfs && records.btrfs->total() > 0)
        parts.append(QStringLiteral("btrfs counted %1 on its device%2")
                         .arg(records.btrfs->describe(),
                              records.btrfs->devices == 1 ? QString() : QStringLiteral("s")));
    if (records.logErrors > 0)
        parts.append(
            QStringLiteral(
                "the kernel logged %1 error message%2 since the machine started, the first: \"%3\"")
                .arg(records.logErrors)
                .arg(records.logErrors == 1 ? QString() : QStringLiteral("s"))
                .arg(records.firstLogMessage));
    return parts.join(QLatin1String("; "));
}

QString sources(const VolumeRecords &records)
{
    QStringList names;
    if (records.ext4)
        names.append(QStringLiteral("ext4's error record"));
    if (records.btrfs)
        names.append(QStringLiteral("btrfs's device statistics"));
    if (records.logRead)
        names.append(QStringLiteral("the kernel log"));
    return names.join(QLatin1String(" and "));
}

// ext4 keeps inodes below 11 for itself (the root folder is 2, the journal
// 8): they are no file of the user's and lie in no folder.
bool isInternalInode(const HXVolume &volume, quint64 inode)
{
    return volume.isExt() && inode < 11 && inode != 2;
}

QStringList problemFiles(const HXVolume &volume, const QList<quint64> &inodes,
                         const HXEngineContext &context, QStringList *unfound)
{
    QSet<quint64> wanted;
    for (quint64 inode : inodes) {
        if (!isInternalInode(volume, inode))
            wanted.insert(inode);
    }
    HXInodeFinder::Result found;
    if (!wanted.isEmpty())
        found =
            HXInodeFinder::find(volume.mountPoint, wanted, context.exclusions, context.cancelled);
    for (const QString &path : std::as_const(found.excludedPaths))
        context.say(QStringLiteral("File structures test: %1 was not searched for damaged files, "
                                   "as it is excluded from the file test.")
                        .arg(path));
    if (!found.complete)
        context.say(QStringLiteral(
                        "File structures test: stopped looking for the damaged files on %1 (%2); "
                        "those not found are named by inode number.")
                        .arg(volumeName(volume), found.stopped));
    QStringList files;
    for (quint64 inode : inodes) {
        const QString path = found.paths.value(inode);
        if (!path.isEmpty())
            files.append(path);
        else if (isInternalInode(volume, inode))
            unfound->append(QStringLiteral("inode %1 (the file system's own)").arg(inode));
        else
            unfound->append(QStringLiteral("inode %1").arg(inode));
    }
    return files;
}

} // namespace

QList<HXTestFinding> HXFileStructureTest::run(const HXEngineContext &context)
{
    QList<HXVolume> mounted;
    for (const HXVolume &volume : context.volumes) {
        if (!volume.mountPoint.isEmpty())
            mounted.append(volume);
    }
    if (mounted.isEmpty()) {
        context.say(QStringLiteral("File structures test: no file system is mounted."));
        return {};
    }

    // The whole boot: a file system with errors keeps them until it is
    // repaired, which needs it unmounted, so they stand for every pass.
    const HXKernelLogReading reading = HXKernelLog::read({}, context.cancelled);
    QHash<QString, LogErrors> logErrors;
    if (reading.available()) {
        for (const HXKernelRecord &record : reading.records) {
            const std::optional<HXFileSystemLogError> error =
                HXFileSystemErrors::parseLogLine(record.text);
            if (!error)
                continue;
            LogErrors &errors = logErrors[error->device];
            if (errors.count++ == 0)
                errors.first = record.text.trimmed();
            if (error->inode != 0 && !errors.inodes.contains(error->inode))
                errors.inodes.append(error->inode);
        }
    } else {
        context.say(QStringLiteral(
                        "File structures test: only the records ext4 and btrfs keep are read. %1")
                        .arg(reading.problem));
    }

    QList<HXTestFinding> findings;
    for (const HXVolume &volume : std::as_const(mounted)) {
        if (context.isCancelled())
            break;
        if (context.exclusions.excludesFromFileTest(volume.mountPoint)) {
            context.say(QStringLiteral(
                            "File structures test skipped %1: it is excluded from the file test.")
                            .arg(volumeName(volume)));
            continue;
        }
        const VolumeRecords records = recordsOf(volume, reading.available() ? &logErrors : nullptr);
        if (!records.any()) {
            context.say(QStringLiteral("File structures test: the kernel keeps no record of errors "
                                       "on %1 (%2) that can be read here.")
                            .arg(volumeName(volume), volume.fsType.isEmpty()
                                                         ? QStringLiteral("unknown type")
                                                         : volume.fsType));
            continue;
        }
        HXTestFinding finding;
        finding.testInfo.insert(HXDiskKey, volume.diskInfo());
        if (!records.hasErrors()) {
            finding.type = HXDTestResultSuccessType;
            finding.log =
                QStringLiteral(
                    "File Structures test passed on %1: no file system errors recorded (%2).")
                    .arg(volumeName(volume), sources(records));
        } else {
            finding.type = HXDTestResultErrorType;
            // Only paths go into the list the window offers to show; what
            // could not be found by name is said in the line itself.
            QStringList unfound;
            const QStringList files = problemFiles(volume, records.inodes, context, &unfound);
            finding.log = QStringLiteral("File Structures test found file system errors on %1: %2.")
                              .arg(volumeName(volume), describe(records));
            if (!unfound.isEmpty())
                finding.log += QStringLiteral(" Not found by name on %1: %2.")
                                   .arg(volume.mountPoint, unfound.join(QStringLiteral(", ")));
            for (const QString &file : files)
                finding.log += QLatin1Char('\n') + file;
            if (!files.isEmpty())
                finding.testInfo.insert(HXDTestResultProblemFiles, QVariant(files).toList());
        }
        findings.append(finding);
    }
    return findings;
}
