// The live report file: watching, loading, writing, failing, and the log
// lines that go into it. Real files in temporary folders throughout.
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

#include <grp.h>
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
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), 1); // no temporary left
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
