// The SMART test: the classifier on real smartctl captures and on edge
// cases built here, then the whole test driven by a fake smartctl first on
// PATH.
#include "HXConstants.h"
#include "HXSMARTClassifier.h"
#include "HXSMARTTest.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using Verdict = HXSMARTReport::Verdict;

namespace {

QByteArray fixture(const QString &name)
{
    QFile file(QStringLiteral(FIXTURES "/") + name);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing fixture %s", qPrintable(name));
    return file.readAll();
}

QByteArray nvme(int criticalWarning, int percentageUsed)
{
    return uR"({"smartctl": {"exit_status": 0}, "smart_status": {"passed": true},
        "nvme_smart_health_information_log": {"critical_warning": %1, "percentage_used": %2,
        "media_errors": 0}})"_s.arg(criticalWarning)
        .arg(percentageUsed)
        .toUtf8();
}

QByteArray status(bool passed, int exitStatus)
{
    return uR"({"smartctl": {"exit_status": %1}, "smart_status": {"passed": %2}})"_s.arg(exitStatus)
        .arg(passed ? u"true"_s : u"false"_s)
        .toUtf8();
}

QByteArray attribute(int id, const QString &raw)
{
    return uR"({"smart_status": {"passed": true}, "ata_smart_attributes": {"table": [{"id": %1,
        "name": "A", "when_failed": "", "raw": {"value": 1, "string": "%2"}}]}})"_s.arg(id)
        .arg(raw)
        .toUtf8();
}

// A smartctl of our own, first on PATH while it lives: it logs its
// arguments, answers --scan with the list it was given and -x DEV with the
// capture given for DEV, exiting with that capture's status. A DEV with no
// capture exits 2 saying nothing; one told to hang sleeps.
class FakeSmartctl
{
public:
    explicit FakeSmartctl(const QByteArray &scan)
        : m_path(qgetenv("PATH"))
    {
        write(u"scan.json"_s, scan);
        write(u"smartctl"_s, uR"(#!/bin/sh
echo "$*" >> '%1/calls'
if [ "$1" = --scan ]; then cat '%1/scan.json'; exit 0; fi
for dev; do :; done
f='%1/'$(echo "$dev" | tr / _)
[ -f "$f.hang" ] && exec sleep 30
[ -f "$f.json" ] || exit 2
cat "$f.json"
exit $(cat "$f.status")
)"_s.arg(m_dir.path())
                                 .toUtf8());
        QFile::setPermissions(m_dir.filePath(u"smartctl"_s), QFile::ReadOwner | QFile::ExeOwner);
        qputenv("PATH", m_dir.path().toUtf8() + ':' + m_path);
    }
    ~FakeSmartctl() { qputenv("PATH", m_path); }

    void answer(const QString &node, const QString &capture)
    {
        const QByteArray text = fixture(capture);
        const QJsonObject smartctl = QJsonDocument::fromJson(text)[u"smartctl"_s].toObject();
        write(fileOf(node) + u".json"_s, text);
        write(fileOf(node) + u".status"_s, QByteArray::number(smartctl[u"exit_status"_s].toInt()));
    }
    void hang(const QString &node) { write(fileOf(node) + u".hang"_s, {}); }
    QStringList calls() const
    {
        QFile file(m_dir.filePath(u"calls"_s));
        return file.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts)
                   : QStringList();
    }

private:
    static QString fileOf(QString node) { return node.replace(u'/', u'_'); }
    void write(const QString &name, const QByteArray &text)
    {
        QFile file(m_dir.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
            qFatal("cannot write the fake smartctl's %s", qPrintable(name));
    }

    QTemporaryDir m_dir;
    QByteArray m_path;
};

QByteArray scanOf(const QStringList &nodesAndTypes)
{
    QStringList devices;
    for (int i = 0; i + 1 < nodesAndTypes.size(); i += 2)
        devices << uR"({"name": "%1", "type": "%2"})"_s.arg(nodesAndTypes[i], nodesAndTypes[i + 1]);
    return uR"({"devices": [%1]})"_s.arg(devices.join(u',')).toUtf8();
}

HXBlockDisk diskOf(const QString &kernelName, const QString &uuid)
{
    return {kernelName, u"/dev/"_s + kernelName, u"Model"_s, 500107862016, 512, uuid};
}

struct Pass
{
    QList<HXTestFinding> findings;
    QStringList said;

    HXTestFinding on(const QString &bsdName) const
    {
        for (const HXTestFinding &finding : findings)
            if (finding.testInfo[HXDiskKey].toMap()[HXBSDNameKey] == bsdName)
                return finding;
        return {};
    }
};

Pass runTest(HXEngineContext context, int timeoutMs = HXSMARTTest::DefaultTimeoutMs)
{
    Pass pass;
    context.note = [&pass](const QString &line) {
        pass.said << line;
    };
    pass.findings = HXSMARTTest(timeoutMs).run(context);
    return pass;
}

void addRow(const char *name, const QByteArray &output, int exitStatus, Verdict verdict,
            const QString &words = {})
{
    QTest::newRow(name) << output << exitStatus << verdict << words;
}

} // namespace

class TestSmart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // `words`: one piece per reason the report must give, in order, "|"
    // between them; no reason more.
    void classifies_data()
    {
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<int>("exitStatus");
        QTest::addColumn<Verdict>("verdict");
        QTest::addColumn<QString>("words");
        const auto capture = [](const char *name) {
            return fixture(QString::fromLatin1(name));
        };
        addRow("ata", capture("smart-ata.json"), 0, Verdict::Passed);
        addRow("ata -x", capture("smart-ata-full.json"), 0, Verdict::Passed);
        addRow("open failed", capture("smart-fail.json"), 2, Verdict::NotTested,
               u"smartctl could not open it (smartctl: Smartctl open device: /dev/sda failed"_s);
        addRow("failing", capture("smart-fail2.json"), 216, Verdict::Error,
               u"SMART status failed|Reallocated_Sector_Ct is at or below its failure threshold|"
               "1975 reallocated sectors|8 pending sectors|its error log holds 56 errors|"
               "3 failed self-tests, the newest: Extended offline, Completed: read failure at "
               "LBA 104870168"_s);
        // Behind MegaRAID the overall status command failed (bit 2 alone):
        // smartctl judged from the attributes, but the disk is not counted as
        // tested, and nothing is said against it.
        addRow("megaraid", capture("smart-megaraid0.json"), 4, Verdict::NotTested,
               u"its SMART commands failed (it may sit behind a RAID controller) "
               "(smartctl: Warning: This result is based on an Attribute check.)"_s);
        addRow("nvme", capture("smart-nvme.json"), 0, Verdict::Passed);
        addRow("nvme media errors", capture("smart-nvme-failed.json"), 0, Verdict::Warning,
               u"7 media errors"_s);
        addRow("raid volume", capture("smart-raid.json"), 4, Verdict::NotTested,
               u"its SMART commands failed (it may sit behind a RAID controller)"_s);
        addRow("attributes only", capture("smart-sat.json"), 0, Verdict::Passed,
               u"no overall health status"_s);
        addRow("scsi defects", capture("smart-scsi.json"), 0, Verdict::Warning,
               u"56 reallocated sectors in its grown defect list"_s);
        addRow("identity only", capture("smartctl_info_nvme.json"), 0, Verdict::NotTested,
               u"no health information"_s);
        // The process's status counts only when the JSON has none of its own.
        addRow("scsi, process failing", capture("smart-scsi.json"), 8, Verdict::Error,
               u"SMART status failed|56 reallocated sectors"_s);
        addRow("ata, own status wins", capture("smart-ata.json"), 8, Verdict::Passed);

        addRow("nvme reliability", nvme(0x04, 3), 0, Verdict::Warning,
               u"critical warning 0x04: reliability degraded"_s);
        addRow("nvme worn out", nvme(0, 100), 0, Verdict::Warning,
               u"100 % of its rated endurance used"_s);
        addRow("nvme nearly worn", nvme(0, 99), 0, Verdict::Passed);
        addRow("status alone", status(true, 0), 0, Verdict::Passed);
        addRow("status failed", status(false, 0), 0, Verdict::Error, u"SMART status failed"_s);
        addRow("bit 3", status(true, 8), 0, Verdict::Error, u"SMART status failed"_s);
        addRow("bit 4, no table", status(true, 16), 0, Verdict::Error,
               u"a pre-failure attribute is at or below its failure threshold"_s);
        addRow("bits 5-7", status(true, 224), 0, Verdict::Warning,
               u"an attribute was at or below its failure threshold in the past|"
               "its error log holds errors|its self-test log records a failure"_s);
        addRow("bit 0", status(true, 1), 0, Verdict::NotTested,
               u"did not accept its command line"_s);
        addRow("bits 1, 2", status(true, 6), 0, Verdict::NotTested, u"could not open it"_s);
        // The count is the first number smartctl prints, not the packed raw value.
        addRow("packed raw", attribute(5, u"2111 (12437 0)"_s), 0, Verdict::Warning,
               u"2111 reallocated sectors"_s);
        addRow("one sector", attribute(198, u"1"_s), 0, Verdict::Warning,
               u"1 offline-uncorrectable sector"_s);

        addRow("empty", {}, 0, Verdict::NotTested, u"smartctl gave no output"_s);
        addRow("cut short", capture("smart-ata-full.json").left(5000), 0, Verdict::NotTested,
               u"smartctl's output could not be read"_s);
        addRow("array", "[1, 2]", 0, Verdict::NotTested, u"not a JSON object"_s);
        addRow("wrong types",
               R"({"smart_status": "yes", "ata_smart_attributes": {"table": {}}, "wwn": 5,
                   "nvme_smart_health_information_log": []})",
               0, Verdict::NotTested, u"no health information"_s);
    }
    void classifies()
    {
        QFETCH(QByteArray, output);
        QFETCH(int, exitStatus);
        QFETCH(QString, words);
        const HXSMARTReport report = HXSMARTClassifier::classify(output, exitStatus);
        QTEST(report.verdict, "verdict");
        const QStringList pieces = words.split(u'|', Qt::SkipEmptyParts);
        QVERIFY2(report.reasons.size() == pieces.size(), qPrintable(report.reasonText()));
        for (int i = 0; i < pieces.size(); ++i)
            QVERIFY2(report.reasons[i].contains(pieces[i]), qPrintable(report.reasons[i]));
    }

    void testsEveryDeviceTheScanLists()
    {
        FakeSmartctl smartctl(fixture(u"smartctl_scan_simple.json"_s));
        smartctl.answer(u"/dev/sda"_s, u"smart-ata-full.json"_s);
        smartctl.answer(u"/dev/sdb"_s, u"smart-raid.json"_s);
        smartctl.answer(u"/dev/sdc"_s, u"smart-fail2.json"_s);
        smartctl.answer(u"/dev/sdd"_s, u"smart-fail.json"_s);
        smartctl.answer(u"/dev/sde"_s, u"smart-scsi.json"_s);
        smartctl.answer(u"/dev/sdf"_s, u"smart-sat.json"_s);
        HXEngineContext context;
        const HXBlockDisk sda = diskOf(u"sda"_s, u"naa.kernel-sda"_s);
        context.disks = {sda};
        const Pass pass = runTest(context);

        QCOMPARE(pass.findings.size(), 4);
        QCOMPARE(pass.on(u"sda"_s).type, HXDTestResultSuccessType);
        QCOMPARE(pass.on(u"sda"_s).log, u"SMART test passed on Samsung SSD 860 EVO 500GB (sda)"_s);
        QCOMPARE(pass.on(u"sda"_s).testInfo[HXDiskKey].toMap(), sda.diskInfo());

        const HXTestFinding sdc = pass.on(u"sdc"_s);
        QCOMPARE(sdc.type, HXDTestResultErrorType);
        QVERIFY2(sdc.log.startsWith(u"SMART test failed on Hitachi HDS721050DLE630 (sdc): "
                                    "SMART status failed; "_s),
                 qPrintable(sdc.log));
        QVERIFY(sdc.log.contains(u"; 1975 reallocated sectors; 8 pending sectors; "_s));
        const QVariantMap sdcDisk{
            {u"uuid"_s, u"naa.5000cca37fca81a8"_s},
            {HXBSDNameKey, u"sdc"_s},
            {HXVolumeNameKey, u"Hitachi HDS721050DLE630 (500.1 GB)"_s},
            {HXDeviceNameAndSizeKey, u"Hitachi HDS721050DLE630 (500.1 GB)"_s}};
        QCOMPARE(sdc.testInfo[HXDiskKey].toMap(), sdcDisk);

        QCOMPARE(pass.on(u"sde"_s).type, HXDTestResultWarningType);
        QCOMPARE(pass.on(u"sde"_s).log, u"SMART test warning on SEAGATE ST4000NM0043 (sde): 56 "
                                        "reallocated sectors in its grown defect list"_s);
        // No world-wide name: the serial number; not even that: the name.
        QCOMPARE(pass.on(u"sde"_s).testInfo[HXDiskKey].toMap()[u"uuid"_s],
                 u"Z1Z5DWJK0000XXXXXXXX"_s);
        QCOMPARE(pass.on(u"sdf"_s).testInfo[HXDiskKey].toMap()[u"uuid"_s], u"sdf"_s);
        QVERIFY(pass.on(u"sdf"_s).log.startsWith(u"SMART test passed on sdf: smartctl gave no"_s));

        QCOMPARE(pass.said.size(), 3);
        QCOMPARE(pass.said[0], u"SMART test could not test /dev/sdb: its SMART commands failed "
                               "(it may sit behind a RAID controller)."_s);
        QVERIFY(pass.said[1].startsWith(u"SMART test could not test /dev/sdd: smartctl could not "
                                        "open it (smartctl: Smartctl open device"_s));
        QCOMPARE(pass.said[2], u"SMART test could not test /dev/sdg: smartctl gave no output."_s);

        // "-d scsi", the scan's word for every /dev/sd*, would hide a SATA
        // drive's attributes: smartctl is left to find the type itself.
        const QStringList calls = smartctl.calls();
        QCOMPARE(calls.size(), 8);
        QCOMPARE(calls[0], u"--scan --json"_s);
        QCOMPARE(calls[1], u"--json -x /dev/sda"_s);
    }

    void followsNamedDisksNvmeAndControllers()
    {
        FakeSmartctl smartctl(scanOf({u"/dev/nvme0"_s, u"nvme"_s, u"/dev/bus/0"_s,
                                      u"sat+megaraid,0"_s, u"/dev/sda"_s, u"scsi"_s}));
        smartctl.answer(u"/dev/nvme0"_s, u"smart-nvme-failed.json"_s);
        smartctl.answer(u"/dev/bus/0"_s, u"smart-ata.json"_s);
        smartctl.answer(u"/dev/sda"_s, u"smart-ata-full.json"_s);
        HXEngineContext context;
        const HXBlockDisk nvme0n1 = diskOf(u"nvme0n1"_s, u"eui.0025385"_s);
        context.disks = {nvme0n1};

        Pass pass = runTest(context);
        QCOMPARE(pass.findings.size(), 3);
        // The scan's controller node is the kernel's namespace disk.
        const HXTestFinding nvme = pass.on(u"nvme0n1"_s);
        QCOMPARE(nvme.log,
                 u"SMART test warning on Samsung SSD 970 EVO 500GB (nvme0n1): 7 media errors"_s);
        QCOMPARE(nvme.testInfo[HXDiskKey].toMap(), nvme0n1.diskInfo());
        const HXTestFinding member = pass.on(u"bus/0"_s);
        QCOMPARE(member.type, HXDTestResultSuccessType);
        QCOMPARE(member.log,
                 u"SMART test passed on WDC WD140EDFZ-11A0VA0 (bus/0, sat+megaraid,0)"_s);
        QCOMPARE(member.testInfo[HXDiskKey].toMap()[u"uuid"_s], u"naa.5000cca264eb01d7"_s);
        QCOMPARE(smartctl.calls().mid(1), QStringList({u"--json -x -d nvme /dev/nvme0"_s,
                                                       u"--json -x -d sat+megaraid,0 /dev/bus/0"_s,
                                                       u"--json -x /dev/sda"_s}));

        // Named disks: the others are not even read.
        context.disksNamed = true;
        pass = runTest(context);
        QCOMPARE(pass.findings.size(), 1);
        QCOMPARE(pass.findings[0].log, nvme.log);
        QCOMPARE(smartctl.calls().mid(4),
                 QStringList({u"--scan --json"_s, u"--json -x -d nvme /dev/nvme0"_s}));

        context.disks = {diskOf(u"sdz"_s, u"z"_s)};
        pass = runTest(context);
        QVERIFY(pass.findings.isEmpty());
        QCOMPARE(pass.said, QStringList(u"SMART test does not apply here: smartctl lists none of "
                                        "the disks named."_s));
    }

    void notApplicableWithoutATestableDevice()
    {
        const QString prefix = u"SMART test does not apply here: "_s;
        {
            FakeSmartctl smartctl(scanOf({u"/dev/sdb"_s, u"scsi"_s}));
            smartctl.answer(u"/dev/sdb"_s, u"smart-raid.json"_s);
            const Pass pass = runTest({});
            QVERIFY(pass.findings.isEmpty());
            QCOMPARE(pass.said.size(), 2);
            QCOMPARE(pass.said[1],
                     prefix + u"the one device smartctl lists could not be tested."_s);
        }
        {
            FakeSmartctl smartctl(scanOf({}));
            QCOMPARE(runTest({}).said,
                     QStringList(prefix + u"smartctl found no device to examine."_s));
        }
        {
            FakeSmartctl smartctl("not json");
            QCOMPARE(runTest({}).said,
                     QStringList(prefix + u"smartctl --scan gave no list of devices "
                                          "that could be read."_s));
        }
        QTemporaryDir empty;
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", empty.path().toUtf8());
        const Pass pass = runTest({});
        qputenv("PATH", path);
        QVERIFY(pass.findings.isEmpty());
        QCOMPARE(pass.said, QStringList(prefix + u"smartctl is not installed."_s));
    }

    void aHungSmartctlOrACancelStopsTheTest()
    {
        FakeSmartctl smartctl(scanOf({u"/dev/sda"_s, u"sat"_s, u"/dev/sdb"_s, u"sat"_s}));
        smartctl.hang(u"/dev/sda"_s);
        smartctl.answer(u"/dev/sdb"_s, u"smart-nvme-failed.json"_s);
        QElapsedTimer clock;
        clock.start();
        Pass pass = runTest({}, 500);
        QVERIFY(clock.elapsed() < 10000);
        QCOMPARE(pass.findings.size(), 1);
        QCOMPARE(pass.said, QStringList(u"SMART test could not test /dev/sda: smartctl did not "
                                        "finish in time."_s));

        const std::atomic_bool cancelled = true;
        HXEngineContext context;
        context.cancelled = &cancelled;
        pass = runTest(context);
        QVERIFY(pass.findings.isEmpty());
        QCOMPARE(smartctl.calls().mid(3), QStringList(u"--scan --json"_s));
        QCOMPARE(pass.said, QStringList(u"SMART test stopped with the pass."_s));
    }
};

QTEST_GUILESS_MAIN(TestSmart)
#include "tst_smart.moc"
