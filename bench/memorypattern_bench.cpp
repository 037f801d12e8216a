// The memory test's patterns against memtester on the same amount of memory,
// pattern for pattern where both run the same kind:
//   walking ones        memtester's "Walking Ones"
//   address in address  memtester's "Stuck Address" (each word its address or
//                       its complement)
//   random data         memtester's "Random Value"
// The figure is bytes written and verified per second: passes times the
// tested size over the time. Our patterns run through the same kernels and
// chunks as the Memory test, on locked memory; memtester runs as
// `memtester 256M 1` with line-buffered output, and each of its tests is
// timed from the end of the line before to the end of its own line ("ok").
// Then the whole Memory test once. Needs root (mlock of 256 MiB).
//   memorypattern_bench [--mib N] [--rounds N] [--ours-only]
#include "HXMemoryTest.h"

#include <QCoreApplication>
#include <QStringList>
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <vector>

namespace {

double now()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// One pattern's passes the way HXMemoryPatternCheck makes them: every pass
// written over the whole region in 16 MiB chunks, then verified.
double timePattern(quint64 *words, std::size_t count, HXMemoryPattern pattern)
{
    const std::size_t chunk = (std::size_t(16) << 20) / 8;
    const double start = now();
    for (int pass = 0; pass < HXMemoryPatterns::passes(pattern); ++pass) {
        for (std::size_t i = 0; i < count; i += chunk)
            HXMemoryPatterns::write(pattern, pass, words + i, std::min(chunk, count - i), i, 99);
        for (std::size_t i = 0; i < count; i += chunk) {
            const std::size_t n = std::min(chunk, count - i);
            if (HXMemoryPatterns::verify(pattern, pass, words + i, n, i, 99, nullptr) != n) {
                std::fprintf(stderr, "a fault in the %s pattern: this machine's memory is bad\n",
                             qPrintable(HXMemoryPatterns::name(pattern)));
                std::exit(1);
            }
        }
    }
    return now() - start;
}

struct MemtesterTest
{
    double seconds = 0;
    int passes = 0;
    bool ok = false;
};

// Runs memtester and times each of its tests from its output stream.
std::map<std::string, MemtesterTest> runMemtester(int mib, double *total, bool *locked)
{
    const std::string command = "stdbuf -oL memtester " + std::to_string(mib) + "M 1 2>&1";
    FILE *out = popen(command.c_str(), "r");
    if (!out)
        return {};
    std::map<std::string, MemtesterTest> tests;
    std::string line;
    double lineStart = 0;
    const double start = now();
    char buffer[4096];
    std::string all;
    for (;;) {
        const ssize_t n = read(fileno(out), buffer, sizeof buffer);
        if (n <= 0)
            break;
        const double t = now();
        for (ssize_t i = 0; i < n; ++i) {
            if (buffer[i] != '\n') {
                line += buffer[i];
                continue;
            }
            all += line + "\n";
            const std::size_t colon = line.find(':');
            if (line.rfind("Loop ", 0) == 0) {
                lineStart = t;
            } else if (lineStart > 0 && colon != std::string::npos) {
                std::string name = line.substr(0, colon);
                name.erase(0, name.find_first_not_of(' '));
                name.erase(name.find_last_not_of(' ') + 1);
                MemtesterTest test;
                test.seconds = t - lineStart;
                for (std::size_t p = line.find("setting"); p != std::string::npos;
                     p = line.find("setting", p + 1))
                    ++test.passes;
                test.passes = std::max(test.passes, 1);
                test.ok = line.size() >= 2 && line.compare(line.size() - 2, 2, "ok") == 0;
                tests[name] = test;
                lineStart = t;
            }
            line.clear();
        }
    }
    *total = now() - start;
    *locked = all.find("locked.") != std::string::npos;
    if (pclose(out) != 0)
        std::fprintf(stderr, "memtester did not finish cleanly:\n%s\n", all.c_str());
    return tests;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int mib = 256;
    int rounds = 3;
    bool oursOnly = false;
    const QStringList args = app.arguments();
    for (int i = 1; i < args.size(); ++i) {
        if (args[i] == QLatin1String("--mib") && i + 1 < args.size())
            mib = std::max(16, args[++i].toInt());
        else if (args[i] == QLatin1String("--rounds") && i + 1 < args.size())
            rounds = std::max(1, args[++i].toInt());
        else if (args[i] == QLatin1String("--ours-only"))
            oursOnly = true;
        else {
            std::fprintf(stderr,
                         "usage: memorypattern_bench [--mib N] [--rounds N] [--ours-only]\n");
            return 2;
        }
    }
    if (geteuid() != 0) {
        std::fprintf(stderr, "memorypattern_bench needs root to lock %d MiB\n", mib);
        return 1;
    }
    const std::size_t bytes = std::size_t(mib) << 20;

    // Ours, on locked memory: rounds before memtester and as many after it,
    // so that both meet the same load from the machine's other programs.
    void *region = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (region == MAP_FAILED || mlock(region, bytes) != 0) {
        std::fprintf(stderr, "could not lock %d MiB\n", mib);
        return 1;
    }
    std::map<HXMemoryPattern, std::vector<double>> times;
    const auto measureOurs = [&] {
        for (HXMemoryPattern pattern : HXMemoryPatterns::all) {
            // A round lasts at least a second: two passes of address in
            // address take a tenth of that, too short to time on a busy machine.
            for (int r = 0; r < rounds; ++r) {
                int runs = 0;
                double spent = 0;
                while (spent < 1.0) {
                    spent += timePattern(static_cast<quint64 *>(region), bytes / 8, pattern);
                    ++runs;
                }
                times[pattern].push_back(spent / runs);
            }
        }
    };
    measureOurs();

    double memtesterTotal = 0;
    bool locked = false;
    std::map<std::string, MemtesterTest> theirs;
    if (!oursOnly) {
        munlock(region, bytes); // memtester gets the memory ours had
        std::fprintf(stderr, "running memtester %dM 1 (a few minutes)...\n", mib);
        theirs = runMemtester(mib, &memtesterTotal, &locked);
        if (mlock(region, bytes) != 0) {
            std::fprintf(stderr, "could not lock %d MiB again\n", mib);
            return 1;
        }
        measureOurs();
    }
    munmap(region, bytes);
    std::map<HXMemoryPattern, double> ours;
    for (const auto &[pattern, t] : times)
        ours[pattern] = median(t);

    // The whole Memory test as the worker runs it.
    HXEngineContext context;
    context.memoryTestBytes = qint64(bytes);
    HXMemoryTest test;
    const double start = now();
    const QList<HXTestFinding> findings = test.run(context);
    const double whole = now() - start;

    std::printf("%d MiB, our figures the median of %d rounds%s\n\n", mib,
                int(times.begin()->second.size()),
                oursOnly ? ""
                : locked ? "; memtester locked its memory"
                         : "; memtester could NOT lock its memory");
    std::printf("%-20s %6s %9s %10s | %-16s %6s %9s %10s | %6s\n", "ours", "passes", "time (s)",
                "MB/s", "memtester", "passes", "time (s)", "MB/s", "ratio");
    const std::pair<HXMemoryPattern, const char *> pairs[] = {
        {HXMemoryPattern::WalkingOnes, "Walking Ones"},
        {HXMemoryPattern::AddressInAddress, "Stuck Address"},
        {HXMemoryPattern::RandomData, "Random Value"}};
    bool noSlower = true;
    for (const auto &[pattern, name] : pairs) {
        const int passes = HXMemoryPatterns::passes(pattern);
        const double rate = double(passes) * double(bytes) / ours[pattern] / 1e6;
        const auto it = theirs.find(name);
        if (it == theirs.end()) {
            std::printf("%-20s %6d %9.3f %10.0f | %-16s (not in memtester's output)\n",
                        qPrintable(HXMemoryPatterns::name(pattern)), passes, ours[pattern], rate,
                        name);
            noSlower = false;
            continue;
        }
        const MemtesterTest &m = it->second;
        const double theirRate = double(m.passes) * double(bytes) / m.seconds / 1e6;
        noSlower = noSlower && rate >= theirRate;
        std::printf("%-20s %6d %9.3f %10.0f | %-16s %6d %9.3f %10.0f | %5.2fx%s\n",
                    qPrintable(HXMemoryPatterns::name(pattern)), passes, ours[pattern], rate, name,
                    m.passes, m.seconds, theirRate, rate / theirRate,
                    m.ok ? "" : " (memtester: not ok)");
    }
    std::printf("\nwhole Memory test: %.2f s (%s); whole memtester loop: %.1f s\n", whole,
                findings.isEmpty() ? "no finding" : qPrintable(findings.first().type),
                memtesterTotal);
    std::printf("ours no slower pattern for pattern: %s\n", noSlower ? "yes" : "NO");
    return noSlower ? 0 : 3;
}
