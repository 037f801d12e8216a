#pragma once

#include "HXSystemRoot.h"

#include <QString>

// The machine as the version rules see it: the compatibility version 10.15.0
// unless ORVEX_SYSTEM_VERSION=major.minor.bugfix says otherwise (tests set it
// to check each rule). Read once.
struct HXSystemVersion
{
    qint32 major = 10;
    qint32 minor = 15;
    qint32 bugfix = 0;

    static HXSystemVersion current();
    static HXSystemVersion parse(const QString &text); // the default when it does not parse
};

// The four facts about the machine that decide whether a test applies. The
// real probes read the kernel's view of the machine; tests put a fake in
// their place with setCurrent().
class HXMachineProbes
{
public:
    virtual ~HXMachineProbes() = default;

    // A battery that powers the machine itself (not a mouse's or a UPS's).
    virtual bool hasInternalBattery() const = 0;
    // A whole disk that speaks SMART: NVMe, ATA with the SMART feature set, or SCSI.
    virtual bool smartExists() const = 0;
    // An active software RAID array.
    virtual bool raidExists() const = 0;
    // The partition-map test runs on 10.7 and later.
    virtual bool partitionMapIsTestable() const;

    static const HXMachineProbes &current();
    // Not owned; nullptr restores the real probes.
    static void setCurrent(const HXMachineProbes *probes);
};

// The probes of this machine: /sys/class/power_supply, udev's block disks,
// /proc/mdstat, under ORVEX_SYSROOT when it is set. The folders can be
// pointed elsewhere for tests.
class HXLinuxMachineProbes : public HXMachineProbes
{
public:
    QString powerSupplyFolder = HXSystemRoot::map(QStringLiteral("/sys/class/power_supply"));
    QString mdstatFile = HXSystemRoot::map(QStringLiteral("/proc/mdstat"));

    bool hasInternalBattery() const override;
    bool smartExists() const override;
    bool raidExists() const override;
};

// Answers what it is told.
class HXFakeMachineProbes : public HXMachineProbes
{
public:
    bool battery = true;
    bool smart = true;
    bool raid = true;
    bool partitionMap = true;

    bool hasInternalBattery() const override { return battery; }
    bool smartExists() const override { return smart; }
    bool raidExists() const override { return raid; }
    bool partitionMapIsTestable() const override { return partitionMap; }
};
