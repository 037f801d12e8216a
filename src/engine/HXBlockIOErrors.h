#pragma once

#include <QString>
#include <optional>

// A failed read or write the kernel's block layer (or a disk driver) logged.
struct HXBlockIOError
{
    QString device;   // as the kernel named it: "sda", "sda1", "nvme0n1"
    QString location; // where, in the kernel's own unit: "sector 123456", "LBA 1234",
                      // "logical block 7 of sda1"
};

// Recognises the kernel's messages about failed block I/O:
//   "I/O error, dev sda, sector 123456 op 0x0:(READ) ..." and the block
//   layer's other failures of a request ("critical medium error, dev sdb, ...",
//   "timeout error, ..."), with the older "blk_update_request: " prefix too;
//   "Buffer I/O error on dev sda1, logical block 7, async page read";
//   the NVMe driver's "nvme0n1: Read(0x2) @ LBA 1234, 8 blocks, Unrecovered Read
//   Error (sct 0x2 / sc 0x81)" ("I/O Cmd(0x2)" in kernels without the names).
class HXBlockIOErrors
{
public:
    static std::optional<HXBlockIOError> parse(const QString &text);

    // The device is the disk or one of its partitions ("sda1" of "sda",
    // "nvme0n1p2" of "nvme0n1", "mmcblk0p1" of "mmcblk0"); a namespace path of
    // NVMe multipathing ("nvme0c1n1") counts for its namespace ("nvme0n1").
    static bool belongsToDisk(const QString &device, const QString &diskKernelName);
};
