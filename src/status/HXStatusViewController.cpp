#include "HXStatusViewController.h"

#include "HXArtwork.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXDaemonInteraction.h"
#include "HXDaemonPresence.h"
#include "HXDescriptionField.h"
#include "HXIconAnimate.h"
#include "HXMachineProbes.h"
#include "HXNotificationCenter.h"
#include "HXRepairAdvice.h"
#include "HXShapedTextView.h"
#include "HXStatusReporter.h"
#include "HXStatusViewRemoteControlManager.h"
#include "HXTextAnimate.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QLabel>
#include <QScrollArea>
#include <QUrl>
#include <algorithm>
#include <optional>
#include <utility>

namespace {

// The live icons, in the worker's order of status getters.
struct LiveIcon
{
    HXTest test;
    const char *image;
    const char *caption;
};
constexpr LiveIcon kLiveIcons[] = {
    {HXTest::POST, "postOrange", "POST"},
    {HXTest::IO, "ioOrange", "Disk I/O"},
    {HXTest::Battery, "batteryOrange", "Battery"},
    {HXTest::Memory, "memoryOrange", "Memory"},
    {HXTest::SMART, "smartOrange", "SMART"},
    {HXTest::RAID, "raidOrange", "RAID"},
    {HXTest::VolumeStructures, "volstructsOrange", "Volumes"},
    {HXTest::PartitionMap, "partitionmapOrange", "Partitions"},
};

constexpr int kIconStripHeight = 74;
constexpr int kGroupHeight = 196;
// How low a group may be in a low window: its three rows of tests still show.
constexpr int kMinGroupHeight = 180;
constexpr int kGap = 14;
constexpr int kNoticeHeight = 22;

bool g_observingWorker = false; // once per process

} // namespace

HXStatusViewController::HXStatusViewController(Options options, QObject *parent)
    : HXViewController(parent)
    , m_options(options)
{
    setTitle(QStringLiteral("Status View"));
    if (!m_options.reporter)
        m_options.reporter = HXStatusReporter::sharedReporter();
    if (!m_options.localCenter)
        m_options.localCenter = &HXNotificationCenter::defaultCenter();
    m_repairAdviceExtraStrings = HXRepairAdvice::repairToolSentences();
    if (m_options.listenerPort != 0) {
        m_svrcm = std::make_unique<HXStatusViewRemoteControlManager>(m_options.listenerPort, m_options.localCenter);
        m_svrcm->start();
    }
}

HXStatusViewController::HXStatusViewController(QObject *parent)
    : HXStatusViewController(Options(), parent)
{
}

HXStatusViewController::~HXStatusViewController()
{
    m_stages.stop();
    for (const quint64 token : m_localTokens)
        m_options.localCenter->removeObserver(token);
    if (m_showAllToken)
        m_options.localCenter->removeObserver(m_showAllToken);
    if (m_workerToken && m_options.distributedCenter) {
        m_options.distributedCenter->removeObserver(m_workerToken);
        g_observingWorker = false;
    }
    delete m_root;
}

HXIconAnimate *HXStatusViewController::icon(HXTest test) const
{
    for (size_t i = 0; i < std::size(kLiveIcons); ++i) {
        if (kLiveIcons[i].test == test)
            return m_icons[i];
    }
    return nullptr;
}

QList<HXAnimView *> HXStatusViewController::groupViews() const
{
    return {m_hardwareView, m_systemView, m_drivesView, m_filesView};
}

QList<QWidget *> HXStatusViewController::showingBoxExtras() const
{
    QList<QWidget *> extras;
    for (const QPointer<QWidget> &extra : m_showingBoxExtras) {
        if (extra)
            extras.append(extra);
    }
    return extras;
}

QWidget *HXStatusViewController::makeView()
{
    auto *root = new QWidget;
    m_root = root;
    root->setObjectName(QStringLiteral("HXStatusViewControllerView"));
    root->setMinimumSize(884, kIconStripHeight + 2 * kMinGroupHeight + 3 * kGap + kNoticeHeight);
    root->installEventFilter(this);

    m_statusView = new QWidget(root);
    m_statusView->setObjectName(QStringLiteral("statusView"));
    for (size_t i = 0; i < std::size(kLiveIcons); ++i) {
        m_icons[i] = new HXIconAnimate(QString::fromLatin1(kLiveIcons[i].image), m_statusView);
        m_icons[i]->setToolTip(QCoreApplication::translate("HXStatusViewController", kLiveIcons[i].caption));
        m_icons[i]->setTitle(
            QCoreApplication::translate("HXStatusViewController", kLiveIcons[i].caption));
        auto *caption = new QLabel(QCoreApplication::translate("HXStatusViewController", kLiveIcons[i].caption), m_statusView);
        caption->setObjectName(QStringLiteral("caption"));
        caption->setAlignment(Qt::AlignCenter);
        caption->setFont(HXArtwork::technicalFont(9, QFont::Medium));
        QPalette dim = caption->palette();
        dim.setColor(QPalette::WindowText, QColor::fromRgbF(1, 1, 1, 0.6));
        caption->setPalette(dim);
        caption->setProperty("iconSlot", int(i));
    }
    // Two widgets carry the volume-structures status as well; they hold it
    // for the animations of the live status.
    m_volumeStructuresText = new HXTextAnimate(m_statusView);
    m_volumeStructuresText->hide();
    m_warningText = new HXDescriptionField(m_statusView);
    m_warningText->hide();
    // Without the daemons nothing on this tab can change; say so, or the
    // icons would wait as pending forever.
    m_daemonsMissingText = new QLabel(tr("The Orvex daemons are not running."), m_statusView);
    m_daemonsMissingText->setObjectName(QStringLiteral("daemonsMissingText"));
    m_daemonsMissingText->setAlignment(Qt::AlignCenter);
    m_daemonsMissingText->setFont(HXArtwork::technicalFont(11, QFont::Medium));
    QPalette warning = m_daemonsMissingText->palette();
    warning.setColor(QPalette::WindowText, QColor(0xf0, 0xc0, 0x60));
    m_daemonsMissingText->setPalette(warning);
    m_daemonsMissingText->hide();

    m_hardwareView = new HXHardwareView(m_statusView);
    m_systemView = new HXSystemView(m_statusView);
    m_drivesView = new HXDrivesView(m_statusView);
    m_filesView = new HXFilesView(m_statusView);
    connect(m_hardwareView, &QAbstractButton::clicked, this, &HXStatusViewController::showHardwareRepairAdvice);
    connect(m_systemView, &QAbstractButton::clicked, this, &HXStatusViewController::showSystemRepairAdvice);
    connect(m_drivesView, &QAbstractButton::clicked, this, &HXStatusViewController::showDrivesRepairAdvice);
    connect(m_filesView, &QAbstractButton::clicked, this, &HXStatusViewController::showFilesRepairAdvice);
    for (HXAnimView *group : groupViews()) {
        connect(group, &HXAnimView::closeRequested, this, [this] { showAllBoxes(); });
        connect(group, &HXAnimView::showInLog, this, &HXStatusViewController::showInLog);
    }

    m_repairAdviceView = new HXAdviceScrollArea(root);
    m_repairAdviceView->setObjectName(QStringLiteral("repairAdviceView"));
    m_repairAdviceView->setFrameShape(QFrame::NoFrame);
    m_repairAdviceView->setWidgetResizable(false);
    m_repairAdviceView->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_repairAdviceView->viewport()->setAutoFillBackground(false);
    m_repairAdviceView->setStyleSheet(QStringLiteral(
        "QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; }"
        "QScrollBar:vertical { background: transparent; width: 10px; margin: 4px 2px; }"
        "QScrollBar::handle:vertical { background: rgba(255,255,255,70); border-radius: 3px; min-height: 30px; }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
        "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: transparent; }"));
    m_adviceView = new HXShapedTextView;
    m_adviceView->setAccessibleName(tr("Repair advice"));
    QPalette text = m_adviceView->palette();
    text.setColor(QPalette::Text, QColor(0xe6, 0xe9, 0xed));
    m_adviceView->setPalette(text);
    m_repairAdviceView->setWidget(m_adviceView);
    connect(m_adviceView, &HXShapedTextView::linkActivated, this, [](const QString &href) {
        if (!HXRepairAdvice::clickedOnLink(href))
            QDesktopServices::openUrl(QUrl(href));
    });
    m_repairAdviceView->hide();

    wire();
    layoutStatusView();
    return root;
}

void HXStatusViewController::wire()
{
    // 1. Every change of the report rebuilds.
    connect(m_options.reporter, &HXStatusReporter::reportChanged, this, &HXStatusViewController::reloadData);
    // 2. The local notifications.
    HXNotificationCenter *local = m_options.localCenter;
    m_localTokens.push_back(local->addObserver(HXDidClearReportNotification, nullptr,
                                               [this](const HXNotification &) { reloadData(); }));
    m_localTokens.push_back(local->addObserver(HXUpdateTestStatusNotification, nullptr,
                                                  [this](const HXNotification &) { updateTestStatus(); }));
    m_localTokens.push_back(local->addObserver(HXTestingFinishedStatusNotification, nullptr,
                                                  [this](const HXNotification &) { testingFinishedStatus(); }));
    // 3. The debug switch, replacing an earlier observation.
    if (m_showAllToken)
        local->removeObserver(m_showAllToken);
    m_showAllToken =
        local->addObserver(HXDebugShowAllNotification, nullptr, [this](const HXNotification &n) {
            const QVariant given = n.userInfo.value(HXShowAllKey);
            setShowAll(given.isValid() ? given.toBool() : !m_showAll);
        });
    // 4.
    reloadData();
    // 6. Once per process: the worker's broadcast.
    if (m_options.distributedCenter && !g_observingWorker) {
        g_observingWorker = true;
        m_workerToken = m_options.distributedCenter->addObserver(
            OrvexWorkerDaemonTestStatusChangedNotification, QString(),
            [this](const HXDistributedNotification &) { updateTestStatus(); });
    }
    // Whether the daemons are there, followed from the bus without waiting.
    m_presence = new HXDaemonPresence(this);
    connect(m_presence, &HXDaemonPresence::daemonsAreRunningChanged, this, [this](bool running) {
        m_daemonsMissingText->setVisible(!running);
        // A daemon that just came has statuses to show.
        if (running)
            updateTestStatus();
    });
    // 7.
    initializeTestStatus();
    updateTestStatus();
}

void HXStatusViewController::layoutStatusView()
{
    if (!m_root)
        return;
    const int width = m_root->width();
    const int height = m_root->height();
    m_statusView->setGeometry(0, m_statusView->y(), width, height);
    m_repairAdviceView->setGeometry(0, 0, width, height);
    // The live icons across the top.
    const int slotWidth = 84;
    const int left = (width - int(std::size(kLiveIcons)) * slotWidth) / 2;
    for (size_t i = 0; i < std::size(kLiveIcons); ++i)
        m_icons[i]->setGeometry(left + int(i) * slotWidth + (slotWidth - 40) / 2, 6, 40, 40);
    const auto captions = m_statusView->findChildren<QLabel *>(QStringLiteral("caption"));
    for (QLabel *caption : captions)
        caption->setGeometry(left + caption->property("iconSlot").toInt() * slotWidth, 48, slotWidth, 18);
    // The groups in two rows of two.
    const int columnWidth = (width - 3 * kGap) / 2;
    const int top = kIconStripHeight;
    const HXAnimView *open = m_showingBox;
    const int groupHeight =
        std::clamp((height - top - 3 * kGap - kNoticeHeight) / 2, kMinGroupHeight, kGroupHeight);
    const int lower = top + groupHeight + kGap;
    const QRect frames[] = {QRect(kGap, top, columnWidth, groupHeight),
                            QRect(2 * kGap + columnWidth, top, columnWidth, groupHeight),
                            QRect(kGap, lower, columnWidth, groupHeight),
                            QRect(2 * kGap + columnWidth, lower, columnWidth, groupHeight)};
    const QList<HXAnimView *> groups = {m_hardwareView, m_systemView, m_drivesView, m_filesView};
    for (int i = 0; i < 4; ++i) {
        if (groups[i] != open)
            groups[i]->setRealFrame(frames[i]);
        else
            m_previousBoxFrame = frames[i]; // where it goes back to
    }
    m_daemonsMissingText->setGeometry(kGap, lower + groupHeight + kGap, width - 2 * kGap,
                                      kNoticeHeight);
    // A box on its way in or out is placed by its stages.
    if (!m_stages.isRunning())
        layoutOpenBox();
}

bool HXStatusViewController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_root && event->type() == QEvent::Resize)
        layoutStatusView();
    return HXViewController::eventFilter(watched, event);
}

void HXStatusViewController::setShowAll(bool showAll)
{
    m_showAll = showAll;
    for (HXAnimView *group : groupViews()) {
        if (group)
            group->setLogButtonsShownAlways(showAll);
    }
    reloadData();
}

void HXStatusViewController::reloadData()
{
    m_board.rebuild(m_options.reporter->report());
    if (!m_root)
        return;
    // Each group takes the codes of its own tests.
    for (HXAnimView *group : groupViews())
        group->setStatusForTests(m_board);
}

void HXStatusViewController::initializeTestStatus()
{
    if (!m_root)
        return;
    const HXMachineProbes &machine = HXMachineProbes::current();
    for (HXTest t : {HXTest::POST, HXTest::IO, HXTest::Memory, HXTest::VolumeStructures})
        icon(t)->setStatus(HXLiveTestStatusPending);
    icon(HXTest::Battery)->setStatus(machine.hasInternalBattery() ? HXLiveTestStatusPending : HXLiveTestStatusNotApplicable);
    icon(HXTest::SMART)->setStatus(machine.smartExists() ? HXLiveTestStatusPending : HXLiveTestStatusNotApplicable);
    icon(HXTest::RAID)->setStatus(machine.raidExists() ? HXLiveTestStatusPending : HXLiveTestStatusNotApplicable);
    icon(HXTest::PartitionMap)
        ->setStatus(machine.partitionMapIsTestable() ? HXLiveTestStatusPending : HXLiveTestStatusNotApplicable);
}

void HXStatusViewController::updateTestStatus()
{
    if (!m_root)
        return;
    // Broadcasts come in bursts while testing runs; behind a slow worker one
    // question at a time is enough, and one more after it for what came in
    // meanwhile.
    if (m_askingForStatus) {
        m_askAgain = true;
        return;
    }
    m_askingForStatus = true;
    HXDaemonInteraction::askWorkerDaemon(
        this,
        [](HXWorkerDaemonProxy &worker) {
            LiveStatus status;
            status.post = worker.postStatus();
            status.io = worker.ioStatus();
            status.battery = worker.batteryStatus();
            status.memory = worker.memoryStatus();
            status.smart = worker.smartStatus();
            status.raid = worker.raidStatus();
            status.volStructs = worker.volStructsStatus();
            status.volStructsText = worker.volStructsStatus();
            status.warningText = worker.volStructsStatus();
            status.partitionMap = worker.partitionMapStatus();
            return std::optional<LiveStatus>(status);
        },
        [this](std::optional<LiveStatus> status) {
            m_askingForStatus = false;
            if (status)
                showTestStatus(*status);
            if (std::exchange(m_askAgain, false))
                updateTestStatus();
        });
}

void HXStatusViewController::showTestStatus(const LiveStatus &status)
{
    if (!m_root)
        return;
    icon(HXTest::POST)->setStatus(status.post);
    icon(HXTest::IO)->setStatus(status.io);
    icon(HXTest::Battery)->setStatus(status.battery);
    icon(HXTest::Memory)->setStatus(status.memory);
    icon(HXTest::SMART)->setStatus(status.smart);
    icon(HXTest::RAID)->setStatus(status.raid);
    icon(HXTest::VolumeStructures)->setStatus(status.volStructs);
    m_volumeStructuresText->setStatus(status.volStructsText);
    m_warningText->setStatus(status.warningText);
    icon(HXTest::PartitionMap)->setStatus(status.partitionMap);
}

void HXStatusViewController::testingFinishedStatus()
{
    if (m_testingFinished)
        m_testingFinished();
}

void HXStatusViewController::gotoLog(qint64 index)
{
    m_options.localCenter->post(HXShowLogViewNotification, this,
                                {{HXScrollToTopKey, true}, {HXResultIndexKey, index}});
}

void HXStatusViewController::showInLog(HXTest test)
{
    if (test == HXTest::PartitionMap)
        return; // it has no log action
    gotoLog(m_board.resultIndex(test));
}

void HXStatusViewController::individualStatusButtonClicked(qint64 tag)
{
    m_options.localCenter->post(HXShowLogViewNotification, this,
                                {{HXScrollToTopKey, false}, {HXResultIndexKey, tag}});
}
