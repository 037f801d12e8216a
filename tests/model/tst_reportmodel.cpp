// The report's records: their rules, their key-path protocol, and their
// archive, read back by ourselves and by an independent keyed-archive reader.
#include "BinaryPlistReader.h"
#include "HXConstants.h"
#include "HXLogEntry.h"
#include "HXReportArchive.h"
#include "HXStatusReport.h"
#include "HXTestResult.h"
#include "KeyedArchiver.h"
#include "KeyedUnarchiver.h"
#include "PlistUid.h"
#include "TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace TestSupport;

namespace {

QVariantMap diskInfo(const QString &uuid)
{
    return {{HXDiskKey, QVariantMap{{QStringLiteral("uuid"), uuid},
                                    {QStringLiteral("bsdName"), QStringLiteral("sda")},
                                    {QStringLiteral("volumeName"), QStringLiteral("Data")}}}};
}

HXTestResultRef result(const QString &type, const QString &name, const QVariant &info = {})
{
    return HXTestResult::resultWithType(type, name, name + QLatin1String(" ") + type, info);
}

QStringList typesOf(const HXTestResultList &list)
{
    QStringList out;
    for (const auto &r : list)
        out.append(r->type());
    return out;
}

// The root object's fields as archived, read by an unarchiver that knows no
// model class: what the bytes hold, not what the model makes of them.
QVariantMap rawRoot(const QByteArray &bytes)
{
    KeyedUnarchiver u(KeyedUnarchiver::Mode::Permissive);
    if (!u.open(bytes))
        return {};
    return u.decodeRoot().toMap();
}

// A log entry archived with its children but without "count".
class EntryWithoutCount : public KeyedArchivable
{
public:
    explicit EntryWithoutCount(HXLogEntryList children)
        : m_children(std::move(children))
    {
    }
    QString archiveClassName() const override { return QStringLiteral("HXLogEntry"); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override
    {
        archiver.encodeValue(QStringLiteral("timestamp"),
                             QDateTime::fromSecsSinceEpoch(1769860800, Qt::UTC));
        archiver.encodeValue(QStringLiteral("type"), HXDTestResultErrorType);
        archiver.encodeValue(QStringLiteral("string"),
                             QStringLiteral("File Structures test found 2 damaged files"));
        archiver.encodeObjectList(QStringLiteral("children"), m_children);
        archiver.encodeBool(QStringLiteral("leaf"), false);
        archiver.encodeBool(QStringLiteral("isFile"), false);
    }

private:
    HXLogEntryList m_children;
};

// A report archived with its results only.
class ReportWithoutLog : public KeyedArchivable
{
public:
    explicit ReportWithoutLog(HXTestResultList results)
        : m_results(std::move(results))
    {
    }
    QString archiveClassName() const override { return QStringLiteral("HXStatusReport"); }
    void encodeWithArchiver(KeyedArchiver &archiver) const override
    {
        archiver.encodeObjectList(QStringLiteral("testResults"), m_results);
    }

private:
    HXTestResultList m_results;
};

// Records every announcement with its phase, to check their order.
class Recorder : public HXKeyValueObserver
{
public:
    QStringList events;
    QList<QVariant> oldValues;
    void observeValueForKeyPath(const QString &keyPath, HXKeyValueObservable *, const QVariant &old,
                                bool isPrior) override
    {
        events.append((isPrior ? QLatin1String("will ") : QLatin1String("did ")) + keyPath);
        oldValues.append(old);
    }
};

} // namespace

class TestReportModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void capsTheResultsAtTenThousandDroppingTheOldest()
    {
        HXStatusReport report;
        HXTestResultRef first;
        for (int i = 0; i < HXStatusReport::kMaxTestResults; ++i) {
            auto r = result(HXDTestResultSuccessType, QStringLiteral("Memory test %1").arg(i));
            if (i == 0)
                first = r;
            report.addTestResult(r);
        }
        QCOMPARE(report.countOfTestResults(), 10000);
        QCOMPARE(report.objectInTestResultsAtIndex(0), first);
        auto last = result(HXDTestResultErrorType, QStringLiteral("Memory test new"));
        report.addTestResult(last);
        QCOMPARE(report.countOfTestResults(), 10000);
        QCOMPARE(report.objectInTestResultsAtIndex(9999), last);
        QVERIFY(!report.testResults().contains(first));
    }

    void anOverlongListShrinksByOnePerAddition()
    {
        HXStatusReport report;
        HXTestResultList many;
        for (int i = 0; i < HXStatusReport::kMaxTestResults + 5; ++i)
            many.append(result(HXDTestResultSuccessType, QStringLiteral("RAID test")));
        report.setTestResults(many);
        report.addTestResult(result(HXDTestResultSuccessType, QStringLiteral("RAID test")));
        QCOMPARE(report.countOfTestResults(), HXStatusReport::kMaxTestResults + 5);
    }

    void replacesSimilarResultsPerDisk()
    {
        HXStatusReport report;
        auto a = result(HXDTestResultErrorType, HXDSMARTCheckTestName, diskInfo(QStringLiteral("A")));
        auto b = result(HXDTestResultWarningType, HXDSMARTCheckTestName, diskInfo(QStringLiteral("B")));
        report.recordTestResult(a);
        report.recordTestResult(b);
        QCOMPARE(report.testResults(), (HXTestResultList{a, b}));

        a->setIgnored(true);
        auto a2 = result(HXDTestResultSuccessType, HXDSMARTCheckTestName, diskInfo(QStringLiteral("A")));
        report.recordTestResult(a2);
        QCOMPARE(report.testResults(), (HXTestResultList{b, a2}));
        QVERIFY2(a2->isIgnored(), "the user's ignore carries over to the newer result");
        QVERIFY(!b->isIgnored());
    }

    void aResultWithoutADiskReplacesEveryResultOfItsName()
    {
        HXStatusReport report;
        report.recordTestResult(result(HXDTestResultErrorType, HXDSMARTCheckTestName, diskInfo(QStringLiteral("A"))));
        report.recordTestResult(result(HXDTestResultErrorType, HXDSMARTCheckTestName, diskInfo(QStringLiteral("B"))));
        auto memory = result(HXDTestResultErrorType, HXDMemoryTestName);
        report.recordTestResult(memory);
        auto noDisk = result(HXDTestResultSuccessType, HXDSMARTCheckTestName, plistNull());
        report.recordTestResult(noDisk);
        QCOMPARE(report.testResults(), (HXTestResultList{memory, noDisk}));
    }

    void similarityIsAWholeNameMatch()
    {
        HXStatusReport report;
        auto longer = result(HXDTestResultErrorType, QStringLiteral("SMART test sda"));
        report.recordTestResult(longer);
        report.recordTestResult(result(HXDTestResultSuccessType, HXDSMARTCheckTestName));
        QVERIFY2(report.testResults().contains(longer), "a name that only contains the new one stays");
        // A name holding pattern characters is a pattern; one that does not
        // compile matches nothing rather than everything.
        auto broken = result(HXDTestResultErrorType, QStringLiteral("Odd (test"));
        report.recordTestResult(broken);
        report.recordTestResult(result(HXDTestResultErrorType, QStringLiteral("Odd (test")));
        QCOMPARE(report.countOfTestResults(), 4);
    }

    void anIncompletePassingSurfaceScanReplacesNothing()
    {
        HXStatusReport report;
        auto failure = result(HXDTestResultErrorType, HXDSurfaceScanTestName, diskInfo(QStringLiteral("A")));
        report.recordTestResult(failure);
        QVariantMap partial = diskInfo(QStringLiteral("A"));
        report.recordTestResult(result(HXDTestResultSuccessType, HXDSurfaceScanTestName, partial));
        QCOMPARE(report.countOfTestResults(), 2);
        QCOMPARE(report.errors().size(), 1);
        QCOMPARE(report.passed().size(), 1);

        partial.insert(HXDTestResultIsCompletedKey, true);
        auto complete = result(HXDTestResultSuccessType, HXDSurfaceScanTestName, partial);
        report.recordTestResult(complete);
        QCOMPARE(report.testResults(), (HXTestResultList{complete}));
    }

    void derivesWarningsErrorsAndPassed()
    {
        HXStatusReport report;
        for (const QString &t : {HXDTestResultSuccessType, HXDTestResultWarningType,
                                 HXDTestResultErrorType, HXDTestResultInformationType,
                                 HXDTestResultDebugType, HXDTestResultErrorType,
                                 QStringLiteral("Failed"), QStringLiteral("Errors")})
            report.addTestResult(result(t, QStringLiteral("t")));
        QCOMPARE(typesOf(report.warnings()), QStringList{HXDTestResultWarningType});
        QCOMPARE(typesOf(report.errors()), (QStringList{HXDTestResultErrorType, HXDTestResultErrorType}));
        QCOMPARE(typesOf(report.passed()), QStringList{HXDTestResultSuccessType});
    }

    void removesByIdentityNotByContents()
    {
        HXStatusReport report;
        auto a = result(HXDTestResultErrorType, HXDMemoryTestName);
        auto twin = result(HXDTestResultErrorType, HXDMemoryTestName);
        report.addTestResult(a);
        report.addTestResult(twin);
        report.addTestResult(a);
        report.removeTestResult(a);
        QCOMPARE(report.testResults(), HXTestResultList{twin});
    }

    void indexedAccessIgnoresWhatIsOutOfRange()
    {
        HXStatusReport report;
        auto a = result(HXDTestResultErrorType, HXDMemoryTestName);
        report.insertObjectInTestResultsAtIndex(a, 1);
        report.insertObjectInTestResultsAtIndex(nullptr, 0);
        QCOMPARE(report.countOfTestResults(), 0);
        report.insertObjectInTestResultsAtIndex(a, 0);
        QCOMPARE(report.objectInTestResultsAtIndex(5), HXTestResultRef());
        report.removeObjectFromTestResultsAtIndex(3);
        report.replaceObjectInTestResultsAtIndex(-1, a);
        QCOMPARE(report.testResults(), HXTestResultList{a});
        auto entry = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("x"));
        report.addToLog(entry);
        report.addToLog(entry);
        report.removeFromLog(entry);
        QCOMPARE(report.countOfLog(), 0);
    }

    void announcesResultChangesInTheirOrder()
    {
        HXStatusReport report;
        Recorder recorder;
        for (const QString &k : report.keyPaths())
            report.addObserver(&recorder, k, true);
        report.addTestResult(result(HXDTestResultWarningType, HXDMemoryTestName));
        QCOMPARE(recorder.events, (QStringList{
            QStringLiteral("will warnings"), QStringLiteral("will errors"), QStringLiteral("will passed"),
            QStringLiteral("will testResults"), QStringLiteral("did testResults"),
            QStringLiteral("did warnings"), QStringLiteral("did errors"), QStringLiteral("did passed")}));
        // The old value is what was there before the change.
        QCOMPARE(recorder.oldValues.at(4).value<HXObjectList>().size(), 0);
    }

    void startObservingCoversEveryKeyPathWithTheOldValue()
    {
        auto r = result(HXDTestResultErrorType, HXDMemoryTestName);
        Recorder recorder;
        recorder.startObservingObject(r.get());
        recorder.startObservingObject(nullptr);
        r->setType(HXDTestResultWarningType);
        r->setIgnored(true);
        QCOMPARE(recorder.events, (QStringList{QStringLiteral("did type"), QStringLiteral("did isIgnored")}));
        QCOMPARE(recorder.oldValues.at(0).toString(), HXDTestResultErrorType);
        recorder.stopObservingObject(r.get());
        r->setLog(QStringLiteral("changed"));
        QCOMPARE(recorder.events.size(), 2);
    }

    void describesItselfByKeyPaths()
    {
        auto r = HXTestResult::resultWithType(HXDTestResultErrorType, HXDMemoryTestName,
                                              QStringLiteral("bad RAM"), diskInfo(QStringLiteral("A")));
        QCOMPARE(r->description(),
                 QStringLiteral("\n\nClass name: HXTestResult\ntype: Error\nname: Memory test\n"
                                "log: bad RAM\nisIgnored: 0\n"));
        HXStatusReport report;
        QCOMPARE(report.description(),
                 QStringLiteral("\n\nClass name: HXStatusReport\nwarnings: (\n)errors: (\n)passed: (\n)"
                                "testResults: (\n)log: (\n)"));
        auto e = HXLogEntry::entryWithTimestamp(QDateTime::fromSecsSinceEpoch(0, Qt::UTC),
                                                HXDTestResultErrorType, QStringLiteral("Error: x"),
                                                std::nullopt);
        QCOMPARE(e->description(),
                 QStringLiteral("\n\nClass name: HXLogEntry\ntimestamp: 1970-01-01 00:00:00 +0000\n"
                                "type: Error\nstring: Error: x\nchildren: (null)\ncount: 0\nleaf: 1\n"
                                "isFile: 0\n"));
    }

    void splitsCompoundStringsIntoFileChildren()
    {
        auto e = HXLogEntry::entryWithTypeCompoundString(
            HXDTestResultErrorType, QStringLiteral("Error: 2 damaged files\n/home/a.txt\r/home/b.txt"));
        QCOMPARE(e->string(), QStringLiteral("Error: 2 damaged files"));
        QCOMPARE(e->count(), 2);
        QVERIFY(!e->leaf());
        QVERIFY(!e->isFile());
        const HXLogEntryList children = *e->children();
        QCOMPARE(children.at(1)->string(), QStringLiteral("/home/b.txt"));
        for (const auto &c : children) {
            QVERIFY(c->isFile());
            QVERIFY(c->leaf());
            QCOMPARE(c->timestamp(), e->timestamp());
            QCOMPARE(c->type(), HXDTestResultErrorType);
        }
        auto trailing = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("one\n"));
        QCOMPARE(trailing->count(), 1);
        QCOMPARE(trailing->entryInChildrenAtIndex(0)->string(), QString());
        auto single = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("one"));
        QVERIFY(!single->children().has_value());
        QVERIFY(single->leaf());
    }

    void keepsCountAndLeafWithTheChildren()
    {
        auto e = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("a\nb"));
        auto child = e->entryInChildrenAtIndex(0);
        e->insertObjectInChildrenAtIndex(child, 5); // beyond the count: nothing at all
        QCOMPARE(e->count(), 1);
        e->addToChildren(HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("c")));
        QCOMPARE(e->count(), 2);
        e->replaceEntryInChildrenAtIndex(0, child); // same number: count stays
        QCOMPARE(e->count(), 2);
        e->removeEntryFromChildrenAtIndex(1);
        e->removeFromChildren(child);
        QCOMPARE(e->count(), 0);
        QVERIFY(e->leaf());
    }

    void archiveRoundTripDropsOnlyTheIgnoreFlag()
    {
        auto r = HXTestResult::resultWithType(HXDTestResultWarningType, HXDSMARTCheckTestName,
                                              QStringLiteral("reallocated sectors"),
                                              diskInfo(QStringLiteral("A")));
        r->setIgnored(true);
        auto c = r->copy();
        QVERIFY(c && c != r);
        QVERIFY(!c->isIgnored());
        QCOMPARE(c->type(), r->type());
        QCOMPARE(c->log(), r->log());
        QCOMPARE(c->testInfo(), r->testInfo());

        auto nullInfo = HXTestResult::resultWithType(HXDTestResultErrorType, HXDMemoryTestName,
                                                     QString(), plistNull());
        QVERIFY(isPlistNull(nullInfo->copy()->testInfo()));
        QVERIFY(!HXTestResult::testResult()->copy()->testInfo().isValid());
    }

    void reportArchiveRoundTrip()
    {
        HXStatusReport report;
        report.addTestResult(HXTestResult::resultWithType(HXDTestResultErrorType, HXDSMARTCheckTestName,
                                                          QStringLiteral("failing \u2603"),
                                                          diskInfo(QStringLiteral("A"))));
        report.addTestResult(HXTestResult::resultWithType(HXDTestResultSuccessType, HXDMemoryTestName,
                                                          QStringLiteral("ok"), {}));
        report.addToLog(HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType,
                                                                QStringLiteral("Error: bad\n/a\n/b")));
        QString error;
        const HXStatusReportRef back = HXReportArchive::decodeReport(HXReportArchive::encodeReport(report), &error);
        QVERIFY2(back, qPrintable(error));
        QCOMPARE(back->countOfTestResults(), 2);
        QCOMPARE(back->objectInTestResultsAtIndex(0)->log(), QStringLiteral("failing \u2603"));
        QCOMPARE(back->objectInTestResultsAtIndex(0)->testInfo(), QVariant(diskInfo(QStringLiteral("A"))));
        QVERIFY(!back->objectInTestResultsAtIndex(1)->testInfo().isValid());
        const HXLogEntryRef entry = back->objectInLogAtIndex(0);
        QCOMPARE(entry->count(), 2);
        QCOMPARE(entry->entryInChildrenAtIndex(1)->string(), QStringLiteral("/b"));
        QVERIFY(entry->entryInChildrenAtIndex(1)->isFile());
        QCOMPARE(entry->timestamp().toMSecsSinceEpoch(),
                 report.objectInLogAtIndex(0)->timestamp().toMSecsSinceEpoch());
    }

    void decodingReadsCountAsWritten()
    {
        // An entry whose archive says count 0 keeps 0, children or not.
        auto e = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("a\nb\nc"));
        e->setCount(0);
        e->setLeaf(false);
        QCOMPARE(e->copy()->count(), 0);
        QCOMPARE(e->copy()->countOfChildren(), 2);
    }

    // Archives another writer could make, which leave keys out: the missing
    // "count" reads as 0 however many children there are, and a report
    // without "log" gets an empty log that takes entries.
    void decodingArchivesThatLackKeys()
    {
        const auto child = [](const QString &path) {
            auto f = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, path);
            f->setIsFile(true);
            return f;
        };
        const EntryWithoutCount entry(HXLogEntryList{child(QStringLiteral("/home/a.ods")),
                                                     child(QStringLiteral("/home/b.jpg"))});
        const QByteArray entryBytes = KeyedArchiver().archiveRootObject(entry);
        const QVariantMap entryFields = rawRoot(entryBytes);
        QCOMPARE(entryFields.value(QStringLiteral("$class")).toString(),
                 QStringLiteral("HXLogEntry"));
        QVERIFY(entryFields.contains(QStringLiteral("children")));
        QVERIFY(!entryFields.contains(QStringLiteral("count")));
        QString error;
        const HXLogEntryRef decoded = HXReportArchive::decodeLogEntry(entryBytes, &error);
        QVERIFY2(decoded, qPrintable(error));
        QCOMPARE(decoded->countOfChildren(), 2);
        QCOMPARE(decoded->count(), 0);
        QVERIFY(decoded->entryInChildrenAtIndex(1)->isFile());

        const ReportWithoutLog report(
            HXTestResultList{result(HXDTestResultWarningType, HXDRAIDCheckTestName)});
        const QByteArray reportBytes = KeyedArchiver().archiveRootObject(report);
        const QVariantMap reportFields = rawRoot(reportBytes);
        QCOMPARE(reportFields.value(QStringLiteral("$class")).toString(),
                 QStringLiteral("HXStatusReport"));
        QVERIFY(reportFields.contains(QStringLiteral("testResults")));
        QVERIFY(!reportFields.contains(QStringLiteral("log")));
        const HXStatusReportRef back = HXReportArchive::decodeReport(reportBytes, &error);
        QVERIFY2(back, qPrintable(error));
        QCOMPARE(back->countOfTestResults(), 1);
        QCOMPARE(back->countOfLog(), 0);
        QVERIFY(back->log().isEmpty());
        back->addToLog(HXLogEntry::entryWithTypeCompoundString(HXDTestResultInformationType,
                                                               QStringLiteral("first line")));
        QCOMPARE(back->countOfLog(), 1);
        // Written again, the log is there, as an empty list would be.
        QVERIFY(rawRoot(KeyedArchiver().archiveRootObject(*back)).contains(QStringLiteral("log")));
    }

    void copiesShareTheListsWithTheirSource()
    {
        HXStatusReport report;
        auto c = report.copy();
        report.addTestResult(result(HXDTestResultErrorType, HXDMemoryTestName));
        QCOMPARE(c->countOfTestResults(), 1);
    }

    // Our archive in the layout Foundation writes: read by a keyed-archive
    // reader written from the format in Python, not from our code.
    void pythonReadsOurReportArchive()
    {
        if (!pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 with plistlib is not installed");
        HXStatusReport report;
        report.addTestResult(HXTestResult::resultWithType(HXDTestResultErrorType, HXDSMARTCheckTestName,
                                                          QStringLiteral("failing"), diskInfo(QStringLiteral("A"))));
        auto entry = HXLogEntry::entryWithTypeCompoundString(HXDTestResultErrorType, QStringLiteral("Error: x\n/f"));
        report.addToLog(entry);
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(HXReportArchive::encodeReport(report));
        f.close();

        QByteArray out;
        QVERIFY2(runPythonPeer({QStringLiteral("unarchive"), path}, &out), out.constData());
        const QJsonObject root = QJsonDocument::fromJson(out).object();
        QCOMPARE(root.value(QStringLiteral("class")).toString(), QStringLiteral("HXStatusReport"));
        const QJsonObject fields = root.value(QStringLiteral("v")).toObject();
        const QJsonObject results = fields.value(QStringLiteral("testResults")).toObject();
        QCOMPARE(results.value(QStringLiteral("class")).toString(), QStringLiteral("NSMutableArray"));
        QCOMPARE(results.value(QStringLiteral("chain")).toArray().last().toString(), QStringLiteral("NSObject"));
        const QJsonObject r = results.value(QStringLiteral("v")).toArray().at(0).toObject();
        QCOMPARE(r.value(QStringLiteral("class")).toString(), QStringLiteral("HXTestResult"));
        const QJsonObject rf = r.value(QStringLiteral("v")).toObject();
        QCOMPARE(rf.value(QStringLiteral("type")).toObject().value(QStringLiteral("v")).toString(), QStringLiteral("Error"));
        QVERIFY(!rf.contains(QStringLiteral("isIgnored")));
        const QJsonObject info = rf.value(QStringLiteral("testInfo")).toObject();
        QCOMPARE(info.value(QStringLiteral("class")).toString(), QStringLiteral("NSDictionary"));
        QCOMPARE(info.value(QStringLiteral("v")).toObject().value(QStringLiteral("disk")).toObject()
                     .value(QStringLiteral("v")).toObject().value(QStringLiteral("uuid")).toObject()
                     .value(QStringLiteral("v")).toString(), QStringLiteral("A"));
        const QJsonObject e = fields.value(QStringLiteral("log")).toObject().value(QStringLiteral("v"))
                                  .toArray().at(0).toObject().value(QStringLiteral("v")).toObject();
        QCOMPARE(e.value(QStringLiteral("timestamp")).toObject().value(QStringLiteral("class")).toString(), QStringLiteral("NSDate"));
        QCOMPARE(qint64(e.value(QStringLiteral("timestamp")).toObject().value(QStringLiteral("v")).toDouble() * 1000),
                 entry->timestamp().toMSecsSinceEpoch());
        QCOMPARE(e.value(QStringLiteral("count")).toObject().value(QStringLiteral("v")).toString(), QStringLiteral("1"));
        QCOMPARE(e.value(QStringLiteral("leaf")).toObject().value(QStringLiteral("t")).toString(), QStringLiteral("bool"));
    }

    // A report archived by that other writer (its own object order, no
    // sharing of equal strings, NSArray rather than NSMutableArray) decodes.
    void weReadAReportPythonArchived()
    {
        if (!pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 with plistlib is not installed");
        auto str = [](const QString &s) { return QJsonObject{{QStringLiteral("t"), QStringLiteral("string")}, {QStringLiteral("v"), s}}; };
        auto inlineInt = [](int n) {
            return QJsonObject{{QStringLiteral("t"), QStringLiteral("inline")},
                               {QStringLiteral("v"), QJsonObject{{QStringLiteral("t"), QStringLiteral("int")}, {QStringLiteral("v"), QString::number(n)}}}};
        };
        const QJsonObject testResult{
            {QStringLiteral("t"), QStringLiteral("object")}, {QStringLiteral("class"), QStringLiteral("HXTestResult")},
            {QStringLiteral("v"), QJsonObject{{QStringLiteral("type"), str(QStringLiteral("Warning"))},
                                              {QStringLiteral("name"), str(QStringLiteral("RAID test"))},
                                              {QStringLiteral("log"), str(QStringLiteral("degraded"))},
                                              {QStringLiteral("testInfo"), QJsonObject{{QStringLiteral("t"), QStringLiteral("null")}}}}}};
        const QJsonObject logEntry{
            {QStringLiteral("t"), QStringLiteral("object")}, {QStringLiteral("class"), QStringLiteral("HXLogEntry")},
            {QStringLiteral("v"), QJsonObject{{QStringLiteral("timestamp"), QJsonObject{{QStringLiteral("t"), QStringLiteral("date")}, {QStringLiteral("v"), 1769860800.5}}},
                                              {QStringLiteral("type"), str(QStringLiteral("Warning"))},
                                              {QStringLiteral("string"), str(QStringLiteral("Warning: degraded"))},
                                              {QStringLiteral("count"), inlineInt(0)}}}};
        const QJsonObject root{
            {QStringLiteral("t"), QStringLiteral("object")}, {QStringLiteral("class"), QStringLiteral("HXStatusReport")},
            {QStringLiteral("v"), QJsonObject{{QStringLiteral("testResults"), QJsonObject{{QStringLiteral("t"), QStringLiteral("array")}, {QStringLiteral("v"), QJsonArray{testResult, testResult}}}},
                                              {QStringLiteral("log"), QJsonObject{{QStringLiteral("t"), QStringLiteral("array")}, {QStringLiteral("v"), QJsonArray{logEntry}}}}}}};
        QTemporaryDir dir;
        const QString json = dir.filePath(QStringLiteral("report.json"));
        QFile j(json);
        QVERIFY(j.open(QIODevice::WriteOnly));
        j.write(QJsonDocument(root).toJson());
        j.close();
        const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
        QByteArray out;
        QVERIFY2(runPythonPeer({QStringLiteral("archive"), json, path}, &out), out.constData());
        QString error;
        const HXStatusReportRef report = HXReportArchive::decodeReport(readFile(path), &error);
        QVERIFY2(report, qPrintable(error));
        QCOMPARE(report->countOfTestResults(), 2);
        QCOMPARE(report->objectInTestResultsAtIndex(1)->log(), QStringLiteral("degraded"));
        QVERIFY(isPlistNull(report->objectInTestResultsAtIndex(0)->testInfo()));
        QCOMPARE(report->objectInLogAtIndex(0)->timestamp(),
                 QDateTime::fromMSecsSinceEpoch(1769860800500, Qt::UTC));
        QVERIFY(!report->objectInLogAtIndex(0)->leaf()); // missing "leaf" reads as false
    }
};

QTEST_GUILESS_MAIN(TestReportModel)
#include "tst_reportmodel.moc"
