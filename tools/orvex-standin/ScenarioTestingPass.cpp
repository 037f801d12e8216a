#include "ScenarioTestingPass.h"

#include "HXConstants.h"
#include "HXStatusReporter.h"

namespace {

QString madeUpLog(const QString &testName, StandinOutcome outcome, const StandinDisk *disk)
{
    const QString where =
        disk ? QStringLiteral(" on %1 (%2)").arg(disk->name, disk->bsdName) : QString();
    switch (outcome) {
    case StandinOutcome::Passed:
        return QStringLiteral("%1 passed%2").arg(testName, where);
    case StandinOutcome::Warning:
        return QStringLiteral("%1 found a problem worth watching%2").arg(testName, where);
    case StandinOutcome::Error:
    case StandinOutcome::NotApplicable:
        break;
    }
    return QStringLiteral("%1 failed%2").arg(testName, where);
}

QString resultType(StandinOutcome outcome)
{
    switch (outcome) {
    case StandinOutcome::Passed:
        return HXDTestResultSuccessType;
    case StandinOutcome::Warning:
        return HXDTestResultWarningType;
    case StandinOutcome::Error:
    case StandinOutcome::NotApplicable:
        break;
    }
    return HXDTestResultErrorType;
}

} // namespace

ScenarioTestingPass::ScenarioTestingPass(const StandinScenario &scenario,
                                         HXStatusReporter *reporter, QObject *parent)
    : HXTestingPass(parent)
    , m_scenario(scenario)
    , m_reporter(reporter)
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &ScenarioTestingPass::finishCurrentTest);
}

bool ScenarioTestingPass::start()
{
    if (m_running)
        return false;
    m_running = true;
    m_next = 0;
    runNextTest();
    return true;
}

void ScenarioTestingPass::stop()
{
    if (!m_running)
        return;
    m_timer.stop();
    m_running = false;
    Q_EMIT finished(false);
}

void ScenarioTestingPass::runNextTest()
{
    if (m_next >= m_scenario.runs.size()) {
        m_running = false;
        Q_EMIT finished(true);
        return;
    }
    const HXTest test = m_scenario.runs[m_next].test;
    m_currentEnd = m_next;
    while (m_currentEnd < m_scenario.runs.size() && m_scenario.runs[m_currentEnd].test == test)
        ++m_currentEnd;
    Q_EMIT testStarted(test);
    m_timer.start(m_scenario.stepMilliseconds);
}

void ScenarioTestingPass::finishCurrentTest()
{
    // Forced failures are read when the test ends, as a daemon would.
    const bool forceFailure = failuresForced();
    const HXTest test = m_scenario.runs[m_next].test;
    bool applies = false;
    bool failed = false;
    for (qsizetype i = m_next; i < m_currentEnd; ++i) {
        const HXTestResultRef result = resultForRun(m_scenario, m_scenario.runs[i], forceFailure);
        if (!result)
            continue;
        applies = true;
        failed = failed || result->type() != HXDTestResultSuccessType;
        recordResult(m_reporter, result);
    }
    m_next = m_currentEnd;
    Q_EMIT testFinished(test, !applies ? HXLiveTestStatusNotApplicable
                              : failed ? HXLiveTestStatusFailed
                                       : HXLiveTestStatusPassed);
    if (m_running)
        runNextTest();
}

HXTestResultRef ScenarioTestingPass::resultForRun(const StandinScenario &scenario,
                                                  const StandinTestRun &run, bool forceFailure)
{
    if (run.outcome == StandinOutcome::NotApplicable)
        return nullptr;
    const StandinOutcome outcome = forceFailure ? StandinOutcome::Error : run.outcome;
    const QString testName = HXTestInfo(run.test).testName;
    const StandinDisk *disk = scenario.disk(run.diskId);
    const QString type = resultType(outcome);
    QString log =
        run.log.isEmpty() || outcome != run.outcome ? madeUpLog(testName, outcome, disk) : run.log;
    // Each further line becomes a file child of the log entry.
    for (const QString &file : run.files)
        log += QLatin1Char('\n') + file;

    QVariantMap info{{HXDTestResultTestNameKey, testName},
                     {HXDTestResultTypeKey, type},
                     {HXDTestResultPassedTestKey, outcome == StandinOutcome::Passed}};
    if (disk) {
        info.insert(HXDTestResultBSDNameKey, disk->bsdName);
        info.insert(HXDTestResultDiskIdentifierKey, disk->bsdName);
        info.insert(HXDiskKey, QVariantMap{{QStringLiteral("uuid"), disk->uuid},
                                           {HXBSDNameKey, disk->bsdName},
                                           {HXDeviceNameAndSizeKey, disk->name}});
    }
    if (!run.files.isEmpty())
        info.insert(HXDTestResultProblemFiles, QVariantList(run.files.cbegin(), run.files.cend()));
    if (run.test == HXTest::SurfaceScan)
        info.insert(HXDTestResultIsCompletedKey, true);
    for (auto it = run.info.cbegin(); it != run.info.cend(); ++it)
        info.insert(it.key(), it.value());
    return HXTestResult::resultWithType(type, testName, log, info);
}
