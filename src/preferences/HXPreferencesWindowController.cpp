#include "HXPreferencesWindowController.h"

#include "HXDBusNames.h"
#include "HXDaemonInteraction.h"
#include "HXDaemonPresence.h"
#include "HXDesktopEntries.h"
#include "HXExclusionsDropScrollView.h"
#include "HXExclusionsPane.h"
#include "HXPreferencesText.h"
#include "HXSchedulingController.h"
#include "HXSchedulingPane.h"
#include "HXSystemLog.h"
#include "HXTestExclusionsController.h"

#include <QAction>
#include <QActionGroup>
#include <QCheckBox>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QStackedWidget>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

HXPreferencesWindowController::HXPreferencesWindowController(Options options, QWidget *parent)
    : QMainWindow(parent)
    , m_options(std::move(options))
{
    if (!m_options.revealPowerSettings)
        m_options.revealPowerSettings = [] {
            HXDesktopEntries::revealPowerSettings();
        };
    m_scheduling = m_options.schedulingController ? m_options.schedulingController
                                                  : new HXSchedulingController(this);
    m_exclusions = new HXTestExclusionsController(this);
    setWindowTitle(HXPreferencesText("Orvex Preferences", "Orvex Preferences"));
    setObjectName(QStringLiteral("HXPreferencesWindowController"));

    m_toolbar = new QToolBar(this);
    m_toolbar->setMovable(false);
    m_toolbar->setFloatable(false);
    m_toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    m_toolbar->toggleViewAction()->setEnabled(false);
    m_toolbar->setAccessibleName(HXPreferencesText("Preference panes", "Preference panes"));
    addToolBar(m_toolbar);
    addToolbarItem(QStringLiteral("Scheduling"), SchedulingTab,
                   HXPreferencesText("Scheduling", "Scheduling"),
                   QStringLiteral("x-office-calendar"));
    addToolbarItem(QStringLiteral("Exclusions"), ExclusionsTab,
                   HXPreferencesText("Exclusions", "Exclusions"), QStringLiteral("folder"));

    auto *central = new QWidget(this);
    m_tabView = new QStackedWidget(central);
    m_schedulingPane = new HXSchedulingPane(m_scheduling, m_tabView);
    m_exclusionsPane = new HXExclusionsPane(m_exclusions, m_tabView);
    m_tabView->addWidget(m_schedulingPane);
    m_tabView->addWidget(m_exclusionsPane);
    m_daemonMissing = new QLabel(
        HXPreferencesText(
            "IdleDaemonNotRunning",
            "The Orvex idle daemon is not running: these settings cannot be read or changed now."),
        central);
    m_daemonMissing->setObjectName(QStringLiteral("DaemonMissingLine"));
    m_daemonMissing->setWordWrap(true);
    m_daemonMissing->setStyleSheet(QStringLiteral("color: #a33; font-weight: bold;"));
    m_daemonMissing->hide();
    auto *layout = new QVBoxLayout(central);
    layout->addWidget(m_daemonMissing);
    layout->addWidget(m_tabView, 1);
    setCentralWidget(central);
    resize(640, 460);

    connect(m_schedulingPane, &HXSchedulingPane::resetRequested, this,
            &HXPreferencesWindowController::resetDefaultPreferences);
    connect(m_schedulingPane, &HXSchedulingPane::sleepWarningLinkActivated, this,
            &HXPreferencesWindowController::sleepWarningLinkClicked);
    connect(m_exclusionsPane, &HXExclusionsPane::resetRequested, this,
            &HXPreferencesWindowController::resetTestExclusions);
    connect(m_scheduling, &HXSchedulingController::loadedChanged, this,
            &HXPreferencesWindowController::updateEnabled);
    connect(m_exclusions, &HXTestExclusionsController::contentChanged, this,
            &HXPreferencesWindowController::updateEnabled);

    // The toolbar keeps Tab among its own buttons unless told where it goes
    // next: on to the tabs' controls, and from them back to the toolbar.
    QWidget *lastItem = m_toolbar->widgetForAction(m_toolbar->actions().constLast());
    QWidget::setTabOrder(lastItem, m_schedulingPane->testingCheckBox());
    QWidget::setTabOrder(m_schedulingPane->resetButton(), m_exclusionsPane->list());

    m_presence =
        new HXDaemonPresence(HXDBusNames::daemonBus(), {HXIdleDaemonProxy::kConnectionName}, this);
    connect(m_presence, &HXDaemonPresence::daemonsAreRunningChanged, this,
            &HXPreferencesWindowController::daemonPresenceChanged);
    windowDidLoad();
}

HXPreferencesWindowController::~HXPreferencesWindowController() = default;

QAction *HXPreferencesWindowController::addToolbarItem(const QString &identifier, int tag,
                                                       const QString &label,
                                                       const QString &iconName)
{
    auto *group = m_toolbar->findChild<QActionGroup *>();
    if (!group)
        group = new QActionGroup(m_toolbar);
    auto *item = new QAction(QIcon::fromTheme(iconName), label, group);
    item->setObjectName(identifier);
    item->setData(tag);
    item->setCheckable(true);
    m_toolbar->addAction(item);
    // Reachable by Tab like every other control.
    if (auto *button = qobject_cast<QToolButton *>(m_toolbar->widgetForAction(item))) {
        button->setFocusPolicy(Qt::StrongFocus);
        button->setAccessibleName(label);
    }
    connect(item, &QAction::triggered, this,
            [this, item] { selectTabViewItemAtIndex(item->data().toInt()); });
    return item;
}

void HXPreferencesWindowController::windowDidLoad()
{
    selectTabViewItemAtIndex(SchedulingTab);
    m_toolbar->setVisible(true);
    updateEnabled();
}

QStringList HXPreferencesWindowController::toolbarSelectableItemIdentifiers() const
{
    QStringList identifiers;
    const QList<QAction *> items = m_toolbar->actions();
    for (const QAction *item : items)
        identifiers.append(item->objectName());
    return identifiers;
}

QAction *HXPreferencesWindowController::selectedItem() const
{
    const QList<QAction *> items = m_toolbar->actions();
    for (QAction *item : items) {
        if (item->isChecked())
            return item;
    }
    return nullptr;
}

void HXPreferencesWindowController::selectItemWithIdentifier(const QString &identifier)
{
    const QList<QAction *> items = m_toolbar->actions();
    for (QAction *item : items) {
        if (item->objectName() == identifier) {
            item->setChecked(true);
            return;
        }
    }
}

void HXPreferencesWindowController::selectTabViewItemAtIndex(int index)
{
    if (index >= 0 && index < m_tabView->count())
        m_tabView->setCurrentIndex(index);
    selectItemWithIdentifier(QString::number(index));
    QAction *match = nullptr;
    const QList<QAction *> items = m_toolbar->actions();
    for (QAction *item : items) {
        if (item->data().isValid() && item->data().toInt() == index)
            match = item; // the last one with the tag
    }
    if (match)
        selectItemWithIdentifier(match->objectName());
    else
        HXSystemLog::write(
            QStringLiteral("Could not find matching NSToolbarItem for index: %1").arg(index));
}

void HXPreferencesWindowController::resetDefaultPreferences()
{
    HXDaemonInteraction::tellIdleDaemon(
        [](HXIdleDaemonProxy &idle) { idle.resetGeneralDefaults(); });
    QTimer::singleShot(m_options.resetDelay, this, [this] {
        m_tabView->update();
        m_scheduling->setIsTestingEnabled(true);
        m_scheduling->updateValues();
        m_scheduling->refreshIdleSchedule();
        m_scheduling->setShowMenubarIcon(true);
    });
}

void HXPreferencesWindowController::resetTestExclusions()
{
    // The list shown goes back to the daemon after its reset, and stays:
    // resetting asks the daemon, the list on screen has the last word.
    HXDaemonInteraction::tellIdleDaemon([](HXIdleDaemonProxy &idle) { idle.resetExclusions(); });
    m_exclusions->synchronizeExclusions();
}

void HXPreferencesWindowController::sleepWarningLinkClicked()
{
    m_options.revealPowerSettings();
}

void HXPreferencesWindowController::daemonPresenceChanged(bool running)
{
    m_daemonRunning = running;
    m_daemonMissing->setVisible(!running);
    if (running) {
        // Everything is read anew before anything can be sent.
        m_scheduling->daemonAppeared();
        m_exclusions->loadExclusions();
    } else {
        m_scheduling->daemonWentAway();
        m_exclusions->setContent(std::nullopt);
    }
    updateEnabled();
}

void HXPreferencesWindowController::updateEnabled()
{
    m_schedulingPane->setEnabled(m_daemonRunning && m_scheduling->isLoaded());
    m_exclusionsPane->setEnabled(m_daemonRunning && m_exclusions->hasContent());
}
