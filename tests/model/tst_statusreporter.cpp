// The live report file: watching, loading, writing, failing, and the log
// lines that go into it. Real files in temporary folders throughout.
#include "AdvisoryFileLock.h"
#include "AtomicFileWriter.h"
#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "HXConstants.h"
#include "HXDirectoryWatcher.h"
#include "HXDistributedNotificationCenter.h"
#include "HXNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXReportArchive.h"
#include "HXReportLog.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "KeyedUnarchiver.h"
#include "ReportFactory.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtConcurrent/QtConcurrentRun>
#include <QtTest>

#include <csignal>
#include <grp.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

class RecordingDistributedCenter : public HXDistributedNotificationCenter
{
public:
    struct Post
    {
        QString name, object;
        QVariantMap userInfo;
        bool immediately;
    };
    QList<Post> posts;
    void postNotification(const QString &name, const QString &object, const QVariantMap &userInfo,
                          bool deliverImmediately) override
    {
        posts.append({name, object, userInfo, deliverImmediately});
    }
};

// Collects the system log while alive.
class LogCapture
{
public:
    LogCapture()
    {
        HXSystemLog::setSink([this](const QString &line) { lines.append(line); });
    }
    ~LogCapture() { HXSystemLog::setSink({}); }
    QStringList lines;
};

HXStatusReportRef reportWithOneError()
{
    auto report = HXStatusReport::report();
    report->addTestResult(HXTestResult::resultWithType(HXDTestResultErrorType, HXDMemoryTestName,
                                                       QStringLiteral("bad RAM"), {}));
    return report;
}

// A result of its own disk, so that recording it replaces nothing.
HXTestResultRef diskResult(const QString &uuid)
{
    return HXTestResult::resultWithType(
        HXDTestResultWarningType, HXDSMARTCheckTestName,
        QStringLiteral("reallocated sectors on %1").arg(uuid),
        QVariantMap{{HXDiskKey, QVariantMap{{QStringLiteral("uuid"), uuid}}}});
}

HXLogEntryRef line(const QString &text)
{
    return HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, text);
}

HXStatusReportRef decodeFile(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return nullptr;
    return HXReportArchive::decodeReport(f.readAll(), nullptr);
}

QStringList logTexts(const HXStatusReport &report)
{
    QStringList texts;
    for (const HXLogEntryRef &e : report.log())
        texts.append(e->string());
    return texts;
}

QStringList resultLogs(const HXStatusReport &report)
{
    QStringList logs;
    for (const HXTestResultRef &r : report.testResults())
        logs.append(r->log());
    return logs;
}

// An object of a class a report may not hold, archived where results go.
class Intruder : public KeyedArchivable
{
public:
    QString archiveClassName() const override { return QStringLiteral("NSTask"); }
    void encodeWithArchiver(KeyedArchiver &a) const override
    {
        a.encodeValue(QStringLiteral("launchPath"), QStringLiteral("/bin/sh"));
    }
};

// A report-shaped root whose keys hold whatever the test wants.
class FakeReport : public KeyedArchivable
{
public:
    std::function<void(KeyedArchiver &)> encode;
    QString archiveClassName() const override { return QStringLiteral("HXStatusReport"); }
    void encodeWithArchiver(KeyedArchiver &a) const override { encode(a); }
};

// A report archive laid out by hand: the report's "testResults" holds a list
// nested `depth` times, or its "log" holds an entry whose children hold itself.
QByteArray nestedArchive(int depth, bool selfContainingEntry)
{
    BinaryPlistWriter w;
    std::vector<BinaryPlistWriter::Ref> objects{w.string(QStringLiteral("$null"))};
    auto classRecord = [&](const QString &name) {
        const BinaryPlistWriter::Ref k[] = {w.string(QStringLiteral("$classname")), w.string(QStringLiteral("$classes"))};
        const BinaryPlistWriter::Ref chain[] = {w.string(name), w.string(QStringLiteral("NSObject"))};
        const BinaryPlistWriter::Ref v[] = {w.string(name), w.array(chain)};
        objects.push_back(w.dict(k, v));
        return quint64(objects.size() - 1);
    };
    const quint64 reportClass = classRecord(QStringLiteral("HXStatusReport"));
    const quint64 arrayClass = classRecord(QStringLiteral("NSArray"));
    const quint64 entryClass = classRecord(QStringLiteral("HXLogEntry"));
    const quint64 first = objects.size();
    if (selfContainingEntry) {
        // [first] the log list holding the entry, [first+1] the entry, whose
        // children are [first+2], a list that holds the entry itself.
        const BinaryPlistWriter::Ref lk[] = {w.string(QStringLiteral("$class")), w.string(QStringLiteral("NS.objects"))};
        const BinaryPlistWriter::Ref entryRef[] = {w.uid(first + 1)};
        const BinaryPlistWriter::Ref lv[] = {w.uid(arrayClass), w.array(entryRef)};
        objects.push_back(w.dict(lk, lv));
        const BinaryPlistWriter::Ref ek[] = {w.string(QStringLiteral("$class")), w.string(QStringLiteral("children"))};
        const BinaryPlistWriter::Ref ev[] = {w.uid(entryClass), w.uid(first + 2)};
        objects.push_back(w.dict(ek, ev));
        objects.push_back(w.dict(lk, lv)); // a second list holding the same entry
    } else {
        for (int i = 0; i < depth; ++i) {
            const BinaryPlistWriter::Ref k[] = {w.string(QStringLiteral("$class")), w.string(QStringLiteral("NS.objects"))};
            const BinaryPlistWriter::Ref next[] = {w.uid(first + quint64(i) + 1)};
            const BinaryPlistWriter::Ref v[] = {w.uid(arrayClass), w.array(next)};
            objects.push_back(w.dict(k, v));
        }
        objects.push_back(w.string(QStringLiteral("bottom")));
    }
    const BinaryPlistWriter::Ref rk[] = {w.string(QStringLiteral("$class")),
                                         w.string(selfContainingEntry ? QStringLiteral("log") : QStringLiteral("testResults"))};
    const BinaryPlistWriter::Ref rv[] = {w.uid(reportClass), w.uid(first)};
    objects.push_back(w.dict(rk, rv));
    const BinaryPlistWriter::Ref tk[] = {w.string(QStringLiteral("root"))};
    const BinaryPlistWriter::Ref tv[] = {w.uid(objects.size() - 1)};
    const BinaryPlistWriter::Ref k[] = {w.string(QStringLiteral("$archiver")), w.string(QStringLiteral("$version")),
                                        w.string(QStringLiteral("$top")), w.string(QStringLiteral("$objects"))};
    const BinaryPlistWriter::Ref v[] = {w.string(QStringLiteral("NSKeyedArchiver")), w.integer(100000),
                                        w.dict(tk, tv), w.array(objects)};
    return w.finish(w.dict(k, v));
}

} // namespace

class TestStatusReporter : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    HXNotificationCenter m_center;

    HXStatusReporter::Options options(const QString &path, bool watch = true)
    {
        return {path, &m_center, nullptr, watch};
    }
    int countPosts(const QString &name, std::function<void()> action)
    {
        int n = 0;
        const auto token = m_center.addObserver(name, nullptr, [&](const HXNotification &) { ++n; });
        action();
        m_center.removeObserver(token);
        return n;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        QVERIFY(QDir().mkpath(HXProductPaths::libraryFolder()));
    }

    // --- the watcher ---

    void watcherReportsAnyFileWrittenInTheFolder()
    {
        QTemporaryDir dir;
        HXDirectoryWatcher watcher;
        QStringList seen;
        watcher.watchPath(dir.path(), [&](const QString &path) { seen.append(path); });
        writeFile(dir.filePath(QStringLiteral("other.txt")), "x");
        QTRY_VERIFY(!seen.isEmpty());
        QCOMPARE(seen.first(), dir.path());
    }

    void watcherMovesFromTheParentToTheFileOnceItExists()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("Report.zrrpt"));
        LogCapture log;
        HXDirectoryWatcher watcher;
        QStringList seen;
        watcher.watchFile(file, [&](const QString &path) { seen.append(path); });
        QCOMPARE(log.lines.size(), 1);
        QVERIFY2(log.lines.first().startsWith(QStringLiteral("HXDirectoryWatcher:: Watching parent dir: '%1' "
                                                             "because file does not exist at path: '%2'")
                                                  .arg(dir.path(), file)),
                 qPrintable(log.lines.first()));
        QCOMPARE(watcher.watchPath(), dir.path()); // the parent, until the file exists

        writeFile(file, "first"); // the bridge moves over; the caller hears nothing yet
        QTRY_COMPARE(watcher.watchPath(), file);
        // A marker behind the file's events in the same queue: one new folder
        // is one event of the parent, heard once; anything the first write had
        // left for the caller would come before it.
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("marker")));
        QTRY_VERIFY(!seen.isEmpty());
        QCOMPARE(seen, QStringList{dir.path()});
        seen.clear();

        writeFile(file, "second");
        QTRY_VERIFY(seen.contains(file));
        seen.clear();
        QVERIFY(QFile::remove(file));
        QTRY_VERIFY(!seen.isEmpty()); // deletion is an event too (the parent also still reports)
    }

    void watcherLogsAPathItCannotWatch()
    {
        LogCapture log;
        HXDirectoryWatcher watcher;
        watcher.watchPath(QStringLiteral("/proc/self/no-such-thing"), [](const QString &) {});
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith(QStringLiteral("could not watch /proc/self/no-such-thing.  Error is 2/")));
    }

    // --- loading ---

    void aMissingFileGivesAnEmptyReportAnnouncedTwice()
    {
        QTemporaryDir dir;
        std::unique_ptr<HXStatusReporter> reporter;
        const int posts = countPosts(HXStatusReportDidChangeNotification, [&] {
            reporter = std::make_unique<HXStatusReporter>(options(dir.filePath(QStringLiteral("Report.zrrpt"))));
        });
        QCOMPARE(posts, 2);
        QVERIFY(reporter->report());
        QCOMPARE(reporter->report()->countOfTestResults(), 0);
        QCOMPARE(reporter->report()->countOfLog(), 0);
        QVERIFY(reporter->lastLoadError().isEmpty());
    }

    void reloadsOnAnyChangeInTheFolder()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        HXStatusReporter reporter(options(path));
        QSignalSpy changed(&reporter, &HXStatusReporter::reportChanged);

        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        QTRY_COMPARE(reporter.report()->countOfTestResults(), 1);
        const HXStatusReportRef before = reporter.report();
        changed.clear();
        writeFile(dir.filePath(QStringLiteral("unrelated")), "x");
        QTRY_VERIFY(!changed.isEmpty());
        QVERIFY2(reporter.report() != before, "a load always replaces the whole report");
    }

    void aFileThatDoesNotDecodeKeepsTheLastGoodReport_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("reason");
        QTest::newRow("not a property list") << QByteArray("garbage, not a report") << QStringLiteral("too short");
        QTest::newRow("truncated") << HXReportArchive::encodeReport(*reportWithOneError()).left(300)
                                   << QStringLiteral("trailer");
        Intruder intruder;
        FakeReport foreignClass;
        foreignClass.encode = [&](KeyedArchiver &a) { a.encodeObjectList(QStringLiteral("testResults"), QList<Intruder *>{&intruder}); };
        QTest::newRow("a class a report cannot hold") << KeyedArchiver().archiveRootObject(foreignClass)
                                                      << QStringLiteral("\u201cNSTask\u201d");
        FakeReport wrongType;
        wrongType.encode = [](KeyedArchiver &a) { a.encodeValue(QStringLiteral("testResults"), QStringLiteral("surprise")); };
        QTest::newRow("text where the results go") << KeyedArchiver().archiveRootObject(wrongType)
                                                   << QStringLiteral("other than a list of test results");
        FakeReport entriesAsResults;
        auto entry = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("x"));
        entriesAsResults.encode = [&](KeyedArchiver &a) { a.encodeObjectList(QStringLiteral("testResults"), HXLogEntryList{entry}); };
        QTest::newRow("log entries where results go") << KeyedArchiver().archiveRootObject(entriesAsResults)
                                                      << QStringLiteral("holds something else");
        FakeReport numberAsText;
        numberAsText.encode = [](KeyedArchiver &a) {
            auto r = HXTestResult::resultWithType(HXDTestResultErrorType, HXDMemoryTestName, QString(), {});
            a.encodeObjectList(QStringLiteral("testResults"), HXTestResultList{r});
        };
        QByteArray typeAsNumber = KeyedArchiver().archiveRootObject(numberAsText);
        // The result's "type" string object becomes an integer of the same size.
        const qsizetype at = typeAsNumber.indexOf(QByteArray("\x55" "Error"));
        QVERIFY(at > 0);
        typeAsNumber.replace(at, 6, QByteArray("\x12\x00\x00\x00\x07\x00", 6));
        QTest::newRow("a number where the type goes") << typeAsNumber << QStringLiteral("other than text under \u201ctype\u201d");
        FakeReport resultInDetails;
        resultInDetails.encode = [](KeyedArchiver &a) {
            // A result whose details hold, by reference, another result.
            class Nested : public KeyedArchivable
            {
            public:
                QString archiveClassName() const override { return QStringLiteral("HXTestResult"); }
                void encodeWithArchiver(KeyedArchiver &k) const override
                {
                    static const HXTestResult inner;
                    k.encodeObjectList(QStringLiteral("testInfo"), QList<const HXTestResult *>{&inner}, false);
                }
            } nested;
            a.encodeObjectList(QStringLiteral("testResults"), QList<const KeyedArchivable *>{&nested});
        };
        QTest::newRow("a list of results as a result's details") << KeyedArchiver().archiveRootObject(resultInDetails)
                                                               << QStringLiteral("than a dictionary");
        // Found by the fuzzer: a dictionary of details holding a test result.
        QTest::newRow("a result inside a result's details")
            << TestSupportRead(QStringLiteral(ORVEX_FUZZ_CORPUS_DIR "/archive/regression-result-inside-details"))
            << QStringLiteral("other than property-list values");
        // Large enough that the log is decoded on another thread: its
        // failure must still reach the load.
        static const HXStatusReportRef big = ReportFactory::make(4000, 10);
        FakeReport bigWithBadLog;
        bigWithBadLog.encode = [](KeyedArchiver &a) {
            a.encodeObjectList(QStringLiteral("testResults"), big->testResults());
            a.encodeObjectList(QStringLiteral("log"), HXTestResultList{big->testResults().first()});
        };
        const QByteArray bigBytes = KeyedArchiver().archiveRootObject(bigWithBadLog);
        QVERIFY(bigBytes.size() > 256 * 1024);
        QTest::newRow("a large report whose log holds a result") << bigBytes
                                                                << QStringLiteral("a list of log entries holds something else");
        QTest::newRow("lists nested 10,000 deep") << nestedArchive(10000, false) << QStringLiteral("nested too deeply");
        QTest::newRow("a log entry that is its own child") << nestedArchive(1, true) << QStringLiteral("contains itself");
    }
    void aFileThatDoesNotDecodeKeepsTheLastGoodReport()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        HXStatusReporter reporter(options(path, false));
        const HXStatusReportRef good = reporter.report();
        QCOMPARE(good->countOfTestResults(), 1);

        writeFile(path, bytes);
        LogCapture log;
        QStringList sentences;
        const auto token = m_center.addObserver(HXStatusReportLoadDidFailNotification, &reporter,
                                                [&](const HXNotification &n) {
            sentences.append(n.userInfo.value(HXStatusReportLoadErrorKey).toString());
        });
        const bool loaded = reporter.loadStatusFile();
        m_center.removeObserver(token);
        QVERIFY(!loaded);
        QCOMPARE(reporter.report(), good);
        QCOMPARE(log.lines.size(), 1);
        QCOMPARE(sentences.size(), 1);
        QCOMPARE(sentences.first(), log.lines.first());
        QVERIFY2(sentences.first().contains(reason), qPrintable(sentences.first()));
        QVERIFY(sentences.first().startsWith(QStringLiteral("The status report %1 could not be read: ").arg(path)));
    }

    void aFirstLoadThatFailsStillLeavesAReport()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, "bplist00 but nothing after it, not even a trailer...........");
        LogCapture log;
        HXStatusReporter reporter(options(path, false));
        QVERIFY(reporter.report());
        QCOMPARE(reporter.report()->countOfTestResults(), 0);
        QVERIFY(!reporter.lastLoadError().isEmpty());
    }

    void aReplacedReportIsFreedUnlessSomeoneHoldsIt()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        HXStatusReporter reporter(options(path, false));
        std::weak_ptr<HXStatusReport> first = reporter.report();
        QVERIFY(reporter.loadStatusFile());
        reporter.waitForPendingReleases();
        QVERIFY(first.expired());

        const HXStatusReportRef kept = reporter.report();
        QVERIFY(reporter.loadStatusFile());
        reporter.waitForPendingReleases();
        QCOMPARE(kept->countOfTestResults(), 1); // still whole in its holder's hands
    }

    void loadingFromAnotherThreadRunsOnTheReportersThread()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        HXStatusReporter reporter(options(path, false));
        QThread *loadedOn = nullptr;
        connect(&reporter, &HXStatusReporter::reportChanged, this,
                [&] { loadedOn = QThread::currentThread(); }, Qt::DirectConnection);
        QFuture<bool> f = QtConcurrent::run([&] { return reporter.loadStatusFile(); });
        QTRY_VERIFY(f.isFinished());
        QVERIFY(f.result());
        QCOMPARE(loadedOn, QThread::currentThread());
    }

    // --- writing ---

    void writesAtomicallyWithTheSharedAttributes()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        HXStatusReporter reporter(options(path, false));
        reporter.setReport(reportWithOneError());
        QVERIFY(reporter.writeStatusFile());
        reporter.clearReport();
        QString error;
        const HXStatusReportRef back = HXReportArchive::decodeReport(TestSupportRead(path), &error);
        QVERIFY2(back, qPrintable(error));
        QCOMPARE(back->countOfTestResults(), 0);
        QCOMPARE(back->countOfLog(), 0);
        struct stat st;
        QCOMPARE(::stat(QFile::encodeName(path).constData(), &st), 0);
        QCOMPARE(st.st_mode & 07777, mode_t(0777));
        if (const group *users = getgrnam("users"); users && geteuid() == 0)
            QCOMPARE(st.st_gid, users->gr_gid);
        // No temporary left; the lock file stays for the next writer.
        QCOMPARE(
            QDir(dir.path()).entryList(QDir::Files | QDir::Hidden, QDir::Name),
            (QStringList{QStringLiteral(".Report.zrrpt.lock"), QStringLiteral("Report.zrrpt")}));
    }

    void aWriteThatFailsLeavesTheReportAndSaysSo()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("gone/Report.zrrpt"));
        HXStatusReporter reporter(options(path, false));
        reporter.setReport(reportWithOneError());
        LogCapture log;
        QVERIFY(!reporter.writeStatusFile());
        QCOMPARE(log.lines.first(),
                 QStringLiteral("There was an error writing the report file to the path: '%1'").arg(path));
        QCOMPARE(reporter.report()->countOfTestResults(), 1);
    }

    // --- writers taking turns ---

    // The worker replaces the file and the application adds a line before
    // its watcher has reloaded: the line goes into the worker's report.
    void aLineAddedBeforeTheReloadKeepsTheWorkersResults_data()
    {
        QTest::addColumn<bool>("rename");
        QTest::newRow("renamed into place") << true;
        QTest::newRow("rewritten in place") << false;
    }
    void aLineAddedBeforeTheReloadKeepsTheWorkersResults()
    {
        QFETCH(bool, rename);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        auto workers = HXStatusReport::report();
        workers->recordTestResult(diskResult(QStringLiteral("A")));
        writeFile(path, HXReportArchive::encodeReport(*workers));
        HXStatusReporter reporter(options(path));
        QVERIFY2(reporter.lastLoadError().isEmpty(), qPrintable(reporter.lastLoadError()));
        QCOMPARE(reporter.report()->countOfTestResults(), 1);

        for (int i = 0; i < 5; ++i) {
            // The worker adds its result to the file as it finds it.
            workers = decodeFile(path);
            QVERIFY(workers);
            workers->recordTestResult(diskResult(QStringLiteral("B%1").arg(i)));
            const QByteArray bytes = HXReportArchive::encodeReport(*workers);
            if (rename)
                QVERIFY(AtomicFileWriter::write(path, bytes, 0644, QString()).written);
            else
                writeFile(path, bytes);
            // No event loop between the two: the watcher has not seen it.
            QVERIFY(reporter.addLogEntry(line(QStringLiteral("Error: line %1").arg(i))));
        }
        const HXStatusReportRef onDisk = decodeFile(path);
        QVERIFY(onDisk);
        QCOMPARE(resultLogs(*onDisk).size(), 6);
        QCOMPARE(resultLogs(*onDisk), resultLogs(*workers));
        QCOMPARE(logTexts(*onDisk),
                 (QStringList{QStringLiteral("Error: line 0"), QStringLiteral("Error: line 1"),
                              QStringLiteral("Error: line 2"), QStringLiteral("Error: line 3"),
                              QStringLiteral("Error: line 4")}));
        QCOMPARE(reporter.report()->countOfTestResults(), 6); // and the window shows them
    }

    void aFileThatDoesNotDecodeIsMovedAsideBeforeTheNextWrite_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        auto bigger = reportWithOneError();
        for (int i = 0; i < 20; ++i)
            bigger->recordTestResult(diskResult(QString::number(i)));
        const QByteArray whole = HXReportArchive::encodeReport(*bigger);
        QTest::newRow("truncated mid-write") << whole.left(whole.size() / 2);
        QTest::newRow("not an archive at all") << QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    }
    void aFileThatDoesNotDecodeIsMovedAsideBeforeTheNextWrite()
    {
        QFETCH(QByteArray, bytes);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        HXStatusReporter reporter(options(path, false));
        LogCapture log;
        QStringList asides;
        for (int round = 0; round < 2; ++round) {
            writeFile(path, bytes);
            QVERIFY(!reporter.loadStatusFile()); // the last good report stays shown
            log.lines.clear();
            QVERIFY(
                reporter.addLogEntry(line(QStringLiteral("Error: after damage %1").arg(round))));

            // One line says where the damaged file went, and it is there whole.
            QCOMPARE(log.lines.size(), 1);
            static const QRegularExpression moved(QStringLiteral(
                "^The report file (.+) could not be read \\(.+\\); it was moved to (.+) and a new "
                "report was written from the last one that could be read$"));
            const QRegularExpressionMatch m = moved.match(log.lines.first());
            QVERIFY2(m.hasMatch(), qPrintable(log.lines.first()));
            QCOMPARE(m.captured(1), path);
            const QString aside = m.captured(2);
            QVERIFY2(QRegularExpression(QStringLiteral("^%1\\.damaged-\\d{8}-\\d{6}(-\\d+)?$")
                                            .arg(QRegularExpression::escape(path)))
                         .match(aside)
                         .hasMatch(),
                     qPrintable(aside));
            QCOMPARE(TestSupportRead(aside), bytes);
            asides.append(aside);
        }
        QCOMPARE(asides.size(), 2);
        QVERIFY(asides[0] != asides[1]); // a second damaged file does not replace the first

        // The new report is the last good one plus the lines.
        const HXStatusReportRef onDisk = decodeFile(path);
        QVERIFY(onDisk);
        QCOMPARE(resultLogs(*onDisk), QStringList{QStringLiteral("bad RAM")});
        QCOMPARE(logTexts(*onDisk), (QStringList{QStringLiteral("Error: after damage 0"),
                                                 QStringLiteral("Error: after damage 1")}));
    }

    // Another writer holding the lock too long: the change is shown, kept,
    // and written over that writer's report once it lets go.
    void aChangeWaitsForAnotherWritersTurnAndIsNotLost()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        HXStatusReporter reporter(options(path, false));
        reporter.setLockWait(50);
        LogCapture log;
        HXReportLogSetLineSink([](const QByteArray &) {});
        const auto restoreSink = qScopeGuard([] { HXReportLogSetLineSink({}); });
        {
            AdvisoryFileLock worker(HXStatusReporter::lockFileFor(path));
            QCOMPARE(worker.lock(0), AdvisoryFileLock::Outcome::Locked);
            QVERIFY(!reporter.addLogEntry(line(QStringLiteral("Error: first"))));
            QVERIFY(!reporter.recordTestResult(diskResult(QStringLiteral("mine"))));
            QVERIFY(reporter.hasUnwrittenChanges());
            QCOMPARE(logTexts(*reporter.report()).first(),
                     QStringLiteral("Error: first")); // shown already
            QVERIFY(!QFile::exists(path));
            QCOMPARE(log.lines,
                     QStringList{QStringLiteral("The report file %1 is being written by another "
                                                "process; the change is kept and written when it "
                                                "is done")
                                     .arg(path)});
            // Retries come and find it still taken, and say nothing more...
            QTRY_VERIFY_WITH_TIMEOUT(reporter.retries() >= 2,
                                     4 * HXStatusReporter::kRetryMs + 1000);
            QVERIFY(reporter.hasUnwrittenChanges());
            QCOMPARE(log.lines.size(), 1);
            // ...meanwhile the holder writes a report of its own.
            auto workers = HXStatusReport::report();
            workers->recordTestResult(diskResult(QStringLiteral("worker's")));
            QVERIFY(AtomicFileWriter::write(path, HXReportArchive::encodeReport(*workers), 0644,
                                            QString())
                        .written);
        }
        QTRY_VERIFY(!reporter.hasUnwrittenChanges());
        const HXStatusReportRef onDisk = decodeFile(path);
        QVERIFY(onDisk);
        QCOMPARE(resultLogs(*onDisk),
                 (QStringList{QStringLiteral("reallocated sectors on worker's"),
                              QStringLiteral("reallocated sectors on mine")}));
        QCOMPARE(logTexts(*onDisk),
                 (QStringList{QStringLiteral("Error: first"),
                              QStringLiteral("Warning: reallocated sectors on mine")}));
        QCOMPARE(log.lines.size(), 1); // the retries while it was taken said nothing more
    }

    // A window that logs when the report changes, during the reload a write
    // makes first: no wait for a lock it holds itself, and both lines go in.
    void anObserverWritingDuringTheCatchUpReloadIsTakenAlong()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        HXStatusReporter reporter(options(path, false));
        bool logged = false;
        connect(&reporter, &HXStatusReporter::reportChanged, this, [&] {
            if (!std::exchange(logged, true))
                reporter.addLogEntry(line(QStringLiteral("Error: seen a new report")));
        });
        QVERIFY(AtomicFileWriter::write(path, HXReportArchive::encodeReport(*reportWithOneError()),
                                        0644, QString())
                    .written);
        LogCapture log;
        QVERIFY(reporter.addLogEntry(line(QStringLiteral("Error: mine"))));
        QVERIFY(logged);
        QVERIFY2(log.lines.isEmpty(), qPrintable(log.lines.join(QLatin1Char('\n'))));
        QVERIFY(!reporter.hasUnwrittenChanges());
        const HXStatusReportRef onDisk = decodeFile(path);
        QVERIFY(onDisk);
        QCOMPARE(resultLogs(*onDisk), QStringList{QStringLiteral("bad RAM")});
        QCOMPARE(logTexts(*onDisk), (QStringList{QStringLiteral("Error: seen a new report"),
                                                 QStringLiteral("Error: mine")}));
    }

    // A disk that takes no more: said once, the change kept, written when
    // there is room again.
    void aWriteThatFailsKeepsTheChangeUntilItCanBeWritten()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        const QByteArray before = TestSupportRead(path);
        HXStatusReporter reporter(options(path, false));
        LogCapture log;
        // Files may grow no further than the report is now, as on a full disk.
        struct rlimit saved;
        QCOMPARE(getrlimit(RLIMIT_FSIZE, &saved), 0);
        const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit full = saved;
        full.rlim_cur = rlim_t(before.size());
        QCOMPARE(setrlimit(RLIMIT_FSIZE, &full), 0);
        auto restore = qScopeGuard([&] {
            setrlimit(RLIMIT_FSIZE, &saved);
            std::signal(SIGXFSZ, oldHandler);
        });
        QVERIFY(!reporter.addLogEntry(
            line(QStringLiteral("Error: %1").arg(QString(200, QLatin1Char('x'))))));
        QVERIFY(!reporter.addLogEntry(line(QStringLiteral("Error: second"))));
        QCOMPARE(reporter.report()->countOfLog(), 2); // shown, kept
        QCOMPARE(TestSupportRead(path), before);      // and the file as it was
        QCOMPARE(log.lines.size(), 2);
        QCOMPARE(log.lines[0],
                 QStringLiteral("There was an error writing the report file to the path: '%1'")
                     .arg(path));
        QCOMPARE(log.lines[1], QString::fromLocal8Bit(strerror(EFBIG)));
        restore.dismiss();
        setrlimit(RLIMIT_FSIZE, &saved);
        std::signal(SIGXFSZ, oldHandler);
        QTRY_VERIFY_WITH_TIMEOUT(!reporter.hasUnwrittenChanges(), 10000);
        const HXStatusReportRef onDisk = decodeFile(path);
        QVERIFY(onDisk);
        QCOMPARE(logTexts(*onDisk).size(), 2);
        QCOMPARE(logTexts(*onDisk).last(), QStringLiteral("Error: second"));
        QCOMPARE(log.lines.size(), 2);
    }

    void removingTheFileWaitsForTheWritersToo()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        writeFile(path, HXReportArchive::encodeReport(*reportWithOneError()));
        HXStatusReporter reporter(options(path, false));
        reporter.setLockWait(50);
        LogCapture log;
        {
            AdvisoryFileLock worker(HXStatusReporter::lockFileFor(path));
            QCOMPARE(worker.lock(0), AdvisoryFileLock::Outcome::Locked);
            QVERIFY(!reporter.removeStatusFile());
            QVERIFY(QFile::exists(path));
        }
        QVERIFY(reporter.removeStatusFile());
        QVERIFY(!QFile::exists(path));
        QCOMPARE(reporter.report()->countOfTestResults(), 0);
    }

    void clearingTheLogKeepsTheResults()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        HXStatusReporter reporter(options(path, false));
        auto report = reportWithOneError();
        report->addToLog(HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("x")));
        reporter.setReport(report);
        reporter.clearReportLog();
        const HXStatusReportRef back = HXReportArchive::decodeReport(TestSupportRead(path), nullptr);
        QCOMPARE(back->countOfTestResults(), 1);
        QCOMPARE(back->countOfLog(), 0);
    }

    void broadcastsAFoundErrorAsAnArchivedDictionary()
    {
        QTemporaryDir dir;
        RecordingDistributedCenter center;
        HXStatusReporter reporter({dir.filePath(QStringLiteral("Report.zrrpt")), &m_center, &center, false});
        auto r = HXTestResult::resultWithType(HXDTestResultErrorType, HXDSMARTCheckTestName,
                                              QStringLiteral("failing"), {});
        reporter.postErrorNotificationWithTestResult(r);
        QCOMPARE(center.posts.size(), 1);
        const auto &post = center.posts.first();
        QCOMPARE(post.name, QStringLiteral("HXDTestFoundErrorNotification"));
        QCOMPARE(post.object, QStringLiteral("HXStatusReporter"));
        QVERIFY(post.immediately);
        QCOMPARE(post.userInfo.size(), 1);
        KeyedUnarchiver u(KeyedUnarchiver::Mode::Secure);
        QVERIFY(u.open(post.userInfo.value(HXDistributedNotificationUserInfoArchivedDataKey).toByteArray()));
        const QVariantMap values = u.decodeRoot().toMap();
        QCOMPARE(values.keys(), (QStringList{QStringLiteral("isIgnored"), QStringLiteral("log"),
                                             QStringLiteral("name"), QStringLiteral("testInfo"),
                                             QStringLiteral("type")}));
        QCOMPARE(values.value(QStringLiteral("name")).toString(), HXDSMARTCheckTestName);
        QVERIFY(isPlistNull(values.value(QStringLiteral("testInfo"))));
    }

    // --- log lines, through the shared reporter of the product paths ---

    void infoAndDebugLinesAreDropped()
    {
        QByteArrayList printed;
        HXReportLogSetLineSink([&](const QByteArray &line) { printed.append(line); });
        HXStatusReporter *shared = HXStatusReporter::sharedReporter();
        QCOMPARE(shared->reportPath(), m_root.path() + QStringLiteral("/var/lib/orvex/Report.zrrpt"));
        const qsizetype before = shared->report()->countOfLog();
        HXReportLogInfo(QStringLiteral("info"));
        HXReportLogDebug(QStringLiteral("debug"));
        HXReportLogSetLineSink({});
        QVERIFY(printed.isEmpty());
        QCOMPARE(shared->report()->countOfLog(), before);
        QVERIFY(!QFile::exists(shared->reportPath()));
    }

    void anErrorLineIsPrintedAndRecordedWithItsFiles()
    {
        QByteArrayList printed;
        HXReportLogSetLineSink([&](const QByteArray &line) { printed.append(line); });
        HXStatusReporter *shared = HXStatusReporter::sharedReporter();
        HXReportLogError(QStringLiteral("2 damaged files\n/home/a"));
        HXReportLogSetLineSink({});
        QCOMPARE(printed.size(), 1);
        static const QRegularExpression line(
            QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d Error: 2 damaged files\n/home/a\n$"));
        QVERIFY2(line.match(QString::fromUtf8(printed.first())).hasMatch(), printed.first().constData());
        // The file was rewritten; whatever reload follows reads the entry back.
        const HXStatusReportRef onDisk = HXReportArchive::decodeReport(TestSupportRead(shared->reportPath()), nullptr);
        QVERIFY(onDisk);
        const HXLogEntryRef entry = onDisk->objectInLogAtIndex(onDisk->countOfLog() - 1);
        QCOMPARE(entry->type(), HXDTestResultErrorType);
        QCOMPARE(entry->string(), QStringLiteral("Error: 2 damaged files"));
        QCOMPARE(entry->count(), 1);
        QCOMPARE(entry->entryInChildrenAtIndex(0)->string(), QStringLiteral("/home/a"));
        QTRY_COMPARE(shared->report()->countOfLog(), onDisk->countOfLog());
    }

    void recordingAResultLogsItWithItsSeverity()
    {
        QByteArrayList printed;
        HXReportLogSetLineSink([&](const QByteArray &line) { printed.append(line); });
        HXStatusReporter *shared = HXStatusReporter::sharedReporter();
        shared->recordTestResult(HXTestResult::resultWithType(HXDTestResultWarningType, HXDRAIDCheckTestName,
                                                              QStringLiteral("degraded"), {}));
        shared->recordTestResult(HXTestResult::resultWithType(QStringLiteral("Odd"), HXDRAIDCheckTestName,
                                                              QStringLiteral("ignored type"), {}));
        HXReportLogSetLineSink({});
        QCOMPARE(printed.size(), 1);
        QVERIFY(printed.first().endsWith(" Warning: degraded\n"));
        QCOMPARE(HXDGetLogTypeFromLogString(QStringLiteral("Error: anything")), HXDTestResultSuccessType);
    }

private:
    static QByteArray TestSupportRead(const QString &path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }
};

QTEST_GUILESS_MAIN(TestStatusReporter)
#include "tst_statusreporter.moc"
