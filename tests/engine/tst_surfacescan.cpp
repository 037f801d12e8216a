// The surface scan on a real loop device, with bad blocks laid over it by a
// fault-injecting source (this kernel has no device-mapper to make a disk
// with real unreadable sectors). Needs root for the loop device.
#include "FaultyBlockSource.h"
#include "HXConstants.h"
#include "HXScanResumePoint.h"
#include "HXSurfaceScanTest.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr qint64 MiB = qint64(1) << 20;
constexpr qint64 block = 512;

struct Run
{
    QList<HXTestFinding> findings;
    QString said; // the lines for the worker's own log, one after another
};

using Spans = QList<QPair<qint64, qint64>>;

// Which bytes the requests covered, as sorted disjoint ranges.
Spans covered(const QList<FaultyBlockSource::Request> &requests)
{
    Spans spans;
    for (const auto &r : requests)
        spans.append({r.offset, r.end()});
    std::sort(spans.begin(), spans.end());
    Spans merged;
    for (const auto &s : spans) {
        if (!merged.isEmpty() && s.first <= merged.last().second)
            merged.last().second = std::max(merged.last().second, s.second);
        else
            merged.append(s);
    }
    return merged;
}

} // namespace

class TestSurfaceScan : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QString m_image;
    HXBlockDisk m_disk; // a loop device over m_image
    QString m_stateFolder;

    std::unique_ptr<FaultyBlockSource> openSource()
    {
        QString why;
        std::unique_ptr<HXBlockSource> device = HXDeviceBlockSource::open(m_disk.devicePath, &why);
        if (!device)
            qFatal("%s", qPrintable(why));
        return std::make_unique<FaultyBlockSource>(std::move(device));
    }

    Run scan(FaultyBlockSource &source, std::atomic_bool *cancelled = nullptr,
             const QList<HXVolume> &volumes = {}, const HXExclusions &exclusions = {})
    {
        Run run;
        HXEngineContext context;
        context.disks = {m_disk};
        context.volumes = volumes;
        context.exclusions = exclusions;
        context.stateFolder = m_stateFolder;
        context.cancelled = cancelled;
        context.note = [&](const QString &line) {
            run.said += line + QLatin1Char('\n');
        };
        HXSurfaceScanTest test;
        test.setSourceOpener([&](const HXBlockDisk &, QString *) {
            return std::make_unique<FaultyBlockSource>(static_cast<HXBlockSource &>(source));
        });
        run.findings = test.run(context);
        return run;
    }

    QString statePath() const { return HXScanResumePoint::filePath(m_stateFolder, m_disk.uuid); }

private slots:
    void initTestCase()
    {
        if (geteuid() != 0)
            QSKIP("a loop device needs root; run this test as root");
        QVERIFY(m_dir.isValid());
    }

    void init()
    {
        // A fresh 64 MiB disk (sparse) and no resume point for every case.
        m_image = m_dir.filePath(QStringLiteral("disk.img"));
        QFile image(m_image);
        QVERIFY(image.open(QIODevice::WriteOnly | QIODevice::Truncate) && image.resize(64 * MiB));
        QProcess losetup;
        losetup.start(QStringLiteral("losetup"),
                      {QStringLiteral("-f"), QStringLiteral("--show"), m_image});
        losetup.waitForFinished(10000);
        m_disk.devicePath = QString::fromLocal8Bit(losetup.readAllStandardOutput()).trimmed();
        if (m_disk.devicePath.isEmpty())
            QSKIP(qPrintable(QString::fromLocal8Bit(losetup.readAllStandardError())));
        m_disk.kernelName = QFileInfo(m_disk.devicePath).fileName();
        m_disk.sizeBytes = 64 * MiB;
        m_disk.uuid = QStringLiteral("test-disk-") + m_disk.kernelName;
        m_stateFolder = m_dir.filePath(
            QStringLiteral("state-%1").arg(QLatin1String(QTest::currentTestFunction())));
        QDir(m_stateFolder).removeRecursively();
    }

    void cleanup()
    {
        if (!m_disk.devicePath.isEmpty())
            QProcess::execute(QStringLiteral("losetup"), {QStringLiteral("-d"), m_disk.devicePath});
        m_disk = {};
        QFile::remove(m_image);
    }

    void deviceSourceReadsTheDisk()
    {
        // Marks in the image under the device tell where a read came from.
        QByteArray marks(8192, '\0');
        for (int b = 0; b < 16; ++b)
            marks[b * block] = char('a' + b);
        QFile image(m_image);
        QVERIFY(image.open(QIODevice::ReadWrite) && image.seek(5 * MiB + 4096) &&
                image.write(marks) == marks.size());
        image.close();
        QString why;
        const auto source = HXDeviceBlockSource::open(m_disk.devicePath, &why);
        QVERIFY2(source, qPrintable(why));
        QVERIFY(source->isDirect());
        HXAlignedBuffer buffer(source->bufferAlignment(), 8192);
        QCOMPARE(source->read(5 * MiB + 4096, buffer.data(), 8192), qint64(8192));
        QCOMPARE(QByteArray(static_cast<const char *>(buffer.data()), 8192), marks);
        // Past the end: nothing, not an error.
        QCOMPARE(source->read(64 * MiB, buffer.data(), 4096), qint64(0));

        QVERIFY(!HXDeviceBlockSource::open(m_image, &why));
        QVERIFY2(why.contains(QLatin1String("not a block device")), qPrintable(why));
        QVERIFY(!HXDeviceBlockSource::open(QStringLiteral("/dev/no-such-disk"), &why));
        QVERIFY2(why.contains(QLatin1String("/dev/no-such-disk")), qPrintable(why));
    }

    void cleanDiskIsReadOnceInOrderAtIdlePriority()
    {
        const auto source = openSource();
        QList<int> priorities;
        source->readHook = [&] {
            priorities.append(int(syscall(SYS_ioprio_get, 1, 0)));
        };
        const int before = int(syscall(SYS_ioprio_get, 1, 0));
        const Run run = scan(*source);

        QCOMPARE(run.findings.size(), 1);
        const HXTestFinding &f = run.findings.first();
        QCOMPARE(f.type, HXDTestResultSuccessType);
        QCOMPARE(f.testInfo.value(HXDTestResultIsCompletedKey), QVariant(true));
        QCOMPARE(f.testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey),
                 QVariant(m_disk.kernelName));
        // Sequential, in whole chunks, each byte once.
        qint64 expected = 0;
        for (const auto &r : source->requests) {
            QVERIFY(r.offset == expected && r.length == MiB);
            expected = r.end();
        }
        QCOMPARE(expected, 64 * MiB);
        // The reads ran in the idle class and the thread got its class back.
        QVERIFY(!priorities.isEmpty());
        for (int p : priorities)
            QCOMPARE(p >> 13, 3);
        QCOMPARE(int(syscall(SYS_ioprio_get, 1, 0)), before);
        QVERIFY(!QFile::exists(statePath()));
    }

    void badBlocksAreFoundExactly()
    {
        const auto source = openSource();
        source->failBlocks(2048 + 100, 3);                    // inside the second chunk
        source->failBlocks(4095, 3);                          // across the second and third chunks
        source->failBlocks(40000, 1);                         // alone
        source->failBlocks(64 * MiB / block - 1, 1, ENODATA); // the last block, a medium error
        const Run run = scan(*source);

        QCOMPARE(run.findings.size(), 1);
        const HXTestFinding &f = run.findings.first();
        QCOMPARE(f.type, HXDTestResultErrorType);
        QCOMPARE(f.testInfo.value(HXDTestResultIsCompletedKey), QVariant(true));
        QCOMPARE(f.testInfo.value(HXDTestResultBadBlockIndexKey).toLongLong(), qint64(2148));
        QCOMPARE(f.log, QStringLiteral("Surface Scan test found 8 unreadable blocks on %1: "
                                       "2148-2150, 4095-4097, 40000, 131071 (in 512-byte blocks)")
                            .arg(m_disk.kernelName));
        // Bad chunks are narrowed down, not read again block by block, and
        // every good block was read.
        QVERIFY2(source->requests.size() < 64 + 5 * (16 + 32),
                 qPrintable(QString::number(source->requests.size())));
        QCOMPARE(covered(source->requests), (Spans{{0, 64 * MiB}}));
    }

    void interruptedScanResumesWhereItStopped_data()
    {
        QTest::addColumn<bool>("withBadBlock");
        QTest::addColumn<bool>("grown"); // the disk's size changed in between
        QTest::newRow("nothing bad so far") << false << false;
        QTest::newRow("a bad block before the interruption") << true << false;
        QTest::newRow("the disk grew in between: starts over") << false << true;
    }

    void interruptedScanResumesWhereItStopped()
    {
        QFETCH(bool, withBadBlock);
        QFETCH(bool, grown);
        const QString type = withBadBlock ? HXDTestResultErrorType : HXDTestResultSuccessType;
        std::atomic_bool cancelled{false};
        auto first = openSource();
        if (withBadBlock)
            first->failBlocks(1000, 2);
        // The user cancels once the scan reads at 10 MiB.
        first->readHook = [&] {
            cancelled = first->requests.last().offset >= 10 * MiB;
        };
        const Run one = scan(*first, &cancelled);
        QCOMPARE(one.findings.size(), 1);
        QCOMPARE(one.findings.first().testInfo.value(HXDTestResultIsCompletedKey), QVariant(false));
        QCOMPARE(one.findings.first().type, type);
        QVERIFY2(one.findings.first().log.contains(QLatin1String("interrupted")),
                 qPrintable(one.findings.first().log));
        QVERIFY(QFile::exists(statePath()));
        const qint64 stoppedAt = first->requests.last().end();
        QVERIFY(stoppedAt < 64 * MiB);

        if (grown) { // the image grows and the loop device is told its new size
            QVERIFY(QFile::resize(m_image, 80 * MiB));
            QProcess::execute(QStringLiteral("losetup"), {QStringLiteral("-c"), m_disk.devicePath});
            m_disk.sizeBytes = 80 * MiB;
        }
        cancelled = false;
        auto second = openSource();
        const Run two = scan(*second, &cancelled);
        QCOMPARE(two.findings.size(), 1);
        const HXTestFinding &f = two.findings.first();
        QCOMPARE(f.testInfo.value(HXDTestResultIsCompletedKey), QVariant(true));
        // The second pass read only what the first had not, unless the disk
        // is no longer the one the first pass read.
        const QString resumed =
            grown ? QStringLiteral("size changed")
                  : QStringLiteral("resumes %1 at byte %2").arg(m_disk.kernelName).arg(stoppedAt);
        QCOMPARE(covered(second->requests), (Spans{{grown ? 0 : stoppedAt, m_disk.sizeBytes}}));
        QVERIFY2(two.said.contains(resumed), qPrintable(two.said));
        // What the first pass found is not lost by finishing in the second.
        QCOMPARE(f.type, type);
        if (withBadBlock) {
            QCOMPARE(f.testInfo.value(HXDTestResultBadBlockIndexKey).toLongLong(), qint64(1000));
            QVERIFY2(f.log.contains(QLatin1String("2 unreadable blocks on")) &&
                         f.log.contains(QLatin1String("1000-1001")),
                     qPrintable(f.log));
        }
        QVERIFY(!QFile::exists(statePath()));
    }

    void excludedVolumesAreNotRead()
    {
        const HXBlockDisk &disk = m_disk;
        const auto volume = [&disk](const char *part, qint64 start, qint64 size) {
            HXVolume v;
            v.kernelName = disk.kernelName + QLatin1String(part);
            v.devicePath = disk.devicePath + QLatin1String(part);
            v.diskKernelName = disk.kernelName;
            v.startBytes = start;
            v.sizeBytes = size;
            return v;
        };
        const auto excluding = [](const QString &path, const char *test) {
            return QVariantMap{{QStringLiteral("path"), path}, {QLatin1String(test), true}};
        };
        const HXVolume excluded = volume("p1", MiB + 512, 20 * MiB); // not on a chunk boundary
        const HXVolume kept = volume("p2", 32 * MiB, 16 * MiB);
        const auto source = openSource();
        source->failBlocks(excluded.startBytes / block + 10, 5); // never seen
        source->failBlocks(kept.startBytes / block + 7, 1);
        const Run run = scan(*source, nullptr, {excluded, kept},
                             HXExclusions::fromEntries(
                                 {excluding(excluded.devicePath, "isExcludedFromSurfaceScanTest"),
                                  excluding(kept.devicePath, "isExcludedFromVolTest")}));

        QCOMPARE(covered(source->requests),
                 (Spans{{0, excluded.startBytes},
                        {excluded.startBytes + excluded.sizeBytes, 64 * MiB}}));
        QCOMPARE(run.findings.first().testInfo.value(HXDTestResultBadBlockIndexKey).toLongLong(),
                 kept.startBytes / block + 7);
        QVERIFY2(run.said.contains(QStringLiteral("skips %1").arg(excluded.kernelName)) &&
                     !run.said.contains(kept.kernelName),
                 qPrintable(run.said));

        // A file system over the whole disk, excluded: nothing to read, no result.
        const auto again = openSource();
        const Run none = scan(*again, nullptr, {volume("", 0, 64 * MiB)},
                              HXExclusions::fromEntries(
                                  {excluding(disk.devicePath, "isExcludedFromSurfaceScanTest")}));
        QVERIFY(none.findings.isEmpty() && again->requests.isEmpty());
        QVERIFY(none.said.contains(QLatin1String("did not test")));
    }

    void diskThatStopsAnsweringIsNotCalledBad()
    {
        const auto source = openSource();
        source->failBlocks(30 * MiB / block, 1, ENXIO); // the device went away
        const Run run = scan(*source);
        QVERIFY(run.findings.isEmpty());
        QVERIFY2(run.said.contains(QLatin1String("could not be read (No such device or address)")),
                 qPrintable(run.said));
        QString why;
        const auto point = HXScanResumePoint::load(m_stateFolder, m_disk.uuid, &why);
        QVERIFY2(point, qPrintable(why));
        QCOMPARE(point->offset, 30 * MiB);

        // A resume point that makes no sense is said and ignored.
        QFile file(statePath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                file.write("{\"disk\": 3"));
        file.close();
        const auto fresh = openSource();
        const Run again = scan(*fresh);
        QCOMPARE(fresh->requests.first().offset, qint64(0));
        QVERIFY(again.said.contains(QLatin1String("from the beginning")));
    }
};

QTEST_GUILESS_MAIN(TestSurfaceScan)
#include "tst_surfacescan.moc"
