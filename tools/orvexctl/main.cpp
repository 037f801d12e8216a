// orvexctl: the Orvex status report on a terminal, over SSH, and for scripts.
#include "HXNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXReportArchive.h"
#include "HXStatusBoard.h"
#include "HXStatusReporter.h"
#include "HXStopSignals.h"
#include "PrometheusText.h"
#include "ReportJson.h"
#include "TextOutput.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <cstdio>
#include <unistd.h>

namespace {

const char kUsage[] =
    "Usage: orvexctl COMMAND [OPTIONS] [FILE]\n"
    "\n"
    "Commands:\n"
    "  report [--json] [FILE]       print the test results and the log\n"
    "  status [--json] [FILE]       print the ten tests and the four groups\n"
    "  status --prometheus [FILE]   the same in Prometheus's text format, for\n"
    "                               node_exporter's textfile collector\n"
    "  watch [FILE]                 print a status line each time the report changes\n"
    "  clear [--log-only] [FILE]    empty the report (or only its log)\n"
    "\n"
    "FILE is the live report, /var/lib/orvex/Report.zrrpt (under ORVEX_ROOT when set),\n"
    "unless given. Exit status: 0 done, 1 the report is missing or unreadable, 2 usage.\n";

void out(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void err(const QString &sentence)
{
    const QByteArray bytes = (QStringLiteral("orvexctl: ") + sentence + QLatin1Char('\n')).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
}

int usage(const QString &problem)
{
    err(problem);
    std::fputs(kUsage, stderr);
    return 2;
}

constexpr int kClearLockWaitMs = 10000;

struct Arguments
{
    QString command;
    QStringList flags;
    QString file;
};

// Loads the report for reading; null after saying why on standard error.
HXStatusReportRef load(const QString &path)
{
    QFile f(path);
    if (!f.exists()) {
        err(QStringLiteral("there is no report at %1.").arg(path));
        return nullptr;
    }
    if (!f.open(QIODevice::ReadOnly)) {
        err(QStringLiteral("the report %1 cannot be opened: %2.").arg(path, f.errorString()));
        return nullptr;
    }
    if (f.size() > HXStatusReporter::kMaxReportFileSize) {
        err(QStringLiteral("%1 is far larger than any report; it was not read.").arg(path));
        return nullptr;
    }
    QString why;
    HXStatusReportRef report = HXReportArchive::decodeReport(f.readAll(), &why);
    if (!report)
        err(QStringLiteral("the report %1 could not be read: %2.").arg(path, why));
    return report;
}

bool colourWanted()
{
    return isatty(STDOUT_FILENO) && qEnvironmentVariableIsEmpty("NO_COLOR");
}

int runReport(const Arguments &a)
{
    const HXStatusReportRef report = load(a.file);
    if (!report)
        return 1;
    if (a.flags.contains(QLatin1String("--json")))
        out(QString::fromUtf8(
            QJsonDocument(ReportJson::report(*report)).toJson(QJsonDocument::Indented)));
    else
        out(TextOutput::report(*report, colourWanted()));
    return 0;
}

int runStatus(const Arguments &a)
{
    const HXStatusReportRef report = load(a.file);
    if (!report)
        return 1;
    HXStatusBoard board;
    board.rebuild(report);
    if (a.flags.contains(QLatin1String("--json")))
        out(QString::fromUtf8(
            QJsonDocument(ReportJson::status(board)).toJson(QJsonDocument::Indented)));
    else if (a.flags.contains(QLatin1String("--prometheus")))
        out(PrometheusText::status(board, *report, HXMachineProbes::current()));
    else
        out(TextOutput::statusTable(board, colourWanted()));
    return 0;
}

int runClear(const Arguments &a)
{
    // A report that cannot be read is left alone: it may be wanted as evidence.
    if (!load(a.file))
        return 1;
    HXNotificationCenter center;
    HXStatusReporter reporter({a.file, &center, nullptr, false});
    // The same locked read-modify-write as every other writer; a tool may
    // wait longer for its turn than a window would.
    reporter.setLockWait(kClearLockWaitMs);
    const bool cleared = a.flags.contains(QLatin1String("--log-only")) ? reporter.clearReportLog()
                                                                       : reporter.clearReport();
    if (!cleared) {
        err(QStringLiteral("the report %1 could not be rewritten; see the system log.")
                .arg(a.file));
        return 1;
    }
    return 0;
}

int runWatch(QCoreApplication &app, const Arguments &a)
{
    HXNotificationCenter center;
    HXStatusReporter reporter({a.file, &center, nullptr, true});
    const bool colour = colourWanted();
    auto print = [&] {
        if (const HXStatusReportRef r = reporter.report()) {
            HXStatusBoard board;
            board.rebuild(r);
            out(TextOutput::statusLine(board, colour));
        }
    };
    print();
    QObject::connect(&reporter, &HXStatusReporter::reportChanged, &app, print);
    QObject::connect(&reporter, &HXStatusReporter::reportLoadFailed, &app,
                     [](const QString &sentence) { err(sentence); });
    // An interrupt ends the watch as a normal exit.
    HXStopSignals::block();
    HXStopSignals stop;
    QObject::connect(&stop, &HXStopSignals::received, &app, [] { QCoreApplication::quit(); });
    return app.exec();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvexctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVEX_VERSION));

    QStringList args = app.arguments().mid(1);
    if (args.isEmpty())
        return usage(QStringLiteral("a command is needed."));
    if (args.first() == QLatin1String("--help") || args.first() == QLatin1String("-h")) {
        out(QString::fromLatin1(kUsage));
        return 0;
    }
    if (args.first() == QLatin1String("--version")) {
        out(QStringLiteral("orvexctl %1\n").arg(QCoreApplication::applicationVersion()));
        return 0;
    }

    Arguments a;
    a.command = args.takeFirst();
    const QHash<QString, QStringList> allowed{
        {QStringLiteral("report"), {QStringLiteral("--json")}},
        {QStringLiteral("status"), {QStringLiteral("--json"), QStringLiteral("--prometheus")}},
        {QStringLiteral("watch"), {}},
        {QStringLiteral("clear"), {QStringLiteral("--log-only")}},
    };
    if (!allowed.contains(a.command))
        return usage(QStringLiteral("unknown command \u201c%1\u201d.").arg(a.command));
    for (const QString &arg : std::as_const(args)) {
        if (arg.startsWith(QLatin1Char('-'))) {
            if (!allowed.value(a.command).contains(arg))
                return usage(QStringLiteral("%1 does not take %2.").arg(a.command, arg));
            a.flags.append(arg);
        } else if (a.file.isEmpty()) {
            a.file = arg;
        } else {
            return usage(QStringLiteral("only one report file can be given."));
        }
    }
    if (a.flags.contains(QLatin1String("--json")) &&
        a.flags.contains(QLatin1String("--prometheus")))
        return usage(QStringLiteral("--json and --prometheus cannot be given together."));
    if (a.file.isEmpty())
        a.file = HXProductPaths::reportFile();

    if (a.command == QLatin1String("report"))
        return runReport(a);
    if (a.command == QLatin1String("status"))
        return runStatus(a);
    if (a.command == QLatin1String("clear"))
        return runClear(a);
    return runWatch(app, a);
}
