#pragma once

#include "HXTestResult.h"
#include "HXTestingPass.h"
#include "StandinScenario.h"

#include <QTimer>

class HXStatusReporter;

// One believable testing pass: the scenario's tests one after another, each
// running for one step and then recorded in the report file (result and log
// line, through the reporter, as the worker records them). Consecutive runs
// of the same test (one per disk) count as one test of the pass.
class ScenarioTestingPass : public HXTestingPass
{
    Q_OBJECT

public:
    ScenarioTestingPass(const StandinScenario &scenario, HXStatusReporter *reporter,
                        QObject *parent = nullptr);

    bool start() override;
    // Ends the pass where it is; the test running is not recorded.
    void stop() override;
    bool isRunning() const override { return m_running; }

    // The result the run records, or none for a test that does not apply.
    // With `forceFailure` every test that applies fails.
    static HXTestResultRef resultForRun(const StandinScenario &scenario, const StandinTestRun &run,
                                        bool forceFailure);

private:
    void runNextTest();
    void finishCurrentTest();

    const StandinScenario &m_scenario;
    HXStatusReporter *m_reporter;
    QTimer m_timer;
    qsizetype m_next = 0;       // first run of the test that comes next
    qsizetype m_currentEnd = 0; // one past the running test's last run
    bool m_running = false;
};
