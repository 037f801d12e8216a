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

// A loop device over an image whose every 512-byte block begins with its own
// index, so a read's content tells where it was read from.
class LoopDevice
{
public:
    ~LoopDevice()
    {
        if (!path.isEmpty())
            QProcess::execute(QStringLiteral("losetup"), {QStringLiteral("-d"), path});
    }

    bool create(const QString &imagePath, qint64 size, QString *why)
    {
        image = imagePath;
        if (!writeImage(0, size)) {
            *why = QStringLiteral("could not write %1").arg(image);
            return false;
        }
        QProcess losetup;
        losetup.start(QStringLiteral("losetup"),
                      {QStringLiteral("-f"), QStringLiteral("--show"), image});
        if (!losetup.waitForFinished(10000) || losetup.exitCode() != 0) {
            *why = QStringLiteral("losetup could not attach a loop device: %1")
                       .arg(QString::fromLocal8Bit(losetup.readAllStandardError()).trimmed());
            return false;
        }
        path = QString::fromLocal8Bit(losetup.readAllStandardOutput()).trimmed();
        return !path.isEmpty();
    }

    // The image grows and the loop device is told its new size.
    bool grow(qint64 newSize)
    {
        return writeImage(QFileInfo(image).size(), newSize) &&
               QProcess::execute(QStringLiteral("losetup"), {QStringLiteral("-c"), path}) == 0;
    }

    HXBlockDisk disk() const
    {
        HXBlockDisk d;
        d.kernelName = QFileInfo(path).fileName();
        d.devicePath = path;
        d.sizeBytes = QFileInfo(image).size();
        d.uuid = QStringLiteral("test-disk-") + d.kernelName;
        return d;
    }

    QString path;
    QString image;

private:
    bool writeImage(qint64 from, qint64 to)
    {
        QFile file(image);
        if (!file.open(QIODevice::ReadWrite))
            return false;
        file.seek(from);
        QByteArray chunk(MiB, '\0');
        for (qint64 pos = from; pos < to; pos += MiB) {
            for (qint64 b = 0; b < MiB / block; ++b) {
                const qint64 index = (pos / block) + b;
                memcpy(chunk.data() + b * block, &index, sizeof index);
            }
            if (file.write(chunk.constData(), std::min(MiB, to - pos)) < 0)
                return false;
        }
        return true;
    }
};

struct Run
{
    QList<HXTestFinding> findings;
    QStringList said;
};

// Which bytes of [0, size) the requests covered, as sorted disjoint ranges.
QList<QPair<qint64, qint64>> covered(const QList<FaultyBlockSource::Request> &requests)
{
    QList<QPair<qint64, qint64>> spans;
    for (const auto &r : requests)
        spans.append({r.offset, r.end()});
    std::sort(spans.begin(), spans.end());
    QList<QPair<qint64, qint64>> merged;
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
    std::unique_ptr<LoopDevice> m_loop;
    QString m_stateFolder;

    std::unique_ptr<FaultyBlockSource> openSource()
    {
        QString why;
        std::unique_ptr<HXBlockSource> device = HXDeviceBlockSource::open(m_loop->path, &why);
        if (!device)
            qFatal("%s", qPrintable(why));
        return std::make_unique<FaultyBlockSource>(std::move(device));
    }

    Run scan(FaultyBlockSource &source, std::atomic_bool *cancelled = nullptr,
             const QList<HXVolume> &volumes = {}, const HXExclusions &exclusions = {})
    {
        Run run;
        HXEngineContext context;
        context.disks = {m_loop->disk()};
        context.volumes = volumes;
        context.exclusions = exclusions;
        context.stateFolder = m_stateFolder;
        context.cancelled = cancelled;
        context.note = [&](const QString &line) {
            run.said.append(line);
        };
        HXSurfaceScanTest test;
        test.setSourceOpener([&](const HXBlockDisk &, QString *) {
            return std::make_unique<BorrowedBlockSource>(source);
        });
        run.findings = test.run(context);
        return run;
    }

    QString statePath() const
    {
        return HXScanResumePoint::filePath(m_stateFolder, m_loop->disk().uuid);
    }

private slots:
    void initTestCase()
    {
        if (geteuid() != 0)
            QSKIP("a loop device needs root; run this test as root");
        QVERIFY(m_dir.isValid());
    }

    void init()
    {
        // A fresh 64 MiB disk and no resume point for every case.
        m_loop = std::make_unique<LoopDevice>();
        QString why;
        if (!m_loop->create(m_dir.filePath(QStringLiteral("disk.img")), 64 * MiB, &why))
            QSKIP(qPrintable(why));
        m_stateFolder = m_dir.filePath(
            QStringLiteral("state-%1").arg(QLatin1String(QTest::currentTestFunction())));
        QDir(m_stateFolder).removeRecursively();
    }

    void cleanup()
    {
        m_loop.reset();
        QFile::remove(m_dir.filePath(QStringLiteral("disk.img")));
    }

    void deviceSourceReadsTheDisk()
    {
        QString why;
        const auto source = HXDeviceBlockSource::open(m_loop->path, &why);
        QVERIFY2(source, qPrintable(why));
        QVERIFY(source->isDirect());
        QCOMPARE(source->sizeBytes(), 64 * MiB);
        QCOMPARE(source->logicalBlockSize(), 512);
        HXAlignedBuffer buffer(source->bufferAlignment(), 8192);
        QCOMPARE(source->read(5 * MiB + 4096, buffer.data(), 8192), qint64(8192));
        for (int b = 0; b < 16; ++b) {
            qint64 index = 0;
            memcpy(&index, static_cast<char *>(buffer.data()) + b * block, sizeof index);
            QCOMPARE(index, (5 * MiB + 4096) / block + b);
        }
        // Past the end: nothing, not an error.
        QCOMPARE(source->read(64 * MiB, buffer.data(), 4096), qint64(0));

        QVERIFY(!HXDeviceBlockSource::open(m_loop->image, &why));
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
        QVERIFY(!f.testInfo.contains(HXDTestResultBadBlockIndexKey));
        QCOMPARE(f.testInfo.value(HXDiskKey).toMap().value(HXBSDNameKey),
                 QVariant(m_loop->disk().kernelName));
        QVERIFY2(f.log.contains(m_loop->disk().kernelName), qPrintable(f.log));

        // Sequential, in whole chunks, each byte once.
        qint64 expected = 0;
        for (const auto &r : source->requests) {
            QCOMPARE(r.offset, expected);
            QCOMPARE(r.length, MiB);
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
        const QString name = m_loop->disk().kernelName;
        QCOMPARE(f.log, QStringLiteral("Surface Scan test found 8 unreadable blocks on %1: "
                                       "2148-2150, 4095-4097, 40000, 131071 (in 512-byte blocks)")
                            .arg(name));
        // Bad chunks are narrowed down, not read again block by block.
        QVERIFY2(source->requests.size() < 64 + 5 * (16 + 32),
                 qPrintable(QString::number(source->requests.size())));
        // Every good block was read.
        QCOMPARE(covered(source->requests), (QList<QPair<qint64, qint64>>{{0, 64 * MiB}}));
    }

    void interruptedScanResumesWhereItStopped_data()
    {
        QTest::addColumn<bool>("withBadBlock");
        QTest::newRow("nothing bad so far") << false;
        QTest::newRow("a bad block before the interruption") << true;
    }

    void interruptedScanResumesWhereItStopped()
    {
        QFETCH(bool, withBadBlock);
        std::atomic_bool cancelled{false};
        auto first = openSource();
        if (withBadBlock)
            first->failBlocks(1000, 2);
        first->cancelAfter(10 * MiB, &cancelled);
        const Run one = scan(*first, &cancelled);

        QCOMPARE(one.findings.size(), 1);
        const HXTestFinding &f1 = one.findings.first();
        QCOMPARE(f1.testInfo.value(HXDTestResultIsCompletedKey), QVariant(false));
        QCOMPARE(f1.type, withBadBlock ? HXDTestResultErrorType : HXDTestResultSuccessType);
        QVERIFY2(f1.log.contains(QLatin1String("interrupted")), qPrintable(f1.log));
        QVERIFY(QFile::exists(statePath()));
        const qint64 stoppedAt = first->requests.last().end();
        QVERIFY(stoppedAt < 64 * MiB);

        cancelled = false;
        auto second = openSource();
        const Run two = scan(*second, &cancelled);
        QCOMPARE(two.findings.size(), 1);
        const HXTestFinding &f2 = two.findings.first();
        QCOMPARE(f2.testInfo.value(HXDTestResultIsCompletedKey), QVariant(true));
        // The second pass read only what the first had not.
        QCOMPARE(second->requests.first().offset, stoppedAt);
        QCOMPARE(covered(second->requests), (QList<QPair<qint64, qint64>>{{stoppedAt, 64 * MiB}}));
        QVERIFY(two.said.join(QLatin1Char('\n'))
                    .contains(QStringLiteral("resumes %1 at byte %2")
                                  .arg(m_loop->disk().kernelName)
                                  .arg(stoppedAt)));
        // What the first pass found is not lost by finishing in the second.
        QCOMPARE(f2.type, withBadBlock ? HXDTestResultErrorType : HXDTestResultSuccessType);
        if (withBadBlock) {
            QCOMPARE(f2.testInfo.value(HXDTestResultBadBlockIndexKey).toLongLong(), qint64(1000));
            QVERIFY2(f2.log.contains(QLatin1String("2 unreadable blocks")) &&
                         f2.log.contains(QLatin1String("1000-1001")),
                     qPrintable(f2.log));
        }
        QVERIFY(!QFile::exists(statePath()));
    }

    void changedSizeStartsOver()
    {
        std::atomic_bool cancelled{false};
        auto first = openSource();
        first->cancelAfter(8 * MiB, &cancelled);
        scan(*first, &cancelled);
        QVERIFY(QFile::exists(statePath()));

        QVERIFY(m_loop->grow(80 * MiB));
        cancelled = false;
        auto second = openSource();
        QCOMPARE(second->sizeBytes(), 80 * MiB);
        const Run two = scan(*second, &cancelled);
        QCOMPARE(second->requests.first().offset, qint64(0));
        QCOMPARE(covered(second->requests), (QList<QPair<qint64, qint64>>{{0, 80 * MiB}}));
        QVERIFY2(two.said.join(QLatin1Char('\n')).contains(QLatin1String("size changed")),
                 qPrintable(two.said.join(QLatin1Char('\n'))));
        QCOMPARE(two.findings.first().testInfo.value(HXDTestResultIsCompletedKey), QVariant(true));
    }

    void excludedVolumesAreNotRead()
    {
        const HXBlockDisk disk = m_loop->disk();
        HXVolume excluded;
        excluded.kernelName = disk.kernelName + QStringLiteral("p1");
        excluded.devicePath = disk.devicePath + QStringLiteral("p1");
        excluded.diskKernelName = disk.kernelName;
        excluded.startBytes = MiB + 512; // not on a chunk boundary
        excluded.sizeBytes = 20 * MiB;
        HXVolume kept = excluded;
        kept.kernelName = disk.kernelName + QStringLiteral("p2");
        kept.devicePath = disk.devicePath + QStringLiteral("p2");
        kept.startBytes = 32 * MiB;
        kept.sizeBytes = 16 * MiB;
        const HXExclusions exclusions = HXExclusions::fromEntries(
            {QVariantMap{{QStringLiteral("path"), excluded.devicePath},
                         {QStringLiteral("isExcludedFromSurfaceScanTest"), true}},
             QVariantMap{{QStringLiteral("path"), kept.devicePath},
                         {QStringLiteral("isExcludedFromVolTest"), true}}});

        const auto source = openSource();
        source->failBlocks(excluded.startBytes / block + 10,
                           5); // in the excluded volume: never seen
        source->failBlocks(kept.startBytes / block + 7, 1);
        const Run run = scan(*source, nullptr, {excluded, kept}, exclusions);

        QCOMPARE(
            covered(source->requests),
            (QList<QPair<qint64, qint64>>{{0, excluded.startBytes},
                                          {excluded.startBytes + excluded.sizeBytes, 64 * MiB}}));
        QCOMPARE(run.findings.first().testInfo.value(HXDTestResultBadBlockIndexKey).toLongLong(),
                 kept.startBytes / block + 7);
        QVERIFY2(run.findings.first().log.contains(QLatin1String("1 unreadable block on")),
                 qPrintable(run.findings.first().log));
        const QString said = run.said.join(QLatin1Char('\n'));
        QVERIFY2(said.contains(QStringLiteral("skips %1").arg(excluded.kernelName)) &&
                     !said.contains(kept.kernelName),
                 qPrintable(said));

        // A file system over the whole disk, excluded: nothing to read, no result.
        HXVolume whole = excluded;
        whole.devicePath = disk.devicePath;
        whole.startBytes = 0;
        whole.sizeBytes = 64 * MiB;
        const auto again = openSource();
        const Run none =
            scan(*again, nullptr, {whole},
                 HXExclusions::fromEntries(
                     {QVariantMap{{QStringLiteral("path"), disk.devicePath},
                                  {QStringLiteral("isExcludedFromSurfaceScanTest"), true}}}));
        QVERIFY(none.findings.isEmpty());
        QVERIFY(again->requests.isEmpty());
        QVERIFY(none.said.join(QLatin1Char('\n')).contains(QLatin1String("did not test")));
    }

    void diskThatStopsAnsweringIsNotCalledBad()
    {
        const auto source = openSource();
        source->failBlocks(30 * MiB / block, 1, ENXIO); // the device went away
        const Run run = scan(*source);
        QVERIFY(run.findings.isEmpty());
        const QString said = run.said.join(QLatin1Char('\n'));
        QVERIFY2(said.contains(QLatin1String("could not be read (No such device or address)")),
                 qPrintable(said));
        QString why;
        const auto point = HXScanResumePoint::load(m_stateFolder, m_loop->disk().uuid, &why);
        QVERIFY2(point, qPrintable(why));
        QCOMPARE(point->offset, 30 * MiB);

        // A resume point that makes no sense is said and ignored.
        QFile file(statePath());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("{\"disk\": 3");
        file.close();
        const auto fresh = openSource();
        const Run again = scan(*fresh);
        QCOMPARE(fresh->requests.first().offset, qint64(0));
        QVERIFY(again.said.join(QLatin1Char('\n')).contains(QLatin1String("from the beginning")));
    }
};

QTEST_GUILESS_MAIN(TestSurfaceScan)
#include "tst_surfacescan.moc"
