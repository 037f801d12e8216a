// The real worker daemon from the outside: its command line, one pass on a
// loop disk under a fixture root, and the same pass served on the bus and
// shown by the application's status view.
#include "DiskImages.h"
#include "HXConstants.h"
#include "HXDaemonFiles.h"
#include "HXDaemonInteraction.h"
#include "HXIconAnimate.h"
#include "HXMachineProbes.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"
#include "StandinProcess.h"
#include "TestSupport.h"
#include "status/LiveStatusView.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>
#include <csignal>

namespace {

bool writeFile(const QString &path, const QByteArray &bytes, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        return false;
    file.close();
    return !executable ||
           file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// A small machine: a 48 MiB disk with a GPT and a clean ext4 partition on a
// loop device, a kernel tree with a worn battery, a degraded mirror, one
// I/O error on the disk and one corrected PCIe error, and smartctl and
// journalctl stand-ins first on PATH (the journal "is missing", so the
// kernel log comes from the kmsg file).
class SmallMachine
{
public:
    SmallMachine()
    {
        m_why = DiskImages::loopUnavailableReason();
        if (!m_why.isEmpty())
            return;
        for (const char *tool : {"sgdisk", "mkfs.ext4", "e2fsck"}) {
            if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty()) {
                m_why = QStringLiteral("%1 is needed").arg(QLatin1String(tool));
                return;
            }
        }
        const QString image = m_dir.filePath(QStringLiteral("disk.img"));
        if (!DiskImages::makeImage(image, 48 << 20) ||
            !DiskImages::run(QStringLiteral("sgdisk"),
                             {QStringLiteral("-n"), QStringLiteral("1:2048:+24M"), image}, &m_why))
            return;
        m_loop = std::make_unique<DiskImages::LoopDevice>(
            image, DiskImages::LoopDevice::Options{false, 0, true});
        if (!m_loop->isAttached()) {
            m_why = m_loop->error();
            return;
        }
        m_node = m_loop->path();
        const QString partition = m_node + QStringLiteral("p1");
        for (int i = 0; i < 100 && !QFile::exists(partition); ++i)
            QThread::msleep(20);
        if (!DiskImages::run(QStringLiteral("mkfs.ext4"),
                             {QStringLiteral("-q"), QStringLiteral("-F"), partition}, &m_why))
            return;
        const QString name = m_node.mid(5);
        const QString sys = sysroot();
        const QString battery = sys + QStringLiteral("/sys/class/power_supply/BAT0/");
        bool ok = writeFile(battery + QStringLiteral("type"), "Battery\n") &&
                  writeFile(battery + QStringLiteral("present"), "1\n") &&
                  writeFile(battery + QStringLiteral("model_name"), "45N1041\n") &&
                  writeFile(battery + QStringLiteral("manufacturer"), "SANYO\n") &&
                  writeFile(battery + QStringLiteral("serial_number"), "1234\n") &&
                  writeFile(battery + QStringLiteral("energy_full_design"), "57720000\n") &&
                  writeFile(battery + QStringLiteral("energy_full"), "40404000\n") &&
                  writeFile(battery + QStringLiteral("cycle_count"), "412\n");
        ok = ok && writeFile(sys + QStringLiteral("/proc/mdstat"),
                             "Personalities : [raid1]\n"
                             "md0 : active raid1 sdb1[1](F) sda1[0]\n"
                             "      976630464 blocks super 1.2 [2/1] [U_]\n\n"
                             "unused devices: <none>\n");
        ok = ok && writeFile(sys + QStringLiteral("/proc/self/mountinfo"),
                             "22 27 0:21 / /proc rw,relatime - proc proc rw\n");
        ok = ok && writeFile(sys + QStringLiteral("/proc/sys/kernel/random/boot_id"),
                             "6f0a3c8e-2b1d-4e5f-9a7b-1c2d3e4f5a6b\n");
        ok = ok &&
             writeFile(sys + QStringLiteral("/dev/kmsg"),
                       "6,1,1000,-;Linux version 6.1.0\n" +
                           QStringLiteral(
                               "3,2,2000,-;I/O error, dev %1, sector 4096 op 0x0:(READ) flags 0x0 "
                               "phys_seg 1 prio class 0\n")
                               .arg(name)
                               .toUtf8() +
                           "3,3,3000,-;pcieport 0000:00:1c.0: AER: Corrected error received: "
                           "0000:00:1c.0\n");
        const QString bin = m_dir.filePath(QStringLiteral("bin"));
        ok = ok && writeFile(bin + QStringLiteral("/journalctl"),
                             "#!/bin/sh\necho 'No journal files were found.' >&2\nexit 1\n", true);
        ok = ok &&
             writeFile(
                 bin + QStringLiteral("/smartctl"),
                 QStringLiteral(
                     "#!/bin/sh\n"
                     "case \"$*\" in\n"
                     "  *--scan*) echo '{\"devices\":[{\"name\":\"%1\",\"type\":\"sat\"}]}' ;;\n"
                     "  *) cat '%2'; exit 0 ;;\n"
                     "esac\n")
                     .arg(m_node, QStringLiteral(ORVEX_SMART_FIXTURE))
                     .toUtf8(),
                 true);
        if (!ok)
            m_why = QStringLiteral("the fixture tree could not be written");
    }

    QString unusable() const { return m_why; }
    QString image() const { return m_dir.filePath(QStringLiteral("disk.img")); }
    QString node() const { return m_node; }
    QString root() const { return m_dir.filePath(QStringLiteral("root")); }
    QString sysroot() const { return m_dir.filePath(QStringLiteral("sysroot")); }
    QString path() const
    {
        return m_dir.filePath(QStringLiteral("bin")) + QLatin1Char(':') +
               qEnvironmentVariable("PATH");
    }
    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ORVEX_ROOT"), root());
        env.insert(QStringLiteral("ORVEX_SYSROOT"), sysroot());
        env.insert(QStringLiteral("ORVEX_DAEMON_BUS"), QStringLiteral("session"));
        env.insert(QStringLiteral("PATH"), path());
        return env;
    }

private:
    QTemporaryDir m_dir;
    std::unique_ptr<DiskImages::LoopDevice> m_loop;
    QString m_node;
    QString m_why;
};

QByteArray digest(const QString &path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

HXStatusReportRef readReport(const QString &root)
{
    QFile file(root + QStringLiteral("/var/lib/orvex/Report.zrrpt"));
    if (!file.open(QIODevice::ReadOnly))
        return nullptr;
    QString why;
    return HXReportArchive::decodeReport(file.readAll(), &why);
}

HXTestResultRef resultNamed(const HXStatusReportRef &report, const QString &name)
{
    for (const HXTestResultRef &result : report->testResults()) {
        if (result->name() == name)
            return result;
    }
    return nullptr;
}

} // namespace

class TestWorkerd : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theCommandLineSaysWhatIsWrong()
    {
        QTemporaryDir root;
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ORVEX_ROOT"), root.path());
        process.setProcessEnvironment(env);
        auto exitOf = [&](const QStringList &arguments) {
            process.start(QStringLiteral(ORVEX_WORKERD_PATH), arguments);
            process.waitForFinished(30000);
            return process.exitCode();
        };
        QCOMPARE(exitOf({QStringLiteral("--help")}), 0);
        QVERIFY(process.readAllStandardOutput().contains("--once"));
        QCOMPARE(exitOf({QStringLiteral("--once"), QStringLiteral("--only"),
                         QStringLiteral("smart,fans")}),
                 2);
        QVERIFY(process.readAllStandardError().contains("not \"fans\""));
        QCOMPARE(exitOf({QStringLiteral("--disk")}), 2);
        QCOMPARE(exitOf({QStringLiteral("--once"), QStringLiteral("--disk"),
                         root.filePath(QStringLiteral("nothing"))}),
                 1);
        QVERIFY(process.readAllStandardError().contains("does not exist"));
        QCOMPARE(exitOf({QStringLiteral("--once"), QStringLiteral("--disk"),
                         QStringLiteral("/dev/null")}),
                 1);
        QVERIFY(process.readAllStandardError().contains("not a block device"));
    }

    void aPassStoppedByTheUserSaysSo()
    {
        QTemporaryDir dir;
        // A smartctl that hangs once started, and says when it is.
        const QString started = dir.filePath(QStringLiteral("started"));
        QVERIFY(writeFile(
            dir.filePath(QStringLiteral("bin/smartctl")),
            QStringLiteral("#!/bin/sh\ntouch '%1'\nexec sleep 60\n").arg(started).toUtf8(), true));
        QProcess worker;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ORVEX_ROOT"), dir.filePath(QStringLiteral("root")));
        env.insert(QStringLiteral("PATH"), dir.filePath(QStringLiteral("bin")) + QLatin1Char(':') +
                                               env.value(QStringLiteral("PATH")));
        worker.setProcessEnvironment(env);
        worker.start(
            QStringLiteral(ORVEX_WORKERD_PATH),
            {QStringLiteral("--once"), QStringLiteral("--only"), QStringLiteral("smart,raid")});
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(started), 30000);
        ::kill(pid_t(worker.processId()), SIGINT);
        QVERIFY(worker.waitForFinished(30000));
        QCOMPARE(worker.exitCode(), 1);
        const QByteArray out = worker.readAllStandardOutput();
        QVERIFY2(out.startsWith("SMART test: stopped\n"), out.constData());
        QVERIFY2(!out.contains("RAID test"), out.constData()); // no test starts after the stop
        QVERIFY(worker.readAllStandardError().contains("stopped before its end"));
    }

    void onePassOnALoopDiskUnderAFixtureRoot()
    {
        SmallMachine machine;
        if (!machine.unusable().isEmpty())
            QSKIP(qPrintable(machine.unusable()));
        const QByteArray before = digest(machine.image());
        QProcess worker;
        worker.setProcessEnvironment(machine.environment());
        worker.start(QStringLiteral(ORVEX_WORKERD_PATH),
                     {QStringLiteral("--once"), QStringLiteral("--disk"), machine.node(),
                      QStringLiteral("--memory-test-size"), QStringLiteral("8")});
        QVERIFY(worker.waitForFinished(120000));
        const QString out = QString::fromUtf8(worker.readAllStandardOutput());
        QVERIFY2(worker.exitCode() == 0,
                 qPrintable(out + QString::fromUtf8(worker.readAllStandardError())));
        // Every test only read the disk.
        QCOMPARE(digest(machine.image()), before);

        // A line per test, in the pass's order.
        const QStringList expected{QStringLiteral("SMART test: passed"),
                                   QStringLiteral("Surface Scan test: passed"),
                                   QStringLiteral("File Structures test: not applicable here"),
                                   QStringLiteral("Memory test: passed"),
                                   QStringLiteral("Volume Structures test: passed"),
                                   QStringLiteral("Partition Map test: passed"),
                                   QStringLiteral("RAID test: error"),
                                   QStringLiteral("Battery test: warning"),
                                   QStringLiteral("Disk I/O Error test: error"),
                                   QStringLiteral("POST test: warning")};
        QStringList headings;
        for (const QString &line : out.split(QLatin1Char('\n'))) {
            if (!line.isEmpty() && !line.startsWith(QLatin1Char(' ')))
                headings.append(line);
        }
        QCOMPARE(headings, expected);

        const HXStatusReportRef report = readReport(machine.root());
        QVERIFY(report);
        QCOMPARE(report->testResults().size(), 9);
        const QString diskName = machine.node().mid(5);
        const HXTestResultRef scan = resultNamed(report, HXDSurfaceScanTestName);
        QVERIFY(scan);
        QCOMPARE(scan->testInfo().toMap().value(HXDTestResultIsCompletedKey).toBool(), true);
        QCOMPARE(scan->testInfo().toMap().value(HXDiskKey).toMap().value(HXBSDNameKey).toString(),
                 diskName);
        const HXTestResultRef io = resultNamed(report, HXDIOErrorTestName);
        QVERIFY(io);
        QCOMPARE(io->type(), HXDTestResultErrorType);
        QVERIFY(io->log().contains(QLatin1String("4096")));
        const HXTestResultRef volume = resultNamed(report, HXDFilesystemCheckTestName);
        QVERIFY(volume);
        QCOMPARE(volume->testInfo().toMap().value(HXDTestResultVolumeIsValidKey).toBool(), true);
        QCOMPARE(volume->testInfo().toMap().value(HXDiskKey).toMap().value(HXBSDNameKey).toString(),
                 diskName + QStringLiteral("p1"));
        const HXTestResultRef map = resultNamed(report, HXDPartitionMapCheckTestName);
        QVERIFY(map);
        QVERIFY(map->testInfo().toMap().value(HXDTestResultPartitionMapIsValidKey).toBool());
        QVERIFY(resultNamed(report, HXDRAIDCheckTestName)->log().contains(QLatin1String("md0")));

        // The worker's own log holds the report's lines, and what it noted.
        QFile log(machine.root() + QStringLiteral("/var/log/orvex/OrvexWorkerDaemon.log"));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray text = log.readAll();
        QVERIFY(text.contains("Error: " + io->log().section(QLatin1Char('\n'), 0, 0).toUtf8()));
        QVERIFY(text.contains(" Info: Testing " + diskName.toUtf8() + "; exclusions from "));
    }

    void exclusionsFromTheIdleDaemonsFileAreHonoured()
    {
        SmallMachine machine;
        if (!machine.unusable().isEmpty())
            QSKIP(qPrintable(machine.unusable()));
        // No idle daemon answers on this bus: its settings file speaks for it.
        const QString partition = machine.node() + QStringLiteral("p1");
        const QVariantMap exclusion{{QStringLiteral("path"), partition},
                                    {QStringLiteral("NSURLIsVolumeKey"), true},
                                    {QStringLiteral("isExcludedFromFileTest"), true},
                                    {QStringLiteral("isExcludedFromVolTest"), true},
                                    {QStringLiteral("isExcludedFromSurfaceScanTest"), true}};
        QString why;
        QVERIFY2(HXDaemonWritePlistFile(
                     machine.root() + QStringLiteral("/var/lib/orvex/OrvexIdleDaemon.plist"),
                     QVariantMap{{QStringLiteral("exclusions"), QVariantList{exclusion}}}, &why),
                 qPrintable(why));
        QProcess worker;
        worker.setProcessEnvironment(machine.environment());
        worker.start(QStringLiteral(ORVEX_WORKERD_PATH),
                     {QStringLiteral("--once"), QStringLiteral("--only"),
                      QStringLiteral("volumes,surface"), QStringLiteral("--disk"), machine.node()});
        QVERIFY(worker.waitForFinished(120000));
        const QString out = QString::fromUtf8(worker.readAllStandardOutput());
        QCOMPARE(worker.exitCode(), 0);
        QVERIFY2(out.contains(QLatin1String("Volume Structures test: not applicable here")),
                 qPrintable(out));
        QVERIFY2(out.contains(QLatin1String("Surface Scan test: passed")), qPrintable(out));

        QFile log(machine.root() + QStringLiteral("/var/log/orvex/OrvexWorkerDaemon.log"));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(log.readAll());
        QVERIFY2(text.contains(QLatin1String("exclusions from ")) &&
                     text.contains(QLatin1String("OrvexIdleDaemon.plist")),
                 qPrintable(text));
        // Each test says in the worker's log what it left alone.
        const QStringList skips = text.split(QLatin1Char('\n')).filter(partition.mid(5));
        QVERIFY2(!skips.filter(QLatin1String("Volume Structures")).isEmpty(), qPrintable(text));
        QVERIFY2(!skips.filter(QLatin1String("Surface Scan")).isEmpty(), qPrintable(text));
    }

    void aReportThatCannotBeWrittenFailsThePass()
    {
        SmallMachine machine;
        if (!machine.unusable().isEmpty())
            QSKIP(qPrintable(machine.unusable()));
        // The report's folder is a file: nothing can be recorded.
        QVERIFY(writeFile(machine.root() + QStringLiteral("/var/lib/orvex"), "not a folder"));
        QProcess worker;
        worker.setProcessEnvironment(machine.environment());
        worker.start(QStringLiteral(ORVEX_WORKERD_PATH),
                     {QStringLiteral("--once"), QStringLiteral("--only"), QStringLiteral("raid")});
        QVERIFY(worker.waitForFinished(60000));
        const QByteArray err = worker.readAllStandardError();
        QCOMPARE(worker.exitCode(), 1);
        QVERIFY2(err.contains("could not be written"), err.constData());
        QVERIFY(worker.readAllStandardOutput().contains("RAID test: error"));
    }

    void theStatusViewShowsTheWorkersPass()
    {
        SmallMachine machine;
        if (!machine.unusable().isEmpty())
            QSKIP(qPrintable(machine.unusable()));
        QVERIFY(TestSupport::useTestRoot(machine.root()));
        // The application's probes read the same fixture root.
        qputenv("ORVEX_SYSROOT", QFile::encodeName(machine.sysroot()));
        HXLinuxMachineProbes probes;
        QVERIFY(probes.hasInternalBattery());
        QVERIFY(probes.raidExists());
        HXMachineProbes::setCurrent(&probes);
        auto restore = qScopeGuard([] {
            HXMachineProbes::setCurrent(nullptr);
            qunsetenv("ORVEX_SYSROOT");
        });

        HXNotificationCenter local;
        LiveStatusView live(machine.root() + QStringLiteral("/var/lib/orvex/Report.zrrpt"), &local);
        QVERIFY(live.show());
        HXStatusViewController &c = live.controller();

        StandinProcess worker(machine.root());
        worker.setProgram(QStringLiteral(ORVEX_WORKERD_PATH),
                          QStringLiteral("orvex-workerd: serving "));
        worker.setEnvironment(QStringLiteral("ORVEX_SYSROOT"), machine.sysroot());
        worker.setEnvironment(QStringLiteral("PATH"), machine.path());
        QVERIFY2(worker.start({QStringLiteral("--disk"), machine.node(),
                               QStringLiteral("--memory-test-size"), QStringLiteral("8"),
                               QStringLiteral("--status-view-port"), QString::number(live.port())}),
                 qPrintable(worker.standardError()));
        const auto proxy = HXDaemonInteraction::workerDaemonProxy();
        QVERIFY(proxy);
        proxy->activate();

        QTRY_COMPARE_WITH_TIMEOUT(live.passesFinished(), 1, 120000);
        QTRY_COMPARE_WITH_TIMEOUT(c.icon(HXTest::RAID)->shownImageName(), QStringLiteral("raidRed"),
                                  5000);
        QCOMPARE(c.icon(HXTest::Battery)->shownImageName(), QStringLiteral("batteryRed"));
        QTRY_COMPARE(c.drivesView()->testStatus(), 3); // the degraded mirror
        QCOMPARE(c.hardwareView()->testStatus(), 2);   // the worn battery
        QCOMPARE(c.systemView()->testStatus(), 3);     // the I/O error
        QCOMPARE(worker.stop(), 0);
        QVERIFY(worker.standardError().contains(QLatin1String("stopped")));
    }
};

QTEST_MAIN(TestWorkerd)
#include "tst_workerd.moc"
