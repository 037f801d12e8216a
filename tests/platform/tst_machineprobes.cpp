// The machine probes against folders laid out as the kernel lays them out,
// and the real disk probe on this machine (which has no udev daemon).
#include "HXMachineProbes.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestMachineProbes : public QObject
{
    Q_OBJECT

private:
    static void write(const QString &path, const QByteArray &text)
    {
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
    }

private Q_SLOTS:
    void battery()
    {
        QTemporaryDir sys;
        HXLinuxMachineProbes probes;
        probes.powerSupplyFolder = sys.path();
        QVERIFY(!probes.hasInternalBattery()); // a desktop: nothing at all
        write(sys.filePath(QStringLiteral("AC/type")), "Mains\n");
        write(sys.filePath(QStringLiteral("hidpp_battery_0/type")), "Battery\n");
        write(sys.filePath(QStringLiteral("hidpp_battery_0/scope")), "Device\n");
        QVERIFY(!probes.hasInternalBattery()); // a wireless mouse's battery does not count
        write(sys.filePath(QStringLiteral("BAT0/type")), "Battery\n");
        QVERIFY(probes.hasInternalBattery());
        write(sys.filePath(QStringLiteral("BAT0/scope")), "System\n");
        QVERIFY(probes.hasInternalBattery());
    }

    void raid_data()
    {
        QTest::addColumn<QByteArray>("mdstat");
        QTest::addColumn<bool>("exists");
        QTest::newRow("none") << QByteArray("Personalities : \nunused devices: <none>\n") << false;
        QTest::newRow("mirror") << QByteArray("Personalities : [raid1]\nmd0 : active raid1 sdb1[1] sda1[0]\n"
                                              "      976630464 blocks super 1.2 [2/2] [UU]\n\nunused devices: <none>\n")
                                << true;
        QTest::newRow("named, auto-read-only") << QByteArray("md127 : active (auto-read-only) raid5 sdc[2] sdb[1] sda[0]\n")
                                               << true;
        QTest::newRow("inactive only") << QByteArray("md127 : inactive sdb[0](S)\n      976631512 blocks super 1.2\n")
                                       << false;
        QTest::newRow("the word elsewhere") << QByteArray("Personalities : [raid1] active\n") << false;
    }

    void raid()
    {
        QFETCH(QByteArray, mdstat);
        QFETCH(bool, exists);
        QTemporaryDir proc;
        HXLinuxMachineProbes probes;
        probes.mdstatFile = proc.filePath(QStringLiteral("mdstat"));
        QVERIFY(!probes.raidExists()); // no md driver loaded: no file
        write(probes.mdstatFile, mdstat);
        QCOMPARE(probes.raidExists(), exists);
    }

    void smartOnThisMachine()
    {
        // Without a udev daemon only the names tell: an NVMe disk speaks
        // SMART; loop, ram and zram devices never count.
        const QStringList disks = QDir(QStringLiteral("/sys/block")).entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
        const bool nvme = std::any_of(disks.cbegin(), disks.cend(), [](const QString &d) { return d.startsWith(QLatin1String("nvme")); });
        const bool scsiOrAta = std::any_of(disks.cbegin(), disks.cend(), [](const QString &d) { return d.startsWith(QLatin1String("sd")); });
        const bool found = HXLinuxMachineProbes().smartExists();
        if (nvme)
            QVERIFY(found);
        if (!nvme && !scsiOrAta)
            QVERIFY(!found);
    }

    void versions()
    {
        QCOMPARE(HXSystemVersion::parse(QStringLiteral("10.6.8")).minor, 6);
        QCOMPARE(HXSystemVersion::parse(QStringLiteral("10.6")).minor, 15);
        QCOMPARE(HXSystemVersion::parse(QStringLiteral("ten.6.8")).minor, 15);
        QCOMPARE(HXSystemVersion::current().major, 10);

        HXFakeMachineProbes fake;
        fake.raid = false;
        HXMachineProbes::setCurrent(&fake);
        QVERIFY(!HXMachineProbes::current().raidExists());
        HXMachineProbes::setCurrent(nullptr);
    }
};

QTEST_GUILESS_MAIN(TestMachineProbes)
#include "tst_machineprobes.moc"
