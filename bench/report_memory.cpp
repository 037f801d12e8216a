// Memory of a decoded report of 10,000 results and 20,000 log entries,
// measured in a fresh process so nothing else sits on the heap:
//   peak: the highest resident size while reading, parsing, decoding and
//         rebuilding the status, above what the process held before;
//   kept: the heap the decoded report holds once the file's bytes are freed.
// Both are compared with the file's size.
#include "HXReportArchive.h"
#include "HXStatusBoard.h"
#include "ReportFactory.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <fstream>
#include <malloc.h>
#include <string>

namespace {

long statusKb(const char *field)
{
    std::ifstream status("/proc/self/status");
    std::string line;
    const std::string prefix = std::string(field) + ":";
    while (std::getline(status, line)) {
        if (line.rfind(prefix, 0) == 0)
            return std::stol(line.substr(prefix.size()));
    }
    return -1;
}

int measure(const QString &path)
{
    malloc_trim(0);
    const long baselineKb = statusKb("VmRSS");
    const size_t heapBefore = mallinfo2().uordblks;
    { std::ofstream("/proc/self/clear_refs") << "5"; } // resets the peak to now
    HXStatusReportRef report;
    qint64 fileSize = 0;
    {
        QFile f(path);
        f.open(QIODevice::ReadOnly);
        const QByteArray bytes = f.readAll();
        fileSize = bytes.size();
        QString error;
        report = HXReportArchive::decodeReport(bytes, &error);
        HXStatusBoard board;
        board.rebuild(report);
    }
    const long peakKb = statusKb("VmHWM");
    const size_t kept = mallinfo2().uordblks - heapBefore;
    if (!report)
        return 1;
    const double fileMb = double(fileSize) / 1e6;
    const double peakMb = double(peakKb - baselineKb) * 1024 / 1e6;
    std::printf("file:  %.1f MB (%lld results, %lld log entries)\n", fileMb,
                static_cast<long long>(report->countOfTestResults()), static_cast<long long>(report->countOfLog()));
    std::printf("peak:  %.1f MB above the baseline, %.2f x the file\n", peakMb, peakMb / fileMb);
    std::printf("kept:  %.1f MB of heap for the decoded report, %.2f x the file\n", double(kept) / 1e6,
                double(kept) / 1e6 / fileMb);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc > 1)
        return measure(QString::fromLocal8Bit(argv[1]));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Report.zrrpt"));
    {
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(HXReportArchive::encodeReport(*ReportFactory::make(10000, 20000)));
    }
    QProcess child;
    child.setProcessChannelMode(QProcess::ForwardedChannels);
    child.start(QCoreApplication::applicationFilePath(), {path});
    child.waitForFinished(-1);
    return child.exitCode();
}
