#include "HXBatteryTest.h"
#include "HXFileStructureTest.h"
#include "HXIOErrorTest.h"
#include "HXMachinePass.h"
#include "HXMemoryTest.h"
#include "HXPOSTTest.h"
#include "HXPartitionMapTest.h"
#include "HXRAIDTest.h"
#include "HXSMARTTest.h"
#include "HXSurfaceScanTest.h"
#include "HXVolumeStructureTest.h"

namespace {

std::unique_ptr<HXMachineTest> makeTest(HXTest test)
{
    switch (test) {
    case HXTest::SMART:
        return std::make_unique<HXSMARTTest>();
    case HXTest::SurfaceScan:
        return std::make_unique<HXSurfaceScanTest>();
    case HXTest::FileStructures:
        return std::make_unique<HXFileStructureTest>();
    case HXTest::Memory:
        return std::make_unique<HXMemoryTest>();
    case HXTest::VolumeStructures:
        return std::make_unique<HXVolumeStructureTest>();
    case HXTest::PartitionMap:
        return std::make_unique<HXPartitionMapTest>();
    case HXTest::RAID:
        return std::make_unique<HXRAIDTest>();
    case HXTest::Battery:
        return std::make_unique<HXBatteryTest>();
    case HXTest::IO:
        return std::make_unique<HXIOErrorTest>();
    case HXTest::POST:
        return std::make_unique<HXPOSTTest>();
    }
    return nullptr;
}

} // namespace

HXMachinePass::Tests HXMachinePass::machineTests(const QList<HXTest> &only)
{
    Tests tests;
    for (const HXTestDescriptor &descriptor : HXTestTable()) {
        if (only.isEmpty() || only.contains(descriptor.test))
            tests.push_back(makeTest(descriptor.test));
    }
    return tests;
}
