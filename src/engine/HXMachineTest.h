#pragma once

#include "HXEngineTypes.h"
#include "HXExclusions.h"

#include <QList>
#include <atomic>
#include <functional>

// What every test of a pass is given. Tests run one after another on one
// thread (never the interface's), may block on the disk or on a program,
// and look at `cancelled` often enough to stop within a second or so.
struct HXEngineContext
{
    QList<HXBlockDisk> disks; // the disks to test (all the machine's, or those named)
    bool disksNamed = false;  // the user named the disks: test no other device
    QList<HXVolume> volumes;  // the file systems on those disks
    HXExclusions exclusions;  // the user's, as the idle daemon holds them
    QString stateFolder; // where tests keep what must outlive a pass (resume points, log cursors)
    qint64 memoryTestBytes = qint64(256) << 20;
    const std::atomic_bool *cancelled = nullptr;
    // A line for the worker's own log (what was skipped and why, a device not
    // tested); it does not go into the report.
    std::function<void(const QString &)> note;

    bool isCancelled() const { return cancelled && cancelled->load(std::memory_order_relaxed); }
    void say(const QString &line) const
    {
        if (note)
            note(line);
    }
};

// One of the ten tests.
class HXMachineTest
{
public:
    virtual ~HXMachineTest() = default;
    virtual HXTest test() const = 0;
    // What the test found; empty when it does not apply to this machine (no
    // battery, no array, no SMART-capable disk): then nothing is recorded.
    virtual QList<HXTestFinding> run(const HXEngineContext &context) = 0;
};
