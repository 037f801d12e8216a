// The engine's common ground: exclusions, the programs tests run, the pass's
// order and cancellation, and how disks and file systems are found.
#include "DiskImages.h"
#include "HXBlockDevices.h"
#include "HXExclusions.h"
#include "HXMachinePass.h"
#include "HXProgramRunner.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <unistd.h>

namespace {

void writeScript(const QString &path, const QByteArray &body)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n" + body);
    file.close();
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

// A test's stand-in: answers what it is told and counts its runs.
class ScriptedTest : public HXMachineTest
{
public:
    ScriptedTest(HXTest test, QList<HXTest> *log, std::atomic_bool *cancelAfter = nullptr)
        : m_test(test)
        , m_log(log)
        , m_cancelAfter(cancelAfter)
    {
    }
    HXTest test() const override { return m_test; }
    QList<HXTestFinding> run(const HXEngineContext &) override
    {
        m_log->append(m_test);
        if (m_cancelAfter)
            *m_cancelAfter = true;
        return {{QStringLiteral("Passed"), HXTestInfo(m_test).testName, {}}};
    }

private:
    HXTest m_test;
    QList<HXTest> *m_log;
    std::atomic_bool *m_cancelAfter;
};

} // namespace

class TestEngineCore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void exclusionsFollowTheirFlags()
    {
        const auto exclusions = HXExclusions::fromEntries({
            QVariantMap{{QStringLiteral("path"), QStringLiteral("/media/backup/")},
                        {QStringLiteral("isExcludedFromFileTest"), true},
                        {QStringLiteral("isExcludedFromVolTest"), true},
                        {QStringLiteral("isExcludedFromSurfaceScanTest"), false}},
            QVariantMap{{QStringLiteral("path"), QStringLiteral("/dev/sdc1")},
                        {QStringLiteral("isExcludedFromSurfaceScanTest"), true}},
            QVariantMap{{QStringLiteral("path"), QStringLiteral("/home/ada/VMs")},
                        {QStringLiteral("isExcludedFromFileTest"), true}},
            QVariantMap{{QStringLiteral("path"), QStringLiteral("relative/is/ignored")},
                        {QStringLiteral("isExcludedFromFileTest"), true}},
            QStringLiteral("not a dictionary"),
        });
        HXVolume backup;
        backup.devicePath = QStringLiteral("/dev/sdb1");
        backup.mountPoint = QStringLiteral("/media/backup");
        HXVolume scratch;
        scratch.devicePath = QStringLiteral("/dev/sdc1");
        QVERIFY(exclusions.excludesFromVolumeTest(backup));
        QVERIFY(!exclusions.excludesFromSurfaceScan(backup));
        QVERIFY(exclusions.excludesFromSurfaceScan(scratch)); // named by its device, not mounted
        QVERIFY(!exclusions.excludesFromVolumeTest(scratch));

        QVERIFY(exclusions.excludesFromFileTest(QStringLiteral("/home/ada/VMs")));
        QVERIFY(exclusions.excludesFromFileTest(QStringLiteral("/home/ada/VMs/win/disk.img")));
        QVERIFY(!exclusions.excludesFromFileTest(QStringLiteral("/home/ada/VMs-old/a")));
        QVERIFY(exclusions.excludesFromFileTest(QStringLiteral("/media/backup/x")));
        QVERIFY(!exclusions.excludesFromFileTest(QStringLiteral("relative/is/ignored/x")));
        QVERIFY(HXExclusions::fromEntries({}).isEmpty());

        // An excluded root volume leaves the volumes mounted inside it alone.
        const QVariantMap root{{QStringLiteral("path"), QStringLiteral("/")},
                               {QStringLiteral("NSURLIsVolumeKey"), true},
                               {QStringLiteral("isExcludedFromFileTest"), true}};
        const auto rootOnly =
            HXExclusions::fromEntries({root}, {QStringLiteral("/"), QStringLiteral("/home")});
        QVERIFY(rootOnly.excludesFromFileTest(QStringLiteral("/etc/passwd")));
        QVERIFY(!rootOnly.excludesFromFileTest(QStringLiteral("/home/ada/notes.txt")));
        QVERIFY(!rootOnly.excludesFromFileTest(QStringLiteral("/home")));
        // A folder's exclusion is by path, whatever is mounted inside it.
        QVariantMap folder = root;
        folder.insert(QStringLiteral("NSURLIsVolumeKey"), false);
        QVERIFY(HXExclusions::fromEntries({folder}, {QStringLiteral("/"), QStringLiteral("/home")})
                    .excludesFromFileTest(QStringLiteral("/home/ada/notes.txt")));
        // A volume whose mount is not known keeps the plain rule.
        QVERIFY(HXExclusions::fromEntries({root}, {QStringLiteral("/home")})
                    .excludesFromFileTest(QStringLiteral("/etc/passwd")));
    }

    void programsAreFoundOnThePathAndBounded()
    {
        QTemporaryDir bin;
        writeScript(bin.filePath(QStringLiteral("talker")),
                    "echo \"args: $*\"; echo oops >&2; head -c 1048576 /dev/zero; exit 3\n");
        writeScript(bin.filePath(QStringLiteral("sleeper")), "exec sleep 30\n");
        const QByteArray oldPath = qgetenv("PATH");
        qputenv("PATH", QFile::encodeName(bin.path()) + ':' + oldPath);
        auto restore = qScopeGuard([&] { qputenv("PATH", oldPath); });

        const HXProgramRun talker =
            HXProgramRunner::run(QStringLiteral("talker"), {QStringLiteral("-x")}, 10000);
        QVERIFY(talker.finished());
        QCOMPARE(talker.exitCode, 3);
        QVERIFY(talker.out.startsWith("args: -x\n"));
        QCOMPARE(talker.out.size(), qsizetype(9 + 1048576)); // a full pipe never blocks it
        QCOMPARE(talker.err, QByteArray("oops\n"));

        QElapsedTimer clock;
        clock.start();
        const HXProgramRun slow = HXProgramRunner::run(QStringLiteral("sleeper"), {}, 300);
        QCOMPARE(slow.outcome, HXProgramRun::Outcome::TimedOut);
        QVERIFY(clock.elapsed() < 5000);
        QVERIFY(slow.problem(QStringLiteral("sleeper")).contains(QLatin1String("did not finish")));

        std::atomic_bool cancelled = true;
        clock.restart();
        QCOMPARE(HXProgramRunner::run(QStringLiteral("sleeper"), {}, 60000, &cancelled).outcome,
                 HXProgramRun::Outcome::Cancelled);
        QVERIFY(clock.elapsed() < 5000);

        const HXProgramRun missing =
            HXProgramRunner::run(QStringLiteral("no-such-program-here"), {}, 1000);
        QCOMPARE(missing.outcome, HXProgramRun::Outcome::NotFound);
        QCOMPARE(missing.problem(QStringLiteral("smartctl")),
                 QStringLiteral("smartctl is not installed"));
    }

    void thePassRunsInTableOrderAndStopsWhenCancelled()
    {
        QList<HXTest> ran;
        HXMachinePass::Tests tests;
        for (HXTest t : {HXTest::POST, HXTest::SMART, HXTest::Battery, HXTest::SurfaceScan})
            tests.push_back(std::make_unique<ScriptedTest>(t, &ran));
        HXMachinePass pass(std::move(tests));
        QList<HXTest> started;
        QList<qsizetype> found;
        HXEngineContext context;
        HXMachinePass::Observer all;
        all.testStarted = [&](HXTest t) {
            started.append(t);
        };
        all.testFinished = [&](HXTest, const QList<HXTestFinding> &f) {
            found.append(f.size());
        };
        const bool completed = pass.run(context, all);
        QVERIFY(completed);
        const QList<HXTest> order{HXTest::SMART, HXTest::SurfaceScan, HXTest::Battery,
                                  HXTest::POST};
        QCOMPARE(ran, order);
        QCOMPARE(started, order);
        QCOMPARE(found, QList<qsizetype>(4, 1));

        // The running test ends and reports as stopped; no further test starts.
        std::atomic_bool cancelled = false;
        ran.clear();
        HXMachinePass::Tests two;
        two.push_back(std::make_unique<ScriptedTest>(HXTest::Memory, &ran, &cancelled));
        two.push_back(std::make_unique<ScriptedTest>(HXTest::RAID, &ran));
        context.cancelled = &cancelled;
        int finished = 0;
        QList<HXTest> stopped;
        HXMachinePass::Observer observer;
        observer.testFinished = [&](HXTest, const auto &) {
            ++finished;
        };
        observer.testStopped = [&](HXTest t, const QList<HXTestFinding> &f) {
            stopped.append(t);
            QCOMPARE(f.size(), 1); // what it found before it stopped is kept
        };
        QVERIFY(!HXMachinePass(std::move(two)).run(context, observer));
        QCOMPARE(ran, QList<HXTest>{HXTest::Memory});
        QCOMPARE(stopped, QList<HXTest>{HXTest::Memory});
        QCOMPARE(finished, 0);
    }

    void commandLineKeysNameEveryTest()
    {
        QSet<QString> keys;
        for (const HXTestDescriptor &d : HXTestTable()) {
            const QString key = HXMachinePass::commandLineKey(d.test);
            QVERIFY(!key.isEmpty());
            QCOMPARE(HXMachinePass::testForCommandLineKey(key), std::optional<HXTest>(d.test));
            keys.insert(key);
        }
        QCOMPARE(keys.size(), HXTestCount);
        QVERIFY(!HXMachinePass::testForCommandLineKey(QStringLiteral("SMART")));
    }

    void mountsAreReadFromTheMountTable()
    {
        QTemporaryDir root;
        QDir().mkpath(root.filePath(QStringLiteral("proc/self")));
        QFile table(root.filePath(QStringLiteral("proc/self/mountinfo")));
        QVERIFY(table.open(QIODevice::WriteOnly));
        // As a hardened service sees it: the system read-only but for its
        // own folders, bound in from the same file system.
        table.write(
            "22 27 0:21 / /proc rw,relatime - proc proc rw\n"
            "27 1 254:0 / / ro,relatime - ext4 /dev/vda rw,discard\n"
            "28 27 254:0 /var/lib/orvex /var/lib/orvex rw,relatime - ext4 /dev/vda rw,discard\n"
            "40 27 8:17 /sub /srv/bind ro - vfat /dev/sdb1 rw\n"
            "41 27 8:17 / /media/My\\040Photos ro,nosuid shared:5 - vfat /dev/sdb1 rw\n"
            "42 27 8:33 / /media/Old\\040Disk ro - ext2 /dev/sdc1 ro\n"
            "garbage line\n");
        table.close();
        qputenv("ORVEX_SYSROOT", QFile::encodeName(root.path()));
        auto restore = qScopeGuard([] { qunsetenv("ORVEX_SYSROOT"); });
        const QList<HXVolume> mounted = HXBlockDevices::mountedVolumes();
        QCOMPARE(mounted.size(), 3);
        // In use read-write by the file system's own options, and named by
        // the mount of its whole tree, not by a folder bound elsewhere.
        QCOMPARE(mounted[0].devicePath, QStringLiteral("/dev/vda"));
        QCOMPARE(mounted[0].mountPoint, QStringLiteral("/"));
        QVERIFY(mounted[0].mountedReadWrite);
        QCOMPARE(mounted[1].devicePath, QStringLiteral("/dev/sdb1"));
        QCOMPARE(mounted[1].mountPoint, QStringLiteral("/media/My Photos"));
        QVERIFY(mounted[1].mountedReadWrite);
        QCOMPARE(mounted[2].mountPoint, QStringLiteral("/media/Old Disk"));
        QCOMPARE(mounted[2].fsType, QStringLiteral("ext2"));
        QVERIFY(!mounted[2].mountedReadWrite);
    }

    void aLoopDiskIsKnownByItsPartitionMap()
    {
        if (const QString why = DiskImages::loopUnavailableReason(); !why.isEmpty())
            QSKIP(qPrintable(why));
        if (HXProgramRunner::find(QStringLiteral("sgdisk")).isEmpty() ||
            HXProgramRunner::find(QStringLiteral("mkfs.ext4")).isEmpty())
            QSKIP("sgdisk (gdisk) and mkfs.ext4 (e2fsprogs) are needed");
        QTemporaryDir dir;
        const QString image = dir.filePath(QStringLiteral("disk.img"));
        QVERIFY(DiskImages::makeImage(image, 64 << 20));
        const QString guid = QStringLiteral("3F1C9E52-7D0A-4B8E-9A61-2C5D8E4F7B10");
        QString problem;
        QVERIFY2(DiskImages::run(QStringLiteral("sgdisk"),
                                 {QStringLiteral("-U"), guid, QStringLiteral("-n"),
                                  QStringLiteral("1:2048:+32M"), image},
                                 &problem),
                 qPrintable(problem));
        DiskImages::LoopDevice loop(image, {false, 0, true});
        QVERIFY2(loop.isAttached(), qPrintable(loop.error()));
        const QString partition = loop.path() + QStringLiteral("p1");
        QTRY_VERIFY(QFile::exists(partition));
        QVERIFY2(DiskImages::run(QStringLiteral("mkfs.ext4"),
                                 {QStringLiteral("-q"), QStringLiteral("-F"), QStringLiteral("-L"),
                                  QStringLiteral("Holiday"), partition},
                                 &problem),
                 qPrintable(problem));

        QString why;
        const auto disk = HXBlockDevices::diskAt(loop.path(), &why);
        QVERIFY2(disk, qPrintable(why));
        QCOMPARE(disk->sizeBytes, qint64(64 << 20));
        QCOMPARE(disk->uuid, guid.toLower());
        QVERIFY(disk->model.contains(QLatin1String("disk.img")));
        QCOMPARE(disk->diskInfo().value(QStringLiteral("bsdName")).toString(), loop.kernelName());

        const QList<HXVolume> volumes = HXBlockDevices::volumesOf(*disk);
        QCOMPARE(volumes.size(), 1);
        QCOMPARE(volumes[0].fsType, QStringLiteral("ext4"));
        QCOMPARE(volumes[0].label, QStringLiteral("Holiday"));
        QCOMPARE(volumes[0].startBytes, qint64(2048) * 512);
        QCOMPARE(volumes[0].sizeBytes, qint64(32 << 20));
        QVERIFY(!volumes[0].uuid.isEmpty());
        QCOMPARE(volumes[0].diskInfo().value(QStringLiteral("volumeName")).toString(),
                 QStringLiteral("Holiday"));

        QVERIFY(!HXBlockDevices::diskAt(partition, &why));
        QVERIFY(why.contains(QLatin1String("partition")));
        QVERIFY(!HXBlockDevices::diskAt(image, &why));
        QVERIFY(why.contains(QLatin1String("not a block device")));
        QVERIFY(!HXBlockDevices::diskAt(dir.filePath(QStringLiteral("gone")), &why));
    }
};

QTEST_GUILESS_MAIN(TestEngineCore)
#include "tst_enginecore.moc"
