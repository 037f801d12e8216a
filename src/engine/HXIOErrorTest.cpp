#include "HXIOErrorTest.h"

#include "HXBlockIOErrors.h"
#include "HXConstants.h"
#include "HXKernelLog.h"

#include <QHash>
#include <QSet>

namespace {

constexpr int kLocationsNamed = 5;

// "sector 1, sector 9 and logical block 7 of sda1", or the first few "and 3 more".
QString locationList(const QStringList &locations)
{
    QStringList named = locations.mid(0, kLocationsNamed);
    const qsizetype more = locations.size() - named.size();
    if (more > 0)
        return named.join(QLatin1String(", ")) + QStringLiteral(" and %1 more").arg(more);
    if (named.size() > 1) {
        const QString last = named.takeLast();
        return named.join(QLatin1String(", ")) + QStringLiteral(" and ") + last;
    }
    return named.value(0);
}

} // namespace

QString HXIOErrorTest::positionFile(const QString &stateFolder)
{
    return stateFolder.isEmpty() ? QString()
                                 : stateFolder + QStringLiteral("/io-errors-kernel-log.json");
}

QList<HXTestFinding> HXIOErrorTest::run(const HXEngineContext &context)
{
    if (context.disks.isEmpty()) {
        context.say(QStringLiteral("Disk I/O error test: there is no disk to look at."));
        return {};
    }
    const QString positionPath = positionFile(context.stateFolder);
    const HXKernelLogPosition since =
        positionPath.isEmpty() ? HXKernelLogPosition() : HXKernelLogPosition::load(positionPath);
    const HXKernelLogReading reading = HXKernelLog::read(since, context.cancelled);
    if (!reading.available()) {
        context.say(QStringLiteral("Disk I/O error test not run: %1").arg(reading.problem));
        return {};
    }
    if (context.isCancelled())
        return {};
    if (reading.malformed > 0)
        context.say(
            QStringLiteral(
                "Disk I/O error test: %1 records of %2 could not be read and were left out.")
                .arg(reading.malformed)
                .arg(reading.sourceName()));

    QHash<QString, int> errorCounts;       // disk → errors
    QHash<QString, QStringList> locations; // disk → distinct places, in the log's order
    QSet<QString> otherDevices;
    for (const HXKernelRecord &record : reading.records) {
        const std::optional<HXBlockIOError> error = HXBlockIOErrors::parse(record.text);
        if (!error)
            continue;
        const HXBlockDisk *owner = nullptr;
        for (const HXBlockDisk &disk : context.disks) {
            if (HXBlockIOErrors::belongsToDisk(error->device, disk.kernelName)) {
                owner = &disk;
                break;
            }
        }
        if (!owner) {
            otherDevices.insert(error->device);
            continue;
        }
        ++errorCounts[owner->kernelName];
        QStringList &places = locations[owner->kernelName];
        if (!places.contains(error->location))
            places.append(error->location);
    }
    QStringList others(otherDevices.cbegin(), otherDevices.cend());
    others.sort();
    for (const QString &device : std::as_const(others))
        context.say(QStringLiteral("Disk I/O error test: the kernel logged I/O errors on %1, which "
                                   "is not among the disks tested.")
                        .arg(device));

    const QString period = reading.fromBootStart ? QStringLiteral("since the machine started")
                                                 : QStringLiteral("since the previous pass");
    QList<HXTestFinding> findings;
    for (const HXBlockDisk &disk : context.disks) {
        HXTestFinding finding;
        finding.testInfo.insert(HXDiskKey, disk.diskInfo());
        const int count = errorCounts.value(disk.kernelName);
        if (count == 0) {
            finding.type = HXDTestResultSuccessType;
            finding.log =
                QStringLiteral(
                    "Disk I/O Error test passed on %1: the kernel logged no I/O errors %2.")
                    .arg(disk.logName(), period);
        } else {
            finding.type = HXDTestResultErrorType;
            finding.log =
                QStringLiteral("Disk I/O Error test found %1 I/O error%2 on %3 %4: %5.")
                    .arg(count)
                    .arg(count == 1 ? QString() : QStringLiteral("s"))
                    .arg(disk.logName(), period, locationList(locations.value(disk.kernelName)));
        }
        findings.append(finding);
    }

    // A pass of the disks the user named leaves the position where it was:
    // moving it would hide the errors of the other disks from the next pass.
    if (!context.disksNamed) {
        QString why;
        if (positionPath.isEmpty())
            context.say(QStringLiteral("Disk I/O error test: there is no state folder, so the next "
                                       "pass reads the whole boot again."));
        else if (!reading.end.isValid())
            context.say(QStringLiteral("Disk I/O error test: the boot cannot be identified, so the "
                                       "next pass reads the whole boot again."));
        else if (!reading.end.save(positionPath, &why))
            context.say(QStringLiteral(
                            "Disk I/O error test: where this pass stopped cannot be kept in %1: %2")
                            .arg(positionPath, why));
    }
    return findings;
}
