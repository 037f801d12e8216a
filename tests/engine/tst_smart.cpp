// The SMART test: the classifier on every real smartctl capture and on edge
// cases built here, then the whole test driven by a fake smartctl first on
// PATH.
#include "EngineTestRun.h"
#include "HXSMARTClassifier.h"
#include "HXSMARTTest.h"
#include "TestSupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using Verdict = HXSMARTReport::Verdict;

namespace {

QByteArray fixture(const QString &name)
{
    return TestSupport::readFile(QStringLiteral(FIXTURES "/") + name);
}

QByteArray status(bool passed, int exitStatus, const QString &more = {})
{
    return uR"({"smartctl": {"exit_status": %1}, "smart_status": {"passed": %2}%3})"_s
        .arg(exitStatus)
        .arg(passed ? u"true"_s : u"false"_s, more)
        .toUtf8();
}

// A smartctl of our own, first on PATH while it lives: it logs its
// arguments, answers --scan with the list it was given and -x DEV with the
// capture given for DEV, exiting with that capture's status. A DEV with no
// capture exits 2 saying nothing; one told to hang sleeps. A null list: no
// smartctl on PATH at all.
class FakeSmartctl
{
public:
    explicit FakeSmartctl(const QByteArray &scan)
        : m_path(qgetenv("PATH"))
    {
        qputenv("PATH", m_dir.path().toUtf8() + (scan.isNull() ? QByteArray() : ':' + m_path));
        if (scan.isNull())
            return;
        write(u"scan.json"_s, scan);
        write(u"smartctl"_s, uR"(#!/bin/sh
echo "$*" >> '%1/calls'
if [ "$1" = --scan ]; then cat '%1/scan.json'; exit 0; fi
for dev; do :; done
f='%1/'$(echo "$dev" | tr / _)
[ -f "$f.hang" ] && exec sleep 30
[ -f "$f" ] || exit 2
cat "$f"
exit $(sed -n 's/^ *"exit_status": \([0-9]*\).*/\1/p' "$f")
)"_s.arg(m_dir.path())
                                 .toUtf8());
        QFile::setPermissions(m_dir.filePath(u"smartctl"_s), QFile::ReadOwner | QFile::ExeOwner);
    }
    ~FakeSmartctl() { qputenv("PATH", m_path); }

    void answer(const QString &node, const QString &capture)
    {
        write(fileOf(node), fixture(capture));
    }
    void hang(const QString &node) { write(fileOf(node) + u".hang"_s, {}); }
    QStringList calls() const
    {
        return QString::fromUtf8(TestSupport::readFile(m_dir.filePath(u"calls"_s)))
            .split(u'\n', Qt::SkipEmptyParts);
    }

private:
    static QString fileOf(QString node) { return node.replace(u'/', u'_'); }
    void write(const QString &name, const QByteArray &text)
    {
        writeFile(m_dir.filePath(name), text);
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

EngineTestRun runTest(const HXEngineContext &context = {},
                      int timeoutMs = HXSMARTTest::DefaultTimeoutMs)
{
    return runEngineTest(HXSMARTTest(timeoutMs), context);
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
               u"its SMART commands failed"_s);
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

        addRow("nvme reliability",
               status(true, 0,
                      u", \"nvme_smart_health_information_log\": {\"critical_warning\": 4}"_s),
               0, Verdict::Warning, u"critical warning 0x04: reliability degraded"_s);
        addRow("nvme worn out",
               status(true, 0,
                      u", \"nvme_smart_health_information_log\": {\"percentage_used\": 100}"_s),
               0, Verdict::Warning, u"100 % of its rated"_s);
        addRow("status failed", status(false, 0), 0, Verdict::Error, u"SMART status failed"_s);
        addRow("bit 3", status(true, 8), 0, Verdict::Error, u"SMART status failed"_s);
        addRow("bit 4, no table", status(true, 16), 0, Verdict::Error,
               u"a pre-failure attribute is at or below its failure threshold"_s);
        addRow("bits 5-7", status(true, 224), 0, Verdict::Warning,
               u"an attribute was at or below its failure threshold in the past|"
               "its error log holds errors|its self-test log records a failure"_s);
        addRow("bit 0", status(true, 1), 0, Verdict::NotTested, u"did not accept its command"_s);
        addRow("bits 1, 2", status(true, 6), 0, Verdict::NotTested, u"could not open it"_s);
        // A count is the first number smartctl prints, not the packed raw value.
        addRow("sector counts", status(true, 0, uR"j(, "ata_smart_attributes": {"table": [
                   {"id": 5, "raw": {"value": 1, "string": "2111 (12437 0)"}},
                   {"id": 198, "raw": {"value": 1, "string": "1"}}]})j"_s),
               0, Verdict::Warning, u"2111 reallocated sectors|1 offline-uncorrectable sector"_s);

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
        const QStringList captures{u"ata-full"_s, u"raid"_s, u"fail2"_s,
                                   u"fail"_s,     u"scsi"_s, u"sat"_s};
        for (int i = 0; i < captures.size(); ++i) // sda to sdf; sdg has none
            smartctl.answer(u"/dev/sd"_s + QChar(u'a' + i), u"smart-%1.json"_s.arg(captures[i]));
        HXEngineContext context;
        const HXBlockDisk sda = diskOf(u"sda"_s, u"naa.kernel-sda"_s);
        context.disks = {sda};
        const EngineTestRun pass = runTest(context);

        QCOMPARE(pass.findings.size(), 4);
        QCOMPARE(pass.on(u"sda"_s).log, u"SMART test passed on Samsung SSD 860 EVO 500GB (sda)"_s);
        QCOMPARE(pass.on(u"sda"_s).testInfo[HXDiskKey].toMap(), sda.diskInfo());
        QVERIFY(pass.on(u"sdc"_s).log.startsWith(u"SMART test failed on Hitachi HDS721050DLE630 "
                                                 "(sdc): SMART status failed; "_s));
        // A disk the kernel does not list is known by its world-wide name,
        // else its serial number, else its name; its size comes from smartctl.
        QCOMPARE(pass.disk(u"sdc"_s, u"uuid"_s), u"naa.5000cca37fca81a8"_s);
        QCOMPARE(pass.disk(u"sdc"_s, HXDeviceNameAndSizeKey),
                 u"Hitachi HDS721050DLE630 (500.1 GB)"_s);
        QCOMPARE(pass.disk(u"sde"_s, u"uuid"_s), u"Z1Z5DWJK0000XXXXXXXX"_s);
        QCOMPARE(pass.disk(u"sdf"_s, u"uuid"_s), u"sdf"_s);

        QCOMPARE(pass.notes.size(), 3);
        QVERIFY(pass.notes[0].startsWith(u"SMART test could not test /dev/sdb: its SMART"_s));
        QVERIFY(pass.notes[1].startsWith(u"SMART test could not test /dev/sdd: smartctl could"_s));
        QCOMPARE(pass.notes[2], u"SMART test could not test /dev/sdg: smartctl gave no output."_s);
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

        EngineTestRun pass = runTest(context);
        QCOMPARE(pass.findings.size(), 3);
        // The scan's controller node is the kernel's namespace disk.
        const HXTestFinding nvme = pass.on(u"nvme0n1"_s);
        QCOMPARE(nvme.log,
                 u"SMART test warning on Samsung SSD 970 EVO 500GB (nvme0n1): 7 media errors"_s);
        QCOMPARE(nvme.testInfo[HXDiskKey].toMap(), nvme0n1.diskInfo());
        QVERIFY(pass.on(u"bus/0"_s).log.endsWith(u"(bus/0, sat+megaraid,0)"_s));
        QCOMPARE(pass.disk(u"bus/0"_s, u"uuid"_s), u"naa.5000cca264eb01d7"_s);
        // "-d scsi", the scan's word for every /dev/sd*, would hide a SATA
        // drive's attributes: smartctl is left to find the type itself.
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
        QCOMPARE(pass.notes, QStringList(u"SMART test does not apply here: smartctl lists none of "
                                         "the disks named."_s));
    }

    void saysWhyItDoesNotApply_data()
    {
        QTest::addColumn<QByteArray>("scan"); // null: no smartctl at all
        QTest::addColumn<QString>("why");
        QTest::newRow("only an untestable device")
            << scanOf({u"/dev/sdb"_s, u"scsi"_s}) << u"the one device smartctl lists could not"_s;
        QTest::newRow("no device") << scanOf({}) << u"smartctl found no device to examine."_s;
        QTest::newRow("unreadable scan") << QByteArray("not json") << u"gave no list of devices"_s;
        QTest::newRow("no smartctl") << QByteArray() << u"smartctl is not installed."_s;
    }
    void saysWhyItDoesNotApply()
    {
        QFETCH(QByteArray, scan);
        QFETCH(QString, why);
        FakeSmartctl smartctl(scan);
        if (!scan.isNull())
            smartctl.answer(u"/dev/sdb"_s, u"smart-raid.json"_s);
        const EngineTestRun pass = runTest({});
        QVERIFY(pass.findings.isEmpty());
        const QString last = pass.notes.value(pass.notes.size() - 1);
        QVERIFY2(last.startsWith(u"SMART test does not apply here: "_s) && last.contains(why),
                 qPrintable(last));
    }

    void aHungSmartctlOrACancelStopsTheTest()
    {
        FakeSmartctl smartctl(scanOf({u"/dev/sda"_s, u"sat"_s, u"/dev/sdb"_s, u"sat"_s}));
        smartctl.hang(u"/dev/sda"_s);
        smartctl.answer(u"/dev/sdb"_s, u"smart-nvme-failed.json"_s);
        QElapsedTimer clock;
        clock.start();
        EngineTestRun pass = runTest({}, 500);
        QVERIFY(clock.elapsed() < 10000);
        QCOMPARE(pass.findings.size(), 1);
        QCOMPARE(pass.notes, QStringList(u"SMART test could not test /dev/sda: smartctl did not "
                                         "finish in time."_s));

        const std::atomic_bool cancelled = true;
        HXEngineContext context;
        context.cancelled = &cancelled;
        pass = runTest(context);
        QVERIFY(pass.findings.isEmpty());
        QCOMPARE(smartctl.calls().mid(3), QStringList(u"--scan --json"_s));
        QCOMPARE(pass.notes, QStringList(u"SMART test stopped with the pass."_s));
    }
};

QTEST_GUILESS_MAIN(TestSmart)
#include "tst_smart.moc"
