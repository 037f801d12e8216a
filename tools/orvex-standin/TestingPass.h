#pragma once

#include "HXTestResult.h"
#include "StandinScenario.h"

#include <QObject>
#include <QTimer>

class HXStatusReporter;

// One believable testing pass: the scenario's tests one after another, each
// running for one step and then recorded in the report file (result and log
// line, through the reporter, as the worker records them). Consecutive runs
// of the same test (one per disk) count as one test of the pass.
class TestingPass : public QObject
{
    Q_OBJECT

public:
    TestingPass(const StandinScenario &scenario, HXStatusReporter *reporter, QObject *parent = nullptr);

    // Starts from the first test; false while a pass runs.
    bool start();
    // Ends the pass where it is; the test running is not recorded.
    void stop();
    bool isRunning() const { return m_running; }

    // The result the run records, or none for a test that does not apply.
    // With `forceFailure` every test that applies fails.
    static HXTestResultRef resultForRun(const StandinScenario &scenario, const StandinTestRun &run,
                                        bool forceFailure);

Q_SIGNALS:
    void testStarted(HXTest test);
    // The live status the test ended with.
    void testFinished(HXTest test, qint32 liveStatus);
    // After the last test, or after stop().
    void finished(bool completed);

private:
    void runNextTest();
    void finishCurrentTest();

    const StandinScenario &m_scenario;
    HXStatusReporter *m_reporter;
    QTimer m_timer;
    qsizetype m_next = 0;      // first run of the test that comes next
    qsizetype m_currentEnd = 0; // one past the running test's last run
    bool m_running = false;
};
