#include "HXWorkerDaemonController.h"

#include "HXDBusNames.h"
#include "HXDaemonInteraction.h"
#include "HXWorkerDaemonProxy.h"

#include <QButtonGroup>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>

HXWorkerDaemonController::HXWorkerDaemonController(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_messageTextField(new QLineEdit(this))
    , m_statusControl(new QButtonGroup(this))
{
    setWindowTitle(tr("Worker Daemon"));
    // A preference of every application of the maker, not of Orvex alone.
    const QSettings global(QSettings::UserScope, QStringLiteral("talvorn"));
    m_daemonIsEnabled = global.value(QStringLiteral("kHXDWorkerDaemonIsEnabledKey"), false).toBool();

    m_messageTextField->setPlaceholderText(tr("A message for the worker daemon"));
    m_messageTextField->setMinimumWidth(fontMetrics().horizontalAdvance(m_messageTextField->placeholderText()) + 24);
    auto *send = new QPushButton(tr("Send"), this);
    auto *test = new QPushButton(tr("Test Connection"), this);
    auto *active = new QRadioButton(tr("Active"), this);
    auto *inactive = new QRadioButton(tr("Inactive"), this);
    m_statusControl->addButton(active, kActiveTag);
    m_statusControl->addButton(inactive, kInactiveTag);
    (m_daemonIsEnabled ? active : inactive)->setChecked(true);

    auto *messageRow = new QHBoxLayout;
    messageRow->addWidget(m_messageTextField, 1);
    messageRow->addWidget(send);
    auto *statusRow = new QHBoxLayout;
    statusRow->addWidget(active);
    statusRow->addWidget(inactive);
    statusRow->addStretch(1);
    auto *form = new QFormLayout(this);
    form->addRow(tr("Message:"), messageRow);
    form->addRow(tr("Worker:"), statusRow);
    form->addRow(QString(), test);

    connect(send, &QPushButton::clicked, this, &HXWorkerDaemonController::sendMessage);
    connect(m_messageTextField, &QLineEdit::returnPressed, this, &HXWorkerDaemonController::sendMessage);
    connect(test, &QPushButton::clicked, this, &HXWorkerDaemonController::testConnection);
    connect(m_statusControl, &QButtonGroup::idClicked, this, &HXWorkerDaemonController::updateDaemonStatus);
}

std::shared_ptr<HXWorkerDaemonProxy> HXWorkerDaemonController::daemonProxy()
{
    auto peer = HXRemoteProxy::lookUp(HXDBusNames::daemonBus(), HXWorkerDaemonProxy::kConnectionName);
    return peer ? std::make_shared<HXWorkerDaemonProxy>(std::move(*peer)) : nullptr;
}

void HXWorkerDaemonController::sendMessage()
{
    const QString message = m_messageTextField->text();
    if (!message.isEmpty())
        sendMessageToDaemon(message);
}

// The panel looks the worker up afresh for every action, on the worker's
// queue like every other call to it, and shows the outcome when it is back.
void HXWorkerDaemonController::sendMessageToDaemon(const QString &message)
{
    HXDaemonInteraction::run(
        HXDaemonInteraction::workerDaemonQueue(), this,
        [message] {
            const auto proxy = daemonProxy();
            return proxy && proxy->testServerMessage(message);
        },
        [this](bool answered) {
            if (!answered)
                showConnectionError();
        });
}

void HXWorkerDaemonController::testConnection()
{
    HXDaemonInteraction::run(
        HXDaemonInteraction::workerDaemonQueue(), this,
        [] {
            const auto proxy = daemonProxy();
            return proxy && proxy->testDOConnection();
        },
        [this](bool answered) {
            if (!answered)
                showConnectionError();
        });
}

void HXWorkerDaemonController::updateDaemonStatus()
{
    const int wanted = m_statusControl->checkedId();
    HXDaemonInteraction::run(
        HXDaemonInteraction::workerDaemonQueue(), nullptr,
        [wanted] {
            const auto proxy = daemonProxy();
            const bool active = proxy && proxy->isActive();
            if (wanted == int(active) || !proxy)
                return;
            if (wanted == kActiveTag)
                proxy->activate();
            else
                proxy->deactivate();
        },
        nullptr);
}

void HXWorkerDaemonController::showConnectionError()
{
    QMessageBox alert(QMessageBox::Warning, windowTitle(), tr("Distributed Object Connection Error"),
                      QMessageBox::Ok | QMessageBox::Cancel, this);
    alert.setInformativeText(
        tr("Could not connect to Daemon using connection name '%1'").arg(HXWorkerDaemonProxy::kConnectionName));
    alert.setObjectName(QStringLiteral("connectionErrorAlert"));
    alert.exec();
}
