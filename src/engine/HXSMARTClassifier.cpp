#include "HXSMARTClassifier.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

// smartctl's exit status bits (smartctl(8), RETURN VALUES).
enum ExitBit : int {
    CommandLineBit = 1 << 0,
    OpenFailedBit = 1 << 1,
    CommandFailedBit = 1 << 2,
    DiskFailingBit = 1 << 3,
    PrefailNowBit = 1 << 4,
    ThresholdPastBit = 1 << 5,
    ErrorLogBit = 1 << 6,
    SelfTestLogBit = 1 << 7,
};

QString key(const char *name)
{
    return QString::fromLatin1(name);
}

QString counted(qint64 count, const QString &singular, const QString &plural)
{
    return QStringLiteral("%1 %2").arg(count).arg(count == 1 ? singular : plural);
}

// Some vendors pack more than a count into an attribute's 48-bit raw value
// (an event count with its last position, say); smartctl prints the count
// first, so the first number of its text is the count.
qint64 rawCount(const QJsonObject &attribute)
{
    const QJsonObject raw = attribute.value(key("raw")).toObject();
    bool ok = false;
    const qint64 leading = raw.value(key("string"))
                               .toString()
                               .trimmed()
                               .section(QLatin1Char(' '), 0, 0)
                               .toLongLong(&ok);
    return ok ? leading : raw.value(key("value")).toInteger();
}

// smartctl's own messages of one severity ("error", "warning"), in its words.
QString messages(const QJsonObject &root, const QString &severity)
{
    QStringList lines;
    const QJsonArray list = root.value(key("smartctl")).toObject().value(key("messages")).toArray();
    for (const QJsonValue &message : list) {
        const QJsonObject object = message.toObject();
        if (object.value(key("severity")).toString() == severity)
            lines << object.value(key("string")).toString().trimmed();
    }
    return lines.join(QLatin1Char(' '));
}

QString withMessages(const QString &sentence, const QString &fromSmartctl)
{
    return fromSmartctl.isEmpty() ? sentence
                                  : QStringLiteral("%1 (smartctl: %2)").arg(sentence, fromSmartctl);
}

void readIdentity(const QJsonObject &root, HXSMARTReport &report)
{
    report.model = root.value(key("model_name")).toString().trimmed();
    if (report.model.isEmpty()) {
        const QString vendor = root.value(key("vendor")).toString().trimmed();
        const QString product = root.value(key("product")).toString().trimmed();
        report.model = QStringList({vendor, product}).join(QLatin1Char(' ')).trimmed();
    }
    report.serial = root.value(key("serial_number")).toString().trimmed();

    // smartctl splits the NAA world-wide name into its fields; joined again
    // they are the 64-bit name the kernel shows as "naa.<16 hex digits>"
    // (the disk's wwid), so a disk judged here and one the kernel lists
    // carry the same identity.
    const QJsonObject wwn = root.value(key("wwn")).toObject();
    if (wwn.contains(key("naa")) && wwn.contains(key("oui")) && wwn.contains(key("id"))) {
        report.wwn = QStringLiteral("naa.%1%2%3")
                         .arg(wwn.value(key("naa")).toInteger(), 0, 16)
                         .arg(wwn.value(key("oui")).toInteger(), 6, 16, QLatin1Char('0'))
                         .arg(wwn.value(key("id")).toInteger(), 9, 16, QLatin1Char('0'));
    }

    report.capacityBytes =
        root.value(key("user_capacity")).toObject().value(key("bytes")).toInteger();
    if (report.capacityBytes <= 0)
        report.capacityBytes = root.value(key("nvme_total_capacity")).toInteger();
}

// The evidence, sorted by what it makes of the device.
struct Evidence
{
    QStringList errors;
    QStringList warnings;
    QStringList notes;
    bool hasHealth = false; // the device answered with anything about its health
};

// The ATA attribute table: reallocated, pending and offline-uncorrectable
// sectors, and the attributes behind bits 4 and 5 (the bits are said even
// when the output lacks the table).
void readAtaAttributes(const QJsonObject &root, int bits, Evidence &evidence)
{
    const QJsonArray table =
        root.value(key("ata_smart_attributes")).toObject().value(key("table")).toArray();
    if (!table.isEmpty())
        evidence.hasHealth = true;
    QStringList failingNow;
    QStringList failedBefore;
    for (const QJsonValue &value : table) {
        const QJsonObject attribute = value.toObject();
        const QString name = attribute.value(key("name")).toString();
        const QString whenFailed = attribute.value(key("when_failed")).toString();
        const bool prefailure =
            attribute.value(key("flags")).toObject().value(key("prefailure")).toBool();
        if (whenFailed == QLatin1String("now") && prefailure)
            failingNow << name;
        else if (whenFailed == QLatin1String("now"))
            evidence.warnings
                << QStringLiteral("%1 is at or below its failure threshold").arg(name);
        else if (whenFailed == QLatin1String("past"))
            failedBefore << name;

        const qint64 count = rawCount(attribute);
        if (count <= 0)
            continue;
        switch (attribute.value(key("id")).toInt()) {
        case 5:
            evidence.warnings << counted(count, QStringLiteral("reallocated sector"),
                                         QStringLiteral("reallocated sectors"));
            break;
        case 197:
            evidence.warnings << counted(count, QStringLiteral("pending sector"),
                                         QStringLiteral("pending sectors"));
            break;
        case 198:
            evidence.warnings << counted(count, QStringLiteral("offline-uncorrectable sector"),
                                         QStringLiteral("offline-uncorrectable sectors"));
            break;
        default:
            break;
        }
    }
    // smartctl sets bit 4 for the pre-failure attributes at or below their
    // threshold now: those are named, and count even when a capture lost the
    // exit status.
    for (const QString &name : failingNow)
        evidence.errors << QStringLiteral("%1 is at or below its failure threshold").arg(name);
    if ((bits & PrefailNowBit) && failingNow.isEmpty())
        evidence.errors << QStringLiteral(
            "a pre-failure attribute is at or below its failure threshold");
    for (const QString &name : failedBefore)
        evidence.warnings
            << QStringLiteral("%1 was at or below its failure threshold in the past").arg(name);
    if ((bits & ThresholdPastBit) && failedBefore.isEmpty())
        evidence.warnings << QStringLiteral(
            "an attribute was at or below its failure threshold in the past");
}

void readScsi(const QJsonObject &root, Evidence &evidence)
{
    const QJsonValue grown = root.value(key("scsi_grown_defect_list"));
    if (grown.isUndefined())
        return;
    evidence.hasHealth = true;
    // A SCSI drive's grown defects are the sectors it has reallocated since
    // it left the factory.
    if (grown.toInteger() > 0)
        evidence.warnings << QStringLiteral("%1 in its grown defect list")
                                 .arg(counted(grown.toInteger(),
                                              QStringLiteral("reallocated sector"),
                                              QStringLiteral("reallocated sectors")));
}

QString criticalWarningText(qint64 bits)
{
    static const char *const meanings[] = {"available spare below its threshold",
                                           "temperature out of range",
                                           "reliability degraded by media or internal errors",
                                           "media placed in read-only mode",
                                           "volatile memory backup failed",
                                           "persistent memory region read-only"};
    QStringList said;
    for (int bit = 0; bit < 6; ++bit)
        if (bits & (qint64(1) << bit))
            said << QLatin1String(meanings[bit]);
    const QString code = QStringLiteral("critical warning 0x%1").arg(bits, 2, 16, QLatin1Char('0'));
    return said.isEmpty() ? code
                          : QStringLiteral("%1: %2").arg(code, said.join(QStringLiteral(", ")));
}

void readNvme(const QJsonObject &root, Evidence &evidence)
{
    const QJsonValue logValue = root.value(key("nvme_smart_health_information_log"));
    if (!logValue.isObject())
        return;
    evidence.hasHealth = true;
    const QJsonObject log = logValue.toObject();
    if (const qint64 critical = log.value(key("critical_warning")).toInteger())
        evidence.warnings << criticalWarningText(critical);
    if (const qint64 media = log.value(key("media_errors")).toInteger(); media > 0)
        evidence.warnings << counted(media, QStringLiteral("media error"),
                                     QStringLiteral("media errors"));
    if (const qint64 used = log.value(key("percentage_used")).toInteger(); used >= 100)
        evidence.warnings << QStringLiteral("%1 % of its rated endurance used").arg(used);
}

// Bits 6 and 7: what the drive's own logs hold, with the counts and the
// newest failed self-test when smartctl shows them.
void readLogs(const QJsonObject &root, int bits, Evidence &evidence)
{
    if (bits & ErrorLogBit) {
        const QJsonObject log = root.value(key("ata_smart_error_log")).toObject();
        qint64 count = log.value(key("extended")).toObject().value(key("count")).toInteger();
        if (count <= 0)
            count = log.value(key("summary")).toObject().value(key("count")).toInteger();
        if (count <= 0)
            count = root.value(key("nvme_smart_health_information_log"))
                        .toObject()
                        .value(key("num_err_log_entries"))
                        .toInteger();
        evidence.warnings << (count > 0 ? QStringLiteral("its error log holds %1")
                                              .arg(counted(count, QStringLiteral("error"),
                                                           QStringLiteral("errors")))
                                        : QStringLiteral("its error log holds errors"));
    }
    if (bits & SelfTestLogBit) {
        const QJsonObject log = root.value(key("ata_smart_self_test_log")).toObject();
        const QJsonObject part = log.value(key("extended")).isObject()
                                     ? log.value(key("extended")).toObject()
                                     : log.value(key("standard")).toObject();
        qint64 failed = part.value(key("error_count_total")).toInteger();
        QString newest;
        // smartctl lists the newest test first.
        for (const QJsonValue &value : part.value(key("table")).toArray()) {
            const QJsonObject entry = value.toObject();
            const QJsonObject status = entry.value(key("status")).toObject();
            if (status.value(key("passed")).toBool(true))
                continue;
            if (newest.isEmpty()) {
                newest = QStringLiteral("%1, %2").arg(
                    entry.value(key("type")).toObject().value(key("string")).toString(),
                    status.value(key("string")).toString());
                if (entry.contains(key("lba")))
                    newest += QStringLiteral(" at LBA %1").arg(entry.value(key("lba")).toInteger());
            }
            if (!part.contains(key("error_count_total")))
                ++failed;
        }
        QString sentence = failed > 0 ? counted(failed, QStringLiteral("failed self-test"),
                                                QStringLiteral("failed self-tests"))
                                      : QStringLiteral("its self-test log records a failure");
        if (!newest.isEmpty())
            sentence += QStringLiteral(", the newest: %1").arg(newest);
        evidence.warnings << sentence;
    }
}

} // namespace

HXSMARTReport HXSMARTClassifier::classify(const QByteArray &json, int processExitStatus)
{
    HXSMARTReport report;
    report.exitStatus = processExitStatus;
    if (json.trimmed().isEmpty()) {
        report.reasons << QStringLiteral("smartctl gave no output");
        return report;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (!document.isObject()) {
        report.reasons << (error.error != QJsonParseError::NoError
                               ? QStringLiteral(
                                     "smartctl's output could not be read: %1 at byte %2")
                                     .arg(error.errorString())
                                     .arg(error.offset)
                               : QStringLiteral("smartctl's output is not a JSON object"));
        return report;
    }
    const QJsonObject root = document.object();
    const QJsonValue ownStatus = root.value(key("smartctl")).toObject().value(key("exit_status"));
    const int bits = ownStatus.isDouble() ? ownStatus.toInt() : processExitStatus;
    report.exitStatus = bits;
    readIdentity(root, report);

    if (bits & CommandLineBit) {
        report.reasons << withMessages(QStringLiteral("smartctl did not accept its command line"),
                                       messages(root, QStringLiteral("error")));
        return report;
    }
    // Nothing was read from a device that could not be opened, whatever
    // else the bits say.
    if (bits & OpenFailedBit) {
        report.reasons << withMessages(QStringLiteral("smartctl could not open it"),
                                       messages(root, QStringLiteral("error")));
        return report;
    }

    Evidence evidence;
    const QJsonValue passed = root.value(key("smart_status")).toObject().value(key("passed"));
    if (passed.isBool())
        evidence.hasHealth = true;
    if (passed == QJsonValue(false) || (bits & DiskFailingBit))
        evidence.errors << QStringLiteral("SMART status failed");
    readAtaAttributes(root, bits, evidence);
    readScsi(root, evidence);
    readNvme(root, evidence);
    readLogs(root, bits, evidence);

    if (!evidence.errors.isEmpty()) {
        report.verdict = HXSMARTReport::Verdict::Error;
    } else if (!evidence.warnings.isEmpty()) {
        report.verdict = HXSMARTReport::Verdict::Warning;
    } else if (!evidence.hasHealth || (bits & CommandFailedBit)) {
        // Bit 2 alone: some of the drive's SMART commands did not reach it,
        // typically behind a RAID controller (even where smartctl then read
        // the attributes and judged from them, it says so itself). That says
        // nothing against the disk, and is not a whole test of it either: it
        // is named as not tested. A fault it did read is reported above.
        report.reasons << ((bits & CommandFailedBit)
                               ? withMessages(
                                     QStringLiteral("its SMART commands failed (it may sit "
                                                    "behind a RAID controller)"),
                                     messages(root, QStringLiteral("error")) +
                                         messages(root, QStringLiteral("warning")))
                               : QStringLiteral("smartctl reported no health information for it"));
        return report;
    } else {
        report.verdict = HXSMARTReport::Verdict::Passed;
        if (!passed.isBool())
            evidence.notes << QStringLiteral("smartctl gave no overall health status; judged from "
                                             "its health data alone");
    }
    report.reasons = evidence.errors + evidence.warnings + evidence.notes;
    return report;
}
