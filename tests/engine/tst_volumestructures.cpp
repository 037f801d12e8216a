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

} // namespace

class TestVolumeStructures : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_fakes;
    QByteArray m_path;

    void setPath(const QByteArray &path)
    {
        // The real checkers live in the sbin folders, which a user's PATH may lack.
        qputenv("PATH", QFile::encodeName(m_fakes) + ":" + path + ":/usr/sbin:/sbin");
    }
    // A checker first on PATH that records its arguments, prints and exits
    // as told.
    void installFake(const QString &program, const QByteArray &out, const QByteArray &err,
                     int exitCode, const QByteArray &before = QByteArray())
    {
        QFile script(m_fakes + QLatin1Char('/') + program);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\nprintf '%s\\n' \"$@\" > '" +
                     QFile::encodeName(m_dir.filePath(QStringLiteral("arguments"))) + "'\n" +
                     before + "\ncat <<'OUT'\n" + out + "\nOUT\ncat >&2 <<'ERR'\n" + err +
                     "\nERR\nexit " + QByteArray::number(exitCode) + "\n");
        script.close();
        QVERIFY(script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    }
    QString fakeArguments() const
    {
        return QString::fromLocal8Bit(readFile(m_dir.filePath(QStringLiteral("arguments"))))
            .trimmed()
            .replace(QLatin1Char('\n'), QLatin1Char(' '));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        m_fakes = m_dir.filePath(QStringLiteral("fakes"));
        QVERIFY(QDir().mkpath(m_fakes));
        m_path = qgetenv("PATH");
        setPath(m_path);
    }

    void cleanup()
    {
        QDir(m_fakes).removeRecursively();
        QDir().mkpath(m_fakes);
        QFile::remove(m_dir.filePath(QStringLiteral("arguments")));
    }

    void realCheckers_data()
    {
        // Named "<file system> <damage>"; the line of the checker's the result quotes.
        QTest::addColumn<QString>("evidence");
        QTest::newRow("ext4 clean") << "(\"vol: 11/4096 files";
        QTest::newRow("ext4 superblock") << "Superblock checksum does not match superblock";
        QTest::newRow("vfat clean") << "(\"";
        QTest::newRow("vfat FAT") << "(\"FATs differ but appear to be intact.\")";
    }

    void realCheckers()
    {
        QFETCH(QString, evidence);
        const QString tag = QString::fromLatin1(QTest::currentDataTag());
        const QString fsType = tag.section(QLatin1Char(' '), 0, 0);
        const QString damage = tag.section(QLatin1Char(' '), 1);
        const bool ext4 = fsType == QLatin1String("ext4");
        const QString image = m_dir.filePath(tag);
        QVERIFY(makeImage(image, ImageBytes));
        const QStringList mkfs = ext4 ? QStringList{QStringLiteral("-q"), QStringLiteral("-F"),
                                                    QStringLiteral("-L"), QStringLiteral("vol")}
                                      : QStringList{QStringLiteral("-n"), QStringLiteral("VOL")};
        QString why;
        if (!run(QStringLiteral("mkfs.") + fsType, mkfs + QStringList{image}, &why))
            QSKIP(qPrintable(why));
        if (damage == QLatin1String("superblock")) {
            QVERIFY(writeAt(image, 1024 + 0x0c, QByteArray("\x07\x00\x00\x00", 4))); // free blocks
        } else if (damage == QLatin1String("FAT")) {
            // Cluster 5 marked in use in the first FAT only, owned by no file.
            const qint64 fat = qint64(qFromLittleEndian<quint16>(readFile(image).constData() + 14));
            QVERIFY(writeAt(image, fat * 512 + 5 * 2, QByteArray("\xff\xff", 2)));
        }

        const auto digest = [&image] {
            return QCryptographicHash::hash(readFile(image), QCryptographicHash::Sha256);
        };
        const QByteArray before = digest();
        HXVolume volume = volumeAt(image, fsType);
        volume.label = QStringLiteral("Backup");
        const Outcome outcome = runTest({volume});
        QCOMPARE(digest(), before); // the checker changed nothing
        QVERIFY2(outcome.said.isEmpty(), qPrintable(outcome.said.join(QLatin1Char('\n'))));
        QCOMPARE(outcome.findings.size(), 1);
        const HXTestFinding &finding = outcome.findings.first();
        const bool valid = damage == QLatin1String("clean");
        QCOMPARE(finding.type, valid ? HXDTestResultSuccessType : HXDTestResultErrorType);
        QVERIFY2(finding.log.startsWith(
                     QStringLiteral("Volume Structures test %1 on Backup (image, "
                                    "%2): %3 %4 found ")
                         .arg(QLatin1String(valid ? "passed" : "error"), fsType,
                              QLatin1String(ext4 ? "e2fsck -fn" : "fsck.vfat -n"), image)) &&
                     finding.log.contains(evidence),
                 qPrintable(finding.log));
        QCOMPARE(finding.testInfo.value(HXDTestResultVolumeIsValidKey).toBool(), valid);
        QCOMPARE(finding.testInfo.value(HXDTestResultVolumeNameKey).toString(),
                 QStringLiteral("Backup"));
        QCOMPARE(finding.testInfo.value(HXDiskKey).toMap(), volume.diskInfo());
    }

    void mountedReadWriteBySuperblock()
    {
        const QString clean = m_dir.filePath(QStringLiteral("mounted-clean.img"));
        const QString failing = m_dir.filePath(QStringLiteral("mounted-errors.img"));
        QString why;
        for (const QString &image : {clean, failing}) {
            QVERIFY(makeImage(image, ImageBytes));
            if (!run(QStringLiteral("mkfs.ext4"),
                     {QStringLiteral("-q"), QStringLiteral("-F"), image}, &why))
                QSKIP(qPrintable(why));
        }
        // What the kernel writes when it meets errors, written by e2fsprogs'
        // own editor into the image.
        if (!run(QStringLiteral("debugfs"),
                 {QStringLiteral("-w"), QStringLiteral("-f"), QStringLiteral("-"), failing}, &why,
                 "ssv state 3\nssv error_count 3\nssv last_error_func ext4_lookup\n"
                 "ssv last_error_ino 12\nssv last_error_block 4711\n"
                 "ssv last_error_time 20240301120000\n"))
            QSKIP(qPrintable(why));
        installFake(QStringLiteral("e2fsck"), "", "", 0);

        QList<HXVolume> volumes{volumeAt(clean, QStringLiteral("ext4")),
                                volumeAt(failing, QStringLiteral("ext4")),
                                volumeAt(clean, QStringLiteral("xfs"))};
        for (HXVolume &volume : volumes) {
            volume.mountPoint = QStringLiteral("/srv");
            volume.mountedReadWrite = true;
        }
        const Outcome outcome = runTest(volumes);
        QVERIFY(fakeArguments().isEmpty()); // no checker on a file system in use
        QCOMPARE(outcome.findings.size(), 2);
        QCOMPARE(outcome.findings.at(0).type, HXDTestResultSuccessType);
        QVERIFY2(outcome.findings.at(0).log.endsWith(
                     QLatin1String("mounted read-write on /srv; its superblock says clean.")),
                 qPrintable(outcome.findings.at(0).log));
        QCOMPARE(outcome.findings.at(1).type, HXDTestResultErrorType);
        QCOMPARE(outcome.findings.at(1).log,
                 QStringLiteral("Volume Structures test error on /srv (image, ext4): mounted "
                                "read-write on /srv; its superblock says with errors (3 errors "
                                "recorded; the last in ext4_lookup, inode 12, block 4711, on "
                                "2024-03-01T12:00:00Z)."));
        QCOMPARE(outcome.findings.at(1).testInfo.value(HXDTestResultVolumeIsValidKey).toBool(),
                 false);
        QCOMPARE(outcome.said.size(), 1);
        QVERIFY2(outcome.said.first().contains(QLatin1String(
                     "(image, xfs) is mounted read-write on /srv, and xfs keeps no state")),
                 qPrintable(outcome.said.first()));

        // Only the error bit, as a kernel sets it before counting.
        QByteArray superblock = readFile(clean).mid(1024, 1024);
        qToLittleEndian<quint16>(0x0003, superblock.data() + 0x3a);
        const std::optional<HXExtSuperblock> parsed = HXExtSuperblock::parse(superblock, nullptr);
        QVERIFY(parsed && parsed->hasErrors() &&
                parsed->stateText() == QLatin1String("with errors"));
        QVERIFY(!HXExtSuperblock::parse(readFile(clean).mid(0, 1024), &why));
        QCOMPARE(why, QStringLiteral("it holds no ext2/3/4 superblock"));
    }

    void fakeCheckers_data()
    {
        // Named "<file system> <what the checker finds>".
        QTest::addColumn<QString>("command"); // DEV stands for the device
        QTest::addColumn<QByteArray>("out");
        QTest::addColumn<QByteArray>("err");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<bool>("mountedReadOnly");
        QTest::addColumn<QString>("type"); // none: not checked, no finding
        QTest::addColumn<QString>("evidence");

        const QByteArray none;
        const QByteArray xfsPhases = "Phase 1 - find and verify superblock...\n"
                                     "        - block cache size set to 2048\n";
        QTest::newRow("xfs corrupt")
            << "xfs_repair -n DEV"
            << xfsPhases + "agf_freeblks 5, counted 6 in ag 0\nsb_fdblocks 42, counted 43\n"
            << none << 1 << false << HXDTestResultErrorType
            << "(\"agf_freeblks 5, counted 6 in ag 0\")";
        QTest::newRow("xfs busy") << "xfs_repair -n DEV" << none
                                  << QByteArray("xfs_repair: cannot open DEV: Device or resource "
                                                "busy")
                                  << 1 << false << QString()
                                  << "(\"xfs_repair: cannot open DEV: Device or resource busy\")";
        QTest::newRow("btrfs errors")
            << "btrfs check --readonly DEV"
            << QByteArray("Opening filesystem to check...\nChecking filesystem on DEV\n"
                          "[1/7] checking root items\nfound 147456 bytes used, error(s) found\n")
            << QByteArray("ERROR: errors found in fs roots") << 1 << false << HXDTestResultErrorType
            << "(\"ERROR: errors found in fs roots\")";
        QTest::newRow("btrfs clean, mounted read-only")
            << "btrfs check --readonly --force DEV"
            << QByteArray("[7/7] checking quota groups skipped\nfound 147456 bytes used, no error "
                          "found\ntotal csum bytes: 0\n")
            << none << 0 << true << HXDTestResultSuccessType
            << "found no problems (\"found 147456 bytes used, no error found\")";
        QTest::newRow("ext3 busy, mounted read-only")
            << "e2fsck -fn DEV" << none
            << QByteArray("e2fsck 1.47.0 (5-Feb-2023)\ne2fsck: Device or resource busy while "
                          "trying to open DEV")
            << 8 << true << QString() << "(\"e2fsck: Device or resource busy while trying to";
        QTest::newRow("ext2 errors and an operational error")
            << "e2fsck -fn DEV"
            << QByteArray("Pass 1: Checking inodes, blocks, and sizes\nInode 12 has illegal "
                          "block(s).  Clear? no\n")
            << QByteArray("e2fsck: aborted") << 12 << false << HXDTestResultErrorType
            << "(\"Inode 12 has illegal block(s).\")";
        QTest::newRow("exfat errors")
            << "fsck.exfat -n DEV"
            << QByteArray("exfatprogs version : 1.2.0\nERROR: bitmap mismatch\n") << none << 4
            << false << HXDTestResultErrorType << "(\"ERROR: bitmap mismatch\")";
        QTest::newRow("vfat usage error")
            << "fsck.vfat -n DEV" << none << QByteArray("fsck.vfat: invalid option") << 2 << false
            << QString() << "(\"fsck.vfat: invalid option\")";
    }

    void fakeCheckers()
    {
        const QString fsType =
            QString::fromLatin1(QTest::currentDataTag()).section(QLatin1Char(' '), 0, 0);
        QFETCH(QString, command);
        QFETCH(QByteArray, out);
        QFETCH(QByteArray, err);
        QFETCH(int, exitCode);
        QFETCH(bool, mountedReadOnly);
        QFETCH(QString, type);
        QFETCH(QString, evidence);
        const QString device = m_dir.filePath(QStringLiteral("device"));
        command.replace(QLatin1String("DEV"), device);
        evidence.replace(QLatin1String("DEV"), device);
        installFake(command.section(QLatin1Char(' '), 0, 0),
                    out.replace("DEV", QFile::encodeName(device)),
                    err.replace("DEV", QFile::encodeName(device)), exitCode);
        HXVolume volume = volumeAt(device, fsType);
        if (mountedReadOnly)
            volume.mountPoint = QStringLiteral("/mnt/ro");

        const Outcome outcome = runTest({volume});
        QCOMPARE(fakeArguments(), command.section(QLatin1Char(' '), 1));
        if (type.isEmpty()) {
            QVERIFY(outcome.findings.isEmpty());
            QCOMPARE(outcome.said.size(), 1);
            QVERIFY2(outcome.said.first().contains(
                         QStringLiteral("%1) was not checked: %2 could not check it %3")
                             .arg(fsType, command, evidence)),
                     qPrintable(outcome.said.first()));
            return;
        }
        QVERIFY(outcome.said.isEmpty());
        QCOMPARE(outcome.findings.size(), 1);
        QCOMPARE(outcome.findings.first().type, type);
        QVERIFY2(outcome.findings.first().log.contains(command + QLatin1Char(' ')) &&
                     outcome.findings.first().log.contains(evidence),
                 qPrintable(outcome.findings.first().log));
    }

    void checkerHungMissingOrCancelled()
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
                 QStringList{QStringLiteral("Volume Structures test: image (ext4) was not "
                                            "checked: e2fsck -fn %1 could not check it (\"e2fsck "
                                            "did not finish in time\").")
                                 .arg(volume.devicePath)});

        const std::atomic_bool cancelled{true};
        outcome = runTest({volume}, {}, 0, &cancelled);
        QVERIFY(outcome.findings.isEmpty() && outcome.said.isEmpty());

        qputenv("PATH", QFile::encodeName(m_dir.filePath(QStringLiteral("empty"))));
        outcome = runTest({volume});
        setPath(m_path);
        QVERIFY(outcome.findings.isEmpty());
        QVERIFY2(outcome.said.size() == 1 &&
                     outcome.said.first().contains(QLatin1String("(\"e2fsck is not installed\")")),
                 qPrintable(outcome.said.join(QLatin1Char('\n'))));
    }

    void volumesNotChecked()
    {
        installFake(QStringLiteral("e2fsck"), "", "", 0);
        HXVolume excluded =
            volumeAt(m_dir.filePath(QStringLiteral("sdb1")), QStringLiteral("ext4"));
        excluded.mountPoint = QStringLiteral("/media/archive");
        excluded.label = QStringLiteral("Archive");
        HXVolume swap = volumeAt(m_dir.filePath(QStringLiteral("sdb2")), QStringLiteral("swap"));
        const Outcome outcome =
            runTest({excluded, swap},
                    HXExclusions::fromEntries(
                        {QVariantMap{{QStringLiteral("path"), QStringLiteral("/media/archive")},
                                     {QStringLiteral("isExcludedFromVolTest"), true}},
                         QVariantMap{{QStringLiteral("path"), swap.devicePath},
                                     {QStringLiteral("isExcludedFromFileTest"), true}}}));
        QVERIFY(outcome.findings.isEmpty());
        QVERIFY(fakeArguments().isEmpty());
        QCOMPARE(outcome.said.size(), 2);
        QVERIFY2(outcome.said.at(0).contains(QLatin1String("Archive (image, ext4) was skipped")) &&
                     outcome.said.at(1).contains(
                         QLatin1String("image (swap) was not checked: there is no checker")),
                 qPrintable(outcome.said.join(QLatin1Char('\n'))));
    }
};

QTEST_GUILESS_MAIN(TestVolumeStructures)
#include "tst_volumestructures.moc"
