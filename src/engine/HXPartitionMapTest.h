#pragma once

#include "HXMachineTest.h"
#include "HXPartitionMapReader.h"

// Reads each disk's partition map itself and judges it: an Error when the
// map in force (the MBR, the primary GPT) is damaged or its partitions
// overlap or leave the disk, a Warning when only the GPT's backup copy is
// damaged or out of place, as after a disk was enlarged.
class HXPartitionMapTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::PartitionMap; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    // The finding for one disk's map, which must have a scheme or a problem.
    static HXTestFinding judge(const HXBlockDisk &disk, const HXPartitionMap &map);
};
