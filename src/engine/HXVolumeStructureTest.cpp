#include "HXVolumeStructureTest.h"

#include "HXConstants.h"
#include "HXExtSuperblock.h"

#include <algorithm>

namespace {

// "Backup (sdb1, ext4)", or "sdb1 (ext4)" when the volume has no other name.
QString volumeName(const HXVolume &volume)
{
    const QString type = volume.fsType.isEmpty() ? QStringLiteral("unknown type") : volume.fsType;
    if (volume.displayName() == volume.kernelName)
        return QStringLiteral("%1 (%2)").arg(volume.kernelName, type);
    return QStringLiteral("%1 (%2, %3)").arg(volume.displayName(), volume.kernelName, type);
}

HXTestFinding findingFor(const HXVolume &volume, bool valid, const QString &evidence)
{
    HXTestFinding finding;
    finding.type = valid ? HXDTestResultSuccessType : HXDTestResultErrorType;
    finding.log = QStringLiteral("Volume Structures test %1 on %2: %3.")
                      .arg(valid ? QStringLiteral("passed") : QStringLiteral("error"),
                           volumeName(volume), evidence);
    finding.testInfo.insert(HXDiskKey, volume.diskInfo());
    finding.testInfo.insert(HXDTestResultVolumeNameKey, volume.displayName());
    finding.testInfo.insert(HXDTestResultVolumeIsValidKey, valid);
    return finding;
}

} // namespace

int HXVolumeStructureTest::timeLimitMs(qint64 volumeBytes)
{
    const qint64 minutes =
        15 + std::max<qint64>(volumeBytes, 0) / (qint64(50) * 1000 * 1000 * 1000);
    return int(std::min<qint64>(minutes, 6 * 60) * 60 * 1000);
}

std::optional<HXTestFinding> HXVolumeStructureTest::judgeMounted(const HXEngineContext &context,
                                                                 const HXVolume &volume) const
{
    const QString where =
        volume.mountPoint.isEmpty() ? QString() : QStringLiteral(" on %1").arg(volume.mountPoint);
    if (!volume.isExt()) {
        context.say(
            QStringLiteral(
                "Volume Structures test: %1 is mounted read-write%2, and %3 keeps no state "
                "that can be read safely while it is in use; not checked.")
                .arg(volumeName(volume), where,
                     volume.fsType.isEmpty() ? QStringLiteral("its file system") : volume.fsType));
        return std::nullopt;
    }
    QString why;
    const std::optional<HXExtSuperblock> superblock =
        HXExtSuperblock::read(volume.devicePath, &why);
    if (!superblock) {
        context.say(
            QStringLiteral(
                "Volume Structures test: %1 is mounted read-write%2 and was not checked: %3.")
                .arg(volumeName(volume), where, why));
        return std::nullopt;
    }
    return findingFor(volume, !superblock->hasErrors(),
                      QStringLiteral("mounted read-write%1; its superblock says %2")
                          .arg(where, superblock->stateText()));
}

std::optional<HXTestFinding> HXVolumeStructureTest::check(const HXEngineContext &context,
                                                          const HXVolume &volume) const
{
    if (volume.mountedReadWrite)
        return judgeMounted(context, volume);
    const std::optional<HXFileSystemChecker> checker = HXFileSystemChecker::forType(volume.fsType);
    if (!checker) {
        context.say(
            QStringLiteral("Volume Structures test: %1 was not checked: there is no checker for %2 "
                           "file systems that can check without changing anything.")
                .arg(volumeName(volume),
                     volume.fsType.isEmpty() ? QStringLiteral("unknown") : volume.fsType));
        return std::nullopt;
    }
    const int limit = m_fixedLimitMs > 0 ? m_fixedLimitMs : timeLimitMs(volume.sizeBytes);
    const HXProgramRun run = HXProgramRunner::run(checker->program(), checker->arguments(volume),
                                                  limit, context.cancelled);
    const HXCheckerVerdict verdict = checker->interpret(run);
    const QString command = checker->commandLine(volume);
    switch (verdict.outcome) {
    case HXCheckerVerdict::Outcome::Clean:
        return findingFor(
            volume, true,
            QStringLiteral("%1 found no problems (\"%2\")").arg(command, verdict.keyLine));
    case HXCheckerVerdict::Outcome::Damaged:
        return findingFor(volume, false,
                          QStringLiteral("%1 found problems it was not allowed to fix (\"%2\")")
                              .arg(command, verdict.keyLine));
    case HXCheckerVerdict::Outcome::NotChecked:
        break;
    }
    context.say(QStringLiteral(
                    "Volume Structures test: %1 was not checked: %2 could not check it (\"%3\").")
                    .arg(volumeName(volume), command, verdict.keyLine));
    return std::nullopt;
}

QList<HXTestFinding> HXVolumeStructureTest::run(const HXEngineContext &context)
{
    QList<HXTestFinding> findings;
    for (const HXVolume &volume : context.volumes) {
        if (context.isCancelled())
            break;
        if (context.exclusions.excludesFromVolumeTest(volume)) {
            context.say(
                QStringLiteral(
                    "Volume Structures test: %1 was skipped, as it is excluded from this test.")
                    .arg(volumeName(volume)));
            continue;
        }
        if (const std::optional<HXTestFinding> finding = check(context, volume))
            findings.append(*finding);
    }
    return findings;
}
