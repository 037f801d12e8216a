#include "HXMachineProbes.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <libudev.h>

#include <atomic>
#include <memory>

HXSystemVersion HXSystemVersion::parse(const QString &text)
{
    const QStringList parts = text.split(QLatin1Char('.'));
    if (parts.size() != 3)
        return {};
    bool a = false;
    bool b = false;
    bool c = false;
    const HXSystemVersion given{parts[0].toInt(&a), parts[1].toInt(&b), parts[2].toInt(&c)};
    return a && b && c ? given : HXSystemVersion{};
}

HXSystemVersion HXSystemVersion::current()
{
    static const HXSystemVersion version = parse(qEnvironmentVariable("ORVEX_SYSTEM_VERSION"));
    return version;
}

namespace {
std::atomic<const HXMachineProbes *> g_probes{nullptr};

QString readTrimmed(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLatin1(file.readAll()).trimmed();
}
} // namespace

bool HXMachineProbes::partitionMapIsTestable() const
{
    const HXSystemVersion v = HXSystemVersion::current();
    return v.major == 10 && v.minor > 6;
}

const HXMachineProbes &HXMachineProbes::current()
{
    static const HXLinuxMachineProbes real;
    const HXMachineProbes *probes = g_probes.load();
    return probes ? *probes : real;
}

void HXMachineProbes::setCurrent(const HXMachineProbes *probes)
{
    g_probes.store(probes);
}

bool HXLinuxMachineProbes::hasInternalBattery() const
{
    const QDir folder(powerSupplyFolder);
    const QStringList supplies = folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::System);
    for (const QString &supply : supplies) {
        const QString base = folder.filePath(supply);
        if (readTrimmed(base + QStringLiteral("/type")) != QLatin1String("Battery"))
            continue;
        // A device's battery (a mouse, a headset) has the scope "Device".
        const QString scope = readTrimmed(base + QStringLiteral("/scope"));
        // An empty bay keeps its entry with "present" at 0: nothing to test.
        const bool present = readTrimmed(base + QStringLiteral("/present")) != QLatin1String("0");
        if (present && (scope.isEmpty() || scope == QLatin1String("System")))
            return true;
    }
    return false;
}

bool HXLinuxMachineProbes::raidExists() const
{
    QFile mdstat(mdstatFile);
    if (!mdstat.open(QIODevice::ReadOnly))
        return false;
    static const QRegularExpression array(QStringLiteral("^md\\S*\\s*:\\s*active\\b"),
                                          QRegularExpression::MultilineOption);
    return array.match(QString::fromLatin1(mdstat.readAll())).hasMatch();
}

bool HXLinuxMachineProbes::smartExists() const
{
    using Udev = std::unique_ptr<udev, decltype(&udev_unref)>;
    using Enumerate = std::unique_ptr<udev_enumerate, decltype(&udev_enumerate_unref)>;
    Udev context(udev_new(), &udev_unref);
    if (!context)
        return false;
    Enumerate disks(udev_enumerate_new(context.get()), &udev_enumerate_unref);
    if (!disks)
        return false;
    udev_enumerate_add_match_subsystem(disks.get(), "block");
    udev_enumerate_add_match_property(disks.get(), "DEVTYPE", "disk");
    udev_enumerate_scan_devices(disks.get());
    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(disks.get()))
    {
        using Device = std::unique_ptr<udev_device, decltype(&udev_device_unref)>;
        Device disk(udev_device_new_from_syspath(context.get(), udev_list_entry_get_name(entry)), &udev_device_unref);
        if (!disk)
            continue;
        const QString name = QString::fromLatin1(udev_device_get_sysname(disk.get()));
        if (name.startsWith(QLatin1String("loop")) || name.startsWith(QLatin1String("ram")) ||
            name.startsWith(QLatin1String("zram")))
            continue;
        if (name.startsWith(QLatin1String("nvme")))
            return true;
        // The bus as udev's database knows it; without a udev daemon it is
        // unknown, and the disk's parents tell SCSI (and libata) disks apart.
        const char *bus = udev_device_get_property_value(disk.get(), "ID_BUS");
        const char *smart = udev_device_get_property_value(disk.get(), "ID_ATA_FEATURE_SET_SMART");
        if (bus && qstrcmp(bus, "ata") == 0)
        {
            if (smart && qstrcmp(smart, "1") == 0)
                return true;
            continue;
        }
        if (bus && qstrcmp(bus, "scsi") == 0)
            return true;
        if (!bus && udev_device_get_parent_with_subsystem_devtype(disk.get(), "scsi", "scsi_device"))
            return true;
    }
    return false;
}
