#pragma once

#include "HXMachineTest.h"

// POST: the hardware errors the kernel logged since the machine started
// (machine checks, PCIe AER, errors reported by the firmware through APEI,
// firmware errors): an uncorrected one is an Error, corrected ones a Warning.
// One finding for the machine.
class HXPOSTTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::POST; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;
};
