#pragma once

#include "HXMachineTest.h"

// Disk I/O errors: the block-layer I/O errors the kernel logged for each disk
// since the previous pass (the first pass of a boot reads the whole boot).
// Where the previous pass stopped is kept in the state folder; a pass limited
// to disks the user named leaves it there, so the next pass of every disk
// still sees the errors of the others.
class HXIOErrorTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::IO; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    // The file under the state folder that keeps where the last pass stopped.
    static QString positionFile(const QString &stateFolder);
};
