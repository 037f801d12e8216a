#include "HXPartitionMapTest.h"

#include "HXConstants.h"

namespace {

// "sdb", or "WDC WD40EFRX (sdb)" when the kernel knows the model.
QString summary(const HXPartitionMap &map)
{
    const QString count = map.partitions.size() == 1
                              ? QStringLiteral("1 partition")
                              : QStringLiteral("%1 partitions").arg(map.partitions.size());
    if (map.scheme == HXPartitionMap::Scheme::GPT)
        return QStringLiteral("GPT with %1; both headers and their partition entries are intact")
            .arg(count);
    return QStringLiteral("MBR with %1, all inside the disk and none overlapping").arg(count);
}

} // namespace

HXTestFinding HXPartitionMapTest::judge(const HXBlockDisk &disk, const HXPartitionMap &map)
{
    HXTestFinding finding;
    const bool valid = map.primaryIsSound();
    finding.testInfo.insert(HXDiskKey, disk.diskInfo());
    finding.testInfo.insert(HXDTestResultPartitionMapIsValidKey, valid);
    if (map.problems.isEmpty()) {
        finding.type = HXDTestResultSuccessType;
        finding.log = QStringLiteral("Partition Map test passed on %1: %2.")
                          .arg(disk.logName(), summary(map));
        return finding;
    }
    // The problems of the map in force first: they decide the outcome.
    QStringList problems;
    for (const bool backup : {false, true}) {
        for (const HXPartitionMapProblem &problem : map.problems) {
            if ((problem.where == HXPartitionMapProblem::Where::Backup) == backup)
                problems << problem.text;
        }
    }
    finding.type = valid ? HXDTestResultWarningType : HXDTestResultErrorType;
    finding.log = QStringLiteral("Partition Map test %1 on %2: %3.")
                      .arg(valid ? QStringLiteral("warning") : QStringLiteral("error"),
                           disk.logName(), problems.join(QLatin1String("; ")));
    return finding;
}

QList<HXTestFinding> HXPartitionMapTest::run(const HXEngineContext &context)
{
    QList<HXTestFinding> findings;
    for (const HXBlockDisk &disk : context.disks) {
        if (context.isCancelled())
            break;
        QString why;
        const std::optional<HXPartitionMap> map =
            HXPartitionMapReader::readPath(disk.devicePath, &why);
        if (!map) {
            context.say(QStringLiteral("Partition Map test: %1 was not tested: %2.")
                            .arg(disk.logName(), why));
            continue;
        }
        if (map->scheme == HXPartitionMap::Scheme::None && map->problems.isEmpty()) {
            context.say(
                QStringLiteral(
                    "Partition Map test: %1 has no partition map, so there is nothing to check.")
                    .arg(disk.logName()));
            continue;
        }
        findings.append(judge(disk, *map));
    }
    return findings;
}
