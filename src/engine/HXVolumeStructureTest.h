#pragma once

#include "HXFileSystemChecker.h"
#include "HXMachineTest.h"

// Checks each file system's structures without changing anything: one that
// is not mounted read-write with its checker in the checker's no-change mode,
// one mounted read-write (where a checker would read a moving target) by the
// state its superblock records.
class HXVolumeStructureTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::VolumeStructures; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    // How long a checker may run on a volume of that size: checkers read the
    // metadata, not every block, so a quarter of an hour and a minute for
    // every 50 GB, at most six hours.
    static int timeLimitMs(qint64 volumeBytes);
    // Replaces that limit (tests, with a checker that hangs).
    void setTimeLimitMs(int limitMs) { m_fixedLimitMs = limitMs; }

private:
    std::optional<HXTestFinding> check(const HXEngineContext &context,
                                       const HXVolume &volume) const;
    std::optional<HXTestFinding> judgeMounted(const HXEngineContext &context,
                                              const HXVolume &volume) const;

    int m_fixedLimitMs = 0;
};
