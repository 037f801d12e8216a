// `orvexctl status --prometheus` end to end: the built program run on report
// files under fixture machines, its output read back by the Prometheus
// project's own Python parser.
#include "HXConstants.h"
#include "HXMachineProbes.h"
#include "HXReportArchive.h"
#include "PrometheusText.h"
#include "ReportFactory.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QString kPython = QStringLiteral("/usr/bin/python3");

struct Run
{
    int exitCode = -1;
    QByteArray out, err;
};

Run run(const QString &program, const QStringList &args, const QProcessEnvironment &env,
        const QByteArray &input = {})
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, args);
    Run r;
    if (!p.waitForStarted(10000))
        return r;
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(30000))
        return r;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

// name → {"type", "help", "samples": [{"name", "labels", "value"}]}, as the
// reference parser reads the text; empty (with the reason in *why) when it
// refuses it.
QMap<QString, QJsonObject> parse(const QByteArray &text, QString *why)
{
    const Run r = run(kPython, {QStringLiteral(PROMETHEUS_PARSER)},
                      QProcessEnvironment::systemEnvironment(), text);
    QMap<QString, QJsonObject> families;
    if (r.exitCode != 0) {
        *why = QString::fromUtf8(r.err);
        return families;
    }
    for (const QJsonValue &f : QJsonDocument::fromJson(r.out).array())
        families.insert(f[QLatin1String("name")].toString(), f.toObject());
    return families;
}

// The value of the sample whose labels hold `key`=`value`; NaN when none does.
double sample(const QJsonObject &family, const QString &key, const QString &value)
{
    for (const QJsonValue &s : family[QLatin1String("samples")].toArray()) {
        if (s[QLatin1String("labels")][key].toString() == value)
            return s[QLatin1String("value")].toDouble();
    }
    return qQNaN();
}

} // namespace

class TestPrometheus : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    // Runs `orvexctl status --prometheus` on `report` with the machine
    // evidence under `sysroot`, and parses what it printed.
    QMap<QString, QJsonObject> exposition(const HXStatusReport &report, const QString &sysroot,
                                          const QString &systemVersion = {})
    {
        const QString path = m_dir.filePath(QStringLiteral("Report.zrrpt"));
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return {};
        f.write(HXReportArchive::encodeReport(report));
        f.close();
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ORVEX_SYSROOT"), sysroot);
        if (!systemVersion.isEmpty())
            env.insert(QStringLiteral("ORVEX_SYSTEM_VERSION"), systemVersion);
        const Run r = run(QStringLiteral(ORVEXCTL_PATH),
                          {QStringLiteral("status"), QStringLiteral("--prometheus"), path}, env);
        if (r.exitCode != 0) {
            qWarning("orvexctl: %s", r.err.constData());
            return {};
        }
        QString why;
        const QMap<QString, QJsonObject> families = parse(r.out, &why);
        if (families.isEmpty())
            qWarning("%s\n%s", qPrintable(why), r.out.constData());
        return families;
    }

    // Whether this machine has a SMART disk: its block devices are the
    // real ones under any sysroot, so only the probe itself can say.
    static int smartCode(int ifApplicable)
    {
        return HXLinuxMachineProbes().smartExists() ? ifApplicable : HXGroupStatusNotApplicable;
    }

private Q_SLOTS:
    void initTestCase()
    {
        const Run r =
            run(kPython, {QStringLiteral("-c"), QStringLiteral("import prometheus_client.parser")},
                QProcessEnvironment::systemEnvironment());
        if (r.exitCode != 0)
            QFAIL("Debian's python3-prometheus-client is needed (scripts/install-deps.sh installs "
                  "it).");
    }

    // The factory's report spreads every type over every test, so each test
    // has an error; a machine with batteries and arrays applies all of them.
    void aLargeReportOnAMachineWithEverything()
    {
        QTemporaryDir machine; // the battery tree and the array tree side by side
        QVERIFY(QFile::link(QStringLiteral(SYSROOT_FIXTURES "/sysroot-power/sys"),
                            machine.filePath(QStringLiteral("sys"))));
        QVERIFY(QFile::link(QStringLiteral(SYSROOT_FIXTURES "/sysroot-md/proc"),
                            machine.filePath(QStringLiteral("proc"))));
        const auto families = exposition(*ReportFactory::make(100, 50), machine.path());
        QCOMPARE(
            families.keys(),
            (QStringList{QStringLiteral("orvex_group_status"),
                         QStringLiteral("orvex_last_result_timestamp_seconds"),
                         QStringLiteral("orvex_results"), QStringLiteral("orvex_test_status")}));
        for (const QJsonObject &f : families) {
            QCOMPARE(f[QLatin1String("type")].toString(), QStringLiteral("gauge"));
            QVERIFY(!f[QLatin1String("help")].toString().isEmpty());
        }

        const QJsonObject tests = families[QStringLiteral("orvex_test_status")];
        const QJsonArray samples = tests[QLatin1String("samples")].toArray();
        QCOMPARE(samples.size(), HXTestCount);
        // The names the worker's command line knows the tests by.
        const QStringList keys =
            QStringLiteral("smart surface files memory volumes partitions raid battery io post")
                .split(QLatin1Char(' '));
        for (const HXTestDescriptor &d : HXTestTable()) {
            const QString key = keys[int(d.test)];
            const QJsonObject s = samples[int(d.test)].toObject();
            QCOMPARE(s[QLatin1String("labels")].toObject(),
                     (QJsonObject{{QStringLiteral("test"), key},
                                  {QStringLiteral("name"), d.testName},
                                  {QStringLiteral("group"), HXTestGroupKey(d.group)}}));
            QCOMPARE(s[QLatin1String("value")].toDouble(),
                     d.test == HXTest::SMART ? smartCode(3) : 3);
        }
        QCOMPARE(sample(tests, QStringLiteral("test"), QStringLiteral("partitions")), 3.0);
        for (const char *group : {"hardware", "system", "drives", "files"})
            QCOMPARE(sample(families[QStringLiteral("orvex_group_status")], QStringLiteral("group"),
                            QLatin1String(group)),
                     3.0);

        // 100 results: each tenth of them passed three times in five, warned
        // once and failed once.
        const QJsonObject results = families[QStringLiteral("orvex_results")];
        QCOMPARE(sample(results, QStringLiteral("type"), QStringLiteral("passed")), 60.0);
        QCOMPARE(sample(results, QStringLiteral("type"), QStringLiteral("warning")), 20.0);
        QCOMPARE(sample(results, QStringLiteral("type"), QStringLiteral("error")), 20.0);
        // Its 50 log lines are a second apart from 2026-01-01 00:00:00 UTC.
        const QJsonArray last = families[QStringLiteral("orvex_last_result_timestamp_seconds")]
                                        [QLatin1String("samples")]
                                            .toArray();
        QCOMPARE(last.size(), 1);
        QCOMPARE(last[0][QLatin1String("value")].toDouble(), 1767225600.0 + 49);
    }

    // Where the machine lacks what a test looks at, the test is not
    // applicable whatever the report says, as in the status window; the
    // group then goes by its other tests.
    void aBareMachineShowsItsTestsNotApplicable()
    {
        auto report = HXStatusReport::report();
        const QList<QPair<QString, QString>> results{
            {HXDTestResultErrorType, HXDBatteryTestName},
            {HXDTestResultSuccessType, HXDMemoryTestName},
            {HXDTestResultWarningType, HXDRAIDCheckTestName},
            {HXDTestResultSuccessType, HXDSMARTCheckTestName},
            {HXDTestResultWarningType, HXDFileStructureTestName}};
        for (const auto &[type, name] : results)
            report->addTestResult(
                HXTestResult::resultWithType(type, name, name + QStringLiteral(" said so"), {}));
        const QDateTime resultTime = QDateTime::fromMSecsSinceEpoch(1769860800250, Qt::UTC);
        auto result = HXLogEntry::entryWithTypeCompoundString(HXDTestResultWarningType,
                                                              QStringLiteral("a result"));
        result->setTimestamp(resultTime);
        report->addToLog(result);
        auto later = HXLogEntry::entryWithTypeCompoundString(HXDTestResultInformationType,
                                                             QStringLiteral("Testing stopped"));
        later->setTimestamp(resultTime.addSecs(60)); // not a result: not the time of the last one
        report->addToLog(later);

        QTemporaryDir bare;
        const auto families = exposition(*report, bare.path(), QStringLiteral("10.6.8"));
        QVERIFY(!families.isEmpty());
        const QJsonObject tests = families[QStringLiteral("orvex_test_status")];
        const QMap<QString, int> expected{{QStringLiteral("battery"), 4},
                                          {QStringLiteral("memory"), 1},
                                          {QStringLiteral("raid"), 4},
                                          {QStringLiteral("partitions"), 4},
                                          {QStringLiteral("smart"), smartCode(1)},
                                          {QStringLiteral("files"), 2},
                                          {QStringLiteral("surface"), 0},
                                          {QStringLiteral("volumes"), 0},
                                          {QStringLiteral("io"), 0},
                                          {QStringLiteral("post"), 0}};
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QCOMPARE(sample(tests, QStringLiteral("test"), it.key()), double(it.value()));

        const QJsonObject groups = families[QStringLiteral("orvex_group_status")];
        QCOMPARE(sample(groups, QStringLiteral("group"), QStringLiteral("hardware")), 1.0);
        QCOMPARE(sample(groups, QStringLiteral("group"), QStringLiteral("drives")),
                 smartCode(1) == 1 ? 1.0 : 0.0);
        QCOMPARE(sample(groups, QStringLiteral("group"), QStringLiteral("files")), 2.0);
        QCOMPARE(sample(groups, QStringLiteral("group"), QStringLiteral("system")), 0.0);

        const QJsonObject counts = families[QStringLiteral("orvex_results")];
        QCOMPARE(sample(counts, QStringLiteral("type"), QStringLiteral("passed")), 2.0);
        QCOMPARE(sample(counts, QStringLiteral("type"), QStringLiteral("warning")), 2.0);
        QCOMPARE(sample(counts, QStringLiteral("type"), QStringLiteral("error")), 1.0);
        const QJsonArray last = families[QStringLiteral("orvex_last_result_timestamp_seconds")]
                                        [QLatin1String("samples")]
                                            .toArray();
        QCOMPARE(last.size(), 1);
        QCOMPARE(last[0][QLatin1String("value")].toDouble(), 1769860800.25);
    }

    void anEmptyReportHasNoTimeOfALastResult()
    {
        QTemporaryDir bare;
        const auto families = exposition(*HXStatusReport::report(), bare.path());
        QCOMPARE(families.size(), 4);
        QVERIFY(families[QStringLiteral("orvex_last_result_timestamp_seconds")]
                        [QLatin1String("samples")]
                            .toArray()
                            .isEmpty());
        QCOMPARE(sample(families[QStringLiteral("orvex_test_status")], QStringLiteral("test"),
                        QStringLiteral("memory")),
                 0.0);
        QCOMPARE(sample(families[QStringLiteral("orvex_results")], QStringLiteral("type"),
                        QStringLiteral("error")),
                 0.0);
    }

    // The labels are fixed words today; the escaping is what keeps a future
    // one from breaking every scrape.
    void labelValuesComeBackAsTheyWere()
    {
        const QStringList values{QStringLiteral("plain"),
                                 QStringLiteral("a \"quoted\" name"),
                                 QStringLiteral("back\\slash"),
                                 QStringLiteral("two\nlines"),
                                 QStringLiteral("\\n is not a line feed"),
                                 QStringLiteral("caf\u00e9 \u2014 \U0001F50B")};
        QByteArray text = "# HELP t Escaping.\n# TYPE t gauge\n";
        for (int i = 0; i < values.size(); ++i)
            text += QStringLiteral("t{i=\"%1\",v=\"%2\"} 1\n")
                        .arg(i)
                        .arg(PrometheusText::labelValue(values[i]))
                        .toUtf8();
        QString why;
        const auto families = parse(text, &why);
        QVERIFY2(!families.isEmpty(), qPrintable(why));
        for (int i = 0; i < values.size(); ++i) {
            const QJsonObject labels =
                families[QStringLiteral("t")][QLatin1String("samples")][i][QLatin1String("labels")]
                    .toObject();
            QCOMPARE(labels[QLatin1String("v")].toString(), values[i]);
        }
    }
};

QTEST_GUILESS_MAIN(TestPrometheus)
#include "tst_prometheus.moc"
