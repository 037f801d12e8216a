// orvex-workerd: the worker daemon that tests this machine, and its
// command line for one pass now.
#include "HXConstants.h"
#include "HXDBusNames.h"
#include "HXDBusNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXReportLog.h"
#include "HXStatusReporter.h"
#include "HXStopSignals.h"
#include "HXSystemLog.h"
#include "HXWorkerLogFile.h"
#include "MachineTestingPass.h"
#include "WorkerDaemonService.h"
#include "WorkerOptions.h"
#include "worker_adaptor.h"

#include <QCoreApplication>
#include <QDir>
#include <cstdio>

namespace {

void say(const QString &sentence)
{
    const QByteArray bytes =
        (QStringLiteral("orvex-workerd: ") + sentence + QLatin1Char('\n')).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

void print(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

QString verdict(const QList<HXTestFinding> &findings)
{
    if (findings.isEmpty())
        return QStringLiteral("not applicable here");
    int warnings = 0;
    int errors = 0;
    for (const HXTestFinding &finding : findings) {
        warnings += finding.type == HXDTestResultWarningType;
        errors += finding.type == HXDTestResultErrorType;
    }
    const QString what = errors     ? QStringLiteral("error")
                         : warnings ? QStringLiteral("warning")
                                    : QStringLiteral("passed");
    return findings.size() == 1 ? what
                                : QStringLiteral("%1 (%2 results)").arg(what).arg(findings.size());
}

// One pass in the foreground: a line per test, then the findings' own lines.
int runOnce(WorkerOptions options, HXStatusReporter *reporter)
{
    options.pass.announceErrors = false;
    MachineTestingPass pass(options.pass, reporter);
    int status = 0;
    bool recordFailed = false;
    QObject::connect(
        &pass, &MachineTestingPass::testRecorded,
        [&](HXTest test, const QList<HXTestFinding> &findings, bool stopped) {
            const QString what = stopped ? QStringLiteral("stopped") : verdict(findings);
            QString text = QStringLiteral("%1: %2\n").arg(HXTestInfo(test).testName, what);
            for (const HXTestFinding &finding : findings)
                text += QStringLiteral("  %1\n").arg(finding.log.section(QLatin1Char('\n'), 0, 0));
            print(text);
        });
    QObject::connect(reporter, &HXStatusReporter::reportLoadFailed, [&](const QString &sentence) {
        recordFailed = true;
        say(sentence);
    });
    QObject::connect(&pass, &MachineTestingPass::failed, [&](const QString &sentence) {
        say(QStringLiteral("the pass could not run: %1").arg(sentence));
        status = 1;
    });
    QObject::connect(&pass, &MachineTestingPass::finished, [&](bool completed) {
        if (!completed && status == 0) {
            say(QStringLiteral("the pass was stopped before its end"));
            status = 1;
        }
        if (reporter->hasUnwrittenChanges() || recordFailed) {
            say(QStringLiteral("the report %1 could not be written; the results are in %2")
                    .arg(HXProductPaths::reportFile(), HXWorkerLogFile::path()));
            status = 1;
        }
        QCoreApplication::exit(status);
    });
    HXStopSignals stop;
    QObject::connect(&stop, &HXStopSignals::received, &pass, &MachineTestingPass::stop);
    pass.start();
    return QCoreApplication::exec();
}

int serve(const WorkerOptions &options, HXStatusReporter *reporter)
{
    QDBusConnection bus = QDBusConnection::connectToBus(HXDBusNames::daemonBusType(),
                                                        QStringLiteral("orvex-workerd"));
    const QString busName = HXDBusNames::busName(QStringLiteral("OrvexWorkerDaemon"));
    if (!bus.isConnected()) {
        say(QStringLiteral("cannot serve %1: %2").arg(busName, bus.lastError().message()));
        return 1;
    }
    HXDBusNotificationCenter center(bus, {});
    reporter->setDistributedNotificationCenter(&center);
    MachineTestingPass pass(options.pass, reporter);
    WorkerDaemonService worker(&pass, &center, quint16(options.statusViewPort));
    new WorkerDaemonAdaptor(&worker);
    if (!bus.registerObject(HXDBusNames::kRootObjectPath, &worker)) {
        say(QStringLiteral("cannot publish %1: %2").arg(busName, bus.lastError().message()));
        return 1;
    }
    if (!bus.registerService(busName)) {
        say(QStringLiteral("cannot own %1: %2 (is another worker or the stand-in running?)")
                .arg(busName, bus.lastError().message()));
        return 1;
    }
    say(QStringLiteral("serving %1; report %2").arg(busName, HXProductPaths::reportFile()));

    HXStopSignals stop;
    bool stopping = false;
    QObject::connect(&stop, &HXStopSignals::received, [&] {
        // A pass that runs ends first, so the interrupted surface scan keeps its place.
        stopping = true;
        if (!worker.isTesting())
            QCoreApplication::quit();
        worker.stopTesting();
    });
    QObject::connect(&worker, &WorkerDaemonService::testingStopped, [&] {
        if (stopping)
            QCoreApplication::quit();
    });
    if (options.startNow)
        worker.startTesting();
    const int status = QCoreApplication::exec();
    reporter->setDistributedNotificationCenter(nullptr);
    bus.unregisterObject(HXDBusNames::kRootObjectPath, QDBusConnection::UnregisterTree);
    say(QStringLiteral("stopped"));
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    HXStopSignals::block();
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvex-workerd"));
    HXSystemLog::setSink([](const QString &line) { say(line); });

    WorkerOptions options;
    if (const auto problem = WorkerOptions::parse(QCoreApplication::arguments(), &options)) {
        say(*problem);
        std::fputs(WorkerOptions::usage(), stderr);
        return 2;
    }
    if (options.help) {
        std::fputs(WorkerOptions::usage(), stdout);
        return 0;
    }

    QDir().mkpath(HXProductPaths::libraryFolder());
    HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
    if (options.once) {
        // The per-test lines are the output; the report's own lines and the
        // worker's notes go to the log file.
        HXReportLogSetLineSink([](const QByteArray &line) { HXWorkerLogFile::append(line); });
        HXWorkerLogFile::setEcho(false);
        return runOnce(options, reporter);
    }
    HXWorkerLogFile::install();
    return serve(options, reporter);
}
