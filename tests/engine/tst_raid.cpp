// The RAID test: /proc/mdstat as the kernel writes it, read through
// ORVEX_SYSROOT from fixture trees, and the machine probe that decides
// whether the test applies reading the same trees.
#include "EngineTestRun.h"
#include "HXConstants.h"
#include "HXMachineProbes.h"
#include "HXMdstat.h"
#include "HXRAIDTest.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString root(const char *name)
{
    return QStringLiteral(FIXTURES "/%1").arg(QLatin1String(name));
}

QString readText(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()) : QString();
}

using Pass = EngineTestRun;

Pass runUnder(const QString &sysroot)
{
    return runTestUnder<HXRAIDTest>(sysroot);
}

QVariantMap disk(const HXTestFinding &f)
{
    return f.testInfo.value(HXDiskKey).toMap();
}

} // namespace

class TestRaid : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("ORVEX_SYSROOT"); }

    // Shapes real kernels print besides those of the fixture machine.
    void judgesEachStateAnArrayCanBeIn_data()
    {
        QTest::addColumn<QString>("mdstat");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("log");

        // The kernel prints a recovery that has not started as "resync=DELAYED".
        QTest::newRow("recovery held back by another array")
            << QStringLiteral("md126 : active raid1 sde2[2] sdd2[1]\n"
                              "      523200 blocks super 1.2 [2/1] [_U]\n"
                              "      \tresync=DELAYED\n")
            << HXDTestResultWarningType
            << QStringLiteral(
                   "RAID test found md126 rebuilding: a recovery waits for another array on the "
                   "same disks; 1 of 2 members missing until it ends (members sde2, sdd2)");
        QTest::newRow("recovery rebuilds one of two missing slots")
            << QStringLiteral(
                   "md4 : active raid6 sdd1[4] sdc1[2] sdb1[1] sda1[0](F)\n"
                   "      2093056 blocks super 1.2 level 6, 512k chunk, algorithm 2 [4/2] [_UU_]\n"
                   "      [===>.................]  recovery = 17.0% (178432/1046528) "
                   "finish=0.3min speed=44608K/sec\n")
            << HXDTestResultErrorType
            << QStringLiteral(
                   "RAID test found md4 degraded: 2 of 4 members missing (sda1 failed; recovery "
                   "17.0 % done, about 0.3 minutes left)");
        QTest::newRow("a spare waits while a slot is empty")
            << QStringLiteral("md5 : active raid1 sdc1[2](S) sdb1[1] sda1[0](F)\n"
                              "      1046528 blocks super 1.2 [2/1] [_U]\n")
            << HXDTestResultErrorType
            << QStringLiteral(
                   "RAID test found md5 degraded: 1 of 2 members missing (sda1 failed; sdc1 "
                   "waiting as a spare)");
        QTest::newRow("whole again with the failed member still listed")
            << QStringLiteral("md6 : active raid1 sde1[2] sdd1[1] sdc1[0](F)\n"
                              "      1046528 blocks super 1.2 [2/2] [UU]\n")
            << HXDTestResultWarningType
            << QStringLiteral(
                   "RAID test found md6 with a failed member: sdc1 failed and is still part of "
                   "the array, which is whole again on 2 of 2 members (members sde1, sdd1, sdc1)");
        QTest::newRow("a replacement being built on a whole array")
            << QStringLiteral("md7 : active raid1 sdc1[2](R) sdb1[1] sda1[0]\n"
                              "      1046528 blocks super 1.2 [2/2] [UU]\n"
                              "      [>....................]  recovery =  2.5% (26176/1046528) "
                              "finish=1.2min speed=13088K/sec\n")
            << HXDTestResultWarningType
            << QStringLiteral(
                   "RAID test found md7 rebuilding: recovery 2.5 % done, about 1.2 minutes left "
                   "(members sdc1, sdb1, sda1)");
        QTest::newRow("the monthly check is routine")
            << QStringLiteral("md9 : active raid10 nvme1n1p2[1] nvme0n1p2[0]\n"
                              "      499975168 blocks super 1.2 2 near-copies [2/2] [UU]\n"
                              "      [==========>..........]  check = 50.0% (249987584/499975168) "
                              "finish=20.5min speed=203213K/sec\n")
            << HXDTestResultSuccessType
            << QStringLiteral(
                   "RAID test passed on md9 (raid10): 2 of 2 members working (nvme1n1p2, "
                   "nvme0n1p2); check 50.0 % done, about 20.5 minutes left");
        QTest::newRow("striping has no second copy")
            << QStringLiteral("md10 : active raid0 sdb1[1](F) sda1[0]\n"
                              "      2093056 blocks super 1.2 512k chunks\n")
            << HXDTestResultErrorType
            << QStringLiteral(
                   "RAID test found md10 degraded: sdb1 failed, and raid0 keeps no second copy "
                   "of its data (members sdb1, sda1)");
    }
    void judgesEachStateAnArrayCanBeIn()
    {
        QFETCH(QString, mdstat);
        QFETCH(QString, type);
        QFETCH(QString, log);
        const HXMdstat md = HXMdstat::parse(QStringLiteral("Personalities : [raid1]\n") + mdstat +
                                            QStringLiteral("\nunused devices: <none>\n"));
        QCOMPARE(md.arrays.size(), 1);
        const HXTestFinding f = HXRAIDTest::judge(md.arrays[0], QString());
        QCOMPARE(f.log, log);
        QCOMPARE(f.type, type);
    }

    // Truncated, reordered and bit-flipped copies of a real file: the parser
    // gives what it can and the judgement never reads past what it was given.
    void damagedFilesNeverCrash()
    {
        const QString text = readText(root("sysroot-md") + QStringLiteral("/proc/mdstat"));
        QVERIFY(!text.isEmpty());
        QRandomGenerator random(16);
        int arrays = 0;
        for (int round = 0; round < 3000; ++round) {
            QString damaged = text.left(random.bounded(text.size() + 1));
            for (int flips = random.bounded(6); flips > 0 && !damaged.isEmpty(); --flips)
                damaged[random.bounded(damaged.size())] =
                    QChar(u"[]()_U:= \n\t0F9S%/"[random.bounded(18)]);
            for (const HXMdArray &array : HXMdstat::parse(damaged).arrays) {
                const HXTestFinding f = HXRAIDTest::judge(array, QString());
                QVERIFY(f.log.startsWith(QStringLiteral("RAID test ")));
                ++arrays;
            }
        }
        QVERIFY(arrays > 3000); // most copies still held arrays to judge
        QVERIFY(HXMdstat::parse(QString::fromLatin1("\0\0md0 : active", 15)).arrays.isEmpty());
        QCOMPARE(
            HXMdstat::parse(QStringLiteral("md0 : active raid1 sda1[0")).arrays[0].members.size(),
            0);
    }

    void findsEachActiveArrayOfTheMachine()
    {
        const Pass pass = runUnder(root("sysroot-md"));
        QCOMPARE(pass.findings.size(), 4);

        QCOMPARE(pass.findings[0].type, HXDTestResultSuccessType);
        QCOMPARE(
            pass.findings[0].log,
            QStringLiteral("RAID test passed on md0 (raid1): 2 of 2 members working (sdb1, sda1)"));
        QCOMPARE(pass.findings[1].type, HXDTestResultErrorType);
        QCOMPARE(
            pass.findings[1].log,
            QStringLiteral("RAID test found md1 degraded: 1 of 2 members missing (sdd1 failed)"));
        QCOMPARE(pass.findings[2].type, HXDTestResultWarningType);
        QCOMPARE(pass.findings[2].log,
                 QStringLiteral(
                     "RAID test found md2 resyncing: resync 12.3 % done, about 94.6 minutes left "
                     "(members sdh1, sdg1, sdf1, sde1)"));
        QCOMPARE(pass.findings[3].type, HXDTestResultWarningType);
        QVERIFY2(pass.findings[3].log.startsWith(
                     QStringLiteral("RAID test found md3 rebuilding: recovery 8.5 % done, about "
                                    "98.7 minutes left; 1 of 5 "
                                    "members missing until it ends")),
                 qPrintable(pass.findings[3].log));

        // The UUID is the kernel's; a kernel without the attribute leaves the name.
        QCOMPARE(disk(pass.findings[0]),
                 (QVariantMap{{QStringLiteral("uuid"),
                               QStringLiteral("3f1c9b2e-5d7a-4c1e-9a0b-6e2d8f4a7c10")},
                              {HXBSDNameKey, QStringLiteral("md0")},
                              {HXVolumeNameKey, QStringLiteral("md0 (raid1)")},
                              {HXDeviceNameAndSizeKey, QStringLiteral("md0 (raid1)")}}));
        QCOMPARE(disk(pass.findings[2]).value(QStringLiteral("uuid")).toString(),
                 QStringLiteral("md2"));
        QCOMPARE(disk(pass.findings[3]).value(HXDeviceNameAndSizeKey).toString(),
                 QStringLiteral("md3 (raid6)"));

        QCOMPARE(pass.notes.size(), 1);
        QVERIFY2(pass.notes[0].contains(QLatin1String("md127 is inactive")),
                 qPrintable(pass.notes[0]));
    }

    // The probe that shows the test as not applicable reads the same file
    // from the same root, and agrees with the test on every machine here.
    void theProbeAndTheTestAgreeUnderTheSysroot_data()
    {
        QTest::addColumn<QString>("sysroot");
        QTest::addColumn<int>("findings");
        QTest::newRow("arrays") << root("sysroot-md") << 4;
        QTest::newRow("only an inactive array") << root("sysroot-md-idle") << 0;
        QTest::newRow("no md driver") << QStringLiteral("@empty") << 0;
    }
    void theProbeAndTheTestAgreeUnderTheSysroot()
    {
        QFETCH(QString, sysroot);
        QFETCH(int, findings);
        QTemporaryDir empty;
        if (sysroot == QLatin1String("@empty"))
            sysroot = empty.path();
        const Pass pass = runUnder(sysroot); // sets ORVEX_SYSROOT
        QCOMPARE(pass.findings.size(), findings);
        const HXLinuxMachineProbes probes; // constructed after the variable is set
        QCOMPARE(probes.mdstatFile, sysroot + QStringLiteral("/proc/mdstat"));
        QCOMPARE(probes.raidExists(), findings > 0);
    }
};

QTEST_GUILESS_MAIN(TestRaid)
#include "tst_raid.moc"
