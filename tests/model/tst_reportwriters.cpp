// Two processes writing one report file at once: the stand-in worker records
// a testing pass of hundreds of results, each a rename of a new report into
// place, while this process adds log lines as fast as it can. Every result
// and every line must be in the file at the end.
#include "HXConstants.h"
#include "HXProductPaths.h"
#include "HXReportArchive.h"
#include "HXReportLog.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QDBusConnection>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr int kResults = 300;

// Each run its own step (the tests alternate) and its own disk (so that no
// result replaces another).
QByteArray passOfManyResults()
{
    static const char *outcomes[] = {"passed", "warning", "error"};
    QJsonArray disks, tests;
    for (int i = 0; i < kResults; ++i) {
        const QString id = QStringLiteral("d%1").arg(i);
        disks.append(QJsonObject{{QStringLiteral("id"), id},
                                 {QStringLiteral("bsdName"), QStringLiteral("sd%1").arg(i)},
                                 {QStringLiteral("uuid"), QStringLiteral("UUID-%1").arg(i)},
                                 {QStringLiteral("name"), QStringLiteral("Disk %1").arg(i)}});
        tests.append(
            QJsonObject{{QStringLiteral("test"),
                         i % 2 ? QStringLiteral("SurfaceScan") : QStringLiteral("SMART")},
                        {QStringLiteral("disk"), id},
                        {QStringLiteral("outcome"), QLatin1String(outcomes[i % 3])},
                        {QStringLiteral("log"), QStringLiteral("worker result %1").arg(i)}});
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("stepMilliseconds"), 1},
                                     {QStringLiteral("disks"), disks},
                                     {QStringLiteral("tests"), tests}})
        .toJson();
}

HXStatusReportRef decodeFile(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? HXReportArchive::decodeReport(f.readAll(), nullptr)
                                       : nullptr;
}

} // namespace

class TestReportWriters : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        QVERIFY2(TestSupport::useTestRoot(m_root.path()), "run under dbus-run-session");
        QVERIFY(QDir().mkpath(HXProductPaths::libraryFolder()));
        HXReportLogSetLineSink([](const QByteArray &) {});
    }

    void noResultAndNoLineIsLostWhileTheWorkerWrites()
    {
        const QString scenario = m_root.filePath(QStringLiteral("scenario.json"));
        {
            QFile f(scenario);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(passOfManyResults());
        }
        HXStatusReporter *shared = HXStatusReporter::sharedReporter();
        const QString path = shared->reportPath();

        StandinProcess worker(m_root.path());
        QVERIFY2(worker.start({QStringLiteral("--serve"), QStringLiteral("worker"),
                               QStringLiteral("--status-view-port"), QStringLiteral("0"),
                               QStringLiteral("--scenario"), scenario, QStringLiteral("--start")}),
                 qPrintable(worker.standardError()));

        // Lines until the pass is over, with the watcher's reloads let in
        // between now and then, so that both reload paths meet the worker.
        QStringList written;
        QElapsedTimer clock;
        clock.start();
        while (!worker.standardError().contains(QLatin1String("Testing pass finished")) &&
               clock.elapsed() < 120000) {
            const QString text = QStringLiteral("application line %1").arg(written.size());
            HXReportLogError(text);
            written.append(QStringLiteral("Error: ") + text);
            if (written.size() % 3 == 0)
                QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        }
        QVERIFY2(clock.elapsed() < 120000, qPrintable(worker.standardError()));
        QVERIFY2(written.size() >= 100,
                 qPrintable(QStringLiteral("only %1 lines raced the pass").arg(written.size())));
        qInfo("%lld application lines raced %d worker results", qint64(written.size()), kResults);

        // A writer that found the lock taken writes a moment later.
        QTRY_VERIFY(!shared->hasUnwrittenChanges());
        HXStatusReportRef onDisk;
        QTRY_VERIFY_WITH_TIMEOUT(
            (onDisk = decodeFile(path)) && onDisk->countOfTestResults() == kResults, 10000);
        QCOMPARE(worker.stop(), 0);

        QSet<QString> results;
        for (const HXTestResultRef &r : onDisk->testResults())
            results.insert(r->log());
        QCOMPARE(results.size(), kResults);
        QStringList mine, workers;
        for (const HXLogEntryRef &e : onDisk->log())
            (e->string().startsWith(QLatin1String("Error: application line")) ? mine : workers)
                .append(e->string());
        QCOMPARE(mine, written); // all of them, in order
        QCOMPARE(workers.size(), kResults);
        for (int i = 0; i < kResults; ++i) {
            QVERIFY(results.contains(QStringLiteral("worker result %1").arg(i)));
            static const char *types[] = {"Passed", "Warning", "Error"};
            QCOMPARE(
                workers[i],
                QStringLiteral("%1: worker result %2").arg(QLatin1String(types[i % 3])).arg(i));
        }
        QVERIFY2(!worker.standardError().contains(QLatin1String("could not be read")),
                 qPrintable(worker.standardError()));
    }
};

QTEST_GUILESS_MAIN(TestReportWriters)
#include "tst_reportwriters.moc"
