// orvexctl end to end: the built program run on real report files.
#include "AdvisoryFileLock.h"
#include "AtomicFileWriter.h"
#include "HXConstants.h"
#include "HXReportArchive.h"
#include "HXStatusReporter.h"
#include "ReportFactory.h"
#include "TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct Run
{
    int exitCode = -1;
    QByteArray out, err;
};

Run orvexctl(const QStringList &args, const QByteArray &root = {})
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ORVEX_ROOT"), QString::fromUtf8(root));
    p.setProcessEnvironment(env);
    p.start(QStringLiteral(ORVEXCTL_PATH), args);
    Run r;
    if (!p.waitForFinished(30000))
        return r;
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -2;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

void write(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

HXStatusReportRef smallReport()
{
    auto report = HXStatusReport::report();
    QVariantMap disk{{QStringLiteral("uuid"), QStringLiteral("U1")},
                     {QStringLiteral("bsdName"), QStringLiteral("sda")},
                     {QStringLiteral("size"), qint64(500107862016)},
                     {QStringLiteral("serial"), QByteArray("\x01\x02", 2)},
                     {QStringLiteral("checked"), QDateTime::fromSecsSinceEpoch(1769860800, Qt::UTC)}};
    report->addTestResult(HXTestResult::resultWithType(HXDTestResultWarningType, HXDSMARTCheckTestName,
                                                       QStringLiteral("reallocated sectors"),
                                                       QVariantMap{{HXDiskKey, disk}}));
    report->addTestResult(HXTestResult::resultWithType(HXDTestResultErrorType, HXDMemoryTestName,
                                                       QStringLiteral("bad RAM"), {}));
    auto entry = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType,
                                                         QStringLiteral("Error: 1 damaged file\n/home/a"));
    entry->setTimestamp(QDateTime::fromSecsSinceEpoch(1769860800, Qt::UTC));
    report->addToLog(entry);
    return report;
}

} // namespace

class TestOrvexctl : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_path;

private Q_SLOTS:
    void init()
    {
        m_path = m_dir.filePath(QStringLiteral("Report.zrrpt"));
        write(m_path, HXReportArchive::encodeReport(*smallReport()));
    }

    void reportAsJson()
    {
        const Run r = orvexctl({QStringLiteral("report"), QStringLiteral("--json"), m_path});
        QCOMPARE(r.exitCode, 0);
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        const QJsonArray results = o.value(QStringLiteral("testResults")).toArray();
        QCOMPARE(results.size(), 2);
        const QJsonObject smart = results.at(0).toObject();
        QCOMPARE(smart.value(QStringLiteral("type")).toString(), QStringLiteral("Warning"));
        QCOMPARE(smart.value(QStringLiteral("name")).toString(), QStringLiteral("SMART test"));
        const QJsonObject disk = smart.value(QStringLiteral("testInfo")).toObject().value(QStringLiteral("disk")).toObject();
        QCOMPARE(disk.value(QStringLiteral("size")).toInteger(), 500107862016LL);
        QCOMPARE(disk.value(QStringLiteral("serial")).toString(), QStringLiteral("AQI="));
        QCOMPARE(disk.value(QStringLiteral("checked")).toString(), QStringLiteral("2026-01-31T12:00:00Z"));
        QVERIFY(results.at(1).toObject().value(QStringLiteral("testInfo")).isNull());
        const QJsonObject entry = o.value(QStringLiteral("log")).toArray().at(0).toObject();
        QCOMPARE(entry.value(QStringLiteral("timestamp")).toString(), QStringLiteral("2026-01-31T12:00:00Z"));
        QCOMPARE(entry.value(QStringLiteral("isFile")).toBool(), false);
        const QJsonObject child = entry.value(QStringLiteral("children")).toArray().at(0).toObject();
        QCOMPARE(child.value(QStringLiteral("string")).toString(), QStringLiteral("/home/a"));
        QCOMPARE(child.value(QStringLiteral("isFile")).toBool(), true);
    }

    void reportForAPerson()
    {
        const Run r = orvexctl({QStringLiteral("report"), m_path});
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.contains("#1  Error     Memory test: bad RAM"));
        QVERIFY(r.out.contains("/home/a"));
        QVERIFY2(!r.out.contains("\x1b["), "no colour when not on a terminal");
    }

    void statusAsJson()
    {
        const Run r = orvexctl({QStringLiteral("status"), QStringLiteral("--json"), m_path});
        QCOMPARE(r.exitCode, 0);
        const QJsonObject o = QJsonDocument::fromJson(r.out).object();
        const QJsonObject tests = o.value(QStringLiteral("tests")).toObject();
        QCOMPARE(tests.size(), 10);
        QCOMPARE(tests.value(QStringLiteral("SMART test")).toObject().value(QStringLiteral("status")).toInt(), 2);
        QCOMPARE(tests.value(QStringLiteral("SMART test")).toObject().value(QStringLiteral("index")).toInt(), 0);
        QCOMPARE(tests.value(QStringLiteral("Memory test")).toObject().value(QStringLiteral("index")).toInt(), 1);
        QVERIFY(tests.value(QStringLiteral("RAID test")).toObject().value(QStringLiteral("index")).isNull());
        const QJsonObject groups = o.value(QStringLiteral("groups")).toObject();
        QCOMPARE(groups.value(QStringLiteral("hardware")).toInt(), 3);
        QCOMPARE(groups.value(QStringLiteral("drives")).toInt(), 2);
        QCOMPARE(groups.value(QStringLiteral("system")).toInt(), 0);
        QCOMPARE(groups.value(QStringLiteral("files")).toInt(), 0);
    }

    void statusTableReadsAtAGlance()
    {
        const Run r = orvexctl({QStringLiteral("status"), m_path});
        QCOMPARE(r.exitCode, 0);
        const QList<QByteArray> lines = r.out.split('\n');
        QVERIFY(lines.contains("SMART test              WARNING     #0"));
        QVERIFY(lines.contains("hardware                FAILED"));
        QVERIFY(lines.contains("files                   PENDING..."));
    }

    void theDefaultFileIsTheLiveReportUnderTheRoot()
    {
        QTemporaryDir root;
        QVERIFY(QDir().mkpath(root.filePath(QStringLiteral("var/lib/orvex"))));
        write(root.filePath(QStringLiteral("var/lib/orvex/Report.zrrpt")), HXReportArchive::encodeReport(*smallReport()));
        const Run r = orvexctl({QStringLiteral("status"), QStringLiteral("--json")}, root.path().toUtf8());
        QCOMPARE(r.exitCode, 0);
        QVERIFY(r.out.contains("\"hardware\": 3"));
    }

    void clearEmptiesTheReportOrOnlyItsLog()
    {
        Run r = orvexctl({QStringLiteral("clear"), QStringLiteral("--log-only"), m_path});
        QCOMPARE(r.exitCode, 0);
        HXStatusReportRef back = HXReportArchive::decodeReport(TestSupport::readFile(m_path), nullptr);
        QCOMPARE(back->countOfLog(), 0);
        QCOMPARE(back->countOfTestResults(), 2);
        r = orvexctl({QStringLiteral("clear"), m_path});
        QCOMPARE(r.exitCode, 0);
        back = HXReportArchive::decodeReport(TestSupport::readFile(m_path), nullptr);
        QCOMPARE(back->countOfTestResults(), 0);
    }

    // Clearing is a writer like the worker: it takes its turn at the lock,
    // and clears what the worker wrote before it.
    void clearWaitsForTheWriterHoldingTheLock()
    {
        AdvisoryFileLock worker(HXStatusReporter::lockFileFor(m_path));
        QCOMPARE(worker.lock(0), AdvisoryFileLock::Outcome::Locked);
        QProcess clear;
        clear.start(QStringLiteral(ORVEXCTL_PATH), {QStringLiteral("clear"), m_path});
        QVERIFY(clear.waitForStarted(10000));
        QTest::qWait(500); // far longer than a clear takes
        QCOMPARE(clear.state(), QProcess::Running);
        auto newer = smallReport();
        newer->addTestResult(HXTestResult::resultWithType(
            HXDTestResultErrorType, HXDBatteryTestName, QStringLiteral("worn out"), {}));
        QVERIFY(
            AtomicFileWriter::write(m_path, HXReportArchive::encodeReport(*newer), 0644, QString())
                .written);
        worker.unlock();
        QVERIFY(clear.waitForFinished(30000));
        QCOMPARE(clear.exitCode(), 0);
        const HXStatusReportRef back =
            HXReportArchive::decodeReport(TestSupport::readFile(m_path), nullptr);
        QVERIFY(back);
        QCOMPARE(back->countOfTestResults(), 0);
        QCOMPARE(back->countOfLog(), 0);
    }

    void missingDamagedAndMisusedSayWhy_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("message");
        QTest::newRow("missing") << QStringList{QStringLiteral("status"), QStringLiteral("@/nope.zrrpt")} << QByteArray() << 1
                                 << QByteArray("orvexctl: there is no report at ");
        QTest::newRow("damaged") << QStringList{QStringLiteral("report"), QStringLiteral("@")} << QByteArray("bplist00 damaged beyond repair, truly.")
                                 << 1 << QByteArray("could not be read: ");
        QTest::newRow("clear keeps a damaged file") << QStringList{QStringLiteral("clear"), QStringLiteral("@")}
                                                    << QByteArray("not a report") << 1 << QByteArray("could not be read");
        QTest::newRow("unknown command") << QStringList{QStringLiteral("frobnicate")} << QByteArray() << 2
                                         << QByteArray("unknown command");
        QTest::newRow("wrong flag") << QStringList{QStringLiteral("watch"), QStringLiteral("--json")} << QByteArray() << 2
                                    << QByteArray("watch does not take --json");
        QTest::newRow("two formats") << QStringList{QStringLiteral("status"), QStringLiteral("--json"), QStringLiteral("--prometheus")}
                                     << QByteArray() << 2 << QByteArray("cannot be given together");
        QTest::newRow("two files") << QStringList{QStringLiteral("status"), QStringLiteral("a"), QStringLiteral("b")}
                                   << QByteArray() << 2 << QByteArray("only one report file");
    }
    void missingDamagedAndMisusedSayWhy()
    {
        QFETCH(QStringList, args);
        QFETCH(QByteArray, contents);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, message);
        if (!contents.isEmpty())
            write(m_path, contents);
        for (QString &a : args) {
            if (a.startsWith(QLatin1Char('@')))
                a = a == QLatin1String("@") ? m_path : m_dir.path() + a.mid(1);
        }
        const Run r = orvexctl(args);
        QCOMPARE(r.exitCode, exitCode);
        QVERIFY2(r.err.contains(message), r.err.constData());
        QVERIFY(r.out.isEmpty());
        if (!contents.isEmpty())
            QCOMPARE(TestSupport::readFile(m_path), contents);
    }

    void watchPrintsALineForEachReload()
    {
        QProcess p;
        p.start(QStringLiteral(ORVEXCTL_PATH), {QStringLiteral("watch"), m_path});
        QVERIFY(p.waitForStarted());
        QTRY_VERIFY(p.canReadLine());
        const QByteArray first = p.readLine();
        QVERIFY2(first.contains("hardware FAILED") && first.contains("drives WARNING"), first.constData());
        write(m_path, HXReportArchive::encodeReport(*HXStatusReport::report()));
        QByteArray seen;
        QTRY_VERIFY((seen += p.readAll()).contains("hardware PENDING..."));
        p.terminate();
        QVERIFY(p.waitForFinished(5000));
        QCOMPARE(p.exitCode(), 0);
    }

    void handlesATenThousandResultReport()
    {
        write(m_path, HXReportArchive::encodeReport(*ReportFactory::make(10000, 20000)));
        const Run r = orvexctl({QStringLiteral("status"), QStringLiteral("--json"), m_path});
        QCOMPARE(r.exitCode, 0);
        const QJsonObject groups = QJsonDocument::fromJson(r.out).object().value(QStringLiteral("groups")).toObject();
        QCOMPARE(groups.value(QStringLiteral("drives")).toInt(), 3);
    }
};

QTEST_GUILESS_MAIN(TestOrvexctl)
#include "tst_orvexctl.moc"
