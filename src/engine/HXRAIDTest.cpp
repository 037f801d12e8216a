#include "HXRAIDTest.h"

#include "HXConstants.h"
#include "HXSystemRoot.h"

#include <QFile>
#include <QHash>
#include <QUuid>

namespace {

// /proc/mdstat is a few lines per array; anything far larger is not it.
constexpr qint64 kMaxMdstatBytes = qint64(1) << 20;

QString list(const QStringList &names)
{
    return names.join(QStringLiteral(", "));
}

// "recovery 8.5 % done, about 0.5 minutes left", or why it has not started.
QString syncText(const HXMdSync &sync)
{
    if (!sync.waiting.isEmpty()) {
        QString why = QStringLiteral("waits to start");
        if (sync.waiting == QLatin1String("DELAYED"))
            why = QStringLiteral("waits for another array on the same disks");
        else if (sync.waiting == QLatin1String("PENDING"))
            why = QStringLiteral("waits for the array's first write");
        else if (sync.waiting == QLatin1String("REMOTE"))
            why = QStringLiteral("runs on another node of the cluster");
        return QStringLiteral("a %1 %2").arg(sync.action, why);
    }
    QString text = QStringLiteral("%1 %2 % done").arg(sync.action).arg(sync.percent, 0, 'f', 1);
    if (sync.finish.endsWith(QLatin1String("min")))
        text += QStringLiteral(", about %1 minutes left").arg(sync.finish.chopped(3));
    return text;
}

QString arrayUuid(const QString &name)
{
    QFile file(HXSystemRoot::map(QStringLiteral("/sys/block/%1/md/uuid").arg(name)));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString text = QString::fromLatin1(file.read(128)).trimmed();
    return QUuid::fromString(text).isNull() ? QString() : text;
}

} // namespace

HXTestFinding HXRAIDTest::judge(const HXMdArray &array, const QString &uuid)
{
    const QString kind =
        array.level.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(array.level);
    HXTestFinding finding;
    finding.testInfo.insert(
        HXDiskKey, QVariantMap{{QStringLiteral("uuid"), uuid.isEmpty() ? array.name : uuid},
                               {HXBSDNameKey, array.name},
                               {HXVolumeNameKey, array.name + kind},
                               {HXDeviceNameAndSizeKey, array.name + kind}});

    const QStringList failed = array.failedMembers();
    const QStringList spares = array.spareMembers();
    const int missing = array.missingDisks();
    const bool redundant = array.raidDisks > 0;
    const bool building = array.sync.action == QLatin1String("resync") ||
                          array.sync.action == QLatin1String("recovery") ||
                          array.sync.action == QLatin1String("reshape");
    const QString members = QStringLiteral("members %1").arg(list(array.memberNames()));

    if (missing > 0 || (!redundant && !failed.isEmpty())) {
        // A recovery that rebuilds every missing slot is on its way to a
        // whole array again: a warning until it ends, not a failure. One
        // that has not started yet is shown as "resync=DELAYED" whatever it is.
        const bool recovering = array.sync.action == QLatin1String("recovery") ||
                                (!array.sync.isIdle() && !array.sync.waiting.isEmpty());
        if (recovering && array.rebuildingCount() >= missing) {
            HXMdSync recovery = array.sync;
            recovery.action = QStringLiteral("recovery");
            finding.type = HXDTestResultWarningType;
            finding.log =
                QStringLiteral("RAID test found %1 rebuilding: %2; %3 of %4 members missing until "
                               "it ends (%5)")
                    .arg(array.name, syncText(recovery))
                    .arg(missing)
                    .arg(array.raidDisks)
                    .arg(members);
            return finding;
        }
        QStringList why;
        if (!failed.isEmpty())
            why.append(QStringLiteral("%1 failed").arg(list(failed)));
        if (!spares.isEmpty())
            why.append(QStringLiteral("%1 waiting as a spare").arg(list(spares)));
        if (failed.isEmpty()) {
            QStringList holding = array.memberNames();
            for (const QString &spare : spares)
                holding.removeOne(spare);
            why.append(QStringLiteral("remaining: %1").arg(list(holding)));
        }
        if (!array.sync.isIdle())
            why.append(syncText(array.sync));
        finding.type = HXDTestResultErrorType;
        if (redundant) {
            finding.log =
                QStringLiteral("RAID test found %1 degraded: %2 of %3 members missing (%4)")
                    .arg(array.name)
                    .arg(missing)
                    .arg(array.raidDisks)
                    .arg(why.join(QStringLiteral("; ")));
        } else {
            finding.log =
                QStringLiteral("RAID test found %1 degraded: %2 failed, and %3 keeps no second "
                               "copy of its data (%4)")
                    .arg(array.name, list(failed), array.level.isEmpty() ? array.name : array.level,
                         members);
        }
        return finding;
    }

    if (building) {
        static const QHash<QString, QString> doing{
            {QStringLiteral("resync"), QStringLiteral("resyncing")},
            {QStringLiteral("recovery"), QStringLiteral("rebuilding")},
            {QStringLiteral("reshape"), QStringLiteral("reshaping")}};
        finding.type = HXDTestResultWarningType;
        finding.log = QStringLiteral("RAID test found %1 %2: %3 (%4)")
                          .arg(array.name, doing.value(array.sync.action, array.sync.action),
                               syncText(array.sync), members);
        return finding;
    }

    if (!failed.isEmpty()) {
        finding.type = HXDTestResultWarningType;
        finding.log = QStringLiteral(
                          "RAID test found %1 with a failed member: %2 failed and is still part of "
                          "the array, which is whole again on %3 of %4 members (%5)")
                          .arg(array.name, list(failed))
                          .arg(array.workingDisks)
                          .arg(array.raidDisks)
                          .arg(members);
        return finding;
    }

    finding.type = HXDTestResultSuccessType;
    finding.log =
        redundant ? QStringLiteral("RAID test passed on %1%2: %3 of %4 members working (%5)")
                        .arg(array.name, kind)
                        .arg(array.workingDisks)
                        .arg(array.raidDisks)
                        .arg(list(array.memberNames()))
                  : QStringLiteral("RAID test passed on %1%2: %3").arg(array.name, kind, members);
    if (!array.sync.isIdle()) // a routine check or repair
        finding.log += QStringLiteral("; %1").arg(syncText(array.sync));
    return finding;
}

QList<HXTestFinding> HXRAIDTest::run(const HXEngineContext &context)
{
    QFile file(HXSystemRoot::map(QStringLiteral("/proc/mdstat")));
    if (!file.open(QIODevice::ReadOnly))
        return {}; // no md driver: nothing to test
    const QByteArray bytes = file.read(kMaxMdstatBytes + 1);
    if (bytes.size() > kMaxMdstatBytes) {
        context.say(
            QStringLiteral("RAID test: %1 is larger than any list of arrays; it was not read.")
                .arg(file.fileName()));
        return {};
    }

    QList<HXTestFinding> findings;
    const HXMdstat mdstat = HXMdstat::parse(QString::fromLatin1(bytes));
    for (const HXMdArray &array : mdstat.arrays) {
        if (context.isCancelled())
            break;
        if (!array.active) {
            context.say(
                QStringLiteral("RAID test: %1 is inactive (its members %2 are not assembled into a "
                               "running array); it was not tested.")
                    .arg(array.name, list(array.memberNames())));
            continue;
        }
        findings.append(judge(array, arrayUuid(array.name)));
    }
    return findings;
}
