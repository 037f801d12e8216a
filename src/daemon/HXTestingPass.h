#pragma once

#include "HXStatusBoard.h"
#include "HXTestResult.h"

#include <QObject>

class HXStatusReporter;

// A testing pass as the worker daemon runs it: the tests one after another,
// each announced when it starts and when it ends with its live status. The
// stand-in's passes play a scenario; the real worker's test the machine. The
// daemon's service cannot tell the two apart.
class HXTestingPass : public QObject
{
    Q_OBJECT

public:
    using QObject::QObject;

    // Starts from the first test; false while a pass runs.
    virtual bool start() = 0;
    // Ends the pass where it is; finished(false) follows, perhaps after the
    // running test has had a moment to stop.
    virtual void stop() = 0;
    virtual bool isRunning() const = 0;

protected:
    // While the debug marker .forceFailures exists, every test that applies
    // fails; it is read when a test ends.
    static bool failuresForced();
    // Into the report, with its log line; an error is also announced as
    // "HXDTestFoundErrorNotification" when `announceErrors`.
    static void recordResult(HXStatusReporter *reporter, const HXTestResultRef &result,
                             bool announceErrors = true);

Q_SIGNALS:
    void testStarted(HXTest test);
    // The live status the test ended with.
    void testFinished(HXTest test, qint32 liveStatus);
    // After the last test, or after stop().
    void finished(bool completed);
};
