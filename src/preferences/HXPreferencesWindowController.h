#pragma once

#include <QMainWindow>
#include <functional>

class HXDaemonPresence;
class HXExclusionsPane;
class HXSchedulingController;
class HXSchedulingPane;
class HXTestExclusionsController;
class QAction;
class QLabel;
class QStackedWidget;
class QToolBar;

// The preferences window: toolbar items switching between the Scheduling
// and Exclusions tabs (each item's tag is its tab's index), the two resets,
// and the line that says when the idle daemon is not running. While the
// daemon is missing, and until its settings have arrived after it appears,
// the tabs' controls are disabled, so no change is sent before the values
// it would replace are known.
class HXPreferencesWindowController : public QMainWindow
{
    Q_OBJECT

public:
    enum Tab { SchedulingTab = 0, ExclusionsTab = 1 };

    struct Options
    {
        HXSchedulingController *schedulingController = nullptr; // made here if none
        // Opens the desktop's power settings.
        std::function<void()> revealPowerSettings;
        int resetDelay = 500; // milliseconds between the daemon's reset and the follow-up
    };

    explicit HXPreferencesWindowController(Options options, QWidget *parent = nullptr);
    explicit HXPreferencesWindowController(QWidget *parent = nullptr)
        : HXPreferencesWindowController(Options(), parent)
    {
    }
    ~HXPreferencesWindowController() override;

    QToolBar *toolbar() const { return m_toolbar; }
    QStackedWidget *tabView() const { return m_tabView; }
    HXSchedulingController *schedulingController() const { return m_scheduling; }
    HXTestExclusionsController *exclusionsController() const { return m_exclusions; }
    HXSchedulingPane *schedulingPane() const { return m_schedulingPane; }
    HXExclusionsPane *exclusionsPane() const { return m_exclusionsPane; }
    QLabel *daemonMissingLine() const { return m_daemonMissing; }
    // The toolbar's checked item.
    QAction *selectedItem() const;

    // Every toolbar item can be selected.
    QStringList toolbarSelectableItemIdentifiers() const;
    void selectTabViewItemAtIndex(int index);
    void showScheduling() { selectTabViewItemAtIndex(SchedulingTab); }
    void showExclusions() { selectTabViewItemAtIndex(ExclusionsTab); }

    void resetDefaultPreferences();
    void resetTestExclusions();
    void sleepWarningLinkClicked();

private:
    void windowDidLoad();
    QAction *addToolbarItem(const QString &identifier, int tag, const QString &label,
                            const QString &iconName);
    void selectItemWithIdentifier(const QString &identifier);
    void daemonPresenceChanged(bool running);
    void updateEnabled();

    Options m_options;
    QToolBar *m_toolbar = nullptr;
    QStackedWidget *m_tabView = nullptr;
    HXSchedulingController *m_scheduling = nullptr;
    HXTestExclusionsController *m_exclusions = nullptr;
    HXSchedulingPane *m_schedulingPane = nullptr;
    HXExclusionsPane *m_exclusionsPane = nullptr;
    QLabel *m_daemonMissing = nullptr;
    HXDaemonPresence *m_presence = nullptr;
    bool m_daemonRunning = false;
};
