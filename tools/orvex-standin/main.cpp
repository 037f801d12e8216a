// orvex-standin: the product's background daemons as stand-ins, for the demo,
// the end-to-end tests and for working on the application without them.
#include "AgentService.h"
#include "HXAgentInteraction.h"
#include "HXDBusNames.h"
#include "HXDBusNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXStatusReporter.h"
#include "HXStatusViewRemoteControlManager.h"
#include "HXStopSignals.h"
#include "HXSystemLog.h"
#include "HXWorkerLogFile.h"
#include "IdleDaemonService.h"
#include "IdleScheduleObject.h"
#include "ScenarioTestingPass.h"
#include "StandinScenario.h"
#include "WorkerDaemonService.h"
#include "agent_adaptor.h"
#include "idle_adaptor.h"
#include "schedule_adaptor.h"
#include "worker_adaptor.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <cstdio>

namespace {

const char kUsage[] =
    "Usage: orvex-standin [OPTIONS]\n"
    "\n"
    "Serves OrvexIdleDaemon and OrvexWorkerDaemon on the daemons' bus (the system bus,\n"
    "or the session bus with ORVEX_DAEMON_BUS=session) and OrvexAgent-<login> on the\n"
    "session bus, until SIGTERM or SIGINT. Files go under ORVEX_ROOT when it is set:\n"
    "the report (/var/lib/orvex/Report.zrrpt), the idle daemon's settings\n"
    "(/var/lib/orvex/OrvexIdleDaemon.plist), the worker's store and the marker files.\n"
    "\n"
    "Options:\n"
    "  --scenario FILE          outcomes of the testing pass (JSON, below)\n"
    "  --print-default-scenario print the built-in scenario and exit\n"
    "  --status-view-port PORT  where the status view listens (6333; 0: tell nobody)\n"
    "  --agent-login NAME       the login the agent serves (the current user's)\n"
    "  --serve LIST             what to serve, of idle,worker,agent (all three)\n"
    "  --start                  start a testing pass at once\n"
    "  --exit-during-status-call\n"
    "                           die, without answering, when a live status is asked\n"
    "                           for (a worker that dies in the middle of a call)\n"
    "  --exit-after-file-exists\n"
    "                           once the idle daemon has said whether a file exists,\n"
    "                           die, without answering, when asked for its owner\n"
    "                           (a daemon gone between the two questions)\n"
    "  --help                   this text\n"
    "\n"
    "A testing pass starts when the worker is activated or the idle daemon is forced\n"
    "to start. It runs the scenario's tests one after another; each runs for one step,\n"
    "then its results are recorded in the report with their log lines. Every live\n"
    "status change posts OrvexWorkerDaemonTestStatusChangedNotification and sends\n"
    "updateTestStatus to the status view; testingFinished ends the pass. While\n"
    "/var/lib/orvex/.forceFailures exists, every test that applies fails.\n"
    "\n"
    "Scenario file:\n"
    "  {\n"
    "    \"stepMilliseconds\": 600,              how long each test runs\n"
    "    \"systemSleepTimeAllowsIdleRun\": true, what the idle daemon answers\n"
    "    \"disks\": [ {\"id\": \"system\", \"bsdName\": \"nvme0n1\", \"uuid\": \"...\",\n"
    "                \"name\": \"Samsung SSD 980 PRO 1TB\"} ],\n"
    "    \"tests\": [ {\"test\": \"SMART\", \"disk\": \"system\", \"outcome\": \"warning\",\n"
    "                \"log\": \"the result's log line\", \"files\": [\"/damaged/file\"],\n"
    "                \"info\": {\"more\": \"testInfo details\"}} ],\n"
    "    \"daemonOnlyFiles\": {\"/home/ada/notes.txt\": \"ada\"}\n"
    "  }\n"
    "  test: SMART, SurfaceScan, FileStructures, Memory, VolumeStructures,\n"
    "        PartitionMap, RAID, Battery, IO or POST; runs of the same test that follow\n"
    "        each other (one per disk) are one test of the pass.\n"
    "  outcome: passed (default), warning, error or notApplicable (nothing recorded).\n"
    "  disk, log, files and info may be left out; files become the log entry's children.\n"
    "  daemonOnlyFiles: files the idle daemon says exist, with their owner, though\n"
    "        nobody else can see them (another user's files).\n";

void say(const QString &sentence)
{
    const QByteArray bytes =
        (QStringLiteral("orvex-standin: ") + sentence + QLatin1Char('\n')).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

struct Options
{
    QString scenarioFile;
    bool printScenario = false;
    int statusViewPort = HXStatusViewRemoteControlManager::kPort;
    QString agentLogin = HXLoginName();
    QStringList serve = {QStringLiteral("idle"), QStringLiteral("worker"), QStringLiteral("agent")};
    bool startNow = false;
    bool exitDuringStatusCall = false;
    bool exitAfterFileExists = false;
};

// Nothing on success; otherwise the sentence for the user.
std::optional<QString> parse(const QStringList &args, Options *options, bool *help)
{
    for (qsizetype i = 1; i < args.size(); ++i) {
        const QString &arg = args[i];
        auto value = [&]() -> std::optional<QString> {
            if (i + 1 >= args.size())
                return std::nullopt;
            return args[++i];
        };
        if (arg == QLatin1String("--help")) {
            *help = true;
        } else if (arg == QLatin1String("--print-default-scenario")) {
            options->printScenario = true;
        } else if (arg == QLatin1String("--start")) {
            options->startNow = true;
        } else if (arg == QLatin1String("--exit-during-status-call")) {
            options->exitDuringStatusCall = true;
        } else if (arg == QLatin1String("--exit-after-file-exists")) {
            options->exitAfterFileExists = true;
        } else if (arg == QLatin1String("--scenario") ||
                   arg == QLatin1String("--status-view-port") ||
                   arg == QLatin1String("--agent-login") || arg == QLatin1String("--serve")) {
            const auto v = value();
            if (!v)
                return QStringLiteral("%1 needs a value").arg(arg);
            if (arg == QLatin1String("--scenario")) {
                options->scenarioFile = *v;
            } else if (arg == QLatin1String("--agent-login")) {
                options->agentLogin = *v;
            } else if (arg == QLatin1String("--serve")) {
                options->serve = v->split(QLatin1Char(','), Qt::SkipEmptyParts);
                for (const QString &part : std::as_const(options->serve)) {
                    if (part != QLatin1String("idle") && part != QLatin1String("worker") &&
                        part != QLatin1String("agent"))
                        return QStringLiteral("--serve takes idle, worker and agent, not \"%1\"")
                            .arg(part);
                }
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

std::optional<StandinScenario> loadScenario(const QString &path)
{
    if (path.isEmpty())
        return StandinScenario::defaultScenario();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        say(QStringLiteral("cannot read the scenario %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    QString why;
    auto scenario = StandinScenario::fromJson(file.readAll(), &why);
    if (!scenario)
        say(QStringLiteral("the scenario %1 does not fit: %2").arg(path, why));
    return scenario;
}

// Each daemon has a connection of its own, as separate processes would.
bool publish(QDBusConnection bus, const QString &connectionName,
             const QList<std::pair<QString, QObject *>> &objects)
{
    const QString busName = HXDBusNames::busName(connectionName);
    if (!bus.isConnected()) {
        say(QStringLiteral("cannot serve %1: %2").arg(busName, bus.lastError().message()));
        return false;
    }
    for (const auto &[path, object] : objects) {
        if (!bus.registerObject(path, object)) {
            say(QStringLiteral("cannot publish %1 at %2: %3")
                    .arg(busName, path, bus.lastError().message()));
            return false;
        }
    }
    if (!bus.registerService(busName)) {
        say(QStringLiteral("cannot own %1: %2 (is another stand-in or the real daemon running?)")
                .arg(busName, bus.lastError().message()));
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    HXStopSignals::block();

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvex-standin"));
    HXSystemLog::setSink([](const QString &line) { say(line); });

    Options options;
    bool help = false;
    if (const auto problem = parse(QCoreApplication::arguments(), &options, &help)) {
        say(*problem);
        std::fputs(kUsage, stderr);
        return 2;
    }
    if (help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const std::optional<StandinScenario> scenario = loadScenario(options.scenarioFile);
    if (!scenario)
        return 1;
    if (options.printScenario) {
        std::fputs(scenario->toJson().constData(), stdout);
        return 0;
    }

    QDir().mkpath(HXProductPaths::libraryFolder());
    const auto daemonBusType = HXDBusNames::daemonBusType();
    QDBusConnection workerBus =
        QDBusConnection::connectToBus(daemonBusType, QStringLiteral("orvex-standin-worker"));
    QDBusConnection idleBus =
        QDBusConnection::connectToBus(daemonBusType, QStringLiteral("orvex-standin-idle"));
    QDBusConnection agentBus = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                             QStringLiteral("orvex-standin-agent"));

    // What the worker broadcasts goes out on its own connection.
    HXDBusNotificationCenter workerCenter(workerBus, {});
    HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
    reporter->setDistributedNotificationCenter(&workerCenter);

    // The worker's lines go to its log file as the real worker's do.
    HXWorkerLogFile::install();
    ScenarioTestingPass pass(*scenario, reporter);
    WorkerDaemonService worker(&pass, &workerCenter, quint16(options.statusViewPort));
    worker.setExitDuringStatusCall(options.exitDuringStatusCall);
    new WorkerDaemonAdaptor(&worker);
    IdleDaemonService idle(&worker, scenario->systemSleepTimeAllowsIdleRun);
    idle.setDaemonOnlyFiles(scenario->daemonOnlyFiles);
    idle.setExitAfterFileExists(options.exitAfterFileExists);
    new IdleDaemonAdaptor(&idle);
    auto *schedule = new IdleScheduleObject(&idle);
    new ScheduleAdaptor(schedule);
    HXDBusNotificationCenter agentCenter(agentBus, {agentBus});
    AgentService agent(&agentCenter, HXAgentLocalConnectionString(options.agentLogin));
    new AgentAdaptor(&agent);

    const bool served = (!options.serve.contains(QLatin1String("worker")) ||
                         publish(workerBus, QStringLiteral("OrvexWorkerDaemon"),
                                 {{HXDBusNames::kRootObjectPath, &worker}})) &&
                        (!options.serve.contains(QLatin1String("idle")) ||
                         publish(idleBus, QStringLiteral("OrvexIdleDaemon"),
                                 {{HXDBusNames::kRootObjectPath, &idle},
                                  {IdleDaemonService::kSchedulePath, schedule}})) &&
                        (!options.serve.contains(QLatin1String("agent")) ||
                         publish(agentBus, HXAgentConnectionName(options.agentLogin),
                                 {{HXDBusNames::kRootObjectPath, &agent}}));
    if (!served)
        return 1;
    say(QStringLiteral("serving %1 on the %2 bus; files under %3")
            .arg(options.serve.join(QStringLiteral(", ")),
                 daemonBusType == QDBusConnection::SessionBus ? QStringLiteral("session")
                                                              : QStringLiteral("system"),
                 HXProductPaths::libraryFolder()));

    HXStopSignals stop;
    QObject::connect(&stop, &HXStopSignals::received, &app, [] { QCoreApplication::quit(); });
    if (options.startNow)
        worker.startTesting();

    const int status = app.exec();
    worker.stopTesting();
    for (QDBusConnection *bus : {&workerBus, &idleBus, &agentBus})
        bus->unregisterObject(HXDBusNames::kRootObjectPath, QDBusConnection::UnregisterTree);
    say(QStringLiteral("stopped"));
    return status;
}
