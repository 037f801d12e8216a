#pragma once

#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXNotificationCenter.h"

#include <QPointer>
#include <QWidget>

#include <array>
#include <stdexcept>

class HXProgress;
class HXTabButton;
class HXTestingButton;
class HXViewController;
class QLabel;
class QPushButton;
class QSettings;
class QStackedWidget;

// The defaults key of the launch counter.
inline const QString HXOrvexLaunchCount = QStringLiteral("HXOrvexLaunchCount");

// A view controller whose tab is not in the window.
class HXTabViewControllerMissingIdentifierException : public std::runtime_error
{
public:
    static constexpr const char *kName = "HXTabViewControllerMissingIdentifierException";
    explicit HXTabViewControllerMissingIdentifierException(const QString &identifier)
        : std::runtime_error(QStringLiteral("Could not find identifier \"%1\" in tabView").arg(identifier).toStdString())
    {
    }
};

// Brings a window to the front on the current desktop and activates it.
void HXOpenWindowOnCurrentSpace(QWidget *window);

// The main window: three tabs chosen by three image buttons, start and stop
// testing with the progress bar, the version line. It opens the about tab on
// every fifth launch after the first, follows tab requests from the agent and
// other views, and hands over between the tabs' view controllers with their
// own waits, the tab buttons disabled meanwhile.
class HXMainWindowController : public QWidget
{
    Q_OBJECT

public:
    struct Options
    {
        // The three tabs' controllers: status, log, about.
        std::array<HXViewController *, 3> controllers{};
        QSettings *defaults = nullptr;                      // the application's defaults
        HXNotificationCenter *localCenter = nullptr;        // the default centre when none
        HXDBusNotificationCenter *distributedCenter = nullptr; // none: no agent requests
        std::function<void()> openDebugView;                // the delegate's
    };

    explicit HXMainWindowController(Options options, QWidget *parent = nullptr);
    ~HXMainWindowController() override;

    // Wires the notifications, configures the tabs and picks the first tab.
    // Throws HXTabViewControllerMissingIdentifierException.
    void windowDidLoad();
    void configureTabViewWithViewController(HXViewController *controller);

    // A button (its tag), a number, or one of the three identifiers; anything
    // else does nothing.
    void toolbarItemSelected(const QVariant &sender);
    void selectTabAndOpenWindow(const QString &identifier);
    void showLogWindowNotification(const QVariantMap &userInfo);

    QWidget *selectedView() const;
    QString selectedTabViewIdentifier() const;
    std::array<HXViewController *, 3> tabViewControllers() const { return m_options.controllers; }
    bool isTesting() const { return m_isTesting; }
    // True while a hand-over runs (the tab buttons are disabled).
    bool isHandingOver() const;

    HXTabButton *statusButton() const { return m_statusButton; }
    HXTabButton *aboutButton() const { return m_aboutButton; }
    HXTabButton *logsButton() const { return m_logsButton; }
    HXTestingButton *startButton() const { return m_startButton; }
    HXTestingButton *stopButton() const { return m_stopButton; }
    HXProgress *testProgress() const { return m_testProgress; }
    QLabel *versionString() const { return m_versionString; }

    static void setButtonTextColor(QPushButton *button);

Q_SIGNALS:
    // Sent once, when the window first becomes active: the window asks for
    // its undo manager.
    void undoManagerRequested();

public Q_SLOTS:
    void showStatusTab();
    void showLogTab();
    void showAboutTab();
    void startTesting();
    void stopTesting();
    void updateTestStatus();
    void pretendToTest();
    void openDebugView();
    void testingFinishedStatus();

protected:
    bool event(QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void buildWindow();
    void incrementProgressBar();
    void setTabButtonsEnabled(bool enabled);
    HXViewController *controllerForIdentifier(const QString &identifier) const;
    HXViewController *selectedController() const;
    void selectTabItem(const QString &identifier);
    int indexOfTab(const QString &identifier) const;

    Options m_options;
    QStackedWidget *m_tabView = nullptr;
    HXTabButton *m_statusButton = nullptr;
    HXTabButton *m_aboutButton = nullptr;
    HXTabButton *m_logsButton = nullptr;
    HXTestingButton *m_startButton = nullptr;
    HXTestingButton *m_stopButton = nullptr;
    HXProgress *m_testProgress = nullptr;
    QLabel *m_versionString = nullptr;
    bool m_isTesting = false;
    // Counts the resets of the progress bar (stop, testing finished), so that
    // an answer about the current test asked for before one is dropped.
    quint64 m_progressGeneration = 0;
    bool m_undoManagerRequested = false;
    // The tab button that had the keyboard when a hand-over began: it gets
    // it back when the buttons are enabled again.
    QPointer<HXTabButton> m_focusedTabButton;
    std::vector<HXNotificationCenter::Token> m_localTokens;
    HXDBusNotificationCenter::Token m_agentToken = 0;
};
