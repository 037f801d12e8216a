#include "HXLogViewController.h"

#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXDaemonInteraction.h"
#include "HXFileManager.h"
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"
#include "HXMachineProbes.h"
#include "HXStatusReporter.h"

#include <QAction>
#include <QCoreApplication>
#include <QFileInfo>
#include <QMessageBox>
#include <QPropertyAnimation>
#include <QResizeEvent>
#include <QTimer>

namespace {

// The page the outline slides on: it keeps the outline as wide as itself,
// inset by the on-screen margin, wherever the outline stands.
class HXLogPage : public QWidget
{
public:
    explicit HXLogPage(QWidget *parent = nullptr)
        : QWidget(parent)
    {
        setObjectName(QStringLiteral("logView"));
        setAccessibleName(QCoreApplication::translate("HXLogViewController", "Log"));
    }
    QWidget *content = nullptr;

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QWidget::resizeEvent(event);
        if (!content)
            return;
        const int m = HXLogViewController::kOnScreenY;
        content->resize(width() - 2 * m, height() - 2 * m);
        content->move(m, content->y());
    }
};

} // namespace

HXLogViewController::HXLogViewController()
    : HXLogViewController(Options())
{
}

HXLogViewController::HXLogViewController(Options options, QObject *parent)
    : HXViewController(parent)
    , m_options(options)
{
    setTitle(QStringLiteral("Log View"));
    m_reporter = m_options.reporter ? m_options.reporter : HXStatusReporter::sharedReporter();
    if (!m_options.localCenter)
        m_options.localCenter = &HXNotificationCenter::defaultCenter();
    m_model = new HXLogTreeModel(m_reporter, this);

    m_clearLogAction = new QAction(tr("Clear Log…"), this);
    connect(m_clearLogAction, &QAction::triggered, this, &HXLogViewController::clearLog);
    m_resetAction = new QAction(tr("Reset Orvex…"), this);
    m_resetAction->setVisible(false);
    connect(m_resetAction, &QAction::triggered, this, &HXLogViewController::resetOrvex);
    m_showInFileManagerAction = new QAction(tr("Show in File Manager"), this);
    m_showInFileManagerAction->setShortcuts(
        {QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter)});
    m_showInFileManagerAction->setEnabled(false);
    connect(m_showInFileManagerAction, &QAction::triggered, this,
            &HXLogViewController::showSelectedFileInFileManager);

    HXNotificationCenter *center = m_options.localCenter;
    m_tokens.push_back(center->addObserver(HXScrollLogViewToTopNotification, nullptr,
                                           [this](const HXNotification &) { scrollToTop(); }));
    m_tokens.push_back(
        center->addObserver(HXShowResultNotification, nullptr, [this](const HXNotification &n) {
            const QVariant index = n.userInfo.value(HXResultIndexKey);
            if (index.isValid())
                showResult(index.toLongLong());
        }));
}

HXLogViewController::~HXLogViewController()
{
    for (const auto token : m_tokens)
        m_options.localCenter->removeObserver(token);
    // Unless the window took it and has gone already.
    delete m_page;
}

HXLogOutlineView *HXLogViewController::outlineView()
{
    view();
    return m_outline;
}

QWidget *HXLogViewController::makeView()
{
    auto *page = new HXLogPage;
    m_page = page;
    m_outline = new HXLogOutlineView(page);
    page->content = m_outline;
    m_outline->move(kOnScreenY, kOnScreenY);
    m_outline->setLogModel(m_model);
    m_outline->setDateColumnAllowance(dateColumnAllowance(HXSystemVersion::current()));
    connect(m_outline, &QAbstractItemView::doubleClicked, this,
            &HXLogViewController::expandHideItem);
    connect(m_outline, &HXLogOutlineView::showInFileManagerRequested, this,
            &HXLogViewController::loadFinderForFile);
    connect(m_outline, &HXLogOutlineView::localeChanged, m_model, &HXLogTreeModel::reload);
    connect(m_outline->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &HXLogViewController::updateFileAction);
    connect(m_model, &QAbstractItemModel::modelReset, this, &HXLogViewController::updateFileAction);
    m_outline->addAction(m_showInFileManagerAction);
    return page;
}

double HXLogViewController::dateColumnAllowance(const HXSystemVersion &version)
{
    // Later systems draw the date wider than they measure it.
    const bool later = version.major > 10 || (version.major == 10 && version.minor >= 11);
    return later ? 14.0 : 10.0;
}

void HXLogViewController::updateFileAction()
{
    const QModelIndex current = m_outline ? m_outline->currentIndex() : QModelIndex();
    m_showInFileManagerAction->setEnabled(current.isValid() &&
                                          m_model->rowKind(current) == HXLogTreeModel::FileRow);
}

// The hand-over: slide in from below the page, and back down when leaving.
void HXLogViewController::viewWillAppearHX()
{
    QWidget *page = view();
    m_outline->move(kOnScreenY, page->height());
    slideTo(kOnScreenY, kSlideInMilliseconds);
}

long long HXLogViewController::viewWillDisappearHX()
{
    QWidget *page = view();
    slideTo(page->height(), int(kSlideOutMicroseconds / 1000));
    return HXAnimationTiming::microseconds(kSlideOutMicroseconds);
}

bool HXLogViewController::isOnScreen() const
{
    return m_outline && m_outline->y() == kOnScreenY;
}

void HXLogViewController::slideTo(int y, int milliseconds)
{
    auto *slide = new QPropertyAnimation(m_outline, "pos", m_outline);
    slide->setDuration(HXAnimationTiming::milliseconds(milliseconds));
    slide->setEasingCurve(QEasingCurve::OutQuad);
    slide->setEndValue(QPoint(kOnScreenY, y));
    slide->start(QAbstractAnimation::DeleteWhenStopped);
}

void HXLogViewController::alert(const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Warning, title, title, QMessageBox::Ok, view()->window());
    box.setInformativeText(text);
    box.exec();
}

bool HXLogViewController::confirm(const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Warning, title, title, QMessageBox::Ok | QMessageBox::Cancel,
                    view()->window());
    box.setInformativeText(text);
    box.setDefaultButton(QMessageBox::Ok);
    return box.exec() == QMessageBox::Ok;
}

void HXLogViewController::clearLog()
{
    if (confirm(tr("Delete Orvex Log File?"),
                tr("This will put the log file in the trash. Are you sure you want to delete the "
                   "log file for Orvex?")))
        deleteLogFile();
}

void HXLogViewController::deleteLogFile()
{
    m_reporter->clearReport();
    QTimer::singleShot(0, this, [this] {
        m_model->reload();
        m_options.localCenter->post(HXDidClearReportNotification, this);
    });
}

void HXLogViewController::resetOrvex()
{
    if (!confirm(tr("Reset Orvex?"), tr("This will reset Orvex and remove all logs and report "
                                        "files. Are you sure you want to reset Orvex?")))
        return;
    deleteLogFile();
    // In this order on the idle daemon's queue; a failure of either is
    // written to the system log and goes no further.
    HXDaemonInteraction::tellIdleDaemon(
        [](HXIdleDaemonProxy &idle) { idle.deleteWorkerDaemonPersistentStore(); });
    HXDaemonInteraction::tellIdleDaemon([](HXIdleDaemonProxy &idle) { idle.restartIdleManager(); });
}

void HXLogViewController::showSelectedFileInFileManager()
{
    if (m_outline)
        loadFinderForFile(m_outline->currentIndex());
}

void HXLogViewController::loadFinderForFile(const QModelIndex &index)
{
    if (!index.isValid() || m_model->rowKind(index) != HXLogTreeModel::FileRow)
        return;
    const QString path = index.data(HXLogTreeModel::PathRole).toString();
    // The idle daemon sees every user's files; this user may not.
    HXDaemonInteraction::askIdleDaemon(
        this, [path](HXIdleDaemonProxy &idle) { return idle.fileExistsAtPath(path); },
        [this, path](bool found) {
            if (!found) {
                alert(tr("File Not Found!"),
                      tr("Orvex was unable to find the file at path:\n\n%1").arg(path));
                return;
            }
            if (QFileInfo::exists(path)) {
                HXFileManager::showItem(path, this, [this, path](bool shown) {
                    if (!shown)
                        alert(tr("File Not Found!"),
                              tr("Orvex was unable to show the file at path:\n\n%1").arg(path));
                });
                return;
            }
            // No answer at all (the daemon went away after the first
            // question, or failed) is told apart from an owner without a name.
            HXDaemonInteraction::askIdleDaemon(
                this,
                [path](HXIdleDaemonProxy &idle) {
                    return std::optional<QString>(idle.fileOwnerNameForFileAtPath(path));
                },
                [this, path](const std::optional<QString> &owner) {
                    alert(tr("File Not Accessable!"), notAccessibleText(path, owner));
                });
        });
}

QString HXLogViewController::notAccessibleText(const QString &path,
                                               const std::optional<QString> &owner)
{
    if (!owner)
        return tr("Orvex was unable to show the file at path:\n\n%1\n\n...because this file "
                  "belongs to another user, and Orvex's background service stopped answering "
                  "before it could say which one.")
            .arg(path);
    if (owner->isEmpty())
        return tr("Orvex was unable to show the file at path:\n\n%1\n\n...because this file "
                  "belongs to another user account, one without a name on this computer.")
            .arg(path);
    return tr("Orvex was unable to show the file at path:\n\n%1\n\n...because this file is "
              "owned by the user \"%2\". Log in as \"%2\" to view this file.")
        .arg(path, *owner);
}

void HXLogViewController::expandHideItem(const QModelIndex &index)
{
    if (m_outline)
        m_outline->toggleExpansion(index);
}

void HXLogViewController::showResult(qint64 resultIndex)
{
    const qint64 count = m_model->entryCount();
    if (resultIndex < 0 || resultIndex >= count)
        return;
    const int row = m_model->rowForPosition(count - 1 - resultIndex);
    HXLogOutlineView *outline = outlineView();
    const QModelIndex index = m_model->index(row, 0);
    outline->setCurrentIndex(index);
    outline->scrollTo(index);
    outline->highlightRow(row);
}

void HXLogViewController::scrollToTop()
{
    if (m_model->rowCount() > 0)
        outlineView()->scrollTo(m_model->index(0, 0));
}
