#pragma once

#include "HXMachineTest.h"
#include "HXMdstat.h"

// The kernel's software RAID arrays, from /proc/mdstat (under ORVEX_SYSROOT
// when set). One finding per active array:
// - Error: the array is degraded (slots without a working member, or a
//   member of a level without redundancy failed) and no recovery is
//   rebuilding all of the missing slots;
// - Warning: a resync, recovery or reshape runs or waits to run (the array
//   is not fully redundant until it ends), or a failed member is still
//   listed although the array is whole again;
// - Passed otherwise, a routine check or repair included.
// Inactive arrays (members found but the array not started) are named in the
// worker's log and not judged. No mdstat, or no active array: not applicable.
class HXRAIDTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::RAID; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    // The finding for one active array; `uuid` is the array's UUID, or empty.
    static HXTestFinding judge(const HXMdArray &array, const QString &uuid);
};
