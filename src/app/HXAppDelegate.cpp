#include "HXAppDelegate.h"

#include "CommandSender.h"
#include "HXAboutWindowController.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXDebugWindowController.h"
#include "HXLogDocuments.h"
#include "HXLogOutlineView.h"
#include "HXLogPrintView.h"
#include "HXLogViewController.h"
#include "HXMainWindowController.h"
#include "HXPreferencesWindowController.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "ZRHelpReporterWindowController.h"
#ifdef ORVEX_UPDATE_CHECK
#include "HXUpdateCheck.h"
#endif

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMenu>
#include <QMenuBar>
#include <QPrinter>
#include <QProgressDialog>
#include <QUrl>
#include <QVBoxLayout>

HXSystemVersion HXAppDelegate::systemVersion()
{
    return HXSystemVersion::current();
}

HXAppDelegate::HXAppDelegate(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    if (!m_options.defaults) {
        m_ownDefaults = std::make_unique<QSettings>(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
        m_options.defaults = m_ownDefaults.get();
    }
    if (!m_options.prompts)
        m_dialogs = std::make_unique<HXDialogPrompts>();
    if (m_options.storeFolder.isEmpty())
        m_options.storeFolder = HXPersistentStore::defaultFolder();
    const HXSystemVersion v = systemVersion();
    m_userNotificationsSupported = v.major > 10 || (v.major == 10 && v.minor > 7);
}

HXAppDelegate::~HXAppDelegate()
{
    delete m_helpReporter;
    delete m_preferencesWindowController;
    delete m_debugWindowController;
    delete m_mainWindowController;
}

HXUserPrompts *HXAppDelegate::prompts() const
{
    return m_options.prompts ? m_options.prompts : m_dialogs.get();
}

QWidget *HXAppDelegate::window() const
{
    return m_mainWindowController;
}

void HXAppDelegate::applicationDidFinishLaunching(Qt::KeyboardModifiers held)
{
    HXMainWindowController::Options windowOptions;
    windowOptions.controllers = m_options.controllers;
    windowOptions.defaults = m_options.defaults;
    windowOptions.distributedCenter = HXDBusNotificationCenter::defaultCenter();
    windowOptions.openDebugView = [this] { openDebugViewNow(true); };
    m_mainWindowController = new HXMainWindowController(windowOptions);
    if (m_dialogs)
        m_dialogs->setWindow(m_mainWindowController);
    // The window's undo manager is the store's context: asking for it opens
    // the store. Queued, so that a failure's alerts come over a window that
    // has finished becoming active.
    connect(
        m_mainWindowController, &HXMainWindowController::undoManagerRequested, this,
        [this] { managedObjectContext(); }, Qt::QueuedConnection);

    buildMenus(); // (a) the log menu and its delegate
    ZRHelpReporterWindowController::Options reporterOptions;
    reporterOptions.defaults = m_options.defaults;
    m_helpReporter = new ZRHelpReporterWindowController(reporterOptions); // (b)
    checkForLaunchModifiers(held); // (c)
    if (m_options.wakeServer)
        HXCommandSender::wakeServer(); // (d)
    m_mainWindowController->windowDidLoad(); // (e) the window, which picks its first tab
}

void HXAppDelegate::buildMenus()
{
    m_menuBar = new QMenuBar(m_mainWindowController);
    auto *file = m_menuBar->addMenu(tr("&File"));
    file->addAction(tr("&Save"), QKeySequence(Qt::CTRL | Qt::Key_S), this,
                    &HXAppDelegate::saveAction);
    file->addAction(tr("Save Log as &Text…"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S), this,
                    &HXAppDelegate::saveLogAsText);
    file->addAction(tr("Save Log as P&DF…"), this, &HXAppDelegate::saveLogAsPDF);
    file->addAction(tr("&Print Log…"), QKeySequence(Qt::CTRL | Qt::Key_P), this,
                    &HXAppDelegate::print);
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence(Qt::CTRL | Qt::Key_Q), qApp,
                    &QApplication::closeAllWindows);

    auto *edit = m_menuBar->addMenu(tr("&Edit"));
    edit->addAction(tr("&Preferences…"), QKeySequence(Qt::CTRL | Qt::Key_Comma), this,
                    &HXAppDelegate::showPreferences);

    m_logMenu = m_menuBar->addMenu(tr("&Log"));
    // Kept up to date while the menu is open; the reset item itself comes
    // with the log view.
    connect(m_logMenu, &QMenu::aboutToShow, this, [this] { menuNeedsUpdate(QGuiApplication::queryKeyboardModifiers()); });
    m_logMenu->addAction(tr("Save as &Text…"), this, &HXAppDelegate::saveLogAsText);
    m_logMenu->addAction(tr("Save as &PDF…"), this, &HXAppDelegate::saveLogAsPDF);
    if (HXLogViewController *log = logViewController()) {
        m_logMenu->addSeparator();
        m_logMenu->addAction(log->clearLogAction());
        m_logMenu->addAction(log->resetAction());
        m_logMenu->addAction(log->showInFileManagerAction());
        connect(this, &HXAppDelegate::showResetMenuItemChanged, log->resetAction(),
                &QAction::setVisible);
        // Alt pressed or let go while the menu is open shows or hides the
        // reset item at once.
        m_logMenu->installEventFilter(this);
    }

    auto *window = m_menuBar->addMenu(tr("&Window"));
    window->addAction(tr("&Orvex"), QKeySequence(Qt::CTRL | Qt::Key_1), this, &HXAppDelegate::orderFrontMainWindow);
    window->addAction(tr("&Debug"), this, [this] { openDebugViewNow(true); });

    auto *help = m_menuBar->addMenu(tr("&Help"));
    help->addAction(tr("Orvex &Manual"), QKeySequence::HelpContents, this, &HXAppDelegate::showHelp);
    help->addAction(tr("Send &Report…"), this, &HXAppDelegate::sendReport);
#ifdef ORVEX_UPDATE_CHECK
    help->addAction(tr("Check for &Update…"), this, &HXAppDelegate::checkForUpdate);
#endif
    help->addAction(tr("&About Orvex"), this, &HXAppDelegate::openAboutWindow);

    if (auto *layout = qobject_cast<QVBoxLayout *>(m_mainWindowController->layout()))
        layout->setMenuBar(m_menuBar);
}

void HXAppDelegate::openAboutWindow()
{
    // A new window each time, as the menu item always made one; it goes
    // when closed.
    auto *about =
        new HXAboutWindowController(QStringLiteral(ORVEX_BUILD_VERSION), m_mainWindowController);
    m_aboutWindow = about;
    about->show();
    about->raise();
    about->activateWindow();
}

#ifdef ORVEX_UPDATE_CHECK
void HXAppDelegate::checkForUpdate()
{
    HXUpdateCheck::checkForUpdate(true);
}
#endif

HXPreferencesWindowController *HXAppDelegate::preferencesWindowController()
{
    if (!m_preferencesWindowController)
        m_preferencesWindowController = new HXPreferencesWindowController();
    return m_preferencesWindowController;
}

void HXAppDelegate::showPreferences()
{
    HXPreferencesWindowController *window = preferencesWindowController();
    window->show();
    window->raise();
    window->activateWindow();
}

void HXAppDelegate::checkForLaunchModifiers(Qt::KeyboardModifiers held)
{
    // Super stands for Command.
    const Qt::KeyboardModifiers wanted = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
    if ((held & ~Qt::KeypadModifier) == wanted) {
        const bool enable = prompts()->askDebugMode();
        HXDaemonInteraction::tellIdleDaemon(
            [enable](HXIdleDaemonProxy &idle) { idle.setIsDebugModeEnabled(enable); });
    }
    // In the idle daemon's queue after the answer above, so the stored key
    // still has the last word.
    if (m_options.defaults->contains(kOrvexDebugModeKey)) {
        const bool stored = m_options.defaults->value(kOrvexDebugModeKey).toBool();
        HXDaemonInteraction::tellIdleDaemon(
            [stored](HXIdleDaemonProxy &idle) { idle.setIsDebugModeEnabled(stored); });
    }
}

void HXAppDelegate::menuNeedsUpdate(Qt::KeyboardModifiers held)
{
    const bool show = (held & ~Qt::KeypadModifier) == Qt::AltModifier;
    if (show == m_showResetMenuItem)
        return;
    m_showResetMenuItem = show;
    Q_EMIT showResetMenuItemChanged(show);
}

HXLogViewController *HXAppDelegate::logViewController() const
{
    return qobject_cast<HXLogViewController *>(m_options.controllers[1]);
}

bool HXAppDelegate::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_logMenu &&
        (event->type() == QEvent::KeyPress || event->type() == QEvent::KeyRelease)) {
        const auto *key = static_cast<QKeyEvent *>(event);
        // The release still reports Alt among the keys held.
        if (key->key() == Qt::Key_Alt)
            menuNeedsUpdate(event->type() == QEvent::KeyPress
                                ? key->modifiers() | Qt::AltModifier
                                : key->modifiers() & ~Qt::AltModifier);
    }
    return QObject::eventFilter(watched, event);
}

void HXAppDelegate::orderFrontMainWindow()
{
    HXOpenWindowOnCurrentSpace(m_mainWindowController);
}

void HXAppDelegate::openDebugViewNow(bool show)
{
    if (!m_debugWindowController)
        m_debugWindowController = new HXDebugWindowController;
    if (show)
        HXOpenWindowOnCurrentSpace(m_debugWindowController);
}

QString HXAppDelegate::manualPath()
{
    const QString name = tr("Orvex Manual") + QStringLiteral(".pdf");
    const QString beside = QCoreApplication::applicationDirPath();
    // Installed: <prefix>/share/orvex; in a build tree: docs/ beside the program.
    for (const QString &folder : {beside + QStringLiteral("/../share/orvex"), beside + QStringLiteral("/docs")}) {
        const QString path = QDir::cleanPath(folder + QLatin1Char('/') + name);
        if (QFileInfo::exists(path))
            return path;
    }
    return QDir::cleanPath(beside + QStringLiteral("/../share/orvex/") + name);
}

void HXAppDelegate::showHelp()
{
    const QString path = manualPath();
    if (!QFileInfo::exists(path) || !QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        HXSystemLog::write(QStringLiteral("Could not open manual located at path: %1").arg(path));
}

void HXAppDelegate::sendReport()
{
    if (m_helpReporter)
        m_helpReporter->showSendReportDialog(ZRHelpReporterWindowController::UserRequest);
}

HXPersistentStore *HXAppDelegate::persistentStore()
{
    if (m_storeTried)
        return m_store.get();
    m_storeTried = true;
    HXError error;
    m_store = HXPersistentStore::open(m_options.storeFolder, &error);
    if (!m_store)
        prompts()->presentError(error);
    return m_store.get();
}

HXPersistentStore *HXAppDelegate::managedObjectContext()
{
    m_contextMade = true;
    HXPersistentStore *store = persistentStore();
    if (!store)
        prompts()->presentError({HXOrvexErrorDomain, 9999, tr("Failed to initialize the store"),
                                 tr("There was an error building up the data file.")});
    return store;
}

void HXAppDelegate::saveAction()
{
    HXPersistentStore *store = managedObjectContext();
    if (!store)
        return;
    HXError error;
    if (!store->save(&error))
        prompts()->presentError(error);
}

void HXAppDelegate::saveLogAsText()
{
    const QString path = prompts()->askSavePath(tr("Orvex Log.txt"), {QStringLiteral("txt"), QStringLiteral("log")});
    if (path.isEmpty())
        return;
    QString why;
    if (!HXLogDocuments::saveWorkerLogAsText(path, &why))
        prompts()->presentError({QString(), 0, why});
}

void HXAppDelegate::saveLogAsPDF()
{
    const QString path = prompts()->askSavePath(tr("Orvex Log.pdf"), {QStringLiteral("pdf")});
    if (path.isEmpty())
        return;
    QString why;
    bool saved = false;
    if (HXLogViewController *log = logViewController()) {
        // The log view's print copy, with the files the screen shows.
        const HXLogPrintView copy(log->statusReporter()->report(),
                                  log->outlineView()->expandedEntries());
        // A long log takes seconds: the window goes on meanwhile, and the
        // user may stop it.
        QProgressDialog progress(tr("Saving the log as PDF…"), tr("Cancel"), 0, 100,
                                 m_mainWindowController);
        progress.setWindowModality(Qt::WindowModal);
        progress.setMinimumDuration(500);
        saved = copy.saveAsPdf(path, &why, [&progress](int done, int total) {
            progress.setMaximum(total);
            progress.setValue(done);
            QCoreApplication::processEvents();
            return !progress.wasCanceled();
        });
        if (!saved && why.isEmpty())
            return; // stopped by the user
    } else {
        saved =
            HXLogDocuments::saveLogAsPdf(path, HXStatusReporter::sharedReporter()->report(), &why);
    }
    if (!saved)
        prompts()->presentError({QString(), 0, why});
}

void HXAppDelegate::print()
{
    // Read and ignored: the log is always printed as the worker's text.
    (void)m_options.defaults->value(HXPrintPreferenceIsTextKey).toBool();
    // One printer for the session, so the panel keeps what was chosen last.
    if (!m_printer)
        m_printer = std::make_unique<QPrinter>(QPrinter::HighResolution);
    if (!prompts()->askPrintSettings(m_printer.get()))
        return;
    QString why;
    if (!HXLogDocuments::printWorkerLog(m_printer.get(), &why))
        prompts()->presentError({QString(), 0, why});
}

bool HXAppDelegate::applicationShouldTerminate()
{
    if (!m_contextMade || !m_store)
        return true;
    if (!m_store->hasChanges())
        return true;
    HXError error;
    if (m_store->save(&error))
        return true;
    prompts()->presentError(error);
    // Compared with 0, which the alert never answers: the application quits
    // whichever button was chosen.
    if (prompts()->askQuitAnyway() == 0)
        return false;
    return true;
}

void HXAppDelegate::applicationWillTerminate()
{
    // The window's observers go with it.
    delete m_mainWindowController;
}

bool HXAppDelegate::applicationShouldHandleReopen()
{
    orderFrontMainWindow();
    return true;
}
