#include "ZRCollectionPlan.h"

#include "HXProductPaths.h"
#include "ZRReportFolder.h"

#include <QDir>
#include <QRegularExpression>
#include <QStandardPaths>

QString ZRShellQuote(const QString &path)
{
    QString quoted = path;
    quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QString ZRHelpReporterZipPOSIXPath(const QString &source, const QString &archive)
{
    // zip's chatter ("adding: …", "name not matched") would only reach the
    // terminal the program was started from.
    return QStringLiteral("zip -q --junk-paths -r %1 %2 >/dev/null 2>&1")
        .arg(ZRShellQuote(archive), source);
}

ZRCollectionPlan::Machine ZRCollectionPlan::Machine::current()
{
    Machine machine;
    machine.hasProgram = [](const QString &program) {
        return !QStandardPaths::findExecutable(program).isEmpty() ||
               !QStandardPaths::findExecutable(
                    program, {QStringLiteral("/usr/sbin"), QStringLiteral("/sbin")})
                    .isEmpty();
    };
    static const QRegularExpression virtualDisk(QStringLiteral("^(loop|ram|zram)"));
    const QStringList entries = QDir(QStringLiteral("/sys/block"))
                                    .entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString &name : entries) {
        if (!virtualDisk.match(name).hasMatch())
            machine.disks << name;
    }
    machine.home = QDir::homePath();
    return machine;
}

namespace {

QString header(const QString &title)
{
    return QStringLiteral("\\n======== %1 ========").arg(title);
}

} // namespace

ZRCollectionPlan ZRCollectionPlan::make(const ZRReportFolder &folder, const Machine &machine)
{
    ZRCollectionPlan plan;
    const auto has = [&machine](const char *program) {
        return machine.hasProgram && machine.hasProgram(QLatin1String(program));
    };
    const auto shell = [](const QString &command) {
        return ZRStep{ZRStep::Shell, command, {}, {}};
    };

    // a. Installation listing, user, services and processes, the daemons' own files.
    {
        auto &steps = plan.blocks[InstallDebug];
        const QString log = ZRShellQuote(folder.installDebugLog());
        const QString library = HXProductPaths::libraryFolder();
        const QString logs = HXProductPaths::logsFolder();
        steps << shell(
            QStringLiteral("echo \"%1\" > %2").arg(header(QStringLiteral("/var/lib/orvex")), log));
        steps << shell(QStringLiteral("ls -slapR %1 >> %2 2>&1").arg(ZRShellQuote(library), log));
        steps << shell(
            QStringLiteral("echo \"%1\" >> %2").arg(header(QStringLiteral("/var/log/orvex")), log));
        steps << shell(QStringLiteral("ls -slapR %1 >> %2 2>&1").arg(ZRShellQuote(logs), log));
        steps << shell(
            QStringLiteral("echo \"%1\" >> %2").arg(header(QStringLiteral("User Info")), log));
        steps << shell(QStringLiteral("id | tr \" \" \"\\n\" | tr \",\" \"\\n\" >> %1").arg(log));
        if (has("systemctl")) {
            steps << shell(QStringLiteral("echo \"%1\" >> %2")
                               .arg(header(QStringLiteral("System Services")), log));
            steps << shell(
                QStringLiteral("systemctl list-units --all --no-pager >> %1 2>&1").arg(log));
            steps << shell(QStringLiteral("echo \"%1\" >> %2")
                               .arg(header(QStringLiteral("User Services")), log));
            steps << shell(
                QStringLiteral("systemctl --user list-units --all --no-pager >> %1 2>&1").arg(log));
        }
        steps << shell(
            QStringLiteral("echo \"%1\" >> %2").arg(header(QStringLiteral("Running Procs")), log));
        steps << shell(QStringLiteral("ps -A >> %1").arg(log));
        const QString archive = folder.installDebugArchive();
        steps << shell(ZRHelpReporterZipPOSIXPath(log, archive));
        steps << ZRStep{ZRStep::WorkerSample, {}, folder.workerSampleLog(), archive};
        steps << ZRStep{ZRStep::IdlePrefs, {}, folder.idleDaemonPrefs(), archive};
        steps << shell(
            ZRHelpReporterZipPOSIXPath(ZRShellQuote(HXProductPaths::workerStoreFile()), archive));
        steps << shell(
            ZRHelpReporterZipPOSIXPath(ZRShellQuote(HXProductPaths::reportFile()), archive));
    }

    // b. Disks: the block-device list, then udev's and lsblk's view of each whole disk.
    {
        auto &steps = plan.blocks[DiskInfo];
        const QString dir = folder.diskInfoFolder();
        steps << shell(QStringLiteral("mkdir -p %1").arg(ZRShellQuote(dir)));
        if (has("lsblk"))
            steps << shell(QStringLiteral("lsblk --output-all > %1 2>&1")
                               .arg(ZRShellQuote(dir + QStringLiteral("/lsblk_list.log"))));
        for (const QString &disk : machine.disks) {
            const QString device = ZRShellQuote(QStringLiteral("/dev/") + disk);
            if (has("udevadm"))
                steps << shell(QStringLiteral("udevadm info --query=all --name=%1 > %2 2>&1")
                                   .arg(device, ZRShellQuote(dir + QLatin1Char('/') + disk +
                                                             QStringLiteral(".log"))));
            if (has("lsblk"))
                steps << shell(QStringLiteral("lsblk --json --output-all %1 > %2 2>&1")
                                   .arg(device, ZRShellQuote(dir + QLatin1Char('/') + disk +
                                                             QStringLiteral(".json"))));
        }
        steps << shell(ZRHelpReporterZipPOSIXPath(ZRShellQuote(dir), folder.diskInfoArchive()));
        steps << shell(QStringLiteral("rm -rf %1").arg(ZRShellQuote(dir)));
    }

    // c. Logs: the product's, the system's, this boot's journal, crash reports.
    {
        auto &steps = plan.blocks[Logs];
        const QString archive = folder.logsArchive();
        const QString varLog = HXProductPaths::map(QStringLiteral("/var/log"));
        steps << shell(ZRHelpReporterZipPOSIXPath(
            QStringLiteral("%1 %2/syslog* %2/kern.log*")
                .arg(ZRShellQuote(HXProductPaths::logsFolder()), ZRShellQuote(varLog)),
            archive));
        if (has("journalctl")) {
            const QString journal = folder.file(QStringLiteral("journal.log"));
            steps << shell(
                QStringLiteral("journalctl -b --no-pager > %1 2>&1").arg(ZRShellQuote(journal)));
            steps << shell(ZRHelpReporterZipPOSIXPath(ZRShellQuote(journal), archive));
        }
        if (has("coredumpctl")) {
            const QString dumps = folder.file(QStringLiteral("coredumps.log"));
            steps << shell(
                QStringLiteral("coredumpctl --no-pager info orvex orvex-standin > %1 2>&1")
                    .arg(ZRShellQuote(dumps)));
            steps << shell(ZRHelpReporterZipPOSIXPath(ZRShellQuote(dumps), archive));
        }
        const QString crash = ZRShellQuote(HXProductPaths::map(QStringLiteral("/var/crash")));
        steps << shell(ZRHelpReporterZipPOSIXPath(crash + QStringLiteral("/*Orvex*"), archive));
        steps << shell(ZRHelpReporterZipPOSIXPath(crash + QStringLiteral("/*orvex*"), archive));
    }

    // d. The system profile: lshw's, else the kernel's and the bus tools' own words.
    {
        auto &steps = plan.blocks[SystemProfile];
        const QString profile = ZRShellQuote(folder.systemProfile());
        QString command;
        if (has("lshw")) {
            command = QStringLiteral("lshw -xml > %1 2>/dev/null").arg(profile);
        } else {
            QStringList parts{QStringLiteral("cat /proc/cpuinfo"),
                              QStringLiteral("cat /proc/meminfo")};
            if (has("lspci"))
                parts << QStringLiteral("lspci -vv");
            if (has("lsusb"))
                parts << QStringLiteral("lsusb -v");
            command = QStringLiteral("{ %1; } > %2 2>/dev/null")
                          .arg(parts.join(QStringLiteral("; ")), profile);
        }
        steps << ZRStep{ZRStep::Profile, command, {}, {}};
        steps << shell(ZRHelpReporterZipPOSIXPath(profile, folder.systemProfileArchive()));
    }
    return plan;
}
