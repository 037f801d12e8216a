#pragma once

#include "HXStatusReport.h"

#include <QList>
#include <QString>
#include <QVariantMap>
#include <array>
#include <limits>

// The ten tests, in the order a result's name is matched against them.
enum class HXTest {
    SMART,
    SurfaceScan,
    FileStructures,
    Memory,
    VolumeStructures,
    PartitionMap,
    RAID,
    Battery,
    IO,
    POST,
};
inline constexpr int HXTestCount = 10;

enum class HXTestGroup { Hardware, System, Drives, Files };
inline constexpr int HXTestGroupCount = 4;

// Group status codes (what the group views show). Never to be mixed with the
// worker's live test status codes.
enum HXGroupStatus : int {
    HXGroupStatusNoResult = 0,
    HXGroupStatusPassed = 1,
    HXGroupStatusWarning = 2,
    HXGroupStatusError = 3,
    HXGroupStatusNotApplicable = 4,
};

// Live test status codes, as the worker reports a test while a pass runs.
// Never to be mixed with the group status codes.
enum HXLiveTestStatus : qint32 {
    HXLiveTestStatusPending = 0,
    HXLiveTestStatusNotApplicable = 1,
    HXLiveTestStatusRunning = 2,
    HXLiveTestStatusFailed = 3,
    HXLiveTestStatusPassed = 4,
};

// A result's index in the report while no result decided a test.
inline constexpr qint64 HXResultIndexNotFound = std::numeric_limits<qint64>::max();

struct HXTestDescriptor
{
    HXTest test;
    QString testName; // contained in a result's name
    HXTestGroup group;
    QString key; // the short name on command lines and in metrics: "smart", "io"...
};
const std::array<HXTestDescriptor, HXTestCount> &HXTestTable();
const HXTestDescriptor &HXTestInfo(HXTest test);
// The group's tests in the order its view lists them.
QList<HXTest> HXTestsOfGroup(HXTestGroup group);
QString HXTestGroupKey(HXTestGroup group); // "hardware", "system", "drives", "files"

// One counted result: its position in the report and the result.
struct HXResultEntry
{
    qint64 index;
    HXTestResultRef result;
};

// Turns a report into ten test states and four group statuses. The result
// indexes persist across rebuilds: a rebuild moves an index only when the
// status rule says so, so an index can outlive the result it pointed to.
class HXStatusBoard
{
public:
    struct TestFlags
    {
        bool error = false;
        bool warning = false;
        bool passed = false;
    };

    HXStatusBoard();

    // An absent report counts as an empty one.
    void rebuild(const HXStatusReportRef &report);

    // 3 error, 2 warning, 1 passed, 0 no result.
    int testStatus(HXTest test) const;
    qint64 resultIndex(HXTest test) const { return m_indexes[size_t(test)]; }
    // Warning and error results of the test. Partition-map results are listed
    // with the volume structures; the partition map's own list stays empty.
    const QList<HXResultEntry> &results(HXTest test) const { return m_results[size_t(test)]; }
    // The group summary: at most the one key "GlobalResult".
    const QVariantMap &groupSummary(HXTestGroup group) const { return m_summaries[size_t(group)]; }
    const TestFlags &reportFlags() const { return m_reportFlags; }

    // The group views' combination of their tests' codes: 3 if any is 3, else
    // 2 if any is 2, else 1 if any is 1, else 0 (not applicable counts as 0).
    static int combine(const QList<int> &codes);
    // The group's combined status, with no machine-dependent substitution.
    int groupStatus(HXTestGroup group) const;

    // The rule for one result of one test. Moves `resultIndex` to `index` when
    // the result decides the test, updates the flags and the group summary,
    // and answers whether the result is listed (warnings and errors are).
    // `fieldText` receives the word a result field would show, and
    // `showHelpButton` whether its help button shows; both may be null.
    static bool setTestStatus(const QString &type, TestFlags &test, TestFlags &report, qint64 index,
                              qint64 &resultIndex, QVariantMap &globalResult, bool showAll,
                              QString *fieldText = nullptr, bool *showHelpButton = nullptr);

private:
    std::array<TestFlags, HXTestCount> m_flags;
    std::array<qint64, HXTestCount> m_indexes;
    std::array<QList<HXResultEntry>, HXTestCount> m_results;
    std::array<QVariantMap, HXTestGroupCount> m_summaries;
    TestFlags m_reportFlags;
};
