#include "HXSurfaceScanTest.h"

#include "HXConstants.h"
#include "HXScanResumePoint.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// From the kernel's ioprio interface; glibc has no wrapper for it.
constexpr int ioprioWhoProcess = 1;
constexpr int ioprioClassShift = 13;
constexpr int ioprioClassIdle = 3;

// Puts this thread in the idle I/O class for as long as it lives, so that
// the scan reads only when no other program wants the disk, and gives the
// thread its previous class back for the tests after it.
class IdleIoPriority
{
public:
    explicit IdleIoPriority(const HXEngineContext &context)
    {
        m_previous = int(syscall(SYS_ioprio_get, ioprioWhoProcess, 0));
        if (syscall(SYS_ioprio_set, ioprioWhoProcess, 0, ioprioClassIdle << ioprioClassShift) !=
            0) {
            context.say(QStringLiteral("Surface Scan test reads at the normal I/O priority: the "
                                       "kernel refused the idle class (%1)")
                            .arg(qt_error_string(errno)));
            m_previous = -1;
        }
    }
    ~IdleIoPriority()
    {
        // Some kernels answer a class they do not take back; the thread then
        // goes back to the default class rather than staying idle for the
        // tests after this one.
        if (m_previous >= 0 && syscall(SYS_ioprio_set, ioprioWhoProcess, 0, m_previous) != 0)
            syscall(SYS_ioprio_set, ioprioWhoProcess, 0, 0);
    }
    IdleIoPriority(const IdleIoPriority &) = delete;
    IdleIoPriority &operator=(const IdleIoPriority &) = delete;

private:
    int m_previous = -1;
};

QString deviceName(const HXBlockDisk &disk)
{
    return disk.model.isEmpty() ? disk.kernelName
                                : QStringLiteral("%1 (%2)").arg(disk.model, disk.kernelName);
}

QString blocksText(qint64 n)
{
    return n == 1 ? QStringLiteral("1 unreadable block")
                  : QStringLiteral("%1 unreadable blocks").arg(n);
}

QString percentText(qint64 part, qint64 whole)
{
    return QStringLiteral("%1%").arg(whole > 0 ? int(part * 100 / whole) : 100);
}

} // namespace

HXSurfaceScanTest::HXSurfaceScanTest()
    : m_open([](const HXBlockDisk &disk, QString *why) -> std::unique_ptr<HXBlockSource> {
        return HXDeviceBlockSource::open(disk.devicePath, why);
    })
{
}

QList<HXTestFinding> HXSurfaceScanTest::run(const HXEngineContext &context)
{
    QList<HXTestFinding> findings;
    if (context.disks.isEmpty())
        return findings;
    IdleIoPriority priority(context);
    for (const HXVolume &volume : context.volumes) {
        // A file system spread over several devices (an LVM volume group, an
        // md array) has no one range of a disk to leave out.
        if (volume.diskKernelName.isEmpty() && context.exclusions.excludesFromSurfaceScan(volume))
            context.say(QStringLiteral("Surface Scan test cannot leave out %1 (%2), which the user "
                                       "excluded: it does not lie on one range of one disk")
                            .arg(volume.displayName(), volume.kernelName));
    }
    for (const HXBlockDisk &disk : context.disks) {
        if (context.isCancelled())
            break;
        if (const std::optional<HXTestFinding> finding = scanDisk(context, disk))
            findings.append(*finding);
    }
    return findings;
}

QList<HXByteRange> HXSurfaceScanTest::excludedRanges(const HXEngineContext &context,
                                                     const HXBlockDisk &disk) const
{
    QList<HXByteRange> ranges;
    for (const HXVolume &volume : context.volumes) {
        if (volume.diskKernelName != disk.kernelName ||
            !context.exclusions.excludesFromSurfaceScan(volume))
            continue;
        context.say(QStringLiteral("Surface Scan test skips %1 on %2 (%3 from byte %4): the user "
                                   "excluded it from the surface scan")
                        .arg(volume.displayName(), disk.kernelName, HXSizeText(volume.sizeBytes))
                        .arg(volume.startBytes));
        ranges.append({volume.startBytes, volume.sizeBytes});
    }
    return ranges;
}

std::optional<HXTestFinding> HXSurfaceScanTest::scanDisk(const HXEngineContext &context,
                                                         const HXBlockDisk &disk)
{
    QString why;
    const std::unique_ptr<HXBlockSource> source = m_open(disk, &why);
    if (!source) {
        context.say(
            QStringLiteral("Surface Scan test did not test %1: %2").arg(deviceName(disk), why));
        return std::nullopt;
    }
    if (const auto *device = dynamic_cast<const HXDeviceBlockSource *>(source.get());
        device && !device->isDirect())
        context.say(QStringLiteral("Surface Scan test reads %1 through the page cache: the kernel "
                                   "refused direct I/O on it")
                        .arg(disk.devicePath));

    HXSurfaceScan::Plan plan;
    plan.skipped = excludedRanges(context, disk);
    plan.chunkBytes = m_chunkBytes;
    plan.cancelled = context.cancelled;
    if (m_progress)
        plan.progress = [&](qint64 done, qint64 total) {
            m_progress(disk, done, total);
        };
    if (HXSurfaceScan::rangesToRead(source->sizeBytes(), source->logicalBlockSize(), plan.skipped)
            .isEmpty()) {
        context.say(QStringLiteral("Surface Scan test did not test %1: nothing on it is left to "
                                   "read once the excluded volumes are skipped")
                        .arg(deviceName(disk)));
        return std::nullopt;
    }

    const QString diskId = disk.uuid.isEmpty() ? disk.kernelName : disk.uuid;
    if (!context.stateFolder.isEmpty())
        resumeFromPoint(context, disk, diskId, *source, plan);

    const HXSurfaceScan::Outcome outcome = HXSurfaceScan(*source).run(plan);

    if (!context.stateFolder.isEmpty()) {
        if (outcome.completed) {
            HXScanResumePoint::remove(context.stateFolder, diskId);
        } else {
            HXScanResumePoint point;
            point.sizeBytes = source->sizeBytes();
            point.blockSize = source->logicalBlockSize();
            point.offset = outcome.stopOffset;
            point.badBlocks = outcome.badBlocks;
            if (!point.save(context.stateFolder, diskId, &why))
                context.say(
                    QStringLiteral("Surface Scan test on %1: %2").arg(disk.kernelName, why));
        }
    }
    // A disk that stops answering (unplugged, reset) says nothing about its
    // surface: the next pass goes on where this one stopped.
    if (!outcome.failure.isEmpty() && outcome.badBlocks.isEmpty()) {
        context.say(QStringLiteral("Surface Scan test stopped on %1 at byte %2: the disk could not "
                                   "be read (%3); the next pass goes on from there")
                        .arg(deviceName(disk))
                        .arg(outcome.stopOffset)
                        .arg(outcome.failure));
        return std::nullopt;
    }
    return makeFinding(disk, outcome, *source);
}

void HXSurfaceScanTest::resumeFromPoint(const HXEngineContext &context, const HXBlockDisk &disk,
                                        const QString &diskId, const HXBlockSource &source,
                                        HXSurfaceScan::Plan &plan) const
{
    QString why;
    const std::optional<HXScanResumePoint> point =
        HXScanResumePoint::load(context.stateFolder, diskId, &why);
    if (!point) {
        if (!why.isEmpty())
            context.say(QStringLiteral("Surface Scan test starts %1 from the beginning: %2")
                            .arg(disk.kernelName, why));
        return;
    }
    if (point->sizeBytes != source.sizeBytes() || point->blockSize != source.logicalBlockSize()) {
        context.say(QStringLiteral("Surface Scan test starts %1 from the beginning: its size "
                                   "changed from %2 to %3 bytes since the interrupted scan")
                        .arg(disk.kernelName)
                        .arg(point->sizeBytes)
                        .arg(source.sizeBytes()));
        return;
    }
    plan.resumeOffset = point->offset;
    plan.knownBadBlocks = point->badBlocks;
    context.say(QStringLiteral("Surface Scan test resumes %1 at byte %2, where the previous pass "
                               "stopped")
                    .arg(disk.kernelName)
                    .arg(point->offset));
}

HXTestFinding HXSurfaceScanTest::makeFinding(const HXBlockDisk &disk,
                                             const HXSurfaceScan::Outcome &outcome,
                                             const HXBlockSource &source)
{
    HXTestFinding finding;
    const bool bad = !outcome.badBlocks.isEmpty();
    finding.type = bad ? HXDTestResultErrorType : HXDTestResultSuccessType;
    finding.testInfo.insert(HXDiskKey, disk.diskInfo());
    finding.testInfo.insert(HXDTestResultIsCompletedKey, outcome.completed);
    if (bad)
        finding.testInfo.insert(HXDTestResultBadBlockIndexKey,
                                outcome.badBlocks.ranges().first().first);

    const QString name = deviceName(disk);
    const QString found =
        QStringLiteral("Surface Scan test found %1 on %2: %3 (in %4-byte blocks)")
            .arg(blocksText(outcome.badBlocks.blockCount()), name, outcome.badBlocks.text())
            .arg(source.logicalBlockSize());
    if (outcome.completed) {
        finding.log = bad ? found
                          : QStringLiteral("Surface Scan test passed on %1: every block of the %2 "
                                           "scanned is readable")
                                .arg(name, HXSizeText(outcome.bytesToRead));
        return finding;
    }
    const QString stop = outcome.failure.isEmpty()
                             ? QStringLiteral("was interrupted")
                             : QStringLiteral("stopped because the disk could not be read (%1)")
                                   .arg(outcome.failure);
    const QString at = QStringLiteral("at %1 of the disk; the next pass goes on from there")
                           .arg(percentText(outcome.stopOffset, source.sizeBytes()));
    finding.log = bad ? QStringLiteral("%1; the scan %2 %3").arg(found, stop, at)
                      : QStringLiteral("Surface Scan test on %1 %2 %3; no unreadable block so far")
                            .arg(name, stop, at);
    return finding;
}
