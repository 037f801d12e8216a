#include "WorkerOptions.h"

const char *WorkerOptions::usage()
{
    return "Usage: orvex-workerd [--once] [--only TESTS] [--disk DEVICE]... [OPTIONS]\n"
           "\n"
           "The Orvex worker daemon: tests this machine and records what it finds in the\n"
           "status report (/var/lib/orvex/Report.zrrpt, under ORVEX_ROOT when set) and in\n"
           "/var/log/orvex/OrvexWorkerDaemon.log. Without --once it serves OrvexWorkerDaemon\n"
           "on the system bus (the session bus with ORVEX_DAEMON_BUS=session) and runs a\n"
           "testing pass each time it is activated, until SIGTERM.\n"
           "\n"
           "Options:\n"
           "  --once                 run one pass now, in the foreground, and exit:\n"
           "                         0 when the pass ran, 1 when it could not run\n"
           "  --only TESTS           the tests to run, comma-separated, of smart, surface,\n"
           "                         files, memory, volumes, partitions, raid, battery, io,\n"
           "                         post (all ten)\n"
           "  --disk DEVICE          test only this disk (a whole-disk device node, loop\n"
           "                         devices included); repeat it for several\n"
           "  --memory-test-size MIB how much free memory the pattern test locks and\n"
           "                         tests (256)\n"
           "  --start                serving, start a testing pass at once\n"
           "  --status-view-port N   where the application's status view listens (6333;\n"
           "                         0: tell nobody)\n"
           "  --help                 this text\n"
           "\n"
           "Nothing is ever written to a disk or a file system: every test only reads.\n"
           "The user's exclusions come from the idle daemon when it answers, else from its\n"
           "settings file, else there are none. ORVEX_SYSROOT, when set, is read in place\n"
           "of /sys, /proc and /dev/kmsg; programs (smartctl, journalctl, e2fsck...) are\n"
           "found through PATH. Exit status 2: a usage error.\n";
}

std::optional<QString> WorkerOptions::parse(const QStringList &arguments, WorkerOptions *options)
{
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString &arg = arguments[i];
        auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= arguments.size())
                return std::nullopt;
            return arguments[++i];
        };
        if (arg == QLatin1String("--help")) {
            options->help = true;
        } else if (arg == QLatin1String("--once")) {
            options->once = true;
        } else if (arg == QLatin1String("--start")) {
            options->startNow = true;
        } else if (arg == QLatin1String("--only") || arg == QLatin1String("--disk") ||
                   arg == QLatin1String("--memory-test-size") ||
                   arg == QLatin1String("--status-view-port")) {
            const auto v = value();
            if (!v || v->isEmpty())
                return QStringLiteral("%1 needs a value").arg(arg);
            if (arg == QLatin1String("--only")) {
                options->pass.only.clear();
                for (const QString &key : v->split(QLatin1Char(','), Qt::SkipEmptyParts)) {
                    const auto test = HXMachinePass::testForCommandLineKey(key.trimmed());
                    if (!test)
                        return QStringLiteral("--only knows smart, surface, files, memory, "
                                              "volumes, partitions, "
                                              "raid, battery, io and post, not \"%1\"")
                            .arg(key);
                    if (!options->pass.only.contains(*test))
                        options->pass.only.append(*test);
                }
                if (options->pass.only.isEmpty())
                    return QStringLiteral("--only needs at least one test");
            } else if (arg == QLatin1String("--disk")) {
                options->pass.diskPaths.append(*v);
            } else if (arg == QLatin1String("--memory-test-size")) {
                bool ok = false;
                const qint64 mib = v->toLongLong(&ok);
                if (!ok || mib < 1 || mib > 1024 * 1024)
                    return QStringLiteral("--memory-test-size takes a number of MiB, not \"%1\"")
                        .arg(*v);
                options->pass.memoryTestBytes = mib << 20;
            } else {
                bool ok = false;
                options->statusViewPort = v->toInt(&ok);
                if (!ok || options->statusViewPort < 0 || options->statusViewPort > 65535)
                    return QStringLiteral("--status-view-port takes a port number, not \"%1\"")
                        .arg(*v);
            }
        } else {
            return QStringLiteral("unknown option \"%1\"").arg(arg);
        }
    }
    return std::nullopt;
}
