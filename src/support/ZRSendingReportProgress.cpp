#include "ZRSendingReportProgress.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

ZRSendingReportProgress::ZRSendingReportProgress(QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_icon(new QLabel)
    , m_sending(new QLabel(
          tr("Collecting information about this computer and sending it to Talvorn Tech Support…")))
    , m_sent(new QLabel(tr("Your report has been sent to Talvorn Tech Support. Thank you.")))
    , m_failure(new QLabel)
    , m_progress(new QProgressBar)
    , m_save(new QPushButton(tr("Save Report…")))
    , m_button(new QPushButton(tr("Cancel")))
{
    setObjectName(QStringLiteral("sendingReportProgress"));
    setWindowTitle(tr("Sending Report"));
    for (QLabel *label : {m_sending, m_sent, m_failure}) {
        label->setWordWrap(true);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    m_icon->setFixedSize(48, 48);
    m_sending->setAccessibleName(tr("Status"));
    m_sent->setAccessibleName(tr("Status"));
    m_failure->setAccessibleName(tr("Status"));
    m_progress->setAccessibleName(tr("Report progress"));
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(true);
    m_save->setAccessibleName(tr("Save Report"));
    m_save->setAccessibleDescription(tr("Copies the report's archives to a folder you choose"));
    m_button->setDefault(true);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_save);
    buttons->addStretch(1);
    buttons->addWidget(m_button);

    auto *texts = new QVBoxLayout;
    texts->addWidget(m_sending);
    texts->addWidget(m_sent);
    texts->addWidget(m_failure);
    texts->addWidget(m_progress);
    texts->addStretch(1);
    auto *body = new QHBoxLayout;
    body->addWidget(m_icon, 0, Qt::AlignTop);
    body->addSpacing(8);
    body->addLayout(texts, 1);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(body, 1);
    layout->addSpacing(8);
    layout->addLayout(buttons);
    setMinimumWidth(480);
}

void ZRSendingReportProgress::closeEvent(QCloseEvent *event)
{
    Q_EMIT closedByUser();
    QWidget::closeEvent(event);
}
