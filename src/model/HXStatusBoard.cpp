#include "HXStatusBoard.h"

#include "HXConstants.h"

#include <QHash>

const std::array<HXTestDescriptor, HXTestCount> &HXTestTable()
{
    static const std::array<HXTestDescriptor, HXTestCount> table{{
        {HXTest::SMART, HXDSMARTCheckTestName, HXTestGroup::Drives, QStringLiteral("smart")},
        {HXTest::SurfaceScan, HXDSurfaceScanTestName, HXTestGroup::Drives,
         QStringLiteral("surface")},
        {HXTest::FileStructures, HXDFileStructureTestName, HXTestGroup::Files,
         QStringLiteral("files")},
        {HXTest::Memory, HXDMemoryTestName, HXTestGroup::Hardware, QStringLiteral("memory")},
        {HXTest::VolumeStructures, HXDFilesystemCheckTestName, HXTestGroup::Drives,
         QStringLiteral("volumes")},
        {HXTest::PartitionMap, HXDPartitionMapCheckTestName, HXTestGroup::Drives,
         QStringLiteral("partitions")},
        {HXTest::RAID, HXDRAIDCheckTestName, HXTestGroup::Drives, QStringLiteral("raid")},
        {HXTest::Battery, HXDBatteryTestName, HXTestGroup::Hardware, QStringLiteral("battery")},
        {HXTest::IO, HXDIOErrorTestName, HXTestGroup::System, QStringLiteral("io")},
        {HXTest::POST, HXDPOSTCheckTestName, HXTestGroup::System, QStringLiteral("post")},
    }};
    return table;
}

const HXTestDescriptor &HXTestInfo(HXTest test)
{
    return HXTestTable()[size_t(test)];
}

QList<HXTest> HXTestsOfGroup(HXTestGroup group)
{
    switch (group) {
    case HXTestGroup::Hardware:
        return {HXTest::Memory, HXTest::Battery};
    case HXTestGroup::System:
        return {HXTest::IO, HXTest::POST};
    case HXTestGroup::Drives:
        return {HXTest::VolumeStructures, HXTest::PartitionMap, HXTest::RAID, HXTest::SurfaceScan,
                HXTest::SMART};
    case HXTestGroup::Files:
        return {HXTest::FileStructures};
    }
    return {};
}

QString HXTestGroupKey(HXTestGroup group)
{
    switch (group) {
    case HXTestGroup::Hardware:
        return QStringLiteral("hardware");
    case HXTestGroup::System:
        return QStringLiteral("system");
    case HXTestGroup::Drives:
        return QStringLiteral("drives");
    case HXTestGroup::Files:
        return QStringLiteral("files");
    }
    return {};
}

HXStatusBoard::HXStatusBoard()
{
    m_indexes.fill(HXResultIndexNotFound);
}

bool HXStatusBoard::setTestStatus(const QString &type, TestFlags &test, TestFlags &report,
                                  qint64 index, qint64 &resultIndex, QVariantMap &globalResult,
                                  bool showAll, QString *fieldText, bool *showHelpButton)
{
    static const QString kGlobal = QStringLiteral("GlobalResult");
    bool counts = false;
    bool help = false;
    QString text;
    if (type == HXDTestResultErrorType) {
        // An error always wins and always moves the index. It writes "Failed"
        // while the checks below compare with "Error": a later warning in the
        // same group overwrites it. Nothing else reads the summary.
        globalResult.insert(kGlobal, QStringLiteral("Failed"));
        text = QStringLiteral("Failed");
        test.error = true;
        report.error = true;
        report.passed = false;
        resultIndex = index;
        help = true;
        counts = true;
    } else if (type == HXDTestResultWarningType && !test.error) {
        if (globalResult.value(kGlobal).toString() != QLatin1String("Error"))
            globalResult.insert(kGlobal, QStringLiteral("Warning"));
        text = QStringLiteral("Warning");
        test.warning = true;
        report.warning = true;
        report.passed = false;
        resultIndex = index;
        help = true;
        counts = true;
    } else if (type == HXDTestResultSuccessType && !test.warning && !test.error) {
        const QString g = globalResult.value(kGlobal).toString();
        // A pass deliberately writes "Warning" here.
        if (g != QLatin1String("Error") && g != QLatin1String("Warning"))
            globalResult.insert(kGlobal, QStringLiteral("Warning"));
        text = QStringLiteral("Passed");
        test.passed = true;
        report.passed = true;
        resultIndex = index;
        help = false;
    }
    if (showAll)
        help = true;
    if (fieldText && !text.isEmpty())
        *fieldText = text;
    if (showHelpButton)
        *showHelpButton = help;
    return counts;
}

void HXStatusBoard::rebuild(const HXStatusReportRef &report)
{
    for (auto &list : m_results)
        list.clear();
    m_flags.fill(TestFlags{});
    m_reportFlags = TestFlags{};
    for (auto &summary : m_summaries)
        summary.clear();
    if (!report)
        return;

    const HXTestResultList results = report->testResults();
    const auto &table = HXTestTable();
    static const QHash<QString, const HXTestDescriptor *> exactNames = [&table] {
        QHash<QString, const HXTestDescriptor *> h;
        for (const HXTestDescriptor &d : table)
            h.insert(d.testName, &d);
        return h;
    }();
    for (qsizetype i = 0; i < results.size(); ++i) {
        const HXTestResultRef &r = results[i];
        const QString name = r->name();
        // Nearly every name is exactly a test's name, and no test's name
        // holds an earlier one's, so an exact match is the table-order match.
        const HXTestDescriptor *match = exactNames.value(name, nullptr);
        for (auto it = table.begin(); !match && it != table.end(); ++it) {
            if (name.contains(it->testName))
                match = &*it;
        }
        if (!match)
            continue;
        const auto t = size_t(match->test);
        const bool counts = setTestStatus(r->type(), m_flags[t], m_reportFlags, i, m_indexes[t],
                                          m_summaries[size_t(match->group)], false);
        if (counts) {
            const HXTest listedUnder =
                match->test == HXTest::PartitionMap ? HXTest::VolumeStructures : match->test;
            m_results[size_t(listedUnder)].append({i, r});
        }
    }
}

int HXStatusBoard::testStatus(HXTest test) const
{
    const TestFlags &f = m_flags[size_t(test)];
    if (f.error)
        return HXGroupStatusError;
    if (f.warning)
        return HXGroupStatusWarning;
    if (f.passed)
        return HXGroupStatusPassed;
    return HXGroupStatusNoResult;
}

int HXStatusBoard::combine(const QList<int> &codes)
{
    for (int wanted : {HXGroupStatusError, HXGroupStatusWarning, HXGroupStatusPassed}) {
        if (codes.contains(wanted))
            return wanted;
    }
    return HXGroupStatusNoResult;
}

int HXStatusBoard::groupStatus(HXTestGroup group) const
{
    QList<int> codes;
    const QList<HXTest> tests = HXTestsOfGroup(group);
    for (HXTest t : tests)
        codes.append(testStatus(t));
    return combine(codes);
}
