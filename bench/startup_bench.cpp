// How fast the window comes up and how much memory it holds afterwards:
// orvex is started N times with an empty report and with a report of 10,000
// results and 20,000 log entries; each run reports the time from the start
// of the process to the first painted window and the resident memory a
// second later. Run under xvfb-run (or with QT_QPA_PLATFORM=offscreen) and
// dbus-run-session, so the application has a display and a bus.
#include "HXReportArchive.h"
#include "ReportFactory.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

struct Run
{
    double spawnToPaintMs = 0;
    double mainToPaintMs = 0;
    long rssKb = 0;
};

bool runOnce(const QString &root, Run *run)
{
    QProcess orvex;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ORVEX_ROOT"), root);
    env.insert(QStringLiteral("ORVEX_DAEMON_BUS"), QStringLiteral("session"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), root + QStringLiteral("/config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), root + QStringLiteral("/data"));
    orvex.setProcessEnvironment(env);
    QElapsedTimer clock;
    clock.start();
    orvex.start(QStringLiteral(ORVEX_APP_PATH), {QStringLiteral("--startup-probe")});
    bool painted = false;
    while (orvex.waitForReadyRead(20000)) {
        while (orvex.canReadLine()) {
            const QList<QByteArray> fields = orvex.readLine().trimmed().split(' ');
            if (fields.value(0) == "painted-ms") {
                run->spawnToPaintMs = double(clock.nsecsElapsed()) / 1e6;
                run->mainToPaintMs = fields.value(1).toDouble();
                painted = true;
            } else if (fields.value(0) == "rss-kb") {
                run->rssKb = fields.value(1).toLong();
            }
        }
        if (run->rssKb)
            break;
    }
    orvex.waitForFinished(10000);
    return painted && run->rssKb > 0;
}

template<class T, class F>
double median(std::vector<T> runs, F field)
{
    std::vector<double> values;
    for (const T &r : runs)
        values.push_back(double(field(r)));
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int repetitions = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    QTemporaryDir empty;
    QTemporaryDir large;
    {
        const QByteArray bytes = HXReportArchive::encodeReport(*ReportFactory::make(10000, 20000));
        QDir().mkpath(large.path() + QStringLiteral("/var/lib/orvex"));
        QFile file(large.path() + QStringLiteral("/var/lib/orvex/Report.zrrpt"));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) {
            std::fprintf(stderr, "startup_bench: cannot write the large report\n");
            return 1;
        }
        std::printf("large report: %.1f MB\n", double(bytes.size()) / 1e6);
    }
    for (const auto &[name, root] : {std::pair{"empty report", empty.path()}, std::pair{"10,000 results", large.path()}}) {
        std::vector<Run> runs;
        for (int i = 0; i < repetitions; ++i) {
            Run run;
            if (!runOnce(root, &run)) {
                std::fprintf(stderr, "startup_bench: orvex did not report its start-up (is there a display and a bus?)\n");
                return 1;
            }
            runs.push_back(run);
        }
        std::printf("%-16s start to first paint: median %.1f ms (main() to paint %.1f ms); resident after start-up: "
                    "median %.1f MB over %d runs\n",
                    name, median(runs, [](const Run &r) { return r.spawnToPaintMs; }),
                    median(runs, [](const Run &r) { return r.mainToPaintMs; }),
                    median(runs, [](const Run &r) { return r.rssKb; }) / 1024.0, repetitions);
    }
    return 0;
}
