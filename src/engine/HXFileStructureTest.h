#pragma once

#include "HXMachineTest.h"

// File structures: the kernel's own records of errors in each mounted file
// system: ext4's error record and btrfs's device statistics in sysfs, and the
// file-system errors in the kernel log of this boot (XFS, FAT and others have
// no other record). The files the kernel names by inode are looked up under
// the mount point and listed in "problemFiles". Nothing is written.
class HXFileStructureTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::FileStructures; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;
};
