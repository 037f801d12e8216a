#pragma once

#include "HXMachineTest.h"

// The SMART test: every device smartctl's own discovery lists
// (`smartctl --scan --json`) is read with `smartctl --json -x` and judged by
// HXSMARTClassifier. One finding per device judged; a device smartctl could
// not read (not opened, behind a RAID controller) is said in the worker's
// log as not tested and has no finding.
class HXSMARTTest : public HXMachineTest
{
public:
    // A drive busy with a self-test or waking from standby answers slowly;
    // two minutes is far beyond a healthy one.
    static constexpr int DefaultTimeoutMs = 120000;

    explicit HXSMARTTest(int timeoutMs = DefaultTimeoutMs)
        : m_timeoutMs(timeoutMs)
    {
    }

    HXTest test() const override { return HXTest::SMART; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

private:
    int m_timeoutMs;
};
