// The RAID test: /proc/mdstat as the kernel writes it, read through
// ORVEX_SYSROOT from fixture trees, and the machine probe that decides
// whether the test applies reading the same trees.
#include "EngineTestRun.h"
#include "HXMachineProbes.h"
#include "HXMdstat.h"
#include "HXRAIDTest.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

QString root(const char *name)
{
    return QStringLiteral(FIXTURES "/%1").arg(QLatin1String(name));
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
        QTest::addColumn<QString>("says");
        // The kernel prints a recovery that has not started as "resync=DELAYED".
        QTest::newRow("recovery held back by another array")
            << u"md126 : active raid1 sde2[2] sdd2[1]\n"
               "      523200 blocks super 1.2 [2/1] [_U]\n"
               "      \tresync=DELAYED\n"_s
            << HXDTestResultWarningType
            << u"md126 rebuilding: a recovery waits for another array on the same "
               "disks; 1 of 2 members missing until it ends"_s;
        QTest::newRow("recovery rebuilds one of two missing slots")
            << u"md4 : active raid6 sdd1[4] sdc1[2] sdb1[1] sda1[0](F)\n"
               "      2093056 blocks super 1.2 level 6, 512k chunk, algorithm 2 [4/2] [_UU_]\n"
               "      [===>.................]  recovery = 17.0% (178432/1046528) "
               "finish=0.3min speed=44608K/sec\n"_s
            << HXDTestResultErrorType
            << u"md4 degraded: 2 of 4 members missing (sda1 failed; recovery"_s;
        QTest::newRow("whole again with the failed member still listed")
            << u"md6 : active raid1 sde1[2] sdd1[1] sdc1[0](F)\n"
               "      1046528 blocks super 1.2 [2/2] [UU]\n"_s
            << HXDTestResultWarningType
            << u"sdc1 failed and is still part of the array, which is whole again"_s;
        QTest::newRow("the monthly check is routine")
            << u"md9 : active raid10 nvme1n1p2[1] nvme0n1p2[0]\n"
               "      499975168 blocks super 1.2 2 near-copies [2/2] [UU]\n"
               "      [==========>..........]  check = 50.0% (249987584/499975168) "
               "finish=20.5min speed=203213K/sec\n"_s
            << HXDTestResultSuccessType << u"working (nvme1n1p2, nvme0n1p2); check 50.0 % done"_s;
        QTest::newRow("striping has no second copy")
            << u"md10 : active raid0 sdb1[1](F) sda1[0]\n"
               "      2093056 blocks super 1.2 512k chunks\n"_s
            << HXDTestResultErrorType
            << u"md10 degraded: sdb1 failed, and raid0 keeps no second copy"_s;
    }
    void judgesEachStateAnArrayCanBeIn()
    {
        QFETCH(QString, mdstat);
        QFETCH(QString, says);
        const HXMdstat md = HXMdstat::parse(u"Personalities : [raid1]\n"_s + mdstat +
                                            u"\nunused devices: <none>\n"_s);
        QCOMPARE(md.arrays.size(), 1);
        const HXTestFinding f = HXRAIDTest::judge(md.arrays[0], QString());
        QVERIFY2(f.log.contains(says), qPrintable(f.log));
        QTEST(f.type, "type");
    }

    // Truncated, reordered and bit-flipped copies of a real file: the parser
    // gives what it can and the judgement never reads past what it was given.
    void damagedFilesNeverCrash()
    {
        QFile file(root("sysroot-md") + u"/proc/mdstat"_s);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromLatin1(file.readAll());
        QRandomGenerator random(16);
        int arrays = 0;
        for (int round = 0; round < 3000; ++round) {
            QString damaged = text.left(random.bounded(text.size() + 1));
            for (int flips = random.bounded(6); flips > 0 && !damaged.isEmpty(); --flips)
                damaged[random.bounded(damaged.size())] =
                    QChar(u"[]()_U:= \n\t0F9S%/"[random.bounded(18)]);
            for (const HXMdArray &array : HXMdstat::parse(damaged).arrays) {
                const HXTestFinding f = HXRAIDTest::judge(array, QString());
                QVERIFY(f.log.startsWith(u"RAID test "_s));
                ++arrays;
            }
        }
        QVERIFY(arrays > 3000); // most copies still held arrays to judge
    }

    // Healthy, degraded, resyncing and rebuilding; an inactive array is only said.
    void findsEachActiveArrayOfTheMachine()
    {
        const EngineTestRun pass = runTestUnder<HXRAIDTest>(root("sysroot-md"));
        QCOMPARE(pass.findings.size(), 4);
        QCOMPARE(pass.findings[0].log,
                 u"RAID test passed on md0 (raid1): 2 of 2 members working (sdb1, sda1)"_s);
        const QStringList types{HXDTestResultSuccessType, HXDTestResultErrorType,
                                HXDTestResultWarningType, HXDTestResultWarningType};
        const QStringList says{
            QString(), u"md1 degraded: 1 of 2 members missing (sdd1 failed)"_s,
            u"md2 resyncing: resync 12.3 % done, about 94.6 minutes left"_s,
            u"md3 rebuilding: recovery 8.5 % done, about 98.7 minutes left; 1 of 5 "
            "members missing until it ends"_s};
        for (int i = 0; i < 4; ++i) {
            QCOMPARE(pass.findings[i].type, types[i]);
            QVERIFY2(pass.findings[i].log.contains(says[i]), qPrintable(pass.findings[i].log));
        }
        // The UUID is the kernel's; a kernel without the attribute leaves the name.
        QCOMPARE(pass.on(u"md0"_s).testInfo.value(HXDiskKey).toMap(),
                 (QVariantMap{{u"uuid"_s, u"3f1c9b2e-5d7a-4c1e-9a0b-6e2d8f4a7c10"_s},
                              {HXBSDNameKey, u"md0"_s},
                              {HXVolumeNameKey, u"md0 (raid1)"_s},
                              {HXDeviceNameAndSizeKey, u"md0 (raid1)"_s}}));
        QCOMPARE(pass.disk(u"md2"_s, u"uuid"_s), u"md2"_s);
        QCOMPARE(pass.notes.size(), 1);
        QVERIFY2(pass.notes[0].contains("md127 is inactive"_L1), qPrintable(pass.notes[0]));
    }

    // The probe that shows the test as not applicable reads the same file
    // from the same root, and agrees with the test on every machine here.
    void theProbeAndTheTestAgreeUnderTheSysroot()
    {
        QTemporaryDir empty; // no md driver
        for (const QString &sysroot : {root("sysroot-md"), root("sysroot-md-idle"), empty.path()}) {
            const int findings = runTestUnder<HXRAIDTest>(sysroot).findings.size();
            const HXLinuxMachineProbes probes; // constructed after ORVEX_SYSROOT is set
            QCOMPARE(probes.mdstatFile, sysroot + u"/proc/mdstat"_s);
            QCOMPARE(probes.raidExists(), findings > 0);
            QCOMPARE(findings, sysroot == root("sysroot-md") ? 4 : 0);
        }
    }
};

QTEST_GUILESS_MAIN(TestRaid)
#include "tst_raid.moc"
