// The surface scan against dd on the same loop device, side by side:
//   dd if=/dev/loopN of=/dev/null iflag=direct bs=1M
// and the Surface Scan test (idle I/O class, 1 MiB chunks), then the scan
// alone at the normal class and at other chunk sizes. Throughput is the
// device's bytes over wall time; CPU time is the process's (dd's through
// wait4). Every round runs the readers in the same order, after one warm-up
// read; the table shows medians. Without --direct-io both read the image
// through the page cache, which measures the readers rather than the disk.
// Needs root: it makes a 1 GiB image of random data, attaches it to a loop
// device, and removes both at the end.
//   surfacescan_bench [--rounds N] [--size-mib N] [--direct-io]
// --direct-io attaches the loop device with direct I/O to its backing file,
// so reads reach the disk under the image instead of its page cache.
#include "HXConstants.h"
#include "HXMemoryPatterns.h"
#include "HXSurfaceScanTest.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

constexpr qint64 MiB = qint64(1) << 20;

double now()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

double seconds(const timeval &tv)
{
    return double(tv.tv_sec) + double(tv.tv_usec) / 1e6;
}

double cpuSelf()
{
    rusage ru{};
    getrusage(RUSAGE_SELF, &ru);
    return seconds(ru.ru_utime) + seconds(ru.ru_stime);
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

struct Sample
{
    double wall = 0;
    double cpu = 0;
};

// The loop device and its image, gone when this goes.
class Loop
{
public:
    ~Loop()
    {
        if (!device.isEmpty())
            QProcess::execute(QStringLiteral("losetup"), {QStringLiteral("-d"), device});
    }
    QString device;
};

bool writeImage(const QString &path, qint64 bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    std::vector<quint64> chunk(MiB / 8);
    for (qint64 i = 0; i < bytes / MiB; ++i) {
        HXMemoryPatterns::write(HXMemoryPattern::RandomData, 0, chunk.data(), chunk.size(),
                                std::size_t(i) * chunk.size(), 7);
        if (file.write(reinterpret_cast<const char *>(chunk.data()), MiB) != MiB)
            return false;
    }
    return file.flush();
}

Sample runDd(const QString &device)
{
    const QByteArray input = "if=" + device.toLocal8Bit();
    const char *argv[] = {"dd",           input.constData(), "of=/dev/null",
                          "iflag=direct", "bs=1M",           nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    Sample s;
    const double start = now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, "dd", &actions, nullptr, const_cast<char **>(argv), environ) != 0) {
        std::fprintf(stderr, "dd could not be started\n");
        std::exit(1);
    }
    int status = 0;
    rusage ru{};
    wait4(pid, &status, 0, &ru);
    s.wall = now() - start;
    s.cpu = seconds(ru.ru_utime) + seconds(ru.ru_stime);
    posix_spawn_file_actions_destroy(&actions);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "dd failed on %s\n", qPrintable(device));
        std::exit(1);
    }
    return s;
}

// The whole Surface Scan test, as the worker runs it.
Sample runTest(const HXBlockDisk &disk, const QString &stateFolder, qint64 chunk)
{
    HXEngineContext context;
    context.disks = {disk};
    context.stateFolder = stateFolder;
    HXSurfaceScanTest test;
    test.setChunkBytes(chunk);
    Sample s;
    const double cpu = cpuSelf();
    const double start = now();
    const QList<HXTestFinding> findings = test.run(context);
    s.wall = now() - start;
    s.cpu = cpuSelf() - cpu;
    if (findings.size() != 1 || findings.first().type != HXDTestResultSuccessType ||
        !findings.first().testInfo.value(HXDTestResultIsCompletedKey).toBool()) {
        std::fprintf(stderr, "the scan did not pass: %s\n",
                     findings.isEmpty() ? "no finding" : qPrintable(findings.first().log));
        std::exit(1);
    }
    return s;
}

// The scan alone, at the thread's normal I/O class.
Sample runScan(const QString &device, qint64 chunk)
{
    QString why;
    const auto source = HXDeviceBlockSource::open(device, &why);
    if (!source) {
        std::fprintf(stderr, "%s\n", qPrintable(why));
        std::exit(1);
    }
    HXSurfaceScan::Plan plan;
    plan.chunkBytes = chunk;
    Sample s;
    const double cpu = cpuSelf();
    const double start = now();
    const HXSurfaceScan::Outcome outcome = HXSurfaceScan(*source).run(plan);
    s.wall = now() - start;
    s.cpu = cpuSelf() - cpu;
    if (!outcome.completed || !outcome.badBlocks.isEmpty()) {
        std::fprintf(stderr, "the scan did not complete\n");
        std::exit(1);
    }
    return s;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int rounds = 5;
    qint64 sizeMiB = 1024;
    bool directIo = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--rounds") && i + 1 < args.size())
            rounds = std::max(1, args[++i].toInt());
        else if (args[i] == QLatin1String("--size-mib") && i + 1 < args.size())
            sizeMiB = std::max<qint64>(16, args[++i].toLongLong());
        else if (args[i] == QLatin1String("--direct-io"))
            directIo = true;
        else {
            std::fprintf(stderr,
                         "usage: surfacescan_bench [--rounds N] [--size-mib N] [--direct-io]\n");
            return 2;
        }
    }
    if (geteuid() != 0) {
        std::fprintf(stderr, "surfacescan_bench needs root for its loop device\n");
        return 1;
    }

    QTemporaryDir dir(QStringLiteral("/var/tmp/surfacescan-bench-XXXXXX"));
    const QString image = dir.filePath(QStringLiteral("disk.img"));
    const qint64 size = sizeMiB * MiB;
    if (!dir.isValid() || !writeImage(image, size)) {
        std::fprintf(stderr, "could not write a %lld MiB image under /var/tmp\n", sizeMiB);
        return 1;
    }
    Loop loop;
    {
        QProcess losetup;
        QStringList a{QStringLiteral("-f"), QStringLiteral("--show")};
        if (directIo)
            a << QStringLiteral("--direct-io=on");
        losetup.start(QStringLiteral("losetup"), a << image);
        losetup.waitForFinished(30000);
        loop.device = QString::fromLocal8Bit(losetup.readAllStandardOutput()).trimmed();
        if (losetup.exitCode() != 0 || loop.device.isEmpty()) {
            std::fprintf(stderr, "losetup failed: %s\n",
                         losetup.readAllStandardError().constData());
            return 1;
        }
    }
    HXBlockDisk disk;
    disk.kernelName = QFileInfo(loop.device).fileName();
    disk.devicePath = loop.device;
    disk.sizeBytes = size;
    disk.uuid = QStringLiteral("surfacescan-bench");
    const QString state = dir.filePath(QStringLiteral("state"));

    std::printf("%s: %lld MiB of random data%s, %d rounds, medians\n", qPrintable(loop.device),
                sizeMiB,
                directIo ? ", loop with direct I/O to its file"
                         : ", served from the page cache (--direct-io for the disk)",
                rounds);
    runDd(loop.device); // brings the image into the page cache (or warms the disk) for both

    struct Row
    {
        const char *name;
        std::vector<double> wall, cpu;
    };
    std::vector<Row> rows = {{"dd iflag=direct bs=1M", {}, {}},
                             {"Surface Scan test (idle class, 1 MiB)", {}, {}},
                             {"scan, normal class, 1 MiB", {}, {}},
                             {"scan, normal class, 256 KiB", {}, {}},
                             {"scan, normal class, 4 MiB", {}, {}}};
    for (int r = 0; r < rounds; ++r) {
        const Sample samples[] = {runDd(loop.device), runTest(disk, state, MiB),
                                  runScan(loop.device, MiB), runScan(loop.device, 256 * 1024),
                                  runScan(loop.device, 4 * MiB)};
        for (std::size_t i = 0; i < rows.size(); ++i) {
            rows[i].wall.push_back(samples[i].wall);
            rows[i].cpu.push_back(samples[i].cpu);
        }
    }

    const double ddRate = double(size) / median(rows[0].wall) / 1e6;
    std::printf("\n%-40s %10s %10s %10s %9s\n", "reader", "time (s)", "MB/s", "CPU (s)", "vs dd");
    for (const Row &row : rows) {
        const double rate = double(size) / median(row.wall) / 1e6;
        std::printf("%-40s %10.3f %10.0f %10.3f %8.0f%%\n", row.name, median(row.wall), rate,
                    median(row.cpu), 100.0 * rate / ddRate);
    }
    const double ours = double(size) / median(rows[1].wall) / 1e6;
    std::printf("\nSurface Scan test at %.0f%% of dd's throughput (goal: at least 90%%)\n",
                100.0 * ours / ddRate);
    return ours >= 0.9 * ddRate ? 0 : 3;
}
