// orvex: the desktop window onto the Orvex hardware and disk health monitor.
#include "HXAboutViewController.h"
#include "HXAppDelegate.h"
#include "HXApplication.h"
#include "HXArtwork.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXLogViewController.h"
#include "HXMainWindowController.h"
#include "HXPreferencesWindowController.h"
#include "HXStatusReporter.h"
#include "HXStatusViewController.h"
#include "HXStopSignals.h"
#include "HXSystemLog.h"

#include <QCloseEvent>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QFile>
#include <QIcon>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace {

const char kUsage[] =
    "Usage: orvex [OPTIONS]\n"
    "\n"
    "The window onto the Orvex daemons: the ten tests in four groups, the log,\n"
    "starting and stopping testing. A second start brings the open window forward.\n"
    "\n"
    "Options:\n"
    "  --screenshot FILE  save the window to FILE once it has painted, then quit\n"
    "  --screenshot-delay MS\n"
    "                     how long after start to take it (4000), for a person\n"
    "                     or a script to arrange the window first\n"
    "  --preferences PANE open the preferences window at PANE (scheduling or\n"
    "                     exclusions); --screenshot then saves that window\n"
    "  --startup-probe    print when the window first painted and the resident\n"
    "                     memory after start-up, then quit (for benchmarks)\n"
    "  --startup-probe-about\n"
    "                     the same, but once painted open the about tab and wait\n"
    "                     for its page before measuring the memory\n"
    "  --version          print the version and exit\n"
    "  --help             this text\n"
    "\n"
    "Environment: ORVEX_DAEMON_BUS=session looks for the daemons on the session bus;\n"
    "ORVEX_ROOT takes every product path under a folder (tests, the demo).\n";

const QString kServiceName = QStringLiteral("com.talvorn.Orvex");

// The running application on the session bus, so that a second start can
// ask the first to come forward instead of opening a second window.
class ApplicationService : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.talvorn.Orvex.Application")

public:
    explicit ApplicationService(HXAppDelegate *delegate)
        : m_delegate(delegate)
    {
    }

public Q_SLOTS:
    void Reopen() { m_delegate->applicationShouldHandleReopen(); }

private:
    HXAppDelegate *m_delegate;
};

// Reads the resident set of this process, in kB.
long residentKilobytes()
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

// Reports the first paint of the window and the memory once start-up has
// settled, then ends the program. With `openAbout`, the about tab is opened
// after the first paint and the memory is read once its page is shown.
class StartupProbe : public QObject
{
public:
    StartupProbe(const QElapsedTimer &sinceStart, std::function<void()> openAbout)
        : m_sinceStart(sinceStart)
        , m_openAbout(std::move(openAbout))
    {
    }
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && !m_painted) {
            m_painted = true;
            std::printf("painted-ms %.1f\n", double(m_sinceStart.nsecsElapsed()) / 1e6);
            std::fflush(stdout);
            if (m_openAbout)
                QTimer::singleShot(0, this, [this] { m_openAbout(); });
            else
                reportMemorySoon();
        }
        return QObject::eventFilter(watched, event);
    }
    void aboutPageShown(HXAboutViewController::Page page)
    {
        std::printf("about-page %s %.1f\n",
                    page == HXAboutViewController::Page::Web ? "web" : "picture",
                    double(m_sinceStart.nsecsElapsed()) / 1e6);
        std::fflush(stdout);
        reportMemorySoon();
    }

private:
    void reportMemorySoon()
    {
        QTimer::singleShot(1000, [] {
            std::printf("rss-kb %ld\n", residentKilobytes());
            std::fflush(stdout);
            QCoreApplication::exit(0);
        });
    }

    const QElapsedTimer &m_sinceStart;
    std::function<void()> m_openAbout;
    bool m_painted = false;
};

// Asks the quit rules before the main window closes.
class QuitGuard : public QObject
{
public:
    explicit QuitGuard(HXAppDelegate *delegate)
        : m_delegate(delegate)
    {
    }
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Close && !m_delegate->applicationShouldTerminate()) {
            event->ignore();
            return true;
        }
        return QObject::eventFilter(watched, event);
    }

private:
    HXAppDelegate *m_delegate;
};

} // namespace

int main(int argc, char **argv)
{
    QElapsedTimer sinceStart;
    sinceStart.start();
    QString screenshot;
    int screenshotDelay = 4000;
    QString preferencesPane;
    bool probe = false;
    bool probeAbout = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("orvex %s\n", ORVEX_VERSION);
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (std::strcmp(argv[i], "--startup-probe") == 0) {
            probe = true;
            continue;
        }
        if (std::strcmp(argv[i], "--startup-probe-about") == 0) {
            probe = probeAbout = true;
            continue;
        }
        if (std::strcmp(argv[i], "--preferences") == 0 && i + 1 < argc) {
            preferencesPane = QString::fromLocal8Bit(argv[++i]);
            if (preferencesPane != QLatin1String("scheduling") &&
                preferencesPane != QLatin1String("exclusions")) {
                std::fprintf(stderr, "orvex: --preferences takes scheduling or exclusions\n");
                return 2;
            }
            continue;
        }
        if (std::strcmp(argv[i], "--screenshot") == 0 && i + 1 < argc) {
            screenshot = QString::fromLocal8Bit(argv[++i]);
            continue;
        }
        if (std::strcmp(argv[i], "--screenshot-delay") == 0 && i + 1 < argc) {
            screenshotDelay = std::max(0, std::atoi(argv[++i]));
            continue;
        }
        std::fprintf(stderr, "orvex: unknown option \"%s\"\n%s", argv[i], kUsage);
        return 2;
    }

    // Before any thread starts, so that only the event loop sees them.
    HXStopSignals::block();
    HXApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("talvorn"));
    QCoreApplication::setApplicationName(QStringLiteral("Orvex"));
    QCoreApplication::setApplicationVersion(QStringLiteral(ORVEX_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("com.talvorn.Orvex"));
    QGuiApplication::setWindowIcon(QIcon(QStringLiteral(":/artwork/orvex.svg")));
    const Qt::KeyboardModifiers held = QGuiApplication::queryKeyboardModifiers();

    QDBusConnection session = QDBusConnection::sessionBus();
    if (session.isConnected() && !session.registerService(kServiceName)) {
        // Already running: bring that window forward.
        session.call(QDBusMessage::createMethodCall(kServiceName, QStringLiteral("/"),
                                                    QStringLiteral("com.talvorn.Orvex.Application"),
                                                    QStringLiteral("Reopen")),
                     QDBus::Block, 3000);
        return 0;
    }

    // The window never waits for a worker's turn at the report: a log line
    // that finds the file locked is shown at once and written a moment later.
    HXStatusReporter::sharedReporter()->setLockWait(0);
    HXArtwork::loadFonts();
    HXStatusViewController::Options statusOptions;
    statusOptions.distributedCenter = HXDBusNotificationCenter::defaultCenter();
    HXStatusViewController status(statusOptions);
    HXLogViewController log;
    HXAboutViewController about;
    HXAppDelegate::Options options;
    options.controllers = {&status, &log, &about};
    HXAppDelegate delegate(options);
    delegate.applicationDidFinishLaunching(held);
    status.setTestingFinishedHandler([&delegate] {
        if (HXMainWindowController *window = delegate.mainWindowController())
            window->testingFinishedStatus();
    });
    ApplicationService service(&delegate);
    session.registerObject(QStringLiteral("/"), &service, QDBusConnection::ExportAllSlots);
    QuitGuard guard(&delegate);
    QWidget *window = delegate.window();
    window->installEventFilter(&guard);
    StartupProbe startupProbe(sinceStart, probeAbout ? std::function<void()>([&delegate] {
                                  delegate.mainWindowController()->showAboutTab();
                              })
                                                     : std::function<void()>());
    if (probe)
        window->installEventFilter(&startupProbe);
    if (probeAbout)
        QObject::connect(&about, &HXAboutViewController::pageShown, &startupProbe,
                         [&startupProbe](HXAboutViewController::Page page) {
                             startupProbe.aboutPageShown(page);
                         });
    window->show();
    QWidget *shown = window;
    if (!preferencesPane.isEmpty()) {
        delegate.showPreferences();
        HXPreferencesWindowController *preferences = delegate.preferencesWindowController();
        preferences->selectTabViewItemAtIndex(preferencesPane == QLatin1String("exclusions")
                                                  ? HXPreferencesWindowController::ExclusionsTab
                                                  : HXPreferencesWindowController::SchedulingTab);
        shown = preferences;
    }

    if (!screenshot.isEmpty()) {
        // After the first paints and the opening hand-over.
        QTimer::singleShot(screenshotDelay, shown, [shown, screenshot] {
            const bool saved = shown->grab().save(screenshot);
            std::fprintf(saved ? stdout : stderr, saved ? "orvex: saved a screenshot to %s\n"
                                                        : "orvex: could not save a screenshot to %s\n",
                         qPrintable(screenshot));
            QCoreApplication::exit(saved ? 0 : 1);
        });
    }
    // Logging out or systemd ends the application: the window closes by the
    // quit rules (the store is saved), and it quits whatever they answer.
    HXStopSignals stop;
    QObject::connect(&stop, &HXStopSignals::received, &app, [window] {
        window->close();
        QCoreApplication::quit();
    });
    const int exitStatus = app.exec();
    delegate.applicationWillTerminate();
    // A daemon that stopped answering must not hold up quitting: what is
    // still waiting for it is given a second, then left behind.
    if (!HXDaemonInteraction::waitForQueues(1000)) {
        HXSystemLog::write(QStringLiteral("Quitting while a daemon has not answered"));
        std::fflush(nullptr);
        std::_Exit(exitStatus);
    }
    return exitStatus;
}

#include "main.moc"
