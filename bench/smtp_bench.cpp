// The mail agent beside Python's smtplib: one message with a 20 MB attachment
// to the same local aiosmtpd, several rounds, taking turns. Then the help
// reporter's collection on this machine, timed end to end, with the slowest
// command named.
//
//   smtp_bench [rounds] [megabytes]
//
// Needs Debian's python3-aiosmtpd; uses port 5331 on 127.0.0.1.

#include "PGLog.h"
#include "SMTP_AGENT.h"
#include "ZRCollectionPlan.h"
#include "ZRCommandRunner.h"
#include "ZRReportCollector.h"
#include "ZRReportFolder.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <mutex>

namespace {

const QString kPython = QStringLiteral("/usr/bin/python3");

double median(QList<double> values)
{
    std::sort(values.begin(), values.end());
    return values.isEmpty() ? 0 : values[values.size() / 2];
}

// Times every command the collection runs.
class TimingRunner : public ZRCommandRunner
{
public:
    void run(const QString &command) override { timed(command, false); }
    void runProfile(const QString &command) override { timed(command, true); }
    void terminateProfile() override { m_shell.terminateProfile(); }

    QList<QPair<double, QString>> times;

private:
    void timed(const QString &command, bool profile)
    {
        QElapsedTimer clock;
        clock.start();
        if (profile)
            m_shell.runProfile(command);
        else
            m_shell.run(command);
        const double seconds = clock.nsecsElapsed() / 1e9;
        std::lock_guard lock(m_mutex);
        times.append({seconds, command});
    }
    ZRShellRunner m_shell;
    std::mutex m_mutex;
};

class NoDaemon : public ZRDaemonFacts
{
public:
    QString sampleOfWorker() override { return {}; }
    QVariantMap idleDaemonPreferences() override { return {}; }
};

int benchMail(int rounds, int megabytes)
{
    QTemporaryDir dir;
    const QString attachment = dir.filePath(QStringLiteral("OrvexLogs.zip"));
    {
        QFile f(attachment);
        if (!f.open(QIODevice::WriteOnly))
            return 1;
        QByteArray data(qsizetype(megabytes) * 1024 * 1024, Qt::Uninitialized);
        auto *words = reinterpret_cast<quint32 *>(data.data());
        QRandomGenerator(20).fillRange(words, data.size() / 4);
        f.write(data);
    }
    const QString store = dir.filePath(QStringLiteral("store"));
    QDir().mkpath(store);
    QProcess server;
    server.start(kPython, {QStringLiteral(ORVEX_PEERS_DIR "/mail_peer.py"), QStringLiteral("smtp"),
                           QStringLiteral("5331"), store});
    if (!server.waitForReadyRead(30000) || !server.readAllStandardOutput().startsWith("ready")) {
        fprintf(
            stderr,
            "aiosmtpd did not start on 127.0.0.1:5331 (python3-aiosmtpd installed? port free?)\n");
        return 1;
    }
    printf("== %d MB attachment to aiosmtpd on 127.0.0.1:5331, %d rounds\n", megabytes, rounds);
    printf("%-6s %12s %12s\n", "round", "SMTP_AGENT", "smtplib");
    QList<double> ours, theirs;
    for (int round = 1; round <= rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        const unsigned result = SMTP_AGENT::sendMessage(
            QStringLiteral("Bench message.\r\n"), {QStringLiteral("support@talvorn.example")},
            QStringLiteral("orvex@talvorn.example"),
            QStringLiteral("Orvex report from bench@example.org"), QStringLiteral("127.0.0.1"),
            QStringLiteral("Orvex"), QStringLiteral("secret"), QStringLiteral("Orvex bench"),
            {attachment}, false);
        const double our = clock.nsecsElapsed() / 1e9;
        // The program keeps its protocol log; the bench empties it so that the
        // rounds do not pile 50 MB each onto the process.
        PGLogFinish();
        if (result != SMTP_AGENT::Success) {
            fprintf(stderr, "SMTP_AGENT answered %u\n", result);
            return 1;
        }
        QProcess python;
        python.start(kPython, {QStringLiteral(ORVEX_SOURCE_DIR "/bench/smtplib_send.py"),
                               QStringLiteral("5331"), QStringLiteral("Orvex"),
                               QStringLiteral("secret"), attachment});
        if (!python.waitForFinished(300000) || python.exitCode() != 0) {
            fprintf(stderr, "smtplib failed: %s\n", python.readAllStandardError().constData());
            return 1;
        }
        const double their = python.readAllStandardOutput().trimmed().toDouble();
        ours << our;
        theirs << their;
        printf("%-6d %11.3fs %11.3fs\n", round, our, their);
        fflush(stdout);
    }
    printf("%-6s %11.3fs %11.3fs\n", "median", median(ours), median(theirs));
    server.kill();
    server.waitForFinished();
    return 0;
}

int benchCollection()
{
    QTemporaryDir dir;
    ZRReportFolder folder(dir.path());
    auto runner = std::make_shared<TimingRunner>();
    ZRReportCollector collector(runner, std::make_shared<NoDaemon>());
    const ZRCollectionPlan plan =
        ZRCollectionPlan::make(folder, ZRCollectionPlan::Machine::current());
    QEventLoop loop;
    QObject::connect(&collector, &ZRReportCollector::finished, &loop, &QEventLoop::quit);
    QElapsedTimer clock;
    clock.start();
    collector.start(plan);
    loop.exec();
    const double total = clock.nsecsElapsed() / 1e9;
    std::sort(runner->times.begin(), runner->times.end(),
              [](const auto &a, const auto &b) { return a.first > b.first; });
    printf(
        "\n== Collection on this machine: %.3f s end to end, %lld commands, four blocks at once\n",
        total, qlonglong(runner->times.size()));
    printf("slowest commands:\n");
    for (int i = 0; i < std::min<qsizetype>(5, runner->times.size()); ++i)
        printf("  %7.3f s  %s\n", runner->times[i].first, qPrintable(runner->times[i].second));
    qint64 bytes = 0;
    for (const QString &archive : folder.archives())
        bytes += QFileInfo(archive).size();
    printf("archives: %lld bytes in all\n", bytes);
    folder.remove();
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? atoi(argv[1]) : 5;
    const int megabytes = argc > 2 ? atoi(argv[2]) : 20;
    if (const int failed = benchMail(rounds, megabytes))
        return failed;
    return benchCollection();
}
