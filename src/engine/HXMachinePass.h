#pragma once

#include "HXMachineTest.h"

#include <functional>
#include <memory>
#include <vector>

// One testing pass over the machine: the tests one after another in the
// order the status view lists them (SMART, surface scan, file structures,
// memory, volume structures, partition map, RAID, battery, disk I/O errors,
// POST). Blocking; run it on a thread of its own.
class HXMachinePass
{
public:
    using Tests = std::vector<std::unique_ptr<HXMachineTest>>;
    struct Observer
    {
        std::function<void(HXTest)> testStarted;
        // The findings; an empty list means the test does not apply here.
        std::function<void(HXTest, const QList<HXTestFinding> &)> testFinished;
        // In place of testFinished when the pass was cancelled while the test
        // ran: what it found before it stopped (an interrupted surface scan's
        // part), perhaps nothing, which then says nothing about applying.
        std::function<void(HXTest, const QList<HXTestFinding> &)> testStopped;
    };

    explicit HXMachinePass(Tests tests);
    // The ten tests, or those `only` names, in the pass's order.
    static Tests machineTests(const QList<HXTest> &only = {});
    // The key of a test on the command line ("smart", "surface", "files",
    // "memory", "volumes", "partitions", "raid", "battery", "io", "post").
    static QString commandLineKey(HXTest test);
    static std::optional<HXTest> testForCommandLineKey(const QString &key);

    // False when the pass was cancelled before its last test finished; the
    // test that was running then reports what it found through testStopped.
    bool run(const HXEngineContext &context, const Observer &observer);

private:
    Tests m_tests;
};
