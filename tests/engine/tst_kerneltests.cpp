#include "HXConstants.h"
#include "HXFileStructureTest.h"
#include "HXIOErrorTest.h"
#include "HXInodeFinder.h"
#include "HXPOSTTest.h"
#include "KernelFixtures.h"
#include "TestSupport.h"

#include <QProcess>
#include <QtTest>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// A context whose worker-log lines are kept.
struct Pass
{
    Pass()
    {
        context.note = [this](const QString &line) {
            said.append(line);
        };
    }
    Pass(const Pass &) = delete;
    bool saidSomething(const QString &part) const
    {
        for (const QString &line : said) {
            if (line.contains(part))
                return true;
        }
        return false;
    }
    HXEngineContext context;
    QStringList said;
};

HXBlockDisk disk(const char *name, const char *model)
{
    HXBlockDisk disk;
    disk.kernelName = QString::fromLatin1(name);
    disk.devicePath = QStringLiteral("/dev/") + disk.kernelName;
    disk.model = QString::fromLatin1(model);
    disk.uuid = QStringLiteral("uuid-") + disk.kernelName;
    return disk;
}

QList<HXBlockDisk> threeDisks()
{
    return {disk("sda", "WDC WD40EFRX-68N32N0"), disk("sdb", ""),
            disk("nvme0n1", "Samsung SSD 970 EVO Plus 1TB")};
}

HXVolume volume(const char *name, const char *fsType, const QString &mountPoint,
                const char *uuid = "")
{
    HXVolume volume;
    volume.kernelName = QString::fromLatin1(name);
    volume.devicePath = QStringLiteral("/dev/") + volume.kernelName;
    volume.diskKernelName = volume.kernelName.left(3);
    volume.fsType = QString::fromLatin1(fsType);
    volume.uuid = QString::fromLatin1(uuid);
    volume.mountPoint = mountPoint;
    volume.mountedReadWrite = !mountPoint.isEmpty();
    return volume;
}

quint64 inodeOf(const QString &path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? quint64(status.st_ino) : 0;
}

QString makeFile(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write("x");
    return path;
}

void writeValue(const QString &path, quint64 value)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QByteArray::number(value) + '\n');
}

QStringList texts(std::initializer_list<const char *> list)
{
    QStringList strings;
    for (const char *text : list)
        strings.append(QString::fromUtf8(text));
    return strings;
}

QStringList logs(const QList<HXTestFinding> &findings)
{
    QStringList lines;
    for (const HXTestFinding &finding : findings)
        lines.append(finding.type + QStringLiteral(": ") + finding.log);
    return lines;
}

} // namespace

class tst_KernelTests : public QObject
{
    Q_OBJECT

private slots:
    // Disk I/O errors from the fixture's kmsg: partitions count for their
    // disk, the place named in each message's own unit, a program's text in
    // kmsg ignored, a disk not tested named in the worker's log only.
    void ioErrorsPerDisk()
    {
        KernelMachine machine;
        Pass pass;
        pass.context.disks = threeDisks();
        pass.context.stateFolder = machine.stateFolder();
        const QList<HXTestFinding> findings = HXIOErrorTest().run(pass.context);
        QCOMPARE(logs(findings),
                 texts({"Passed: Disk I/O Error test passed on WDC "
                        "WD40EFRX-68N32N0 (sda): the kernel logged no I/O errors since the machine "
                        "started.",
                        "Error: Disk I/O Error test found 3 I/O errors on sdb since "
                        "the machine started: sector 2048, "
                        "logical block 7 of sdb1 and sector 123456.",
                        "Error: Disk I/O Error test found 2 I/O errors on Samsung "
                        "SSD 970 EVO Plus 1TB (nvme0n1) since "
                        "the machine started: LBA 1234 and sector 9872."}));
        QCOMPARE(findings.at(1).testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey).toString(),
                 QStringLiteral("sdb"));
        QVERIFY(pass.saidSomething(
            QStringLiteral("I/O errors on sdz, which is not among the disks tested")));
    }

    // Only what is new since the previous pass; a new boot starts over; a
    // pass of named disks leaves the position for the next full pass.
    void ioErrorsSinceThePreviousPass()
    {
        KernelMachine machine;
        Pass pass;
        pass.context.disks = threeDisks();
        pass.context.stateFolder = machine.stateFolder();
        HXIOErrorTest test;
        QCOMPARE(test.run(pass.context).at(1).type, HXDTestResultErrorType);

        QList<HXTestFinding> again = test.run(pass.context);
        QCOMPARE(again.at(1).log, QStringLiteral("Disk I/O Error test passed on sdb: the kernel "
                                                 "logged no I/O errors since the previous pass."));
        QCOMPARE(again.at(2).type, HXDTestResultSuccessType);

        KernelMachine::append(machine.kmsg(),
                              "3,42,290000000,-;I/O error, dev sda, sector 4242 op 0x0:(READ) "
                              "flags 0x0 phys_seg 1 prio class 0\n");
        const QString position = HXIOErrorTest::positionFile(machine.stateFolder());
        const QByteArray kept = TestSupport::readFile(position);
        pass.context.disksNamed = true;
        QCOMPARE(test.run(pass.context).at(0).type, HXDTestResultErrorType);
        QCOMPARE(TestSupport::readFile(position), kept);
        pass.context.disksNamed = false;
        again = test.run(pass.context);
        QCOMPARE(logs(again).at(0),
                 QStringLiteral(
                     "Error: Disk I/O Error test found 1 I/O error on WDC WD40EFRX-68N32N0 (sda) "
                     "since the previous pass: sector 4242."));
        QCOMPARE(again.at(1).type, HXDTestResultSuccessType);
        QCOMPARE(test.run(pass.context).at(0).type, HXDTestResultSuccessType);

        machine.setBootId("9e8d7c6b-5a49-4382-9176-5544332211ff");
        again = test.run(pass.context);
        QCOMPARE(again.at(0).type, HXDTestResultErrorType);
        QVERIFY(again.at(1).log.startsWith(QLatin1String(
            "Disk I/O Error test found 3 I/O errors on sdb since the machine started")));
    }

    void ioErrorsNameTheFirstPlaces()
    {
        KernelMachine machine;
        QFile::resize(machine.kmsg(), 0);
        int sequence = 0;
        for (int sector : {8, 16, 24, 8, 32, 40, 48, 56, 64})
            KernelMachine::append(
                machine.kmsg(),
                QStringLiteral("3,%1,%2,-;I/O error, dev sda, sector %2 op 0x0:(READ)\n")
                    .arg(sequence++)
                    .arg(sector)
                    .toLatin1());
        Pass pass;
        pass.context.disks = {disk("sda", "")};
        QCOMPARE(HXIOErrorTest().run(pass.context).at(0).log,
                 QStringLiteral("Disk I/O Error test found 9 I/O errors on sda since the machine "
                                "started: sector 8, "
                                "sector 16, sector 24, sector 32, sector 40 and 3 more."));
        QVERIFY(pass.saidSomething(QStringLiteral("there is no state folder")));
    }

    // No kernel log at all: the I/O, POST and file-structure tests say why
    // in the worker's log; the first two record nothing.
    void nothingToReadIsSaid()
    {
        KernelMachine machine;
        QVERIFY(QFile::remove(machine.kmsg()));
        Pass pass;
        pass.context.disks = threeDisks();
        QVERIFY(HXIOErrorTest().run(pass.context).isEmpty());
        QVERIFY(HXPOSTTest().run(pass.context).isEmpty());
        QVERIFY(pass.saidSomething(
            QStringLiteral("Disk I/O error test not run: No kernel log can be read")));
        QVERIFY(pass.saidSomething(QStringLiteral("POST test not run: No kernel log can be read")));

        pass.context.volumes = {volume("sdc1", "xfs", machine.folder())};
        QVERIFY(HXFileStructureTest().run(pass.context).isEmpty());
        QVERIFY(pass.saidSomething(
            QStringLiteral("the kernel keeps no record of errors on %1 (sdc1) (xfs)")
                .arg(machine.folder())));
        pass.context.volumes = {volume("sdc1", "xfs", QString())};
        QVERIFY(HXFileStructureTest().run(pass.context).isEmpty());
        QVERIFY(pass.saidSomething(QStringLiteral("no file system is mounted")));
    }

    void postSummarisesTheBoot()
    {
        KernelMachine machine;
        Pass pass;
        QList<HXTestFinding> findings = HXPOSTTest().run(pass.context);
        QCOMPARE(findings.size(), 1);
        QCOMPARE(findings.at(0).type, HXDTestResultErrorType);
        QCOMPARE(
            findings.at(0).log,
            QStringLiteral(
                R"x(POST test found 5 hardware or firmware errors the kernel logged since the machine started, 1 of them uncorrected: )x"
                R"x(1 machine check (corrected): "mce: [Hardware Error]: CPU 2: Machine Check: 0 Bank 5: 9c00004000010090"; )x"
                R"x(2 PCIe errors (1 uncorrected), the first: "pcieport 0000:00:1c.0: AER: Corrected error received: 0000:00:1c.0"; )x"
                R"x(2 firmware errors, the first: "ACPI BIOS Error (bug): Could not resolve symbol [\_SB.PCI0.XHC.RHUB.HS11], AE_NOT_FOUND (20220331/dswload2-162)".)x"));
        QVERIFY(!findings.at(0).testInfo.contains(HXDiskKey));
        QVERIFY(pass.saidSomething(
            QStringLiteral("noted 1 firmware problem it works around, not counted as errors; the "
                           "first: \"[Firmware Bug]: TSC_DEADLINE")));

        QFile::resize(machine.kmsg(), 0);
        KernelMachine::append(machine.kmsg(), "6,0,0,-;Linux version 6.1.0-21-amd64\n");
        QCOMPARE(
            logs(HXPOSTTest().run(pass.context)),
            QStringList{QStringLiteral(
                "Passed: POST test passed: the kernel logged no machine check, PCIe, platform or "
                "firmware error since the machine started.")});
    }

    // The fixture's machine: ext4 with an error record and a logged error,
    // a clean ext4, btrfs with device errors, XFS with logged corruption, a
    // mounted volume the user excluded, one not mounted.
    void fileStructuresFromTheKernelsRecords()
    {
        KernelMachine machine;
        const QString home = machine.folder() + QStringLiteral("/home");
        const QString report = makeFile(home + QStringLiteral("/docs/report.odt"));
        const QString diary = makeFile(home + QStringLiteral("/private/diary.txt"));
        const QString data = machine.folder() + QStringLiteral("/data");
        const QString xfs = machine.folder() + QStringLiteral("/xfs");
        QDir().mkpath(data);
        QDir().mkpath(xfs);
        for (const QString &path : {home, report, diary, data, xfs}) {
            if (QList<quint64>{131074, 257, 6699}.contains(inodeOf(path)))
                QSKIP("a temporary file has an inode number the fixture names");
        }
        const QString ext4 = machine.root() + QStringLiteral("/sys/fs/ext4/sda2/");
        writeValue(ext4 + QStringLiteral("first_error_ino"), inodeOf(report));
        writeValue(ext4 + QStringLiteral("last_error_ino"), inodeOf(diary));

        Pass pass;
        pass.context.exclusions = HXExclusions::fromEntries(
            {QVariantMap{{QStringLiteral("path"), home + QStringLiteral("/private")},
                         {QStringLiteral("isExcludedFromFileTest"), true}},
             QVariantMap{{QStringLiteral("path"), machine.folder() + QStringLiteral("/usb")},
                         {QStringLiteral("isExcludedFromFileTest"), true}}});
        pass.context.volumes = {
            volume("sda2", "ext4", home),
            volume("sda3", "ext4", machine.folder()),
            volume("sdb1", "btrfs", data, "5f8e3a1c-9b2d-4c6e-8f70-2a1b3c4d5e6f"),
            volume("sdc1", "xfs", xfs),
            volume("sdd1", "vfat", machine.folder() + QStringLiteral("/usb")),
            volume("sde1", "ext4", QString())};
        const QList<HXTestFinding> findings = HXFileStructureTest().run(pass.context);
        QCOMPARE(findings.size(), 4);

        QCOMPARE(findings.at(0).type, HXDTestResultErrorType);
        QCOMPARE(
            findings.at(0).log.section(QLatin1Char('\n'), 0, 0),
            QStringLiteral(
                "File Structures test found file system errors on %1 (sda2): ext4 has 3 errors "
                "recorded since the last check, "
                "the first on 2024-05-29 05:20:00 UTC in ext4_lookup (inode %2), the last on "
                "2024-05-29 06:20:00 UTC in ext4_find_entry (inode %3); the kernel logged 1 error "
                "message since the machine started, the first: \"EXT4-fs error (device sda2): "
                "ext4_lookup:1855: inode #131074: comm ls: deleted inode referenced: 131080\". "
                "Not found by name on %1: inode %3, inode 131074.")
                .arg(home)
                .arg(inodeOf(report))
                .arg(inodeOf(diary)));
        // The excluded folder is not searched, so the diary is named by its
        // inode in the line, and only found paths are offered as files.
        QVERIFY(findings.at(0)
                    .log.section(QLatin1Char('\n'), 0, 0)
                    .endsWith(QStringLiteral(" Not found by name on %1: inode %2, inode 131074.")
                                  .arg(home)
                                  .arg(inodeOf(diary))));
        QCOMPARE(findings.at(0).testInfo.value(HXDTestResultProblemFiles).toStringList(),
                 QStringList{report});
        QCOMPARE(findings.at(0).log.section(QLatin1Char('\n'), 1), report);
        QCOMPARE(findings.at(0).testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey).toString(),
                 QStringLiteral("sda2"));
        QVERIFY(pass.saidSomething(
            QStringLiteral("%1/private was not searched for damaged files").arg(home)));

        QCOMPARE(logs({findings.at(1)}),
                 QStringList{QStringLiteral("Passed: File Structures test passed on %1 (sda3): no "
                                            "file system errors recorded (ext4's error record "
                                            "and the kernel log).")
                                 .arg(machine.folder())});
        QVERIFY(!findings.at(1).testInfo.contains(HXDTestResultProblemFiles));

        QCOMPARE(findings.at(2).type, HXDTestResultErrorType);
        QVERIFY2(
            findings.at(2).log.startsWith(
                QStringLiteral("File Structures test found file system errors on %1 (sdb1): btrfs "
                               "counted 1 write error, "
                               "2 read errors and 1 corruption error on its devices; the kernel "
                               "logged 2 error messages")
                    .arg(data)),
            qPrintable(findings.at(2).log));
        QVERIFY(findings.at(2).log.endsWith(
            QStringLiteral("Not found by name on %1: inode 257.").arg(data)));
        QVERIFY(!findings.at(2).testInfo.contains(HXDTestResultProblemFiles));

        QCOMPARE(findings.at(3).type, HXDTestResultErrorType);
        QVERIFY(findings.at(3).log.contains(
            QLatin1String("the kernel logged 3 error messages since the machine started, "
                          "the first: \"XFS (sdc1): Metadata corruption detected")));
        QVERIFY(findings.at(3).log.endsWith(
            QStringLiteral("Not found by name on %1: inode 6699.").arg(xfs)));

        QVERIFY(pass.saidSomething(
            QStringLiteral("skipped %1/usb (sdd1): it is excluded from the file test")
                .arg(machine.folder())));

        // Without a kernel log, ext4's own record still tells.
        QVERIFY(QFile::remove(machine.kmsg()));
        pass.context.exclusions = {};
        const QList<HXTestFinding> recordsOnly = HXFileStructureTest().run(pass.context);
        QCOMPARE(recordsOnly.size(), 3);
        QCOMPARE(recordsOnly.at(0).testInfo.value(HXDTestResultProblemFiles).toStringList(),
                 QStringList({report, diary}));
        QCOMPARE(recordsOnly.at(1).log,
                 QStringLiteral("File Structures test passed on %1 (sda3): no file system errors "
                                "recorded (ext4's error record).")
                     .arg(machine.folder()));
        QVERIFY(
            pass.saidSomething(QStringLiteral("only the records ext4 and btrfs keep are read")));
    }

    // The walk stops at its limits and when the pass is cancelled, and never
    // enters another file system mounted inside.
    void inodeSearchIsBounded()
    {
        QTemporaryDir dir;
        QStringList files;
        for (int i = 0; i < 40; ++i)
            files.append(makeFile(dir.filePath(QStringLiteral("f%1/file").arg(i))));
        const QSet<quint64> all{inodeOf(files.first()), inodeOf(files.last())};

        HXInodeFinder::Result found = HXInodeFinder::find(dir.path(), all, {}, nullptr);
        QVERIFY(found.complete);
        QCOMPARE(found.paths.size(), 2);
        QCOMPARE(found.paths.value(inodeOf(files.last())), files.last());

        found = HXInodeFinder::find(dir.path(), all, {}, nullptr, {10, 20000});
        QVERIFY(!found.complete);
        QCOMPARE(found.stopped, QStringLiteral("10 entries were looked at"));

        const std::atomic_bool cancelled{true};
        found = HXInodeFinder::find(dir.path(), all, {}, &cancelled);
        QVERIFY(!found.complete);
        QCOMPARE(found.stopped, QStringLiteral("the pass was stopped"));

        found = HXInodeFinder::find(dir.filePath(QStringLiteral("missing")), all, {}, nullptr);
        QVERIFY(!found.complete);
        QVERIFY(found.stopped.endsWith(
            QLatin1String("missing cannot be read: No such file or directory")));

        if (::geteuid() != 0)
            QSKIP("mounting a file system inside the walk needs root");
        const QString inner = dir.filePath(QStringLiteral("f0/inner"));
        QDir().mkpath(inner);
        if (QProcess::execute(QStringLiteral("mount"),
                              {QStringLiteral("-t"), QStringLiteral("tmpfs"),
                               QStringLiteral("none"), inner}) != 0)
            QSKIP("tmpfs cannot be mounted here");
        const QString elsewhere = makeFile(inner + QStringLiteral("/other"));
        found = HXInodeFinder::find(dir.path(), {inodeOf(elsewhere)}, {}, nullptr);
        QProcess::execute(QStringLiteral("umount"), {inner});
        QVERIFY(found.complete);
        QVERIFY2(found.paths.isEmpty(), qPrintable(found.paths.value(inodeOf(elsewhere))));
    }
};

QTEST_GUILESS_MAIN(tst_KernelTests)
#include "tst_kerneltests.moc"
