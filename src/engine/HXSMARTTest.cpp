#include "HXSMARTTest.h"

#include "HXConstants.h"
#include "HXProgramRunner.h"
#include "HXSMARTClassifier.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString Smartctl = QStringLiteral("smartctl");

// One entry of `smartctl --scan --json`.
struct ScannedDevice
{
    QString node; // "/dev/sda", "/dev/nvme0", "/dev/bus/0"
    QString type; // "sat", "nvme", "scsi", "sat+megaraid,0"

    // A type with a port ("megaraid,0", "cciss,2") is one disk behind a
    // controller: the node is the controller's or its volume's, not the disk's.
    bool behindController() const { return type.contains(QLatin1Char(',')); }
    // The kernel has no name for a disk behind a controller; the node under
    // /dev ("bus/0") at least says where it was reached.
    QString kernelName() const
    {
        if (behindController() && node.startsWith(QLatin1String("/dev/")))
            return node.mid(5);
        return QFileInfo(node).fileName();
    }
    QString where() const
    {
        return behindController() ? QStringLiteral("%1, %2").arg(kernelName(), type) : kernelName();
    }
    QString nodeText() const
    {
        return behindController() ? QStringLiteral("%1 (%2)").arg(node, type) : node;
    }
};

QString sentence(const QString &text)
{
    return text.endsWith(QLatin1Char('.')) ? text : text + QLatin1Char('.');
}

QList<ScannedDevice> scan(const HXEngineContext &context, int timeoutMs, QString *why)
{
    const HXProgramRun run =
        HXProgramRunner::run(Smartctl, {QStringLiteral("--scan"), QStringLiteral("--json")},
                             timeoutMs, context.cancelled);
    if (!run.finished()) {
        *why = run.problem(Smartctl);
        return {};
    }
    const QJsonDocument document = QJsonDocument::fromJson(run.out);
    if (!document.isObject()) {
        *why = QStringLiteral("smartctl --scan gave no list of devices that could be read");
        return {};
    }
    QList<ScannedDevice> devices;
    for (const QJsonValue &value : document.object().value(QStringLiteral("devices")).toArray()) {
        const QJsonObject object = value.toObject();
        const ScannedDevice device{object.value(QStringLiteral("name")).toString(),
                                   object.value(QStringLiteral("type")).toString()};
        if (!device.node.isEmpty())
            devices << device;
    }
    if (devices.isEmpty())
        *why = QStringLiteral("smartctl found no device to examine");
    return devices;
}

// smartctl lists an NVMe drive by its controller ("nvme0"); the kernel's
// disk is one of the controller's namespaces ("nvme0n1").
bool isNamespaceOf(const QString &diskName, const QString &controller)
{
    if (!controller.startsWith(QLatin1String("nvme")) ||
        !diskName.startsWith(controller + QLatin1Char('n')))
        return false;
    bool ok = false;
    diskName.mid(controller.size() + 1).toUInt(&ok);
    return ok;
}

const HXBlockDisk *matchingDisk(const HXEngineContext &context, const ScannedDevice &device)
{
    if (device.behindController())
        return nullptr;
    const QString canonical = QFileInfo(device.node).canonicalFilePath();
    const QString name =
        canonical.isEmpty() ? device.kernelName() : QFileInfo(canonical).fileName();
    for (const HXBlockDisk &disk : context.disks) {
        if (!canonical.isEmpty() && canonical == QFileInfo(disk.devicePath).canonicalFilePath())
            return &disk;
        if (disk.kernelName == name || isNamespaceOf(disk.kernelName, name))
            return &disk;
    }
    return nullptr;
}

HXTestFinding findingFor(const ScannedDevice &device, const HXBlockDisk *known,
                         const HXSMARTReport &report)
{
    HXBlockDisk disk;
    if (known) {
        disk = *known;
    } else {
        disk.kernelName = device.kernelName();
        disk.devicePath = device.node;
        disk.model = report.model;
        disk.sizeBytes = report.capacityBytes;
        // The world-wide name is the drive's own; the serial number is the
        // next best thing that survives a move to another port.
        disk.uuid = !report.wwn.isEmpty()      ? report.wwn
                    : !report.serial.isEmpty() ? report.serial
                                               : device.where();
    }
    const QString model = report.model.isEmpty() ? disk.model : report.model;
    const QString where = known ? disk.kernelName : device.where();
    const QString name = model.isEmpty() ? where : QStringLiteral("%1 (%2)").arg(model, where);

    HXTestFinding finding;
    QString verb;
    switch (report.verdict) {
    case HXSMARTReport::Verdict::Error:
        finding.type = HXDTestResultErrorType;
        verb = QStringLiteral("failed");
        break;
    case HXSMARTReport::Verdict::Warning:
        finding.type = HXDTestResultWarningType;
        verb = QStringLiteral("warning");
        break;
    default:
        finding.type = HXDTestResultSuccessType;
        verb = QStringLiteral("passed");
        break;
    }
    finding.log = QStringLiteral("SMART test %1 on %2").arg(verb, name);
    if (!report.reasons.isEmpty())
        finding.log += QStringLiteral(": ") + report.reasonText();
    finding.testInfo.insert(HXDiskKey, disk.diskInfo());
    return finding;
}

} // namespace

QList<HXTestFinding> HXSMARTTest::run(const HXEngineContext &context)
{
    QString why;
    const QList<ScannedDevice> devices = scan(context, m_timeoutMs, &why);
    if (devices.isEmpty()) {
        context.say(context.isCancelled()
                        ? QStringLiteral("SMART test stopped with the pass.")
                        : QStringLiteral("SMART test does not apply here: %1.").arg(why));
        return {};
    }

    QList<HXTestFinding> findings;
    int examined = 0;
    for (const ScannedDevice &device : devices) {
        if (context.isCancelled())
            break;
        const HXBlockDisk *known = matchingDisk(context, device);
        if (context.disksNamed && !known)
            continue;
        ++examined;
        QStringList arguments{QStringLiteral("--json"), QStringLiteral("-x")};
        // The scan says "scsi" for every /dev/sd* it has not opened, and an
        // explicit "-d scsi" stops smartctl from finding the ATA drive
        // behind SAT, which leaves it without its attributes. Without -d,
        // smartctl works that out itself; every other type is passed on.
        if (!device.type.isEmpty() && device.type != QLatin1String("scsi"))
            arguments << QStringLiteral("-d") << device.type;
        arguments << device.node;
        const HXProgramRun run =
            HXProgramRunner::run(Smartctl, arguments, m_timeoutMs, context.cancelled);
        if (run.outcome == HXProgramRun::Outcome::Cancelled)
            break;

        HXSMARTReport report;
        if (run.finished())
            report = HXSMARTClassifier::classify(run.out, run.exitCode);
        else
            report.reasons << run.problem(Smartctl);
        if (report.verdict == HXSMARTReport::Verdict::NotTested) {
            context.say(sentence(QStringLiteral("SMART test could not test %1: %2")
                                     .arg(device.nodeText(), report.reasonText())));
            continue;
        }
        findings << findingFor(device, known, report);
    }

    if (context.isCancelled())
        context.say(QStringLiteral("SMART test stopped with the pass."));
    else if (findings.isEmpty() && examined == 0)
        context.say(QStringLiteral(
            "SMART test does not apply here: smartctl lists none of the disks named."));
    else if (findings.isEmpty())
        context.say(examined == 1
                        ? QStringLiteral("SMART test does not apply here: the one device smartctl "
                                         "lists could not be tested.")
                        : QStringLiteral("SMART test does not apply here: none of the %1 devices "
                                         "smartctl lists could be tested.")
                              .arg(examined));
    return findings;
}
