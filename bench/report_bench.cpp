// The report file's costs on a report of 10,000 results and 20,000 log
// entries, side by side with libplist on the same bytes:
//   LibplistParse           libplist 2.2 parsing the file (the reference)
//   FullReload              our read + parse + decode into the model + status rebuild,
//                           through the reporter as a watcher event runs it
//   EncodeAndAtomicWrite    our archive encoding + the atomic write with attributes
//   LibplistWrite           libplist writing the same tree
//   ReportLogErrorLine      one HXReportLogError: the whole-file rewrite and the reload it triggers
#include "AtomicFileWriter.h"
#include "HXReportArchive.h"
#include "HXNotificationCenter.h"
#include "HXReportLog.h"
#include "HXStatusBoard.h"
#include "HXStatusReporter.h"
#include "HXProductPaths.h"
#include "ReportFactory.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>
#include <plist/plist.h>

namespace {

struct Fixture
{
    QTemporaryDir dir;
    QString path;
    QByteArray bytes;
    HXStatusReportRef report;

    Fixture()
    {
        report = ReportFactory::make(10000, 20000);
        bytes = HXReportArchive::encodeReport(*report);
        path = dir.filePath(QStringLiteral("Report.zrrpt"));
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(bytes);
    }
};

Fixture &fixture()
{
    static Fixture f;
    return f;
}

void LibplistParse(benchmark::State &state)
{
    const QByteArray &bytes = fixture().bytes;
    for (auto _ : state) {
        plist_t root = nullptr;
        plist_from_bin(bytes.constData(), uint32_t(bytes.size()), &root);
        benchmark::DoNotOptimize(root);
        state.PauseTiming();
        plist_free(root);
        state.ResumeTiming();
    }
    state.counters["file_MB"] = double(bytes.size()) / 1e6;
}
BENCHMARK(LibplistParse)->Unit(benchmark::kMillisecond)->MinTime(2);

void FullReload(benchmark::State &state)
{
    // The reporter's own load of the file, as a watcher event triggers it,
    // then the status rebuild the status tab does on the change.
    HXNotificationCenter center;
    HXStatusReporter reporter({fixture().path, &center, nullptr, false});
    HXStatusBoard board;
    for (auto _ : state) {
        if (!reporter.loadStatusFile())
            state.SkipWithError("the report did not decode");
        board.rebuild(reporter.report());
        benchmark::DoNotOptimize(board.groupStatus(HXTestGroup::Drives));
        // The replaced report is freed on a worker thread; in use reloads
        // are seconds apart, so it is done before the next one starts.
        state.PauseTiming();
        reporter.waitForPendingReleases();
        state.ResumeTiming();
    }
}
BENCHMARK(FullReload)->Unit(benchmark::kMillisecond)->MinTime(2);

void EncodeAndAtomicWrite(benchmark::State &state)
{
    const HXStatusReportRef report = fixture().report;
    const QString path = fixture().dir.filePath(QStringLiteral("Written.zrrpt"));
    for (auto _ : state) {
        const auto r = AtomicFileWriter::write(path, HXReportArchive::encodeReport(*report), 0777,
                                               QStringLiteral("users"));
        if (!r.written)
            state.SkipWithError("the write failed");
    }
}
BENCHMARK(EncodeAndAtomicWrite)->Unit(benchmark::kMillisecond)->MinTime(2);

void LibplistWrite(benchmark::State &state)
{
    const QByteArray &bytes = fixture().bytes;
    plist_t root = nullptr;
    plist_from_bin(bytes.constData(), uint32_t(bytes.size()), &root);
    for (auto _ : state) {
        char *out = nullptr;
        uint32_t length = 0;
        plist_to_bin(root, &out, &length);
        benchmark::DoNotOptimize(out);
        plist_to_bin_free(out);
    }
    plist_free(root);
}
BENCHMARK(LibplistWrite)->Unit(benchmark::kMillisecond)->Iterations(2);

void ReportLogErrorLine(benchmark::State &state)
{
    // The shared reporter watches the product path under ORVEX_ROOT, which
    // main() points at a folder holding the big report.
    HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
    if (reporter->report()->countOfTestResults() != 10000) {
        state.SkipWithError("the shared reporter did not load the big report");
        return;
    }
    HXReportLogSetLineSink([](const QByteArray &) {});
    for (auto _ : state) {
        QEventLoop loop;
        const auto c = QObject::connect(reporter, &HXStatusReporter::reportChanged, &loop, &QEventLoop::quit);
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        HXReportLogError(QStringLiteral("Surface scan found 3 unreadable blocks on sda"));
        loop.exec();
        QObject::disconnect(c);
    }
    HXReportLogSetLineSink({});
}
BENCHMARK(ReportLogErrorLine)->Unit(benchmark::kMillisecond)->MinTime(2);

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir root;
    qputenv("ORVEX_ROOT", root.path().toUtf8());
    QDir().mkpath(HXProductPaths::libraryFolder());
    QFile::copy(fixture().path, HXProductPaths::reportFile());
    QCoreApplication app(argc, argv);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
