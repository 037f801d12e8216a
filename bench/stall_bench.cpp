// The longest time the interface thread could not answer the user while the
// window is driven as a person would (start and stop clicks, the worker's
// broadcasts and progress updates, tab switches), once beside daemons that
// answer and once beside the same daemons stopped with SIGSTOP. A 10 ms timer
// probes the event loop; a stall is the gap between two of its ticks beyond
// those 10 ms. Run with dbus-run-session and QT_QPA_PLATFORM=offscreen (or
// under xvfb-run).
#include "HXAnimationTiming.h"
#include "HXApplication.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXMainWindowController.h"
#include "HXNotificationCenter.h"
#include "HXRemoteProxy.h"
#include "HXStatusViewController.h"
#include "HXTabButton.h"
#include "HXTestingButton.h"
#include "StandinProcess.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <signal.h>

namespace {

struct Stalls
{
    qint64 longestMs = 0;
    qint64 ticks = 0;
    qint64 elapsedMs = 0;
};

// The window as the application builds it, with the status tab.
struct Window
{
    HXNotificationCenter local;
    std::unique_ptr<HXStatusViewController> status;
    std::unique_ptr<QSettings> defaults;
    std::unique_ptr<HXMainWindowController> window;

    explicit Window(const QString &root)
    {
        HXStatusViewController::Options statusOptions;
        statusOptions.localCenter = &local;
        statusOptions.distributedCenter = HXDBusNotificationCenter::defaultCenter();
        statusOptions.listenerPort = 0;
        status = std::make_unique<HXStatusViewController>(statusOptions);
        defaults =
            std::make_unique<QSettings>(root + QStringLiteral("/stall.conf"), QSettings::IniFormat);
        HXMainWindowController::Options options;
        options.controllers = {status.get(), nullptr, nullptr};
        options.defaults = defaults.get();
        options.localCenter = &local;
        window = std::make_unique<HXMainWindowController>(options);
        window->show();
        window->windowDidLoad();
        QTest::qWait(500); // the opening hand-over and the first answers
    }
};

// Drives the window for `rounds` rounds and measures the probe's gaps.
Stalls drive(Window &w, int rounds)
{
    HXMainWindowController &window = *w.window;
    HXNotificationCenter &local = w.local;
    Stalls stalls;
    QElapsedTimer sinceTick;
    QElapsedTimer clock;
    QTimer probe;
    QObject::connect(&probe, &QTimer::timeout, [&] {
        stalls.longestMs = std::max(stalls.longestMs, sinceTick.restart() - 10);
        ++stalls.ticks;
    });
    clock.start();
    sinceTick.start();
    probe.start(10);
    // What escapes an action is dropped as the application drops what
    // escapes an event handler (the notification is posted directly here).
    auto act = [](const std::function<void()> &action) {
        try {
            action();
        } catch (const std::exception &e) {
            std::fprintf(stderr, "stall_bench: %s\n", e.what());
        }
    };
    for (int round = 0; round < rounds; ++round) {
        act([&] { QTest::mouseClick(window.startButton(), Qt::LeftButton); });
        QTest::qWait(20);
        act([&] { local.post(HXUpdateTestStatusNotification, nullptr); });
        act([&] {
            HXDBusNotificationCenter::defaultCenter()->postNotification(
                OrvexWorkerDaemonTestStatusChangedNotification, QString(), {}, true);
        });
        QTest::qWait(20);
        act([&] { QTest::mouseClick(window.logsButton(), Qt::LeftButton); });
        QTest::qWait(200);
        act([&] { QTest::mouseClick(window.statusButton(), Qt::LeftButton); });
        QTest::qWait(200);
        act([&] { QTest::mouseClick(window.stopButton(), Qt::LeftButton); });
        QTest::qWait(20);
    }
    stalls.elapsedMs = clock.elapsed();
    probe.stop();
    return stalls;
}

void report(const char *name, const Stalls &s)
{
    std::printf("%-34s longest stall %6lld ms   %5lld probe ticks in %6lld ms\n", name,
                (long long)s.longestMs, (long long)s.ticks, (long long)s.elapsedMs);
}

} // namespace

int main(int argc, char **argv)
{
    // The application's own, which logs a failure escaping an event handler
    // and goes on, as orvex does.
    HXApplication app(argc, argv);
    QTemporaryDir root;
    qputenv("ORVEX_ROOT", root.path().toUtf8());
    qputenv("ORVEX_DAEMON_BUS", "session");
    HXAnimationTiming::setScale(0.1);
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;

    StandinProcess standin(root.path());
    if (!standin.start({QStringLiteral("--serve"), QStringLiteral("idle,worker"),
                        QStringLiteral("--status-view-port"), QStringLiteral("0")})) {
        std::fprintf(stderr, "stall_bench: the stand-in daemons did not start: %s\n",
                     qPrintable(standin.standardError()));
        return 1;
    }
    std::printf("%d rounds of start, progress update, broadcast, log tab, status tab, stop; call "
                "time-out %d ms\n",
                rounds, HXRemoteProxy::callTimeout());
    Window window(root.path());
    report("daemons answering", drive(window, rounds));
    standin.signal(SIGSTOP);
    report("daemons stopped (SIGSTOP)", drive(window, rounds));
    standin.signal(SIGCONT);
    standin.stop();
    return 0;
}
