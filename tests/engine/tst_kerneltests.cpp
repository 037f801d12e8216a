#include "EngineTestRun.h"
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

using namespace Qt::StringLiterals;

namespace {

HXBlockDisk disk(const char *name, const char *model = "")
{
    const QString kernelName = QString::fromLatin1(name);
    return {kernelName, u"/dev/"_s + kernelName, QString::fromLatin1(model), 0,
            512,        u"uuid-"_s + kernelName};
}

QList<HXBlockDisk> threeDisks()
{
    return {disk("sda", "WDC WD40EFRX-68N32N0"), disk("sdb"),
            disk("nvme0n1", "Samsung SSD 970 EVO Plus 1TB")};
}

HXVolume volume(const char *name, const char *fsType, const QString &mountPoint,
                const char *uuid = "")
{
    const QString kernelName = QString::fromLatin1(name);
    return {kernelName,
            u"/dev/"_s + kernelName,
            kernelName.left(3),
            QString::fromLatin1(fsType),
            QString::fromLatin1(uuid),
            {},
            mountPoint,
            !mountPoint.isEmpty(),
            false,
            0,
            0};
}

quint64 inodeOf(const QString &path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? quint64(status.st_ino) : 0;
}

QString makeFile(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    writeFile(path, "x");
    return path;
}

QStringList logs(const QList<HXTestFinding> &findings)
{
    QStringList lines;
    for (const HXTestFinding &finding : findings)
        lines.append(finding.type + u": "_s + finding.log);
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
        HXEngineContext context;
        context.disks = threeDisks();
        const EngineTestRun run = runEngineTest(HXIOErrorTest(), context);
        QCOMPARE(logs(run.findings),
                 QStringList({u"Passed: Disk I/O Error test passed on WDC WD40EFRX-68N32N0 (sda): "
                              "the kernel logged no I/O errors since the machine started."_s,
                              u"Error: Disk I/O Error test found 3 I/O errors on sdb since the "
                              "machine started: sector 2048, logical block 7 of sdb1 and sector "
                              "123456."_s,
                              u"Error: Disk I/O Error test found 2 I/O errors on Samsung SSD 970 "
                              "EVO Plus 1TB (nvme0n1) since the machine started: LBA 1234 and "
                              "sector 9872."_s}));
        QCOMPARE(run.disk(u"sdb"_s, u"uuid"_s), u"uuid-sdb"_s);
        QVERIFY(run.noted(u"I/O errors on sdz, which is not among the disks tested"_s));
        QVERIFY(run.noted(u"there is no state folder"_s));

        // Nine errors at eight places: the first five are named.
        QByteArray kmsg;
        int sequence = 0;
        for (int sector : {8, 16, 24, 8, 32, 40, 48, 56, 64})
            kmsg += QByteArray("3,") + QByteArray::number(sequence++) +
                    ",0,-;I/O error, dev sda, sector " + QByteArray::number(sector) + '\n';
        writeFile(machine.kmsg(), kmsg);
        QVERIFY(HXIOErrorTest().run(context).at(0).log.endsWith(
            u"9 I/O errors on WDC WD40EFRX-68N32N0 (sda) since the machine started: sector 8, "
            "sector 16, sector 24, sector 32, sector 40 and 3 more."_s));

        // No kernel log at all: said in the worker's log, nothing recorded.
        QVERIFY(QFile::remove(machine.kmsg()));
        const EngineTestRun none = runEngineTest(HXIOErrorTest(), context);
        QVERIFY(none.findings.isEmpty());
        QVERIFY(none.noted(u"Disk I/O error test not run: No kernel log can be read"_s));
    }

    // Only what is new since the previous pass; a new boot starts over; a
    // pass of named disks leaves the position for the next full pass.
    void ioErrorsSinceThePreviousPass()
    {
        KernelMachine machine;
        HXEngineContext context;
        context.disks = threeDisks();
        context.stateFolder = machine.stateFolder();
        HXIOErrorTest test;
        QCOMPARE(test.run(context).at(1).type, HXDTestResultErrorType);
        QCOMPARE(logs(test.run(context)).at(1),
                 u"Passed: Disk I/O Error test passed on sdb: the kernel logged no I/O errors "
                 "since the previous pass."_s);

        writeFile(machine.kmsg(), "3,42,290000000,-;I/O error, dev sda, sector 4242\n", true);
        const QString position = HXIOErrorTest::positionFile(machine.stateFolder());
        const QByteArray kept = TestSupport::readFile(position);
        context.disksNamed = true;
        QCOMPARE(test.run(context).at(0).type, HXDTestResultErrorType);
        QCOMPARE(TestSupport::readFile(position), kept);
        context.disksNamed = false;
        const QList<HXTestFinding> again = test.run(context);
        QVERIFY(again.at(0).log.endsWith(u"since the previous pass: sector 4242."_s));
        QCOMPARE(again.at(1).type, HXDTestResultSuccessType);

        machine.setBootId("9e8d7c6b-5a49-4382-9176-5544332211ff");
        QVERIFY(test.run(context).at(1).log.contains(u"3 I/O errors on sdb since the machine"_s));
    }

    void postSummarisesTheBoot()
    {
        KernelMachine machine;
        const EngineTestRun run = runEngineTest(HXPOSTTest());
        QCOMPARE(
            logs(run.findings),
            QStringList(
                uR"x(Error: POST test found 5 hardware or firmware errors the kernel logged since the machine started, 1 of them uncorrected: )x"
                R"x(1 machine check (corrected): "mce: [Hardware Error]: CPU 2: Machine Check: 0 Bank 5: 9c00004000010090"; )x"
                R"x(2 PCIe errors (1 uncorrected), the first: "pcieport 0000:00:1c.0: AER: Corrected error received: 0000:00:1c.0"; )x"
                R"x(2 firmware errors, the first: "ACPI BIOS Error (bug): Could not resolve symbol [\_SB.PCI0.XHC.RHUB.HS11], AE_NOT_FOUND (20220331/dswload2-162)".)x"_s));
        QVERIFY(run.noted(u"noted 1 firmware problem it works around, not counted"_s));

        writeFile(machine.kmsg(), "6,0,0,-;Linux version 6.1.0-21-amd64\n");
        QVERIFY(logs(runEngineTest(HXPOSTTest()).findings)
                    .value(0)
                    .startsWith(u"Passed: POST test passed: the kernel logged no"_s));
        QVERIFY(QFile::remove(machine.kmsg()));
        const EngineTestRun none = runEngineTest(HXPOSTTest());
        QVERIFY(none.findings.isEmpty());
        QVERIFY(none.noted(u"POST test not run: No kernel log can be read"_s));
    }

    // The fixture's machine: ext4 with an error record and a logged error,
    // a clean ext4, btrfs with device errors, XFS with logged corruption, a
    // mounted volume the user excluded, one not mounted.
    void fileStructuresFromTheKernelsRecords()
    {
        KernelMachine machine;
        const QString home = machine.folder() + u"/home"_s;
        const QString report = makeFile(home + u"/docs/report.odt"_s);
        const QString diary = makeFile(home + u"/private/diary.txt"_s);
        const QString data = machine.folder() + u"/data"_s;
        const QString xfs = machine.folder() + u"/xfs"_s;
        QDir().mkpath(data);
        QDir().mkpath(xfs);
        for (const QString &path : {home, report, diary, data, xfs}) {
            if (QList<quint64>{131074, 257, 6699}.contains(inodeOf(path)))
                QSKIP("a temporary file has an inode number the fixture names");
        }
        const QString ext4 = machine.root() + u"/sys/fs/ext4/sda2/"_s;
        writeFile(ext4 + u"first_error_ino"_s, QByteArray::number(inodeOf(report)));
        writeFile(ext4 + u"last_error_ino"_s, QByteArray::number(inodeOf(diary)));

        HXEngineContext context;
        const auto excluded = [](const QString &path) {
            return QVariantMap{{u"path"_s, path}, {u"isExcludedFromFileTest"_s, true}};
        };
        context.exclusions = HXExclusions::fromEntries(
            {excluded(home + u"/private"_s), excluded(machine.folder() + u"/usb"_s)});
        context.volumes = {volume("sda2", "ext4", home),
                           volume("sda3", "ext4", machine.folder()),
                           volume("sdb1", "btrfs", data, "5f8e3a1c-9b2d-4c6e-8f70-2a1b3c4d5e6f"),
                           volume("sdc1", "xfs", xfs),
                           volume("sdd1", "vfat", machine.folder() + u"/usb"_s),
                           volume("sde1", "ext4", QString())};
        const EngineTestRun run = runEngineTest(HXFileStructureTest(), context);
        QCOMPARE(run.findings.size(), 4);
        QVERIFY(run.noted(
            u"skipped %1/usb (sdd1): it is excluded from the file test"_s.arg(machine.folder())));
        QVERIFY(run.noted(u"%1/private was not searched for damaged files"_s.arg(home)));

        // The excluded folder is not searched, so the diary is named by its
        // inode, and only found paths are offered as files.
        QCOMPARE(logs({run.findings.at(1)}),
                 QStringList(u"Passed: File Structures test passed on %1 (sda3): no file system "
                             "errors recorded (ext4's error record and the kernel log)."_s.arg(
                                 machine.folder())));
        const QStringList says[] = {
            {u"on %1 (sda2): ext4 has 3 errors recorded"_s.arg(home),
             u"the first on 2024-05-29 05:20:00 UTC in ext4_lookup (inode %1)"_s.arg(
                 inodeOf(report)),
             u"the kernel logged 1 error message since the machine started"_s,
             u"Not found by name on %1: inode %2, inode 131074.\n%3"_s.arg(home)
                 .arg(inodeOf(diary))
                 .arg(report)},
            {},
            {u"btrfs counted 1 write error, 2 read errors and 1 corruption error on its "
             "devices; the kernel logged 2 error messages"_s,
             u"Not found by name on %1: inode 257."_s.arg(data)},
            {u"the kernel logged 3 error messages"_s, u"on %1: inode 6699."_s.arg(xfs)}};
        for (int i : {0, 2, 3}) {
            QCOMPARE(run.findings.at(i).type, HXDTestResultErrorType);
            for (const QString &part : says[i])
                QVERIFY2(run.findings.at(i).log.contains(part), qPrintable(run.findings.at(i).log));
        }
        QCOMPARE(run.findings.at(0).testInfo.value(HXDTestResultProblemFiles).toStringList(),
                 QStringList{report});
        QCOMPARE(run.findings.at(0).testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey),
                 u"sda2"_s);
        QVERIFY(!run.findings.at(2).testInfo.contains(HXDTestResultProblemFiles));

        // Without a kernel log, ext4's own record still tells.
        QVERIFY(QFile::remove(machine.kmsg()));
        context.exclusions = {};
        const EngineTestRun recordsOnly = runEngineTest(HXFileStructureTest(), context);
        QCOMPARE(recordsOnly.findings.size(), 3);
        QCOMPARE(
            recordsOnly.findings.at(0).testInfo.value(HXDTestResultProblemFiles).toStringList(),
            QStringList({report, diary}));
        QVERIFY(recordsOnly.findings.at(1).log.endsWith(u"recorded (ext4's error record)."_s));
        QVERIFY(recordsOnly.noted(u"only the records ext4 and btrfs keep are read"_s));
        QVERIFY(recordsOnly.noted(
            u"the kernel keeps no record of errors on %1 (sdc1) (xfs)"_s.arg(xfs)));
        context.volumes = {volume("sde1", "ext4", QString())};
        QVERIFY(
            runEngineTest(HXFileStructureTest(), context).noted(u"no file system is mounted"_s));
    }

    // The walk stops at its limits and when the pass is cancelled, and never
    // enters another file system mounted inside.
    void inodeSearchIsBounded()
    {
        QTemporaryDir dir;
        QStringList files;
        for (int i = 0; i < 40; ++i)
            files.append(makeFile(dir.filePath(u"f%1/file"_s.arg(i))));
        const QSet<quint64> all{inodeOf(files.first()), inodeOf(files.last())};

        HXInodeFinder::Result found = HXInodeFinder::find(dir.path(), all, {}, nullptr);
        QVERIFY(found.complete);
        QCOMPARE(found.paths.size(), 2);
        QCOMPARE(found.paths.value(inodeOf(files.last())), files.last());

        found = HXInodeFinder::find(dir.path(), all, {}, nullptr, {10, 20000});
        QCOMPARE(found.stopped, u"10 entries were looked at"_s);
        QVERIFY(!found.complete);
        const std::atomic_bool cancelled{true};
        found = HXInodeFinder::find(dir.path(), all, {}, &cancelled);
        QCOMPARE(found.stopped, u"the pass was stopped"_s);
        found = HXInodeFinder::find(dir.filePath(u"missing"_s), all, {}, nullptr);
        QVERIFY(found.stopped.endsWith(u"missing cannot be read: No such file or directory"_s));

        if (::geteuid() != 0)
            QSKIP("mounting a file system inside the walk needs root");
        const QString inner = dir.filePath(u"f0/inner"_s);
        QDir().mkpath(inner);
        if (QProcess::execute(u"mount"_s, {u"-t"_s, u"tmpfs"_s, u"none"_s, inner}) != 0)
            QSKIP("tmpfs cannot be mounted here");
        const QString elsewhere = makeFile(inner + u"/other"_s);
        found = HXInodeFinder::find(dir.path(), {inodeOf(elsewhere)}, {}, nullptr);
        QProcess::execute(u"umount"_s, {inner});
        QVERIFY(found.complete);
        QVERIFY2(found.paths.isEmpty(), qPrintable(found.paths.value(inodeOf(elsewhere))));
    }
};

QTEST_GUILESS_MAIN(tst_KernelTests)
#include "tst_kerneltests.moc"
