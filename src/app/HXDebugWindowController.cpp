#include "HXDebugWindowController.h"

#include "HXDebugController.h"
#include "HXNotificationCenter.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
QPushButton *button(QWidget *parent, const QString &title, const QString &tip)
{
    auto *b = new QPushButton(title, parent);
    b->setToolTip(tip);
    return b;
}
} // namespace

HXDebugWindowController::HXDebugWindowController(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_debugController(new HXDebugController(this))
    , m_workerLabel(new QLabel(this))
    , m_failuresLabel(new QLabel(this))
{
    setObjectName(QStringLiteral("HXDebugWindowController"));
    setWindowTitle(tr("Orvex Debug"));
    m_debugController->setErrorPresenter([this](const QString &error) {
        QMessageBox::warning(this, windowTitle(), error);
    });

    auto *worker = new QGroupBox(tr("Worker"), this);
    auto *workerGrid = new QGridLayout(worker);
    m_workerLabel->setObjectName(QStringLiteral("workerActiveStatusLabel"));
    workerGrid->addWidget(m_workerLabel, 0, 0, 1, 2);
    auto *start = button(worker, tr("Force Start"), tr("Ask the idle daemon to start testing now"));
    auto *stop = button(worker, tr("Force Stop"), tr("Ask the idle daemon to stop testing"));
    auto *startFile = button(worker, tr("Start by Idle File"), tr("Create the idle marker files, without the daemon"));
    auto *stopFile = button(worker, tr("Stop by Idle File"), tr("Remove the idle marker file, without the daemon"));
    auto *primary = button(worker, tr("Primary Idle Time"), tr("Jump to the primary idle time"));
    auto *secondary = button(worker, tr("Secondary Idle Time"), tr("Jump to the secondary idle time"));
    workerGrid->addWidget(start, 1, 0);
    workerGrid->addWidget(stop, 1, 1);
    workerGrid->addWidget(startFile, 2, 0);
    workerGrid->addWidget(stopFile, 2, 1);
    workerGrid->addWidget(primary, 3, 0);
    workerGrid->addWidget(secondary, 3, 1);

    auto *failures = new QGroupBox(tr("Failures"), this);
    auto *failuresGrid = new QGridLayout(failures);
    m_failuresLabel->setObjectName(QStringLiteral("forcedFailuresLabel"));
    failuresGrid->addWidget(m_failuresLabel, 0, 0, 1, 2);
    auto *force = button(failures, tr("Force Failures"), tr("Make every test fail"));
    auto *normal = button(failures, tr("Normal Failures"), tr("Let tests pass or fail on their own"));
    failuresGrid->addWidget(force, 1, 0);
    failuresGrid->addWidget(normal, 1, 1);

    auto *data = new QGroupBox(tr("Data"), this);
    auto *dataGrid = new QGridLayout(data);
    auto *store = button(data, tr("Delete Data Store"), tr("Delete the worker daemon's persistent store"));
    auto *report = button(data, tr("Delete Status Report"), tr("Delete the status report file"));
    auto *showAll = button(data, tr("Show All UI"), tr("Open every result box of the status view"));
    dataGrid->addWidget(store, 0, 0);
    dataGrid->addWidget(report, 0, 1);
    dataGrid->addWidget(showAll, 1, 0, 1, 2);

    // The two states are what a developer looks at first.
    QFont strong = font();
    strong.setBold(true);
    m_workerLabel->setFont(strong);
    m_failuresLabel->setFont(strong);

    auto *layout = new QVBoxLayout(this);
    layout->addWidget(worker);
    layout->addWidget(failures);
    layout->addWidget(data);

    HXDebugController *c = m_debugController;
    connect(start, &QPushButton::clicked, c, &HXDebugController::forceStartWorker);
    connect(stop, &QPushButton::clicked, c, &HXDebugController::forceStopWorker);
    connect(startFile, &QPushButton::clicked, c, &HXDebugController::forceStartWorkerUsingIdleFile);
    connect(stopFile, &QPushButton::clicked, c, &HXDebugController::forceStopWorkerUsingIdleFile);
    connect(primary, &QPushButton::clicked, c, &HXDebugController::forcePrimaryTime);
    connect(secondary, &QPushButton::clicked, c, &HXDebugController::forceSecondaryTime);
    connect(force, &QPushButton::clicked, c, &HXDebugController::forceTestFailures);
    connect(normal, &QPushButton::clicked, c, &HXDebugController::disableForcedFailures);
    connect(store, &QPushButton::clicked, c, &HXDebugController::deleteDataStore);
    connect(report, &QPushButton::clicked, c, &HXDebugController::deleteStatusReport);
    connect(showAll, &QPushButton::clicked, this, &HXDebugWindowController::showAllUI);
    connect(c, &HXDebugController::workerActiveStatusLabelChanged, m_workerLabel, &QLabel::setText);
    connect(c, &HXDebugController::forcedFailuresLabelChanged, m_failuresLabel, &QLabel::setText);
    c->load();
}

HXDebugWindowController::~HXDebugWindowController()
{
    m_debugController->removeObservers();
}

void HXDebugWindowController::showAllUI()
{
    HXNotificationCenter::defaultCenter().post(HXDebugShowAllNotification, this);
}
