#pragma once

#include "HXMachineTest.h"
#include "HXMemoryPatternCheck.h"

// The Memory test: the memory controllers' own error counts (EDAC), corrected
// errors a Warning and uncorrected ones an Error, and the pattern test of a
// bounded amount of free memory, whose fault is an Error naming the address.
// One finding for the machine.
class HXMemoryTest : public HXMachineTest
{
public:
    HXTest test() const override { return HXTest::Memory; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    HXMemoryPatternCheck &patternCheck() { return m_check; }

private:
    HXMemoryPatternCheck m_check;
};
