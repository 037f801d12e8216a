// The status tab's speed on a report of 10,000 results and 20,000 log
// entries: (a) the rebuild of the ten test states and four group statuses,
// as model code alone and through the status view controller with its group
// views; (b) from the moment a rewritten report file is renamed into place to
// the moment the group views show the new statuses. Timed, medians over runs;
// needs a display (QT_QPA_PLATFORM=offscreen will do).
#include "AtomicFileWriter.h"
#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXMachineProbes.h"
#include "HXNotificationCenter.h"
#include "HXReportArchive.h"
#include "HXStatusBoard.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"
#include "ReportFactory.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

namespace {

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    HXAnimationTiming::setScale(0.0); // no animation in the way of the figures
    HXFakeMachineProbes machine;      // every test applies
    HXMachineProbes::setCurrent(&machine);
    QTemporaryDir root;
    QDir().mkpath(root.filePath(QStringLiteral("var/lib/orvex")));
    qputenv("ORVEX_ROOT", root.path().toUtf8());
    qputenv("ORVEX_DAEMON_BUS", "session");

    const HXStatusReportRef report = ReportFactory::make(10000, 20000);
    // Two versions of the file that differ in the system group's outcome:
    // without any I/O or POST result (no result), and with one I/O error.
    HXTestResultList quiet;
    for (const HXTestResultRef &r : report->testResults()) {
        if (!r->name().contains(HXDIOErrorTestName) && !r->name().contains(HXDPOSTCheckTestName))
            quiet.append(r);
    }
    HXStatusReport passing;
    passing.setLog(report->log());
    passing.setTestResults(quiet);
    HXStatusReport failing;
    failing.setLog(report->log());
    quiet.removeFirst(); // stay at 10,000 with the error added
    quiet.append(HXTestResult::resultWithType(HXDTestResultErrorType, HXDIOErrorTestName, QStringLiteral("I/O errors on sdb"), QVariant()));
    failing.setTestResults(quiet);
    const QByteArray passingBytes = HXReportArchive::encodeReport(passing);
    const QByteArray failingBytes = HXReportArchive::encodeReport(failing);
    const QString path = root.filePath(QStringLiteral("var/lib/orvex/Report.zrrpt"));
    AtomicFileWriter::write(path, passingBytes, 0644, QString());

    std::printf("report: %lld results, %lld log entries\n", qint64(report->testResults().size()), qint64(report->log().size()));
    // (a) model code alone.
    {
        HXStatusBoard board;
        std::vector<double> times;
        for (int i = 0; i < 51; ++i) {
            QElapsedTimer clock;
            clock.start();
            board.rebuild(report);
            int sum = 0;
            for (HXTestGroup g : {HXTestGroup::Hardware, HXTestGroup::System, HXTestGroup::Drives, HXTestGroup::Files})
                sum += board.groupStatus(g);
            times.push_back(double(clock.nsecsElapsed()) / 1e6 + 0 * sum);
        }
        std::printf("rebuild (model) of 10,000 results: median %.2f ms over 51 runs\n", median(times));
    }

    HXNotificationCenter local;
    HXStatusReporter reporter(HXStatusReporter::Options{path, &local, nullptr, true});
    HXStatusViewController::Options options;
    options.reporter = &reporter;
    options.localCenter = &local;
    options.listenerPort = 0;
    HXStatusViewController controller(options);
    QWidget *view = controller.view();
    view->resize(900, 520);
    view->show();
    QApplication::processEvents();

    // (a) through the controller and its four group views.
    {
        std::vector<double> times;
        for (int i = 0; i < 51; ++i) {
            QElapsedTimer clock;
            clock.start();
            controller.reloadData();
            times.push_back(double(clock.nsecsElapsed()) / 1e6);
        }
        std::printf("rebuild (controller and group views): median %.2f ms over 51 runs\n", median(times));
    }

    // (b) rename to shown.
    std::vector<double> latencies;
    for (int i = 0; i < 15; ++i) {
        const bool fail = i % 2 == 0;
        const int wanted = fail ? 3 : 0;
        QElapsedTimer clock;
        clock.start();
        AtomicFileWriter::write(path, fail ? failingBytes : passingBytes, 0644, QString());
        // The write ends with the rename; the watcher takes it from there.
        const qint64 renamed = clock.nsecsElapsed();
        while (controller.systemView()->testStatus() != wanted) {
            QApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
            if (clock.elapsed() > 5000) {
                std::fprintf(stderr, "status_bench: the group views never showed the change\n");
                return 1;
            }
        }
        latencies.push_back(double(clock.nsecsElapsed() - renamed) / 1e6);
        // Let the released report go before the next round.
        reporter.waitForPendingReleases();
        QApplication::processEvents();
    }
    std::printf("rename of a %.1f MB report to the group views showing it: median %.1f ms, worst %.1f ms over %zu runs\n",
                double(failingBytes.size()) / 1e6, median(latencies), *std::max_element(latencies.begin(), latencies.end()),
                latencies.size());
    return 0;
}
