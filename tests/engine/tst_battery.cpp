// The battery test: /sys/class/power_supply as drivers lay it out, read
// through ORVEX_SYSROOT from a fixture tree, and the machine probe that
// decides whether the test applies reading the same tree.
#include "EngineTestRun.h"
#include "HXBatteryTest.h"
#include "HXConstants.h"
#include "HXMachineProbes.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kFixtureRoot = QStringLiteral(FIXTURES "/sysroot-power");

using Pass = EngineTestRun;

Pass runUnder(const QString &sysroot)
{
    return runTestUnder<HXBatteryTest>(sysroot);
}

// A power supply folder with the given attributes, under `root`.
void writeSupply(const QString &root, const QString &name,
                 const QMap<QByteArray, QByteArray> &attributes)
{
    const QString folder = root + QStringLiteral("/sys/class/power_supply/") + name;
    QVERIFY(QDir().mkpath(folder));
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it) {
        QFile f(folder + QLatin1Char('/') + QString::fromLatin1(it.key()));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(it.value() + '\n');
    }
}

HXBatteryFacts facts(qint64 full, qint64 design, const QString &health = {})
{
    HXBatteryFacts f;
    f.name = QStringLiteral("BAT0");
    f.full = full;
    f.design = design;
    f.unit = QStringLiteral("energy");
    f.health = health;
    return f;
}

} // namespace

class TestBattery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("ORVEX_SYSROOT"); }

    // A machine with every kind of power supply: laptop cells worn to
    // different degrees, an empty bay, a mouse, a smart battery giving
    // charge figures, a dead fuel gauge and a firmware writing garbage.
    void judgesEachBatteryOfTheMachine()
    {
        const Pass pass = runUnder(kFixtureRoot);
        QStringList names;
        for (const HXTestFinding &f : pass.findings)
            names.append(f.testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey).toString());
        QCOMPARE(names, (QStringList{QStringLiteral("BAT0"), QStringLiteral("BAT1"),
                                     QStringLiteral("BAT2"), QStringLiteral("BAT4"),
                                     QStringLiteral("bq27541-0"), QStringLiteral("sbs-5-000b")}));

        const QList<QPair<QString, QString>> expected{
            {HXDTestResultSuccessType,
             QStringLiteral("Battery test passed on BAT0 (SANYO 45N1041): 91 % of its design "
                            "capacity, 312 cycles")},
            {HXDTestResultWarningType,
             QStringLiteral("Battery test warning on BAT1 (LGC 5B10W13930): 70 % of its design "
                            "capacity (below "
                            "80 %), 684 cycles")},
            {HXDTestResultErrorType, QStringLiteral("Battery test failed on BAT2 (SMP DELL "
                                                    "7FJ9215): 40 % of its design capacity (below "
                                                    "50 %), 1210 cycles")},
            {HXDTestResultSuccessType,
             QStringLiteral(
                 "Battery test passed on BAT4 (OEM): its capacity could not be judged because "
                 "energy_full is not a number of the kind it should be (\u201c??\u201d)")},
            {HXDTestResultErrorType,
             QStringLiteral(
                 "Battery test failed on bq27541-0 (bq27541): its capacity could not be judged "
                 "because the driver gives charge_full_design but no charge_full, its driver "
                 "reports "
                 "its health as \u201cDead\u201d")},
            {HXDTestResultSuccessType,
             QStringLiteral("Battery test passed on sbs-5-000b (SMP bq20z45): 93 % of its design "
                            "capacity, its "
                            "driver reports its health as \u201cGood\u201d, 85 cycles")},
        };
        for (int i = 0; i < expected.size(); ++i) {
            QCOMPARE(pass.findings[i].log, expected[i].second);
            QCOMPARE(pass.findings[i].type, expected[i].first);
        }

        QCOMPARE(pass.findings[0].testInfo.value(HXDiskKey).toMap(),
                 (QVariantMap{{QStringLiteral("uuid"), QStringLiteral("SANYO 45N1041 8163")},
                              {HXBSDNameKey, QStringLiteral("BAT0")},
                              {HXVolumeNameKey, QStringLiteral("45N1041")},
                              {HXDeviceNameAndSizeKey, QStringLiteral("45N1041")}}));
        // Garbage names nothing it can be known by but its kernel name and what was legible.
        QCOMPARE(pass.findings[3]
                     .testInfo.value(HXDiskKey)
                     .toMap()
                     .value(QStringLiteral("uuid"))
                     .toString(),
                 QStringLiteral("OEM"));

        QCOMPARE(pass.notes.size(), 2);
        QVERIFY(pass.notes[0].contains(QLatin1String("BAT3 reports no battery in its bay")));
        QVERIFY(
            pass.notes[1].contains(QLatin1String("hidpp_battery_0 is the battery of a device")));
    }

    void capacityMarksAndUnbelievableFigures_data()
    {
        QTest::addColumn<QByteArray>("full");
        QTest::addColumn<QByteArray>("design");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("says");
        QTest::newRow("at the mark")
            << QByteArray("8000") << QByteArray("10000") << HXDTestResultSuccessType
            << QStringLiteral("80 % of its design capacity");
        QTest::newRow("just under it is shown under it")
            << QByteArray("7999") << QByteArray("10000") << HXDTestResultWarningType
            << QStringLiteral("79 % of its design capacity (below 80 %)");
        QTest::newRow("under half")
            << QByteArray("4999") << QByteArray("10000") << HXDTestResultErrorType
            << QStringLiteral("49 % of its design capacity (below 50 %)");
        QTest::newRow("new cells hold a little more")
            << QByteArray("10400") << QByteArray("10000") << HXDTestResultSuccessType
            << QStringLiteral("104 % of its design capacity");
        QTest::newRow("nothing left")
            << QByteArray("0") << QByteArray("10000") << HXDTestResultErrorType
            << QStringLiteral("0 % of its design capacity (below 50 %)");
        QTest::newRow("far above its design")
            << QByteArray("16000") << QByteArray("10000") << HXDTestResultSuccessType
            << QStringLiteral(
                   "because energy_full (16000) is far above energy_full_design (10000)");
    }
    void capacityMarksAndUnbelievableFigures()
    {
        QFETCH(QByteArray, full);
        QFETCH(QByteArray, design);
        QFETCH(QString, type);
        QFETCH(QString, says);
        QTemporaryDir root;
        writeSupply(root.path(), QStringLiteral("BAT0"),
                    {{"type", "Battery"}, {"energy_full", full}, {"energy_full_design", design}});
        const Pass pass = runUnder(root.path());
        QCOMPARE(pass.findings.size(), 1);
        QVERIFY2(pass.findings[0].log.contains(says), qPrintable(pass.findings[0].log));
        QCOMPARE(pass.findings[0].type, type);
    }

    // A garbled energy pair does not hide a good charge pair; neither pair
    // at all is said as such.
    void theUnitThatCanBeReadIsUsed()
    {
        QTemporaryDir root;
        writeSupply(root.path(), QStringLiteral("BAT0"),
                    {{"type", "Battery"},
                     {"energy_full", "n/a"},
                     {"energy_full_design", "0"},
                     {"charge_full", "2100000"},
                     {"charge_full_design", "3000000"}});
        writeSupply(root.path(), QStringLiteral("BAT1"),
                    {{"type", "Battery"}, {"scope", "System"}});
        const Pass pass = runUnder(root.path());
        QCOMPARE(pass.findings.size(), 2);
        QCOMPARE(pass.findings[0].type, HXDTestResultWarningType);
        QVERIFY(pass.findings[0].log.contains(QLatin1String("70 % of its design capacity")));
        QCOMPARE(pass.findings[1].type, HXDTestResultSuccessType);
        QCOMPARE(pass.findings[1].log,
                 QStringLiteral(
                     "Battery test passed on BAT1: its capacity could not be judged because the "
                     "driver gives neither energy_full nor charge_full figures"));
    }

    void theDriversHealthWord_data()
    {
        QTest::addColumn<QString>("health");
        QTest::addColumn<qint64>("full");
        QTest::addColumn<QString>("type");
        QTest::newRow("dead at full capacity")
            << QStringLiteral("Dead") << qint64(95) << HXDTestResultErrorType;
        QTest::newRow("too cold to charge")
            << QStringLiteral("Cold") << qint64(95) << HXDTestResultWarningType;
        QTest::newRow("capacity is worse than the word")
            << QStringLiteral("Overheat") << qint64(40) << HXDTestResultErrorType;
        QTest::newRow("warm is a normal range")
            << QStringLiteral("Warm") << qint64(95) << HXDTestResultSuccessType;
        QTest::newRow("the driver does not know")
            << QStringLiteral("Unknown") << qint64(70) << HXDTestResultWarningType;
        QTest::newRow("a word no kernel defines")
            << QStringLiteral("Frobnicated") << qint64(95) << HXDTestResultSuccessType;
    }
    void theDriversHealthWord()
    {
        QFETCH(QString, health);
        QFETCH(qint64, full);
        QFETCH(QString, type);
        const HXTestFinding f = HXBatteryTest::judge(facts(full, 100, health));
        QCOMPARE(f.type, type);
        QVERIFY2(f.log.contains(QStringLiteral("health as \u201c%1\u201d").arg(health)),
                 qPrintable(f.log));
        QCOMPARE(f.log.contains(QLatin1String("a word the kernel does not define")),
                 health == QLatin1String("Frobnicated"));
    }

    // The probe that shows the test as not applicable reads the same folder
    // from the same root, and agrees with the test.
    void theProbeAndTheTestAgreeUnderTheSysroot()
    {
        QTemporaryDir desktop; // mains power and a mouse
        writeSupply(desktop.path(), QStringLiteral("AC"), {{"type", "Mains"}, {"online", "1"}});
        writeSupply(desktop.path(), QStringLiteral("hid-00:1f:20:aa:bb:cc-battery"),
                    {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "40"}});
        QTemporaryDir emptyBay; // a laptop whose battery was taken out
        writeSupply(emptyBay.path(), QStringLiteral("BAT0"),
                    {{"type", "Battery"}, {"present", "0"}});
        QTemporaryDir nothing;
        for (const QString &sysroot :
             {kFixtureRoot, desktop.path(), emptyBay.path(), nothing.path()}) {
            const bool tested = !runUnder(sysroot).findings.isEmpty(); // sets ORVEX_SYSROOT
            const HXLinuxMachineProbes probes;                         // constructed after it
            QCOMPARE(probes.powerSupplyFolder, sysroot + QStringLiteral("/sys/class/power_supply"));
            QCOMPARE(probes.hasInternalBattery(), tested);
            QCOMPARE(tested, sysroot == kFixtureRoot);
        }
    }
};

QTEST_GUILESS_MAIN(TestBattery)
#include "tst_battery.moc"
