#include "ZRSendReportDialog.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

ZRSendReportDialog::ZRSendReportDialog(QWidget *parent)
    : QDialog(parent)
    , m_icon(new QLabel)
    , m_title(new QLabel)
    , m_replyTo(new QLineEdit)
    , m_message(new QPlainTextEdit)
    , m_send(new QPushButton(tr("Send")))
    , m_saveInstead(new QPushButton(tr("Save Report Instead…")))
    , m_cancel(new QPushButton(tr("Cancel")))
{
    setObjectName(QStringLiteral("ZRHelpReporterWindowController"));
    setWindowTitle(tr("Send Report"));
    m_icon->setFixedSize(64, 64);
    m_icon->setAccessibleName(tr("Orvex"));
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.4);
    titleFont.setBold(true);
    m_title->setFont(titleFont);

    auto *explanation = new QLabel(
        tr("Orvex collects information about this computer, its drives and Orvex's own logs, "
           "and sends it to Talvorn Tech Support. Give an address where Support can reply, "
           "and describe what happened."));
    explanation->setWordWrap(true);

    auto *replyToLabel = new QLabel(tr("&Reply-to address:"));
    replyToLabel->setBuddy(m_replyTo);
    m_replyTo->setAccessibleName(tr("Reply-to address"));
    m_replyTo->setPlaceholderText(tr("name@example.org"));
    auto *messageLabel = new QLabel(tr("&Message:"));
    messageLabel->setBuddy(m_message);
    m_message->setAccessibleName(tr("Message"));
    m_message->setTabChangesFocus(true);
    m_message->setMinimumHeight(140);

    m_send->setAccessibleName(tr("Send"));
    m_send->setDefault(true);
    m_saveInstead->setAccessibleName(tr("Save Report Instead"));
    m_saveInstead->setAccessibleDescription(tr("Collects the same report and saves its archives in "
                                               "a folder you choose instead of mailing them"));
    m_cancel->setAccessibleName(tr("Cancel"));

    auto *header = new QHBoxLayout;
    header->addWidget(m_icon, 0, Qt::AlignTop);
    auto *headerText = new QVBoxLayout;
    headerText->addWidget(m_title);
    headerText->addWidget(explanation);
    header->addLayout(headerText, 1);

    auto *form = new QFormLayout;
    form->addRow(replyToLabel, m_replyTo);
    form->addRow(messageLabel, m_message);

    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_saveInstead);
    buttons->addStretch(1);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_send);

    auto *layout = new QVBoxLayout(this);
    layout->addLayout(header);
    layout->addLayout(form, 1);
    layout->addLayout(buttons);

    setTabOrder(m_replyTo, m_message);
    setTabOrder(m_message, m_saveInstead);
    setTabOrder(m_saveInstead, m_cancel);
    setTabOrder(m_cancel, m_send);
    connect(m_cancel, &QPushButton::clicked, this, &QDialog::reject);
    resize(520, 400);
}
