// The rule that turns a report into ten test states and four group statuses.
#include "HXConstants.h"
#include "HXStatusBoard.h"

#include <QtTest>

namespace {

HXStatusReportRef reportOf(const QList<QPair<QString, QString>> &typeAndName)
{
    auto report = HXStatusReport::report();
    for (const auto &[type, name] : typeAndName)
        report->addTestResult(HXTestResult::resultWithType(type, name, QString(), {}));
    return report;
}

QList<qint64> indexesOf(const QList<HXResultEntry> &entries)
{
    QList<qint64> out;
    for (const auto &e : entries)
        out.append(e.index);
    return out;
}

const QString E = HXDTestResultErrorType;
const QString W = HXDTestResultWarningType;
const QString P = HXDTestResultSuccessType;

} // namespace

class TestStatusBoard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aTestEndsOnItsWorstLatestResult_data()
    {
        QTest::addColumn<QStringList>("types");
        QTest::addColumn<int>("status");
        QTest::addColumn<qint64>("index");
        QTest::addColumn<QList<qint64>>("listed");
        QTest::newRow("warning, error, pass") << QStringList{W, E, P} << 3 << qint64(1) << QList<qint64>{0, 1};
        QTest::newRow("pass, warning") << QStringList{P, W} << 2 << qint64(1) << QList<qint64>{1};
        QTest::newRow("error, warning") << QStringList{E, W} << 3 << qint64(0) << QList<qint64>{0};
        QTest::newRow("error, error") << QStringList{E, E} << 3 << qint64(1) << QList<qint64>{0, 1};
        QTest::newRow("pass, pass") << QStringList{P, P} << 1 << qint64(1) << QList<qint64>{};
        QTest::newRow("warning, pass") << QStringList{W, P} << 2 << qint64(0) << QList<qint64>{0};
        QTest::newRow("info and debug count for nothing")
            << QStringList{HXDTestResultInformationType, HXDTestResultDebugType} << 0 << HXResultIndexNotFound
            << QList<qint64>{};
    }
    void aTestEndsOnItsWorstLatestResult()
    {
        QFETCH(QStringList, types);
        QFETCH(int, status);
        QFETCH(qint64, index);
        QFETCH(QList<qint64>, listed);
        QList<QPair<QString, QString>> results;
        for (const QString &t : types)
            results.append({t, HXDMemoryTestName});
        HXStatusBoard board;
        board.rebuild(reportOf(results));
        QCOMPARE(board.testStatus(HXTest::Memory), status);
        QCOMPARE(board.resultIndex(HXTest::Memory), index);
        QCOMPARE(indexesOf(board.results(HXTest::Memory)), listed);
        QCOMPARE(board.testStatus(HXTest::Battery), 0);
    }

    void namesMatchByContainmentInTableOrder()
    {
        HXStatusBoard board;
        board.rebuild(reportOf({{E, QStringLiteral("SMART test sda (Samsung 870)")},
                                {E, QStringLiteral("Memory test after SMART test")},
                                {E, QStringLiteral("Thermal test")}}));
        QCOMPARE(board.testStatus(HXTest::SMART), 3);
        QCOMPARE(indexesOf(board.results(HXTest::SMART)), (QList<qint64>{0, 1}));
        QCOMPARE(board.testStatus(HXTest::Memory), 0);
    }

    void partitionMapResultsAreListedWithTheVolumeStructures()
    {
        HXStatusBoard board;
        board.rebuild(reportOf({{W, HXDPartitionMapCheckTestName},
                                {E, HXDFilesystemCheckTestName},
                                {E, HXDPartitionMapCheckTestName}}));
        QCOMPARE(indexesOf(board.results(HXTest::VolumeStructures)), (QList<qint64>{0, 1, 2}));
        QVERIFY(board.results(HXTest::PartitionMap).isEmpty());
        QCOMPARE(board.testStatus(HXTest::PartitionMap), 3);
        QCOMPARE(board.resultIndex(HXTest::PartitionMap), 2);
        QCOMPARE(board.resultIndex(HXTest::VolumeStructures), 1);
    }

    void indexesOutliveTheResultsTheyPointedTo()
    {
        HXStatusBoard board;
        board.rebuild(reportOf({{P, HXDRAIDCheckTestName}, {E, HXDRAIDCheckTestName}}));
        QCOMPARE(board.resultIndex(HXTest::RAID), 1);
        board.rebuild(HXStatusReport::report());
        QCOMPARE(board.testStatus(HXTest::RAID), 0);
        QCOMPARE(board.resultIndex(HXTest::RAID), 1);
        QVERIFY(board.results(HXTest::RAID).isEmpty());
        board.rebuild(nullptr);
        QCOMPARE(board.groupStatus(HXTestGroup::Drives), 0);
    }

    void groupSummariesKeepTheirOddWording()
    {
        HXStatusBoard board;
        board.rebuild(reportOf({{E, HXDMemoryTestName}, {W, HXDBatteryTestName}}));
        QCOMPARE(board.groupSummary(HXTestGroup::Hardware),
                 (QVariantMap{{QStringLiteral("GlobalResult"), QStringLiteral("Warning")}}));
        board.rebuild(reportOf({{P, HXDIOErrorTestName}}));
        QCOMPARE(board.groupSummary(HXTestGroup::System).value(QStringLiteral("GlobalResult")),
                 QVariant(QStringLiteral("Warning")));
        board.rebuild(reportOf({{E, HXDIOErrorTestName}}));
        QCOMPARE(board.groupSummary(HXTestGroup::System).value(QStringLiteral("GlobalResult")),
                 QVariant(QStringLiteral("Failed")));
        // "Failed" is not the "Error" the checks look for, so even a pass
        // of the group's other test overwrites it.
        board.rebuild(reportOf({{E, HXDIOErrorTestName}, {P, HXDPOSTCheckTestName}}));
        QCOMPARE(board.groupSummary(HXTestGroup::System).value(QStringLiteral("GlobalResult")),
                 QVariant(QStringLiteral("Warning")));
        QVERIFY(board.groupSummary(HXTestGroup::Files).isEmpty());
        QVERIFY(board.reportFlags().error);
        QVERIFY(board.reportFlags().passed); // a later pass sets it again
    }

    void groupsCombineTheirTests()
    {
        HXStatusBoard board;
        board.rebuild(reportOf({{P, HXDSMARTCheckTestName}, {W, HXDRAIDCheckTestName},
                                {P, HXDFileStructureTestName}, {E, HXDPOSTCheckTestName}}));
        QCOMPARE(board.groupStatus(HXTestGroup::Drives), 2);
        QCOMPARE(board.groupStatus(HXTestGroup::Files), 1);
        QCOMPARE(board.groupStatus(HXTestGroup::System), 3);
        QCOMPARE(board.groupStatus(HXTestGroup::Hardware), 0);
        QCOMPARE(HXStatusBoard::combine({4, 4}), 0);
        QCOMPARE(HXStatusBoard::combine({4, 1, 0}), 1);
        QCOMPARE(HXStatusBoard::combine({1, 3, 2}), 3);
    }

    void theRuleReportsItsFieldAndHelpButton()
    {
        HXStatusBoard::TestFlags test, report;
        qint64 index = HXResultIndexNotFound;
        QVariantMap summary;
        QString text;
        bool help = false;
        QVERIFY(!HXStatusBoard::setTestStatus(P, test, report, 4, index, summary, false, &text, &help));
        QCOMPARE(text, QStringLiteral("Passed"));
        QVERIFY(!help);
        QVERIFY(!HXStatusBoard::setTestStatus(P, test, report, 5, index, summary, true, &text, &help));
        QVERIFY(help); // showAll shows every help button
        QVERIFY(HXStatusBoard::setTestStatus(E, test, report, 6, index, summary, false, &text, &help));
        QCOMPARE(text, QStringLiteral("Failed"));
        QVERIFY(help);
        text.clear();
        QVERIFY(!HXStatusBoard::setTestStatus(W, test, report, 7, index, summary, false, &text, &help));
        QVERIFY(text.isEmpty());
        QCOMPARE(index, 6);
    }
};

QTEST_GUILESS_MAIN(TestStatusBoard)
#include "tst_statusboard.moc"
