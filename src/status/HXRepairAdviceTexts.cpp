// The "RepairAdvice" string table: each key with its English text. A
// translation supplies the same keys in the translation context "RepairAdvice".
#include "HXRepairAdvice.h"

#include <QCoreApplication>

namespace {

struct Entry
{
    const char *key;
    const char *english;
};

// clang-format off
constexpr Entry kTable[] = {
    {"MemoryCheckRepairTitle", "<u>Memory</u>"},
    {"SMARTCheckRepairTitle", "<u>SMART</u>"},
    {"VolumeStructuresRepairTitle", "<u>Volume Structures</u>"},
    {"SurfaceScanRepairTitle", "<u>Surface Scan</u>"},
    {"FileStructuresRepairTitle", "<u>File Structures</u>"},
    {"RAID Check Repair Title", "<u>RAID</u>"},
    {"BatteryCheckRepairTitle", "<u>Battery</u>"},
    {"IOCheckRepairTitle", "<u>I/O</u>"},
    {"POSTRepairTitle", "<u>Power On Self-Test</u>"},
    {"PartitionMapRepairTitle", "<u>Partition Map</u>"},

    {"MemoryCheckRepairAdvice",
     "The Memory test checks available free memory (RAM - Random Access Memory) for errors. It writes patterns "
     "into memory that no program is using and reads them back; a single bit that comes back changed means that a "
     "memory module, its slot or the memory controller is not reliable.\n\n"
     "Faulty memory shows itself in many ways: programs that quit unexpectedly, a desktop that freezes, files that "
     "are damaged when they are saved, and kernel messages about machine-check or EDAC errors (run journalctl -k to "
     "read them). To confirm a failure, restart and choose the memory test (memtest86+) from the boot menu, or "
     "install the memtest86+ package first, and let it run at least one full pass.\n\n"
     "If errors are confirmed, switch the computer off, unplug it and reseat the memory modules. If the errors "
     "persist, remove one module at a time and test again to find the faulty one, or consult a repair technician."},

    {"SMARTCheckRepairAdvice",
     "SMART stands for Self-Monitoring Analysis and Reporting Technology. Hard drives and solid-state drives keep "
     "counters of their own health, such as reallocated and pending sectors, read errors, temperature and wear, "
     "and report whether any of them has crossed the limit the manufacturer set. A warning means a counter is "
     "moving in the wrong direction; a failure means the drive itself predicts that it will fail.\n\n"
     "You can read the full report with <Disk Utility>Disk Utility</Disk Utility> (select the drive, then SMART Data "
     "& Self-Tests) or with smartctl -a from the smartmontools package. Drives rarely recover once SMART reports a "
     "problem: back up your data now, and consider replacing the drive before it fails."},

    {"VolumeStructuresRepairAdvice",
     "There are a number of invisible files, settings, and parameters that the file system uses to locate files, "
     "free disk space, and for other maintenance and management routines on drives, or volumes. File systems such "
     "as ext4, XFS and Btrfs keep them as superblocks, inode tables, allocation bitmaps and journals. When one of them is damaged, files can disappear, free space "
     "can be counted wrongly, and the volume may be mounted read-only to protect it.\n\n"
     "To repair the volume, back it up if you still can, then use <Disk Utility>Disk Utility</Disk Utility>: select "
     "the volume, unmount it, and choose Repair Filesystem. A volume that cannot be unmounted, such as the system "
     "volume, is checked when the computer starts: add fsck.mode=force to the boot options once, then restart. "
     "Ombrel Pro, if it is installed, can repair the volume as well."},

    {"SurfaceScanRepairAdvice",
     "Surface Scan checks a hard drive for bad blocks or sectors. It reads every block of the drive; a block that "
     "cannot be read, or that needs many attempts, is a place where data has already been lost or soon will be. A "
     "few bad blocks on an old hard drive are common, but their number should not grow.\n\n"
     "After you have backed up your data, the drive can be made to set aside its bad blocks by writing over the "
     "whole drive: in <Disk Utility>Disk Utility</Disk Utility>, select the drive, choose Format Disk and set Erase "
     "to Overwrite existing data with zeroes. This erases everything on the drive. If new bad blocks appear after "
     "that, replace the drive."},

    {"FileStructuresRepairAdvice",
     "The File Structures test checks a variety of file types for corruption. It opens documents, pictures, "
     "archives and other files and checks that their contents are whole and readable; the damaged files are "
     "listed under the result in the log.\n\n"
     "A damaged file cannot be repaired by Orvex. Delete the corrupt files and restore them from a backup, for "
     "example with Déjà Dup or your backup program. If damaged files keep appearing, check the drive with the "
     "Surface Scan and SMART tests and the memory with the Memory test, since the cause is often there."},

    {"RAIDCheckRepairAdvice",
     "RAID stands for Redundant Array of Independent Disks, and can take a variety of forms. A mirror (RAID 1) "
     "keeps the same data on two or more disks, while RAID 5, 6 and 10 spread data and parity over several disks "
     "so that the array survives the loss of one or two of them. Orvex checks the software RAID arrays of this "
     "computer and reports an array that is degraded, rebuilding, or has a failed member.\n\n"
     "Run cat /proc/mdstat or sudo mdadm --detail /dev/md0 (with your array's name) to see which member failed. "
     "Replace the failed disk, add the new one with sudo mdadm --manage /dev/md0 --add /dev/sdX, and let the array "
     "rebuild; until it has, the array has no redundancy left, so back up your data first."},

    {"BatteryCheckRepairAdvice",
     "Laptop computers use lithium-ion batteries to operate when not plugged in. Such a battery slowly loses "
     "capacity with age and charge cycles. Orvex compares the battery's full charge with its design capacity and reads the "
     "health the battery reports.\n\n"
     "You can see the details with upower -i $(upower -e | grep BAT) or in your desktop's power settings. A "
     "battery that holds much less than its design capacity, that swells, or that the system reports as failing "
     "should be replaced; a swollen battery should not be charged at all. Keep the laptop plugged in until then."},

    {"IOCheckRepairAdvice",
     "I/O Check monitors your system for input and output (i/o) errors. The kernel reports every read or write "
     "that a disk, its cable or its controller could not complete; Orvex reads those reports and shows which disk "
     "they came from.\n\n"
     "A single error after a cable was moved or a drive was unplugged is harmless; repeated errors are not. Read "
     "them with journalctl -k | grep -i error, check the disk's cables and power, then run the SMART and Surface "
     "Scan tests on that disk. Back up your data while the drive still reads."},

    {"POSTRepairAdvice",
     "The Power On Self-Test is a set of tests embedded in the firmware of the computer and only runs during "
     "system power up. The firmware (BIOS or UEFI) checks the processor, memory and graphics before the operating "
     "system starts.\n\n"
     "Orvex checks the last result of the Power On Self-Test with either a pass or failure result. A failure "
     "means the firmware found a problem at the last start, even if the computer started afterwards.\n\n"
     "When the self-test fails badly the computer may not start at all, and it reports the problem with beeps "
     "instead. On many computers the beeps mean:\n\n"
     "1 beep  = No RAM installed.\n"
     "2 beeps = Incompatible RAM types installed.\n"
     "3 beeps = No good banks.\n"
     "4 beeps = No good boot images in the boot ROM or bad system configuration block.\n"
     "5 beeps = Processor is not usable.\n\n"
     "The exact codes differ between makers: look them up in your computer's or motherboard's manual. Reseat the "
     "memory modules and any expansion cards, reset the firmware settings to their defaults, and if the failure "
     "remains, consult a repair technician."},

    {"PartitionMapRepairAdvice",
     "The partition map is the portion of the disk that defines how the drive is divided up. On Linux it is a GPT "
     "or MBR partition table at the start of the disk (GPT keeps a second copy at its end); if it is damaged, "
     "partitions may not be found or may overlap.\n\n"
     "If Orvex finds a problem with the partition map, it can be repaired using <Disk Utility>Disk Utility</Disk "
     "Utility>. Select the hardware identifier for the drive, and from the First Aid tab, click Repair Disk. "},

    {"DiskUtilityExtraAdvice",
     "You can use <Disk Utility>Disk Utility</Disk Utility> to repair this issue, or you can purchase "
     "<Purchase>Ombrel Pro</Purchase>."},
    {"OmbrelProOutOfDateExtraAdvice",
     "Your copy of Ombrel Pro is out of date.  You can upgrade to the latest version of <Upgrade>Ombrel Pro</Upgrade>, "
     "or use <Disk Utility>Disk Utility</Disk Utility> to repair this issue."},
    {"OmbrelPro5ExtraAdvice",
     "You can use either <Disk Utility>Disk Utility</Disk Utility> or <Ombrel>Ombrel Pro</Ombrel> to repair this "
     "issue.  You have an older version of Ombrel Pro.  You can use this version to repair this issue, but it is "
     "recommended to upgrade to the current version of <Upgrade>Ombrel Pro</Upgrade>."},
    {"OmbrelPro6ExtraAdvice",
     "You can use either <Disk Utility>Disk Utility</Disk Utility> or <Ombrel>Ombrel Pro</Ombrel> to repair this "
     "issue."},
};
// clang-format on

} // namespace

QString HXRepairAdvice::localizedString(const char *key)
{
    for (const Entry &entry : kTable) {
        if (qstrcmp(entry.key, key) != 0)
            continue;
        // The key is the source text; without a translation Qt hands it back.
        const QString translated = QCoreApplication::translate("RepairAdvice", key);
        return translated == QLatin1String(key) ? QString::fromUtf8(entry.english) : translated;
    }
    return QString::fromLatin1(key);
}
