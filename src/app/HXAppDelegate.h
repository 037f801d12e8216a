#pragma once

#include "HXDebugWindowController.h"
#include "HXMachineProbes.h"
#include "HXMainWindowController.h"
#include "HXPersistentStore.h"
#include "HXUserPrompts.h"
#include "ZRHelpReporterWindowController.h"

#include <QObject>
#include <QPointer>
#include <QSettings>
#include <array>
#include <memory>

class HXLogViewController;
class HXPreferencesWindowController;
class HXViewController;

class QMenu;
class QMenuBar;
class QPrinter;

inline const QString kOrvexDebugModeKey = QStringLiteral("kOrvexDebugModeKey");
inline const QString HXPrintPreferenceIsTextKey = QStringLiteral("HXPrintPreferenceIsTextKey");

// The application's delegate: starts the application, owns the main window,
// the debug window and the small persistent store, carries the menu actions
// (save and print the log, the manual, the debug window) and the rules for
// reopening and quitting.
class HXAppDelegate : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool showResetMenuItem READ showResetMenuItem NOTIFY showResetMenuItemChanged)

public:
    struct Options
    {
        std::array<HXViewController *, 3> controllers{}; // status, log, about
        QSettings *defaults = nullptr;                   // the application's (QSettings "talvorn"/"Orvex" if none)
        HXUserPrompts *prompts = nullptr;                // dialogs if none
        QString storeFolder;                             // the XDG data folder's "Orvex" if empty
        bool wakeServer = true;
    };

    // Read once: ORVEX_SYSTEM_VERSION=major.minor.bugfix, else 10.15.0.
    static HXSystemVersion systemVersion();

    explicit HXAppDelegate(Options options, QObject *parent = nullptr);
    ~HXAppDelegate() override;

    // Start-up after the application object exists; `held` are the modifier
    // keys held at launch.
    void applicationDidFinishLaunching(Qt::KeyboardModifiers held);
    void checkForLaunchModifiers(Qt::KeyboardModifiers held);

    HXMainWindowController *mainWindowController() const { return m_mainWindowController; }
    QWidget *window() const;
    HXDebugWindowController *debugWindowController() const { return m_debugWindowController; }
    QMenuBar *menuBar() const { return m_menuBar; }
    QMenu *logMenu() const { return m_logMenu; }
    // The log tab's controller, when the window has one.
    HXLogViewController *logViewController() const;
    // Made on first use; lives as long as the delegate.
    HXPreferencesWindowController *preferencesWindowController();
    // Made when launching has finished; lives as long as the delegate.
    ZRHelpReporterWindowController *helpReporter() const { return m_helpReporter; }
    // The about window last opened, while it is open.
    QWidget *aboutWindow() const { return m_aboutWindow; }

    bool userNotificationsSupported() const { return m_userNotificationsSupported; }
    bool showResetMenuItem() const { return m_showResetMenuItem; }

    // The store, made on first use; null (the error shown) when it cannot be.
    HXPersistentStore *persistentStore();
    HXPersistentStore *managedObjectContext();

    // True to quit now.
    bool applicationShouldTerminate();
    void applicationWillTerminate();
    bool applicationShouldHandleReopen();

    // The manual shipped with the application ("Orvex Manual.pdf").
    static QString manualPath();

public Q_SLOTS:
    void orderFrontMainWindow();
    void openDebugViewNow(bool show);
    void showPreferences();
    void showHelp();
    void sendReport();
    void openAboutWindow();
#ifdef ORVEX_UPDATE_CHECK
    // Asks the update server on a thread of its own; the answer comes as an alert.
    void checkForUpdate();
#endif
    void saveAction();
    void saveLogAsPDF();
    void saveLogAsText();
    void print();
    void menuNeedsUpdate(Qt::KeyboardModifiers held);

Q_SIGNALS:
    void showResetMenuItemChanged(bool shown);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildMenus();
    HXUserPrompts *prompts() const;

    Options m_options;
    std::unique_ptr<QSettings> m_ownDefaults;
    std::unique_ptr<HXDialogPrompts> m_dialogs;
    QPointer<HXMainWindowController> m_mainWindowController;
    QPointer<HXDebugWindowController> m_debugWindowController;
    QPointer<HXPreferencesWindowController> m_preferencesWindowController;
    QPointer<ZRHelpReporterWindowController> m_helpReporter;
    QPointer<QWidget> m_aboutWindow;
    QMenuBar *m_menuBar = nullptr;
    QMenu *m_logMenu = nullptr;
    std::unique_ptr<HXPersistentStore> m_store;
    std::unique_ptr<QPrinter> m_printer; // the shared print settings
    bool m_storeTried = false;
    bool m_contextMade = false;
    bool m_userNotificationsSupported = false;
    bool m_showResetMenuItem = false;
};
