#pragma once

#include "HXEngineTypes.h"

#include <QList>
#include <optional>

// The machine's disks and the file systems on them, as the disk tests need
// them. Disks come from /sys/block (under ORVEX_SYSROOT when set); a disk
// named on the command line is read from its device node, loop devices
// included. File systems are identified by probing their superblocks
// (libblkid) and matched to mounts through /proc/self/mountinfo.
class HXBlockDevices
{
public:
    // Every whole disk worth testing: not loop, ram, zram, device-mapper or
    // optical devices, and not empty.
    static QList<HXBlockDisk> machineDisks();
    // The disk behind a device node ("/dev/loop3", "/dev/sdb"); nothing, with
    // the sentence why, when it is not a whole block device that can be read.
    static std::optional<HXBlockDisk> diskAt(const QString &devicePath, QString *why);
    // The disk's file systems: its partitions, or the disk itself when it
    // holds a file system without a partition map.
    static QList<HXVolume> volumesOf(const HXBlockDisk &disk);
    // Every mounted file system that lives on a block device (network,
    // virtual and pseudo file systems left out), once each: for the tests
    // that read the kernel's records of mounted file systems.
    static QList<HXVolume> mountedVolumes();

    // A disk's stable identity: the device's world-wide name, else the GPT
    // disk GUID, else the MBR signature, else the serial number, else its
    // name and size.
    static QString diskIdentity(const HXBlockDisk &disk);
};
