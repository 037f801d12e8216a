// The volume structure test with the real checkers on real file systems, clean
// and damaged in their image files; with fake checkers first on PATH for what
// a real one cannot be made to do here (xfs, btrfs, operational failures, a
// hang); and with the superblock of an ext4 volume mounted read-write.

#include "DiskImages.h"
#include "HXConstants.h"
#include "HXExtSuperblock.h"
#include "HXVolumeStructureTest.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

using namespace DiskImages;

namespace {

constexpr qint64 ImageBytes = qint64(16) << 20;

HXVolume volumeAt(const QString &path, const QString &fsType)
{
    HXVolume volume;
    volume.kernelName = QStringLiteral("image");
    volume.devicePath = path;
    volume.diskKernelName = QStringLiteral("image");
    volume.fsType = fsType;
    volume.uuid = QStringLiteral("uuid-of-%1").arg(fsType);
    volume.sizeBytes = QFileInfo(path).size();
    return volume;
}

QByteArray digestOf(const QString &path)
{
    return QCryptographicHash::hash(readFile(path), QCryptographicHash::Sha256);
}

struct Outcome
{
    QList<HXTestFinding> findings;
    QStringList said;
};

Outcome runTest(const QList<HXVolume> &volumes, const HXExclusions &exclusions = {},
                int limitMs = 0, const std::atomic_bool *cancelled = nullptr)
{
    Outcome outcome;
    HXEngineContext context;
    context.volumes = volumes;
    context.exclusions = exclusions;
    context.cancelled = cancelled;
    context.note = [&outcome](const QString &line) {
        outcome.said << line;
    };
    HXVolumeStructureTest test;
    if (limitMs > 0)
        test.setTimeLimitMs(limitMs);
    outcome.findings = test.run(context);
    return outcome;
}

// Damages the root directory's inode of an ext4 made without metadata
// checksums: its mode says regular file. The inode's place follows the
// superblock and the first group descriptor.
bool makeRootInodeAFile(const QString &image)
{
    const QByteArray bytes = readFile(image);
    const auto u32 = [&bytes](qint64 at) {
        return qFromLittleEndian<quint32>(bytes.constData() + at);
    };
    const qint64 blockSize = qint64(1024) << u32(1024 + 0x18);
    const qint64 descriptors = (qint64(u32(1024 + 0x14)) + 1) * blockSize;
    const qint64 inodeTable = qint64(u32(descriptors + 8)) * blockSize;
    const qint64 inodeSize = qFromLittleEndian<quint16>(bytes.constData() + 1024 + 0x58);
    const qint64 rootInode = inodeTable + inodeSize; // inode 2: the second of the table
    if (qFromLittleEndian<quint16>(bytes.constData() + rootInode) != 040755)
        return false;
    QByteArray mode(2, '\0');
    qToLittleEndian<quint16>(0100644, mode.data());
    return writeAt(image, rootInode, mode);
}

} // namespace

class TestVolumeStructures : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void realCheckers_data();
    void realCheckers();
    void checkerOnLoopPartition();
    void mountedReadWriteBySuperblock();
    void fakeCheckers_data();
    void fakeCheckers();
    void checkerHungMissingOrCancelled();
    void volumesNotChecked();

private:
    // A checker first on PATH that records its arguments, prints and exits
    // as told.
    void installFake(const QString &program, const QByteArray &out, const QByteArray &err,
                     int exitCode, const QByteArray &before = QByteArray());
    QStringList fakeArguments() const;

    QTemporaryDir m_dir;
    QString m_fakes;
    QByteArray m_path;
};

void TestVolumeStructures::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_fakes = m_dir.filePath(QStringLiteral("fakes"));
    QVERIFY(QDir().mkpath(m_fakes));
    m_path = qgetenv("PATH");
    // The real checkers live in the sbin folders, which a user's PATH may lack.
    qputenv("PATH", QFile::encodeName(m_fakes) + ":" + m_path + ":/usr/sbin:/sbin");
}

void TestVolumeStructures::cleanup()
{
    QDir(m_fakes).removeRecursively();
    QDir().mkpath(m_fakes);
    QFile::remove(m_dir.filePath(QStringLiteral("arguments")));
}

void TestVolumeStructures::installFake(const QString &program, const QByteArray &out,
                                       const QByteArray &err, int exitCode,
                                       const QByteArray &before)
{
    const QString path = m_fakes + QLatin1Char('/') + program;
    QFile script(path);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("#!/bin/sh\nprintf '%s\\n' \"$@\" > '" +
                 QFile::encodeName(m_dir.filePath(QStringLiteral("arguments"))) + "'\n" + before +
                 "\ncat <<'OUT'\n" + out + "\nOUT\ncat >&2 <<'ERR'\n" + err + "\nERR\nexit " +
                 QByteArray::number(exitCode) + "\n");
    script.close();
    QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

QStringList TestVolumeStructures::fakeArguments() const
{
    const QString text =
        QString::fromLocal8Bit(readFile(m_dir.filePath(QStringLiteral("arguments"))));
    return text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void TestVolumeStructures::realCheckers_data()
{
    QTest::addColumn<QString>("fsType");
    QTest::addColumn<QString>("damage");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("evidence");

    QTest::newRow("ext4 clean")
        << "ext4"
        << "" << true << " found no problems (\"vol: 11/4096 files (0.0% non-contiguous), ";
    QTest::newRow("ext4 superblock")
        << "ext4"
        << "superblock" << false
        << " found problems it was not allowed to fix (\"ext2fs_open2: Superblock "
           "checksum does not match superblock\")";
    QTest::newRow("ext4 root inode")
        << "ext4"
        << "root inode" << false
        << " found problems it was not allowed to fix (\"Root inode is not a "
           "directory.\")";
    QTest::newRow("vfat clean") << "vfat"
                                << "" << true << " found no problems (\"";
    QTest::newRow("vfat FAT")
        << "vfat"
        << "fat" << false
        << " found problems it was not allowed to fix (\"FATs differ but appear to be "
           "intact.\")";
}

void TestVolumeStructures::realCheckers()
{
    QFETCH(QString, fsType);
    QFETCH(QString, damage);
    QFETCH(bool, valid);
    QFETCH(QString, evidence);
    const QString image = m_dir.filePath(
        QString::fromLatin1(QTest::currentDataTag()).replace(QLatin1Char(' '), QLatin1Char('-')));
    QVERIFY(makeImage(image, ImageBytes));
    QString why;
    if (fsType == QLatin1String("ext4")) {
        QStringList arguments{QStringLiteral("-q"), QStringLiteral("-F"), QStringLiteral("-L"),
                              QStringLiteral("vol")};
        if (damage == QLatin1String("root inode"))
            arguments << QStringLiteral("-O") << QStringLiteral("^metadata_csum");
        if (!run(QStringLiteral("mkfs.ext4"), arguments << image, &why))
            QSKIP(qPrintable(why));
    } else if (!run(QStringLiteral("mkfs.vfat"),
                    {QStringLiteral("-n"), QStringLiteral("VOL"), image}, &why)) {
        QSKIP(qPrintable(why));
    }
    if (damage == QLatin1String("superblock")) {
        QVERIFY(
            writeAt(image, 1024 + 0x0c, QByteArray("\x07\x00\x00\x00", 4))); // free blocks count
    } else if (damage == QLatin1String("root inode")) {
        QVERIFY(makeRootInodeAFile(image));
    } else if (damage == QLatin1String("fat")) {
        // Cluster 5 marked in use in the first FAT only, owned by no file.
        const QByteArray boot = readFile(image).left(512);
        const qint64 fat = qint64(qFromLittleEndian<quint16>(boot.constData() + 14)) * 512;
        QVERIFY(writeAt(image, fat + 5 * 2, QByteArray("\xff\xff", 2)));
    }

    const QByteArray before = digestOf(image);
    HXVolume volume = volumeAt(image, fsType);
    volume.label = QStringLiteral("Backup");
    const Outcome outcome = runTest({volume});
    QCOMPARE(digestOf(image), before); // the checker changed nothing
    QVERIFY2(outcome.said.isEmpty(), qPrintable(outcome.said.join(QLatin1Char('\n'))));
    QCOMPARE(outcome.findings.size(), 1);
    const HXTestFinding &finding = outcome.findings.first();
    QCOMPARE(finding.type, valid ? HXDTestResultSuccessType : HXDTestResultErrorType);
    const QString checker = fsType == QLatin1String("ext4") ? QStringLiteral("e2fsck -fn")
                                                            : QStringLiteral("fsck.vfat -n");
    QVERIFY2(finding.log.startsWith(
                 QStringLiteral("Volume Structures test %1 on Backup (image, %2): %3 %4")
                     .arg(valid ? QStringLiteral("passed") : QStringLiteral("error"), fsType,
                          checker, image)),
             qPrintable(finding.log));
    QVERIFY2(finding.log.contains(evidence), qPrintable(finding.log));
    QCOMPARE(finding.testInfo.value(HXDTestResultVolumeIsValidKey).toBool(), valid);
    QCOMPARE(finding.testInfo.value(HXDTestResultVolumeNameKey).toString(),
             QStringLiteral("Backup"));
    QCOMPARE(finding.testInfo.value(HXDiskKey).toMap(), volume.diskInfo());
}

void TestVolumeStructures::checkerOnLoopPartition()
{
    const QString image = m_dir.filePath(QStringLiteral("partitioned.img"));
    QVERIFY(makeImage(image, qint64(32) << 20));
    QString why;
    if (!run(QStringLiteral("sfdisk"), {QStringLiteral("--quiet"), image}, &why,
             "label: gpt\nstart=2048, size=16MiB\n"))
        QSKIP(qPrintable(why));
    {
        const LoopDevice writable(image, {false, 0, true});
        if (!writable.isAttached())
            QSKIP(qPrintable(writable.error()));
        QTRY_VERIFY(QFile::exists(writable.path() + QLatin1String("p1")));
        QVERIFY2(run(QStringLiteral("mkfs.ext4"),
                     {QStringLiteral("-q"), writable.path() + QLatin1String("p1")}, &why),
                 qPrintable(why));
    }
    const LoopDevice loop(image, {true, 0, true});
    QVERIFY2(loop.isAttached(), qPrintable(loop.error()));
    QTRY_VERIFY(QFile::exists(loop.path() + QLatin1String("p1")));
    HXVolume volume = volumeAt(loop.path() + QLatin1String("p1"), QStringLiteral("ext4"));
    volume.kernelName = loop.kernelName() + QLatin1String("p1");
    volume.diskKernelName = loop.kernelName();
    const Outcome outcome = runTest({volume});
    QCOMPARE(outcome.findings.size(), 1);
    QCOMPARE(outcome.findings.first().type, HXDTestResultSuccessType);
    QVERIFY2(outcome.findings.first().log.startsWith(
                 QStringLiteral("Volume Structures test passed on %1 (ext4): e2fsck -fn %2 found "
                                "no problems (\"%2: 11/")
                     .arg(volume.kernelName, volume.devicePath)),
             qPrintable(outcome.findings.first().log));
}

void TestVolumeStructures::mountedReadWriteBySuperblock()
{
    const QString clean = m_dir.filePath(QStringLiteral("mounted-clean.img"));
    const QString failing = m_dir.filePath(QStringLiteral("mounted-errors.img"));
    QString why;
    for (const QString &image : {clean, failing}) {
        QVERIFY(makeImage(image, ImageBytes));
        if (!run(QStringLiteral("mkfs.ext4"), {QStringLiteral("-q"), QStringLiteral("-F"), image},
                 &why))
            QSKIP(qPrintable(why));
    }
    // What the kernel writes when it meets errors, written by e2fsprogs' own
    // editor into the image.
    const QByteArray errors = "ssv state 3\nssv error_count 3\nssv last_error_func ext4_lookup\n"
                              "ssv last_error_ino 12\nssv last_error_block 4711\n"
                              "ssv last_error_time 20240301120000\n";
    if (!run(QStringLiteral("debugfs"),
             {QStringLiteral("-w"), QStringLiteral("-f"), QStringLiteral("-"), failing}, &why,
             errors))
        QSKIP(qPrintable(why));
    installFake(QStringLiteral("e2fsck"), "", "", 0);

    QList<HXVolume> volumes;
    for (const QString &image : {clean, failing}) {
        HXVolume volume = volumeAt(image, QStringLiteral("ext4"));
        volume.mountPoint = QStringLiteral("/srv");
        volume.mountedReadWrite = true;
        volumes << volume;
    }
    HXVolume xfs = volumeAt(clean, QStringLiteral("xfs"));
    xfs.mountPoint = QStringLiteral("/home");
    xfs.mountedReadWrite = true;
    const Outcome outcome = runTest(volumes << xfs);
    QVERIFY(fakeArguments().isEmpty()); // no checker on a file system in use

    QCOMPARE(outcome.findings.size(), 2);
    QCOMPARE(outcome.findings.at(0).type, HXDTestResultSuccessType);
    QCOMPARE(outcome.findings.at(0).log,
             QStringLiteral("Volume Structures test passed on /srv (image, ext4): mounted "
                            "read-write on /srv; its superblock says clean."));
    QCOMPARE(outcome.findings.at(1).type, HXDTestResultErrorType);
    QCOMPARE(
        outcome.findings.at(1).log,
        QStringLiteral(
            "Volume Structures test error on /srv (image, ext4): mounted read-write on /srv; its "
            "superblock says with errors (3 errors recorded; the last in ext4_lookup, inode 12, "
            "block 4711, on 2024-03-01T12:00:00Z)."));
    QCOMPARE(outcome.findings.at(1).testInfo.value(HXDTestResultVolumeIsValidKey).toBool(), false);
    QCOMPARE(outcome.said, QStringList{QStringLiteral(
                               "Volume Structures test: /home (image, xfs) is mounted read-write "
                               "on /home, and xfs keeps no state that can be read safely while "
                               "it is in use; not checked.")});

    // Only the error bit, as a kernel sets it before counting.
    QByteArray superblock = readFile(clean).mid(1024, 1024);
    qToLittleEndian<quint16>(0x0003, superblock.data() + 0x3a);
    const std::optional<HXExtSuperblock> parsed = HXExtSuperblock::parse(superblock, nullptr);
    QVERIFY(parsed && parsed->hasErrors());
    QCOMPARE(parsed->stateText(), QStringLiteral("with errors"));
    QVERIFY(!HXExtSuperblock::parse(readFile(clean).mid(0, 1024), &why));
    QCOMPARE(why, QStringLiteral("it holds no ext2/3/4 superblock"));
}

void TestVolumeStructures::fakeCheckers_data()
{
    QTest::addColumn<QString>("fsType");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QByteArray>("out");
    QTest::addColumn<QByteArray>("err");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<bool>("mountedReadOnly");
    QTest::addColumn<QString>("arguments"); // DEV stands for the device
    QTest::addColumn<QString>("type");      // empty: no finding
    QTest::addColumn<QString>("evidence");

    const QByteArray xfsPhases = "Phase 1 - find and verify superblock...\n"
                                 "        - block cache size set to 2048\n"
                                 "Phase 2 - using internal log\n"
                                 "        - zero log...\n";
    QTest::newRow("xfs corrupt")
        << "xfs"
        << "xfs_repair"
        << xfsPhases + "agf_freeblks 5, counted 6 in ag 0\nsb_fdblocks 42, counted 43\n"
        << QByteArray() << 1 << false << "-n DEV" << HXDTestResultErrorType
        << "xfs_repair -n DEV found problems it was not allowed to fix (\"agf_freeblks 5, "
           "counted 6 in ag 0\")";
    QTest::newRow("xfs busy")
        << "xfs"
        << "xfs_repair" << QByteArray()
        << QByteArray("xfs_repair: cannot open DEV: Device or resource busy") << 1 << false
        << "-n DEV"
        << ""
        << "could not check it (\"xfs_repair: cannot open DEV: Device or resource busy\")";
    QTest::newRow("btrfs errors")
        << "btrfs"
        << "btrfs"
        << QByteArray("Opening filesystem to check...\nChecking filesystem on DEV\n"
                      "[1/7] checking root items\nfound 147456 bytes used, error(s) found\n")
        << QByteArray("ERROR: errors found in fs roots") << 1 << false << "check --readonly DEV"
        << HXDTestResultErrorType
        << "btrfs check --readonly DEV found problems it was not allowed to fix (\"ERROR: "
           "errors found in fs roots\")";
    QTest::newRow("btrfs mounted read-only")
        << "btrfs"
        << "btrfs"
        << QByteArray("[7/7] checking quota groups skipped\nfound 147456 bytes "
                      "used, no error found\ntotal csum bytes: 0\n")
        << QByteArray() << 0 << true << "check --readonly --force DEV" << HXDTestResultSuccessType
        << "found no problems (\"found 147456 bytes used, no error found\")";
    QTest::newRow("e2fsck operational error")
        << "ext3"
        << "e2fsck" << QByteArray()
        << QByteArray("e2fsck 1.47.0 (5-Feb-2023)\ne2fsck: Device or resource "
                      "busy while trying to open DEV")
        << 8 << true << "-fn DEV"
        << ""
        << "could not check it (\"e2fsck: Device or resource busy while trying "
           "to open DEV\")";
    QTest::newRow("e2fsck errors and an operational error")
        << "ext2"
        << "e2fsck"
        << QByteArray("Pass 1: Checking inodes, blocks, and sizes\nInode 12 has illegal block(s).  "
                      "Clear? no\n")
        << QByteArray("e2fsck: aborted") << 12 << false << "-fn DEV" << HXDTestResultErrorType
        << "(\"Inode 12 has illegal block(s).\")";
    QTest::newRow("exfat errors") << "exfat"
                                  << "fsck.exfat"
                                  << QByteArray(
                                         "exfatprogs version : 1.2.0\nERROR: bitmap mismatch\n")
                                  << QByteArray() << 4 << false << "-n DEV"
                                  << HXDTestResultErrorType << "(\"ERROR: bitmap mismatch\")";
    QTest::newRow("vfat usage error")
        << "vfat"
        << "fsck.vfat" << QByteArray() << QByteArray("fsck.vfat: invalid option") << 2 << false
        << "-n DEV"
        << ""
        << "could not check it (\"fsck.vfat: invalid option\")";
}

void TestVolumeStructures::fakeCheckers()
{
    QFETCH(QString, fsType);
    QFETCH(QString, program);
    QFETCH(QByteArray, out);
    QFETCH(QByteArray, err);
    QFETCH(int, exitCode);
    QFETCH(bool, mountedReadOnly);
    QFETCH(QString, arguments);
    QFETCH(QString, type);
    QFETCH(QString, evidence);
    const QString device = m_dir.filePath(QStringLiteral("device"));
    installFake(program, out.replace("DEV", QFile::encodeName(device)),
                err.replace("DEV", QFile::encodeName(device)), exitCode);
    HXVolume volume = volumeAt(device, fsType);
    if (mountedReadOnly)
        volume.mountPoint = QStringLiteral("/mnt/ro");
    evidence.replace(QLatin1String("DEV"), device);

    const Outcome outcome = runTest({volume});
    QCOMPARE(fakeArguments(),
             arguments.replace(QLatin1String("DEV"), device).split(QLatin1Char(' ')));
    if (type.isEmpty()) {
        QVERIFY(outcome.findings.isEmpty());
        QCOMPARE(outcome.said.size(), 1);
        QVERIFY2(outcome.said.first().startsWith(
                     QStringLiteral("Volume Structures test: ") +
                     (mountedReadOnly ? QStringLiteral("/mnt/ro (image, %1) was not checked: ")
                                      : QStringLiteral("image (%1) was not checked: "))
                         .arg(fsType)),
                 qPrintable(outcome.said.first()));
        QVERIFY2(outcome.said.first().contains(evidence), qPrintable(outcome.said.first()));
        return;
    }
    QVERIFY(outcome.said.isEmpty());
    QCOMPARE(outcome.findings.size(), 1);
    QCOMPARE(outcome.findings.first().type, type);
    QVERIFY2(outcome.findings.first().log.contains(evidence),
             qPrintable(outcome.findings.first().log));
}

void TestVolumeStructures::checkerHungMissingOrCancelled()
{
    const HXVolume volume =
        volumeAt(m_dir.filePath(QStringLiteral("device")), QStringLiteral("ext4"));
    installFake(QStringLiteral("e2fsck"), "", "", 0, "exec sleep 30");
    QElapsedTimer clock;
    clock.start();
    Outcome outcome = runTest({volume}, {}, 300);
    QVERIFY(clock.elapsed() < 10000);
    QVERIFY(outcome.findings.isEmpty());
    QCOMPARE(outcome.said,
             QStringList{
                 QStringLiteral("Volume Structures test: image (ext4) was not checked: e2fsck -fn "
                                "%1 could not check it (\"e2fsck did not finish in time\").")
                     .arg(volume.devicePath)});

    const std::atomic_bool cancelled{true};
    outcome = runTest({volume}, {}, 0, &cancelled);
    QVERIFY(outcome.findings.isEmpty() && outcome.said.isEmpty());

    qputenv("PATH", QFile::encodeName(m_dir.filePath(QStringLiteral("empty"))));
    outcome = runTest({volume});
    qputenv("PATH", QFile::encodeName(m_fakes) + ":" + m_path + ":/usr/sbin:/sbin");
    QVERIFY(outcome.findings.isEmpty());
    QCOMPARE(outcome.said,
             QStringList{
                 QStringLiteral("Volume Structures test: image (ext4) was not checked: e2fsck -fn "
                                "%1 could not check it (\"e2fsck is not installed\").")
                     .arg(volume.devicePath)});
}

void TestVolumeStructures::volumesNotChecked()
{
    installFake(QStringLiteral("e2fsck"), "", "", 0);
    HXVolume excluded = volumeAt(m_dir.filePath(QStringLiteral("sdb1")), QStringLiteral("ext4"));
    excluded.mountPoint = QStringLiteral("/media/archive");
    excluded.label = QStringLiteral("Archive");
    HXVolume swap = volumeAt(m_dir.filePath(QStringLiteral("sdb2")), QStringLiteral("swap"));
    const HXExclusions exclusions = HXExclusions::fromEntries(
        {QVariantMap{{QStringLiteral("path"), QStringLiteral("/media/archive")},
                     {QStringLiteral("isExcludedFromVolTest"), true}},
         QVariantMap{{QStringLiteral("path"), swap.devicePath},
                     {QStringLiteral("isExcludedFromFileTest"), true}}});
    const Outcome outcome = runTest({excluded, swap}, exclusions);
    QVERIFY(outcome.findings.isEmpty());
    QVERIFY(fakeArguments().isEmpty());
    QCOMPARE(outcome.said,
             (QStringList{
                 QStringLiteral(
                     "Volume Structures test: Archive (image, ext4) was skipped, as it is excluded "
                     "from this test."),
                 QStringLiteral(
                     "Volume Structures test: image (swap) was not checked: there is no checker "
                     "for swap file systems that can check without changing anything.")}));
}

QTEST_GUILESS_MAIN(TestVolumeStructures)
#include "tst_volumestructures.moc"
