#include "HXMainWindowController.h"

#include "HXArtwork.h"
#include "HXDaemonInteraction.h"
#include "HXKeyboardFocus.h"
#include "HXProgress.h"
#include "HXStatusBoard.h"
#include "HXSystemLog.h"
#include "HXTabButton.h"
#include "HXTestingButton.h"
#include "HXViewController.h"

#include <QCoreApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLinearGradient>
#include <QPainter>
#include <QPushButton>
#include <QSettings>
#include <QStackedWidget>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>

namespace {

constexpr int kStatusTab = 101;
constexpr int kLogTab = 102;
constexpr int kAboutTab = 103;

struct TabImages
{
    const char *status;
    const char *about;
    const char *logs;
};

// Runs `work` on the main thread after `microseconds`, waited on a
// background thread.
void afterWait(QObject *context, long long microseconds, std::function<void()> work)
{
    QPointer<QObject> guard(context);
    QThreadPool::globalInstance()->start([guard, microseconds, work = std::move(work)] {
        if (microseconds > 0)
            QThread::usleep(static_cast<unsigned long>(microseconds));
        QMetaObject::invokeMethod(QCoreApplication::instance(), [guard, work] {
            if (guard)
                work();
        }, Qt::QueuedConnection);
    });
}

} // namespace

void HXOpenWindowOnCurrentSpace(QWidget *window)
{
    if (!window)
        return;
    window->show();
    if (window->isMinimized())
        window->showNormal();
    window->raise();
    window->activateWindow();
}

HXMainWindowController::HXMainWindowController(Options options, QWidget *parent)
    : QWidget(parent)
    , m_options(std::move(options))
{
    if (!m_options.localCenter)
        m_options.localCenter = &HXNotificationCenter::defaultCenter();
    setObjectName(QStringLiteral("MainWindow"));
    setWindowTitle(QStringLiteral("Orvex"));
    buildWindow();
}

HXMainWindowController::~HXMainWindowController()
{
    for (const auto token : m_localTokens)
        m_options.localCenter->removeObserver(token);
    if (m_options.distributedCenter && m_agentToken)
        m_options.distributedCenter->removeObserver(m_agentToken);
}

void HXMainWindowController::buildWindow()
{
    HXArtwork::loadFonts();
    QPalette dark = palette();
    dark.setColor(QPalette::Window, QColor(0x23, 0x27, 0x2d));
    dark.setColor(QPalette::WindowText, QColor(0xe6, 0xe9, 0xed));
    dark.setColor(QPalette::Base, QColor(0x1a, 0x1d, 0x21));
    dark.setColor(QPalette::Text, QColor(0xe6, 0xe9, 0xed));
    dark.setColor(QPalette::Button, QColor(0x3a, 0x40, 0x48));
    dark.setColor(QPalette::ButtonText, QColor(0xe6, 0xe9, 0xed));
    dark.setColor(QPalette::Highlight, QColor(0xf0, 0x8a, 0x24));
    setPalette(dark);
    setAutoFillBackground(false);

    m_statusButton = new HXTabButton(tr("Status"), kStatusTab, this);
    m_aboutButton = new HXTabButton(tr("About"), kAboutTab, this);
    m_logsButton = new HXTabButton(tr("Log"), kLogTab, this);
    m_statusButton->setImageName(QStringLiteral("leftTabPressed.png"));
    m_aboutButton->setImageName(QStringLiteral("middleTab.png"));
    m_logsButton->setImageName(QStringLiteral("rightTab.png"));
    auto *tabs = new QHBoxLayout;
    tabs->setSpacing(0);
    tabs->addStretch(1);
    for (HXTabButton *button : {m_statusButton, m_aboutButton, m_logsButton}) {
        tabs->addWidget(button);
        connect(button, &QAbstractButton::clicked, this,
                [this, button] { toolbarItemSelected(QVariant::fromValue<QObject *>(button)); });
    }
    tabs->addStretch(1);

    m_tabView = new QStackedWidget(this);
    for (const QString &identifier : {HXTabViewStatusTabIdentifier, HXTabViewLogTabIdentifier, HXTabViewAboutTabIdentifier}) {
        auto *item = new QWidget(m_tabView);
        item->setObjectName(identifier);
        auto *layout = new QVBoxLayout(item);
        layout->setContentsMargins(0, 0, 0, 0);
        m_tabView->addWidget(item);
    }

    m_startButton = new HXTestingButton(tr("Start Testing"), this);
    m_stopButton = new HXTestingButton(tr("Stop Testing"), this);
    for (HXTestingButton *button : {m_startButton, m_stopButton}) {
        HXKeyboardFocus::track(button);
        setButtonTextColor(button);
    }
    connect(m_startButton, &QPushButton::clicked, this, &HXMainWindowController::startTesting);
    connect(m_stopButton, &QPushButton::clicked, this, &HXMainWindowController::stopTesting);
    m_testProgress = new HXProgress(this);
    // Drawn only: a screen reader would otherwise meet a nameless panel.
    m_testProgress->setAccessibleName(tr("Testing progress"));
    m_testProgress->setMinimum(0);
    m_testProgress->setMaximum(8);
    m_versionString = new QLabel(this);
    m_versionString->setFont(HXArtwork::technicalFont(10, QFont::Medium));
    m_versionString->setText(tr("Version %1 (%2)").arg(QCoreApplication::applicationVersion(),
                                                          QStringLiteral(ORVEX_BUILD_VERSION)));
    QPalette dim = m_versionString->palette();
    dim.setColor(QPalette::WindowText, QColor::fromRgbF(1.0, 1.0, 1.0, 0.5));
    m_versionString->setPalette(dim);

    auto *bottom = new QHBoxLayout;
    bottom->setSpacing(10);
    bottom->addWidget(m_startButton);
    bottom->addWidget(m_stopButton);
    bottom->addWidget(m_testProgress, 1);
    bottom->addWidget(m_versionString);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(18, 14, 18, 12);
    layout->setSpacing(12);
    layout->addLayout(tabs);
    layout->addWidget(m_tabView, 1);
    layout->addLayout(bottom);
    resize(940, 700);
}

void HXMainWindowController::setButtonTextColor(QPushButton *button)
{
    QPalette palette = button->palette();
    palette.setColor(QPalette::ButtonText, QColor::fromRgbF(1.0, 1.0, 1.0, 0.7));
    button->setPalette(palette);
}

bool HXMainWindowController::event(QEvent *event)
{
    if (event->type() == QEvent::WindowActivate && !m_undoManagerRequested) {
        m_undoManagerRequested = true;
        Q_EMIT undoManagerRequested();
    }
    return QWidget::event(event);
}

void HXMainWindowController::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    QLinearGradient background(0, 0, 0, height());
    background.setColorAt(0.0, QColor(0x30, 0x35, 0x3c));
    background.setColorAt(0.12, QColor(0x24, 0x28, 0x2e));
    background.setColorAt(1.0, QColor(0x15, 0x18, 0x1c));
    p.fillRect(rect(), background);
    // A hairline under the tab buttons, as if the tabs were cut into the window.
    const int y = m_statusButton->geometry().bottom() + 6;
    p.fillRect(QRect(0, y, width(), 1), QColor(0, 0, 0, 110));
    p.fillRect(QRect(0, y + 1, width(), 1), QColor(255, 255, 255, 18));
}

void HXMainWindowController::windowDidLoad()
{
    if (m_options.distributedCenter) {
        m_agentToken = m_options.distributedCenter->addObserver(
            HXAgentRequestTabViewChangeNotification, QString(), [this](const HXDistributedNotification &n) {
                selectTabAndOpenWindow(n.userInfo.value(HXOrvexAppMainWindowTabIDKey).toString());
            });
    }
    m_localTokens.push_back(m_options.localCenter->addObserver(
        HXShowLogViewNotification, nullptr, [this](const HXNotification &n) { showLogWindowNotification(n.userInfo); }));
    m_localTokens.push_back(m_options.localCenter->addObserver(HXUpdateTestStatusNotification, nullptr,
                                                               [this](const HXNotification &) { updateTestStatus(); }));

    for (HXViewController *controller : m_options.controllers) {
        if (controller)
            configureTabViewWithViewController(controller);
    }

    QSettings *defaults = m_options.defaults;
    const QVariant count = defaults->value(HXOrvexLaunchCount);
    if (!count.isValid())
        defaults->setValue(HXOrvexLaunchCount, 1);
    const QString storedTab = defaults->value(HXOrvexAppMainWindowTabIDKey).toString();
    if (!defaults->contains(HXOrvexAppMainWindowTabIDKey)) {
        const int c = count.toInt();
        if (c == 5) {
            defaults->setValue(HXOrvexLaunchCount, 1);
            toolbarItemSelected(kAboutTab);
        } else {
            defaults->setValue(HXOrvexLaunchCount, c + 1);
            toolbarItemSelected(kStatusTab);
        }
        return;
    }
    QTimer::singleShot(0, this, [this, storedTab] {
        toolbarItemSelected(storedTab);
        m_options.defaults->remove(HXOrvexAppMainWindowTabIDKey);
        m_options.defaults->sync();
    });
}

void HXMainWindowController::configureTabViewWithViewController(HXViewController *controller)
{
    QString identifier = QStringLiteral("HX") + controller->title();
    identifier.remove(QLatin1Char(' '));
    const int index = indexOfTab(identifier);
    if (index < 0)
        throw HXTabViewControllerMissingIdentifierException(identifier);
    QWidget *item = m_tabView->widget(index);
    item->layout()->addWidget(controller->view());
}

int HXMainWindowController::indexOfTab(const QString &identifier) const
{
    for (int i = 0; i < m_tabView->count(); ++i) {
        if (m_tabView->widget(i)->objectName() == identifier)
            return i;
    }
    return -1;
}

HXViewController *HXMainWindowController::controllerForIdentifier(const QString &identifier) const
{
    for (HXViewController *controller : m_options.controllers) {
        if (!controller)
            continue;
        QString mine = QStringLiteral("HX") + controller->title();
        mine.remove(QLatin1Char(' '));
        if (mine == identifier)
            return controller;
    }
    return nullptr;
}

HXViewController *HXMainWindowController::selectedController() const
{
    return controllerForIdentifier(selectedTabViewIdentifier());
}

QWidget *HXMainWindowController::selectedView() const
{
    return m_tabView->currentWidget();
}

QString HXMainWindowController::selectedTabViewIdentifier() const
{
    return m_tabView->currentWidget() ? m_tabView->currentWidget()->objectName() : QString();
}

void HXMainWindowController::selectTabItem(const QString &identifier)
{
    const int index = indexOfTab(identifier);
    if (index >= 0)
        m_tabView->setCurrentIndex(index);
}

bool HXMainWindowController::isHandingOver() const
{
    return !m_statusButton->isEnabled();
}

void HXMainWindowController::setTabButtonsEnabled(bool enabled)
{
    const std::array<HXTabButton *, 3> buttons = {m_statusButton, m_aboutButton, m_logsButton};
    if (!enabled) {
        // A disabled button hands the keyboard to the next control, "Start
        // Testing" among them; it waits on the window instead.
        for (HXTabButton *button : buttons) {
            if (button->hasFocus()) {
                m_focusedTabButton = button;
                setFocus(Qt::OtherFocusReason);
            }
        }
    }
    for (HXTabButton *button : buttons)
        button->setEnabled(enabled);
    if (enabled && m_focusedTabButton) {
        const QWidget *focus = focusWidget();
        if (!focus || focus == this)
            m_focusedTabButton->setFocus(Qt::OtherFocusReason);
        m_focusedTabButton = nullptr;
    }
}

void HXMainWindowController::toolbarItemSelected(const QVariant &sender)
{
    int number = 0;
    if (auto *button = qobject_cast<HXTabButton *>(sender.value<QObject *>())) {
        number = button->tag();
    } else if (sender.metaType().id() == QMetaType::QString) {
        const QString identifier = sender.toString();
        if (identifier == HXTabViewStatusTabIdentifier)
            number = kStatusTab;
        else if (identifier == HXTabViewLogTabIdentifier)
            number = kLogTab;
        else if (identifier == HXTabViewAboutTabIdentifier)
            number = kAboutTab;
        else
            return;
    } else if (sender.canConvert<int>() && sender.metaType().id() != QMetaType::QObjectStar) {
        number = sender.toInt();
    } else {
        return;
    }

    static const std::map<int, std::pair<QString, TabImages>> tabs = {
        {kStatusTab, {HXTabViewStatusTabIdentifier, {"leftTabPressed.png", "middleTab.png", "rightTab.png"}}},
        {kLogTab, {HXTabViewLogTabIdentifier, {"leftTab.png", "middleTab.png", "rightTabPressed.png"}}},
        {kAboutTab, {HXTabViewAboutTabIdentifier, {"leftTab.png", "middleTabPressed.png", "rightTab.png"}}},
    };
    HXViewController *next = nullptr;
    QString nextIdentifier;
    if (const auto tab = tabs.find(number); tab != tabs.end()) {
        m_statusButton->setImageName(QLatin1String(tab->second.second.status));
        m_aboutButton->setImageName(QLatin1String(tab->second.second.about));
        m_logsButton->setImageName(QLatin1String(tab->second.second.logs));
        nextIdentifier = tab->second.first;
        next = controllerForIdentifier(nextIdentifier);
    }

    setTabButtonsEnabled(false);
    HXViewController *current = selectedController();

    if (next == current) {
        if (current && current->isOnScreen()) {
            if (current->isStatusViewController() && current->statusViewIsTransparent())
                current->showAllBoxes(false);
        } else if (current) {
            const long long wait = current->viewWillDisappearHX();
            QPointer<HXViewController> outgoing(current);
            afterWait(this, wait, [outgoing] {
                if (outgoing)
                    outgoing->viewDidAppearHX();
            });
        }
        setTabButtonsEnabled(true);
        return;
    }

    const long long wait = current ? current->viewWillDisappearHX() : 0;
    if (next)
        next->viewWillAppearHX();
    QPointer<HXViewController> outgoing(current);
    QPointer<HXViewController> incoming(next);
    afterWait(this, wait, [this, outgoing, incoming, nextIdentifier] {
        if (!nextIdentifier.isEmpty())
            selectTabItem(nextIdentifier);
        if (outgoing)
            outgoing->viewDidDisappearHX();
        if (incoming)
            incoming->viewDidAppearHX();
        setTabButtonsEnabled(true);
    });
}

void HXMainWindowController::selectTabAndOpenWindow(const QString &identifier)
{
    if (indexOfTab(identifier) < 0) {
        HXSystemLog::write(QStringLiteral("Cannot find tab view item for the identifier: %1").arg(identifier));
        return;
    }
    HXOpenWindowOnCurrentSpace(window());
    toolbarItemSelected(identifier);
}

void HXMainWindowController::showLogWindowNotification(const QVariantMap &userInfo)
{
    selectTabAndOpenWindow(HXTabViewLogTabIdentifier);
    if (userInfo.contains(HXScrollToTopKey))
        m_options.localCenter->post(HXScrollLogViewToTopNotification, this);
    const QVariant index = userInfo.value(HXResultIndexKey);
    if (index.isValid() && index.toLongLong() != HXResultIndexNotFound)
        m_options.localCenter->post(HXShowResultNotification, this, userInfo);
}

void HXMainWindowController::showStatusTab()
{
    toolbarItemSelected(kStatusTab);
}

void HXMainWindowController::showLogTab()
{
    toolbarItemSelected(kLogTab);
}

void HXMainWindowController::showAboutTab()
{
    toolbarItemSelected(kAboutTab);
}

void HXMainWindowController::startTesting()
{
    toolbarItemSelected(kStatusTab);
    HXDaemonInteraction::tellWorkerDaemon([](HXWorkerDaemonProxy &worker) { worker.activate(); });
    m_testProgress->setMinimum(0);
    m_testProgress->setMaximum(8);
}

void HXMainWindowController::stopTesting()
{
    HXDaemonInteraction::tellWorkerDaemon([](HXWorkerDaemonProxy &worker) { worker.deactivate(); });
    m_isTesting = false;
    ++m_progressGeneration; // an answer asked for before this is stale
    m_testProgress->setValue(0);
}

void HXMainWindowController::updateTestStatus()
{
    // Updates arrive once a test; a worker slower than that has them waiting
    // in its queue, and each answer is as fresh as the question.
    HXDaemonInteraction::askWorkerDaemon(
        this, [](HXWorkerDaemonProxy &worker) { return worker.currentTestType(); },
        [this, asked = m_progressGeneration](qint32 type) {
            if (asked == m_progressGeneration)
                m_testProgress->setValue(type);
        });
}

void HXMainWindowController::testingFinishedStatus()
{
    ++m_progressGeneration;
    m_stopButton->setState(false);
    m_startButton->setState(true);
    m_testProgress->setValue(0.0);
}

void HXMainWindowController::pretendToTest()
{
    m_testProgress->setMinimum(0);
    m_testProgress->setMaximum(100);
    m_testProgress->setValue(0);
    m_isTesting = true;
    incrementProgressBar();
}

void HXMainWindowController::incrementProgressBar()
{
    m_testProgress->setValue(m_testProgress->value() + 1);
    if (m_testProgress->value() < 100 && m_isTesting)
        QTimer::singleShot(100, this, &HXMainWindowController::incrementProgressBar);
}

void HXMainWindowController::openDebugView()
{
    if (m_options.openDebugView)
        m_options.openDebugView();
}
