#pragma once

#include "HXMachineTest.h"

#include <optional>

// What one battery's folder in /sys/class/power_supply says, as read: every
// attribute may be missing, unreadable or garbled, and is then absent here.
struct HXBatteryFacts
{
    QString name; // "BAT0": the kernel's name of the power supply
    QString manufacturer;
    QString model;
    QString serial;
    // The full charge it holds now and the one it was made for, in one unit:
    // energy_full/energy_full_design (µWh), else charge_full/charge_full_design (µAh).
    std::optional<qint64> full;
    std::optional<qint64> design;
    QString unit;            // "energy" or "charge": which pair was read
    QString capacityProblem; // why no capacity figure can be given, for the log
    QString health;          // the driver's own word ("Good", "Dead"), empty when it gives none
    std::optional<qint64> cycles;

    // "SANYO 45N1041"; empty when the driver names neither.
    QString label() const;
};

// The batteries that power the machine itself: power supplies whose type is
// "Battery" and whose scope is absent or "System" (a mouse's or a headset's
// battery has the scope "Device"), present in their bay. One finding each:
// - Error below 50 % of the design capacity, Warning below 80 %;
// - the driver's `health` word, where it gives one:
//     Error:   "Dead", "Over voltage", "Over current", "Unspecified failure"
//              (the cell or its charging is broken);
//     Warning: "Overheat", "Hot", "Cold", "Watchdog timer expire",
//              "Safety timer expire", "Calibration required" (charging is
//              stopped or not to be trusted until someone looks);
//     no opinion: "Good", "Warm", "Cool" (charging slowed in a normal
//              temperature range), "Unknown", and words the kernel does not
//              define, which the log names;
// - the worse of the two decides. A battery with no believable capacity
//   figures is judged on its health alone, or passes with a sentence saying
//   what could not be read. No such battery: not applicable.
class HXBatteryTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::Battery; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    // The facts of the power supply in `folder` (named after it).
    static HXBatteryFacts read(const QString &folder);
    static HXTestFinding judge(const HXBatteryFacts &facts);
};
