// The battery test: /sys/class/power_supply as drivers lay it out, read
// through ORVEX_SYSROOT from a fixture tree, and the machine probe that
// decides whether the test applies reading the same tree.
#include "EngineTestRun.h"
#include "HXBatteryTest.h"
#include "HXMachineProbes.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;

namespace {

const QString kFixtureRoot = QStringLiteral(FIXTURES "/sysroot-power");

// A power supply folder with the given attributes, under `root`.
void writeSupply(const QString &root, const QString &name,
                 const QMap<QByteArray, QByteArray> &attributes)
{
    const QString folder = root + u"/sys/class/power_supply/"_s + name;
    QVERIFY(QDir().mkpath(folder));
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
        writeFile(folder + u'/' + QString::fromLatin1(it.key()), it.value() + '\n');
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
        const EngineTestRun pass = runTestUnder<HXBatteryTest>(kFixtureRoot);
        const QStringList says{
            u"passed on BAT0 (SANYO 45N1041): 91 % of its design capacity, 312 cycles"_s,
            u"warning on BAT1 (LGC 5B10W13930): 70 % of its design capacity (below 80 %)"_s,
            u"failed on BAT2 (SMP DELL 7FJ9215): 40 % of its design capacity (below 50 %)"_s,
            u"passed on BAT4 (OEM): its capacity could not be judged because energy_full is not "
            "a number of the kind it should be (\u201c??\u201d)"_s,
            u"failed on bq27541-0 (bq27541): its capacity could not be judged because the driver "
            "gives charge_full_design but no charge_full, its driver reports its health as "
            "\u201cDead\u201d"_s,
            u"passed on sbs-5-000b (SMP bq20z45): 93 % of its design capacity, its driver reports "
            "its health as \u201cGood\u201d"_s};
        QCOMPARE(pass.findings.size(), says.size());
        for (int i = 0; i < says.size(); ++i)
            QVERIFY2(pass.findings[i].log.contains(says[i]), qPrintable(pass.findings[i].log));
        QCOMPARE(pass.findings[2].type, HXDTestResultErrorType);
        QCOMPARE(pass.findings[2].log, u"Battery test failed on BAT2 (SMP DELL 7FJ9215): 40 % of "
                                       "its design capacity (below 50 %), 1210 cycles"_s);
        QCOMPARE(pass.on(u"BAT0"_s).testInfo.value(HXDiskKey).toMap(),
                 (QVariantMap{{u"uuid"_s, u"SANYO 45N1041 8163"_s},
                              {HXBSDNameKey, u"BAT0"_s},
                              {HXVolumeNameKey, u"45N1041"_s},
                              {HXDeviceNameAndSizeKey, u"45N1041"_s}}));
        // Garbage names nothing it can be known by but its kernel name and what was legible.
        QCOMPARE(pass.disk(u"BAT4"_s, u"uuid"_s), u"OEM"_s);

        QCOMPARE(pass.notes.size(), 2);
        QVERIFY(pass.notes[0].contains("BAT3 reports no battery in its bay"_L1));
        QVERIFY(pass.notes[1].contains("hidpp_battery_0 is the battery of a"_L1));
    }

    // The 80 % and 50 % marks, each side of them; the driver's health word:
    // error words, warning words and neutral ones, the worse of the word and
    // the capacity winning, a word no kernel defines shown but not judged.
    void judgesCapacityAndHealth_data()
    {
        QTest::addColumn<int>("full"); // of a design of 10000
        QTest::addColumn<QString>("health");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("says");
        const auto row = [](const char *name, int full, const char *health, const QString &type,
                            const char *says) {
            QTest::newRow(name) << full << QString::fromLatin1(health) << type
                                << QString::fromUtf8(says);
        };
        row("at the mark", 8000, "", HXDTestResultSuccessType, "80 % of its design capacity");
        row("just under it is shown under it", 7999, "", HXDTestResultWarningType,
            "79 % of its design capacity (below 80 %)");
        row("at half", 5000, "", HXDTestResultWarningType, "50 % of its design capacity (below 80");
        row("under half", 4999, "", HXDTestResultErrorType,
            "49 % of its design capacity (below 50");
        row("nothing left", 0, "", HXDTestResultErrorType, "0 % of its design capacity (below 50");
        row("dead", 9500, "Dead", HXDTestResultErrorType, "health as \u201cDead\u201d");
        row("cold", 9500, "Cold", HXDTestResultWarningType, "health as \u201cCold\u201d");
        row("warm", 9500, "Warm", HXDTestResultSuccessType, "health as \u201cWarm\u201d");
        row("capacity worse than the word", 4000, "Overheat", HXDTestResultErrorType, "Overheat");
        row("a neutral word keeps the capacity's warning", 7000, "Unknown",
            HXDTestResultWarningType, "Unknown");
        row("a word no kernel defines", 9500, "Frobnicated", HXDTestResultSuccessType,
            "\u201cFrobnicated\u201d, a word the kernel does not define, so it was not judged");
    }
    void judgesCapacityAndHealth()
    {
        QFETCH(int, full);
        QFETCH(QString, health);
        QFETCH(QString, says);
        HXBatteryFacts facts;
        facts.name = u"BAT0"_s;
        facts.full = full;
        facts.design = 10000;
        facts.health = health;
        const HXTestFinding f = HXBatteryTest::judge(facts);
        QTEST(f.type, "type");
        QVERIFY2(f.log.contains(says), qPrintable(f.log));
    }

    // A garbled energy pair does not hide a good charge pair; new cells hold
    // a little more than their design, but far more is not believed; neither
    // pair at all is said as such.
    void readsTheFiguresThatCanBeBelieved()
    {
        QTemporaryDir root;
        writeSupply(root.path(), u"BAT0"_s,
                    {{"type", "Battery"},
                     {"energy_full", "n/a"},
                     {"energy_full_design", "0"},
                     {"charge_full", "2100000"},
                     {"charge_full_design", "3000000"}});
        writeSupply(root.path(), u"BAT1"_s, {{"type", "Battery"}, {"scope", "System"}});
        writeSupply(
            root.path(), u"BAT2"_s,
            {{"type", "Battery"}, {"energy_full", "10400"}, {"energy_full_design", "10000"}});
        writeSupply(
            root.path(), u"BAT3"_s,
            {{"type", "Battery"}, {"energy_full", "16000"}, {"energy_full_design", "10000"}});
        const EngineTestRun pass = runTestUnder<HXBatteryTest>(root.path());
        const QStringList says{
            u"warning on BAT0: 70 % of its design capacity"_s,
            u"passed on BAT1: its capacity could not be judged because the driver "
            "gives neither energy_full nor charge_full figures"_s,
            u"passed on BAT2: 104 % of its design capacity"_s,
            u"passed on BAT3: its capacity could not be judged because energy_full "
            "(16000) is far above energy_full_design (10000)"_s};
        QCOMPARE(pass.findings.size(), says.size());
        for (int i = 0; i < says.size(); ++i)
            QVERIFY2(pass.findings[i].log.contains(says[i]), qPrintable(pass.findings[i].log));
    }

    // The probe that shows the test as not applicable reads the same folder
    // from the same root, and agrees with the test.
    void theProbeAndTheTestAgreeUnderTheSysroot()
    {
        QTemporaryDir desktop; // mains power and a mouse
        writeSupply(desktop.path(), u"AC"_s, {{"type", "Mains"}, {"online", "1"}});
        writeSupply(desktop.path(), u"hid-00:1f:20:aa:bb:cc-battery"_s,
                    {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "40"}});
        QTemporaryDir emptyBay; // a laptop whose battery was taken out
        writeSupply(emptyBay.path(), u"BAT0"_s, {{"type", "Battery"}, {"present", "0"}});
        QTemporaryDir nothing;
        for (const QString &sysroot :
             {kFixtureRoot, desktop.path(), emptyBay.path(), nothing.path()}) {
            const bool tested =
                !runTestUnder<HXBatteryTest>(sysroot).findings.isEmpty(); // sets ORVEX_SYSROOT
            const HXLinuxMachineProbes probes;                            // constructed after it
            QCOMPARE(probes.powerSupplyFolder, sysroot + u"/sys/class/power_supply"_s);
            QCOMPARE(probes.hasInternalBattery(), tested);
            QCOMPARE(tested, sysroot == kFixtureRoot);
        }
    }
};

QTEST_GUILESS_MAIN(TestBattery)
#include "tst_battery.moc"
