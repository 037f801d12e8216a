#pragma once

#include "HXStatusBoard.h"
#include "HXTestResult.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

// What one test found about one thing it tested (a disk, a volume, an array,
// the machine): becomes one HXTestResult in the report.
struct HXTestFinding
{
    QString type;         // HXDTestResultSuccessType, ...WarningType or ...ErrorType
    QString log;          // the log line; every further line becomes a file child of it
    QVariantMap testInfo; // the test's own keys: "disk", "problemFiles", "badBlockIndex", ...
};

// The result the report records for a finding: the test's name, the type and
// "passedTest" added to the finding's testInfo.
HXTestResultRef HXMakeTestResult(HXTest test, const HXTestFinding &finding);

// A whole disk as the disk tests see it.
struct HXBlockDisk
{
    QString kernelName; // "sda", "nvme0n1", "loop3"
    QString devicePath; // "/dev/sda": always the real node
    QString model;      // the device's model, empty when the kernel does not say
    qint64 sizeBytes = 0;
    int logicalBlockSize = 512;
    QString uuid; // stable across boots: see HXBlockDevices::diskIdentity

    // "WDC WD40EFRX-68N32N0 (4.0 TB)"; the kernel name when there is no model.
    QString nameAndSize() const;
    // "WDC WD40EFRX-68N32N0 (sda)", or "sda": how log lines name the disk.
    QString logName() const;
    // The result's "disk" dictionary: "uuid", "bsdName" (the kernel's name),
    // "volumeName" and "deviceNameAndSize" (both the model and size).
    QVariantMap diskInfo() const;
};

// A file system on a disk or partition, mounted or not.
struct HXVolume
{
    QString kernelName;     // "sda1"
    QString devicePath;     // "/dev/sda1"
    QString diskKernelName; // "sda"; empty when it spans several devices (LVM, md)
    QString fsType;         // "ext4", "vfat", "xfs", "btrfs", ...
    QString uuid;           // the file system's UUID
    QString label;
    QString mountPoint; // empty when not mounted
    bool mountedReadWrite = false;
    bool mountedWhole = false; // mountPoint shows the whole file system, not a folder of it
    qint64 startBytes = 0;     // on its disk
    qint64 sizeBytes = 0;

    QString displayName() const; // the label, else the mount point, else the kernel name
    bool isExt() const;          // ext2, ext3 or ext4
    // The result's "disk" dictionary: "uuid", "bsdName", "volumeName",
    // "deviceNameAndSize".
    QVariantMap diskInfo() const;
};

// "4.0 TB", "512.1 GB", "256.0 MB": decimal units, as drives are sold.
QString HXSizeText(qint64 bytes);
