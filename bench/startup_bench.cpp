// How fast the window comes up and how much memory it holds afterwards:
// orvex is started N times with an empty report and with a report of 10,000
// results and 20,000 log entries; each run reports the time from the start
// of the process to the first painted window and the resident memory a
// second later. Run under xvfb-run and dbus-run-session, so the application
// has a display and a bus. The offscreen platform starts too, but it never
// makes a web view: there the about tab always shows its offline picture and
// its columns below say nothing about WebEngine.
//
// The about tab's cost: the same start with the about tab never opened, and
// opened once after the first paint (its product page served from
// 127.0.0.1): the time to the first paint, the time until the tab showed its
// page, the memory a second after that, and which page each run showed. For
// this build and any other build of orvex named after the repetitions, side
// by side:
//     startup_bench 7 nowebengine=build-nowe/tools/orvex/orvex
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
    QString aboutPage;       // "web" or "picture" once the about tab was opened
    double aboutShownMs = 0; // from the start of the process to that page
};

struct Target
{
    QString name;
    QString path;
};

bool runOnce(const QString &app, const QString &root, Run *run, const QStringList &arguments = {},
             const QString &productPage = QString())
{
    QProcess orvex;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("ORVEX_ROOT"), root);
    env.insert(QStringLiteral("ORVEX_DAEMON_BUS"), QStringLiteral("session"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), root + QStringLiteral("/config"));
    env.insert(QStringLiteral("XDG_DATA_HOME"), root + QStringLiteral("/data"));
    if (!productPage.isEmpty())
        env.insert(QStringLiteral("ORVEX_PRODUCT_PAGE"), productPage);
    orvex.setProcessEnvironment(env);
    QElapsedTimer clock;
    clock.start();
    orvex.start(app,
                arguments.isEmpty() ? QStringList{QStringLiteral("--startup-probe")} : arguments);
    bool painted = false;
    while (orvex.waitForReadyRead(20000)) {
        while (orvex.canReadLine()) {
            const QList<QByteArray> fields = orvex.readLine().trimmed().split(' ');
            if (fields.value(0) == "painted-ms") {
                run->spawnToPaintMs = double(clock.nsecsElapsed()) / 1e6;
                run->mainToPaintMs = fields.value(1).toDouble();
                painted = true;
            } else if (fields.value(0) == "about-page") {
                run->aboutPage = QString::fromLatin1(fields.value(1));
                run->aboutShownMs = fields.value(2).toDouble();
            } else if (fields.value(0) == "rss-kb") {
                run->rssKb = fields.value(1).toLong();
            }
        }
        if (run->rssKb)
            break;
    }
    if (!orvex.waitForFinished(10000))
        orvex.kill();
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

// The about tab never opened and opened once, for each build.
int aboutTab(const std::vector<Target> &targets, int repetitions)
{
    QProcess site;
    site.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    site.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral(ORVEX_PAGE_SERVER)});
    if (!site.waitForReadyRead(10000)) {
        std::fprintf(stderr, "startup_bench: the page server did not start\n");
        return 1;
    }
    const QString page = QStringLiteral("http://127.0.0.1:%1/orvex/")
                             .arg(QString::fromLatin1(site.readLine().trimmed().mid(5)));
    std::printf("\nabout tab (page from %s), medians over %d runs:\n", qPrintable(page),
                repetitions);
    std::printf("%-14s %14s %8s | %14s %16s %8s %12s\n", "", "never opened", "", "opened once", "",
                "", "");
    std::printf("%-14s %14s %8s | %14s %16s %8s %12s\n", "build", "to paint: ms", "RSS MB",
                "to paint: ms", "tab's page: ms", "RSS MB", "pages shown");
    for (const Target &target : targets) {
        std::vector<Run> never;
        std::vector<Run> opened;
        for (int i = 0; i < repetitions; ++i) {
            // Alternating, so that a machine that grows busier weighs on both alike.
            QTemporaryDir a;
            QTemporaryDir b;
            Run n;
            Run o;
            if (!runOnce(target.path, a.path(), &n, {}, page) ||
                !runOnce(target.path, b.path(), &o, {QStringLiteral("--startup-probe-about")},
                         page)) {
                std::fprintf(stderr, "startup_bench: %s did not report its start-up\n",
                             qPrintable(target.path));
                return 1;
            }
            never.push_back(n);
            opened.push_back(o);
        }
        // Every run's page, not only the last: a web page in some runs and
        // the picture in others changes what the medians mean.
        const auto webRuns = std::count_if(opened.begin(), opened.end(), [](const Run &r) {
            return r.aboutPage == QLatin1String("web");
        });
        const QString pages = QStringLiteral("web %1/%2").arg(webRuns).arg(opened.size());
        std::printf("%-14s %14.1f %8.1f | %14.1f %16.1f %8.1f %12s\n", qPrintable(target.name),
                    median(never, [](const Run &r) { return r.spawnToPaintMs; }),
                    median(never, [](const Run &r) { return r.rssKb; }) / 1024.0,
                    median(opened, [](const Run &r) { return r.spawnToPaintMs; }),
                    median(opened, [](const Run &r) { return r.aboutShownMs; }),
                    median(opened, [](const Run &r) { return r.rssKb; }) / 1024.0,
                    qPrintable(pages));
        std::fflush(stdout);
    }
    site.kill();
    site.waitForFinished();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int repetitions = argc > 1 ? std::max(1, atoi(argv[1])) : 7;
    std::vector<Target> targets{{QStringLiteral("this build"), QStringLiteral(ORVEX_APP_PATH)}};
    for (int i = 2; i < argc; ++i) {
        const QString named = QString::fromLocal8Bit(argv[i]);
        const qsizetype equals = named.indexOf(QLatin1Char('='));
        targets.push_back({named.left(equals), named.mid(equals + 1)});
    }
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
            if (!runOnce(QStringLiteral(ORVEX_APP_PATH), root, &run)) {
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
    return aboutTab(targets, repetitions);
}
