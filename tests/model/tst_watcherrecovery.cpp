// The report's folder removed or moved away and made again, as a reinstall or
// an `rm -rf` of the product folder does: the watcher goes back to the
// nearest folder that still exists and follows the path down again, and the
// reporter loads what is written into the new folder. Real folders in a
// temporary directory throughout.
#include "HXConstants.h"
#include "HXDirectoryWatcher.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr int kWaitMs = 10000;

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

// A report of `count` distinct memory results, so that the count says which
// one was loaded.
QByteArray reportBytes(int count)
{
    auto report = HXStatusReport::report();
    for (int i = 0; i < count; ++i)
        report->addTestResult(HXTestResult::resultWithType(
            HXDTestResultWarningType, QStringLiteral("%1 %2").arg(HXDMemoryTestName).arg(i),
            QStringLiteral("bank %1").arg(i), {}));
    return HXReportArchive::encodeReport(*report);
}

// Waits on the reporter's change signal until it holds `count` results.
bool waitForResults(HXStatusReporter &reporter, QSignalSpy &changed, int count)
{
    const QDeadlineTimer deadline(kWaitMs);
    while (reporter.report()->countOfTestResults() != count) {
        if (deadline.hasExpired() || !changed.wait(int(qMax<qint64>(1, deadline.remainingTime()))))
            return false;
    }
    return true;
}

class QuietLog
{
public:
    QuietLog()
    {
        HXSystemLog::setSink([this](const QString &line) { lines.append(line); });
    }
    ~QuietLog() { HXSystemLog::setSink({}); }
    QStringList lines;
};

} // namespace

class TestWatcherRecovery : public QObject
{
    Q_OBJECT

    QTemporaryDir m_base;
    HXNotificationCenter m_center;

    // base/<row>/a/b/Orvex, fresh for each run.
    QString productFolder()
    {
        const QString folder = m_base.filePath(QStringLiteral("%1/a/b/Orvex").arg(++m_run));
        return QDir().mkpath(folder) ? folder : QString();
    }
    int m_run = 0;

    // Takes away `levels` folders, the product folder being the first: removed
    // with what they hold, or (levels 0) the product folder moved aside.
    static bool takeAway(const QString &productFolder, int levels)
    {
        if (levels == 0)
            return QDir().rename(productFolder, productFolder + QStringLiteral(".old"));
        QString top = productFolder;
        for (int i = 1; i < levels; ++i)
            top = QFileInfo(top).absolutePath();
        return QDir(top).removeRecursively();
    }
    static QString nearestLeft(const QString &productFolder, int levels)
    {
        QString left = QFileInfo(productFolder).absolutePath();
        for (int i = 1; i < levels; ++i)
            left = QFileInfo(left).absolutePath();
        return left;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_base.isValid()); }

    void watcherFollowsAFolderMadeAgain_data()
    {
        QTest::addColumn<int>("levels");
        QTest::newRow("the folder removed") << 1;
        QTest::newRow("three levels removed") << 3;
        QTest::newRow("the folder moved aside") << 0;
    }
    void watcherFollowsAFolderMadeAgain()
    {
        QFETCH(int, levels);
        QuietLog log;
        const QString folder = productFolder();
        QVERIFY(!folder.isEmpty());
        HXDirectoryWatcher watcher;
        QStringList seen;
        watcher.watchFile(folder, [&](const QString &path) { seen.append(path); });
        QCOMPARE(watcher.watchPath(), folder);

        QVERIFY(takeAway(folder, levels));
        // Back to the nearest folder that is still there.
        QTRY_COMPARE_WITH_TIMEOUT(watcher.watchPath(), nearestLeft(folder, qMax(levels, 1)),
                                  kWaitMs);

        QVERIFY(QDir().mkpath(folder));
        seen.clear();
        QVERIFY(writeFile(folder + QStringLiteral("/Report.zrrpt"), "new"));
        QTRY_COMPARE_WITH_TIMEOUT(watcher.watchPath(), folder, kWaitMs);
        // Once there, the caller hears of it: the write may have come first.
        QTRY_VERIFY_WITH_TIMEOUT(seen.contains(folder), kWaitMs);

        // And the new folder's own events arrive from now on (the folders
        // above report under their own paths).
        seen.clear();
        QVERIFY(writeFile(folder + QStringLiteral("/Other"), "x"));
        QTRY_VERIFY_WITH_TIMEOUT(seen.contains(folder), kWaitMs);
    }

    void watchingAPathAsItIsDoesNotFollowIt()
    {
        QuietLog log;
        const QString folder = productFolder();
        HXDirectoryWatcher watcher;
        QStringList seen;
        watcher.watchPath(folder, [&](const QString &path) { seen.append(path); });
        QVERIFY(takeAway(folder, 1));
        QTRY_VERIFY_WITH_TIMEOUT(!seen.isEmpty(), kWaitMs); // the deletion
        QVERIFY(QDir().mkpath(folder));
        // A marker behind the write in the same queue: a new folder in a
        // folder this watcher also watches, reported under that folder's path.
        watcher.watchDirectory(m_base.path());
        seen.clear();
        QVERIFY(writeFile(folder + QStringLiteral("/Report.zrrpt"), "new"));
        QVERIFY(QDir(m_base.path()).mkdir(QStringLiteral("marker")));
        QTRY_VERIFY_WITH_TIMEOUT(seen.contains(m_base.path()), kWaitMs);
        QCOMPARE(seen, QStringList{m_base.path()});
    }

    void reporterLoadsTheReportOfAFolderMadeAgain_data()
    {
        QTest::addColumn<int>("levels");
        QTest::addColumn<bool>("atOnce");
        QTest::newRow("the folder, step by step") << 1 << false;
        QTest::newRow("the folder, at once") << 1 << true;
        QTest::newRow("three levels, step by step") << 3 << false;
        QTest::newRow("three levels, at once") << 3 << true;
        QTest::newRow("moved aside, step by step") << 0 << false;
    }
    void reporterLoadsTheReportOfAFolderMadeAgain()
    {
        QFETCH(int, levels);
        QFETCH(bool, atOnce);
        QuietLog log;
        const QString folder = productFolder();
        const QString path = folder + QStringLiteral("/Report.zrrpt");
        QVERIFY(writeFile(path, reportBytes(1)));
        HXStatusReporter reporter({path, &m_center, nullptr, true});
        QCOMPARE(reporter.report()->countOfTestResults(), 1);
        QSignalSpy changed(&reporter, &HXStatusReporter::reportChanged);

        QVERIFY(takeAway(folder, levels));
        // Step by step: the window shows the report gone before a new one
        // comes. At once: the script does it all before anyone looks.
        if (!atOnce)
            QVERIFY(waitForResults(reporter, changed, 0));
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(writeFile(path, reportBytes(2)));
        QVERIFY2(waitForResults(reporter, changed, 2), "the new folder's report was never loaded");

        // Not a one-time look: the next write is seen too.
        QVERIFY(writeFile(path, reportBytes(3)));
        QVERIFY2(waitForResults(reporter, changed, 3),
                 "a later write into the new folder was missed");
        QVERIFY(reporter.lastLoadError().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestWatcherRecovery)
#include "tst_watcherrecovery.moc"
