#include "ZRHelpReporterWindowController.h"

#include "HXArtwork.h"
#include "HXEndpoints.h"
#include "SMTP_AGENT.h"
#include "ZRCommandRunner.h"
#include "ZRReplyToRule.h"
#include "ZRReportCollector.h"
#include "ZRReportFolder.h"
#include "ZRSendReportDialog.h"
#include "ZRSendingReportProgress.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSaveFile>
#include <QSettings>
#include <QStyle>

const QString ZRHelpReporterWindowController::kReplyToKey =
    QStringLiteral("ZRHelpReporterReplyToEmail");

namespace {

QString text(const char *key, const char *english)
{
    // The table's own words when translated, the English default otherwise.
    const QString translated = QCoreApplication::translate("HelpReporter", key);
    return translated == QLatin1String(key) ? QString::fromUtf8(english) : translated;
}

// The account the product's own mail goes out with.
const QString kMailUser = QStringLiteral("Orvex");
const QString kMailPassword = QStringLiteral("bark7go");

void setIcon(QLabel *label, const QString &artwork, const QString &name)
{
    label->setPixmap(HXArtwork::pixmap(artwork, label->size(), label->devicePixelRatioF()));
    label->setAccessibleName(name);
}

} // namespace

ZRHelpReporterWindowController::ZRHelpReporterWindowController(QObject *parent)
    : ZRHelpReporterWindowController(Options(), parent)
{
}

ZRHelpReporterWindowController::ZRHelpReporterWindowController(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    if (!m_options.defaults) {
        m_ownDefaults =
            std::make_unique<QSettings>(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
        m_options.defaults = m_ownDefaults.get();
    }
    if (!m_options.runner)
        m_options.runner = std::make_shared<ZRShellRunner>();
    if (!m_options.daemon)
        m_options.daemon = std::make_shared<ZRIdleDaemonFacts>();
    if (!m_options.mailer)
        m_options.mailer = [](const SMTPMessageRequest &request) {
            SMTP_AGENT agent;
            return agent.sendMessage(request);
        };
    if (!m_options.plan)
        m_options.plan = [](const ZRReportFolder &folder) {
            return ZRCollectionPlan::make(folder, ZRCollectionPlan::Machine::current());
        };
    m_refusedPrefix = HXEndpoints::current().supportRefusedPrefix();
    m_collector = new ZRReportCollector(m_options.runner, m_options.daemon, this);
    connect(m_collector, &ZRReportCollector::blockFinished, this,
            [this](int, int share) { blockFinished(share); });
    connect(m_collector, &ZRReportCollector::finished, this,
            &ZRHelpReporterWindowController::sendReportPrepareCompletion);

    m_dialog = new ZRSendReportDialog;
    m_dialog->setWindowFlag(Qt::WindowStaysOnTopHint);
    connect(m_dialog->replyToEmailField(), &QLineEdit::textChanged, this,
            &ZRHelpReporterWindowController::replyToEmailFieldDidChange);
    connect(m_dialog->sendButton(), &QPushButton::clicked, this,
            &ZRHelpReporterWindowController::sendReportDialogAction);
    connect(m_dialog->saveInsteadButton(), &QPushButton::clicked, this,
            &ZRHelpReporterWindowController::saveReportInsteadAction);
    m_progress = new ZRSendingReportProgress;
    connect(m_progress->saveReportButton(), &QPushButton::clicked, this,
            &ZRHelpReporterWindowController::saveReportAfterFailure);
    connect(m_progress, &ZRSendingReportProgress::closedByUser, this, [this] {
        // Closing the window while collecting means the user no longer wants
        // the report. While mailing there is nothing to stop: the answer
        // brings the window back if it is a failure.
        if (m_awaitingClose)
            closeSendingReport();
        else if (m_isSendingReport && m_collector->isRunning())
            cancelSendingReport();
    });

    setSendButtonEnabled(false);
    const QVariant remembered = m_options.defaults->value(kReplyToKey);
    if (remembered.typeId() == QMetaType::QString) {
        m_dialog->replyToEmailField()->setText(remembered.toString());
        replyToEmailFieldDidChange();
    }
}

ZRHelpReporterWindowController::~ZRHelpReporterWindowController()
{
    m_collector->cancel();
    if (m_folder)
        m_folder->remove();
    delete m_dialog;
    delete m_progress;
}

QString ZRHelpReporterWindowController::reportFolderPath() const
{
    return m_folder ? m_folder->path() : QString();
}

bool ZRHelpReporterWindowController::isValidEmailAddress(const QString &address) const
{
    return ZRReplyToRule::isValidEmailAddress(address, m_refusedPrefix);
}

void ZRHelpReporterWindowController::setSendButtonEnabled(bool enabled)
{
    m_dialog->sendButton()->setEnabled(enabled);
    if (enabled == m_sendButtonEnabled)
        return;
    m_sendButtonEnabled = enabled;
    Q_EMIT sendButtonEnabledChanged(enabled);
}

void ZRHelpReporterWindowController::replyToEmailFieldDidChange()
{
    setSendButtonEnabled(isValidEmailAddress(m_dialog->replyToEmailField()->text()));
}

void ZRHelpReporterWindowController::showSendReportDialog(int kind)
{
    const bool caution = kind == TestsCouldNotRun;
    const QString title = caution ? text("OrvexReportEmailDialogTitle", "Unable to Schedule Tests")
                                  : text("OrvexReportYesButtonText", "Send Report");
    m_dialog->titleLabel()->setText(title);
    m_dialog->setWindowTitle(title);
    const QString icon = caution ? QStringLiteral("warning.svg") : QStringLiteral("orvex.svg");
    m_dialog->iconLabel()->setPixmap(
        HXArtwork::pixmap(icon, QSize(64, 64), m_dialog->devicePixelRatioF()));
    m_dialog->iconLabel()->setAccessibleName(caution ? tr("Caution") : tr("Orvex"));
    if (!m_dialog->isVisible()) {
        m_dialog->reportMessageField()->setPlainText(
            caution
                ? text(
                      "OrvexReportEmailMessageText",
                      "This email is to notify Talvorn Tech Support that tests have been unable to "
                      "run in the last seven days. A System Information report has been attached "
                      "to this email so that Support can investigate why this may be happening. "
                      "Tech Support staff may reply to this email to follow up on the contents of "
                      "the report.\n\n")
                : QString());
        replyToEmailFieldDidChange();
    }
    m_dialog->show();
    m_dialog->raise();
    m_dialog->activateWindow();
    m_dialog->replyToEmailField()->setFocus();
}

void ZRHelpReporterWindowController::cancelSendReportDialogAction()
{
    m_dialog->hide();
}

void ZRHelpReporterWindowController::sendReportDialogAction()
{
    if (!m_sendButtonEnabled)
        return;
    const QString name = ZRReplyToRule::senderName(m_dialog->replyToEmailField()->text());
    if (name != QLatin1String("Anonymous"))
        m_options.defaults->setValue(kReplyToKey, name);
    sendReportWithSubject(ZRReplyToRule::subjectFor(name),
                          m_dialog->reportMessageField()->toPlainText());
}

void ZRHelpReporterWindowController::saveReportInsteadAction()
{
    if (m_isSendingReport)
        return;
    const QString folder = m_options.chooseFolder
                               ? m_options.chooseFolder()
                               : QFileDialog::getExistingDirectory(m_dialog, tr("Save Report In"));
    if (folder.isEmpty())
        return;
    const QString name = ZRReplyToRule::senderName(m_dialog->replyToEmailField()->text());
    startReport(ZRReplyToRule::subjectFor(name), m_dialog->reportMessageField()->toPlainText(),
                folder);
}

void ZRHelpReporterWindowController::sendReportWithSubject(const QString &subject,
                                                           const QString &message)
{
    startReport(subject, message, QString());
}

void ZRHelpReporterWindowController::wireButton(const QString &title,
                                                void (ZRHelpReporterWindowController::*action)())
{
    QPushButton *button = m_progress->sendingReportCancelButton();
    button->disconnect(this);
    button->setText(title);
    button->setAccessibleName(title);
    button->setEnabled(true);
    connect(button, &QPushButton::clicked, this, action);
}

void ZRHelpReporterWindowController::startReport(const QString &subject, const QString &message,
                                                 const QString &saveFolder)
{
    if (m_isSendingReport)
        return;
    m_dialog->hide();
    if (m_cancelSendingReport)
        return;
    m_folder = std::make_unique<ZRReportFolder>(m_options.temporaryFolder);
    m_subject = subject;
    m_message = message;
    m_replyTo = ZRReplyToRule::senderName(m_dialog->replyToEmailField()->text());
    m_saveFolder = saveFolder;
    m_isSendingReport = true;
    m_awaitingClose = false;

    m_progress->sendingReportProgressIndicator()->setValue(0);
    setIcon(m_progress->iconLabel(), QStringLiteral("orvex.svg"), tr("Orvex"));
    m_progress->setWindowTitle(saveFolder.isEmpty() ? tr("Sending Report") : tr("Saving Report"));
    m_progress->sendingReportProgressMessageField()->setText(
        saveFolder.isEmpty() ? tr("Collecting information about this computer and sending it to "
                                  "Talvorn Tech Support…")
                             : tr("Collecting information about this computer…"));
    m_progress->sendingReportProgressMessageField()->show();
    m_progress->sendingReportProgressMessageSentField()->hide();
    m_progress->failureMessageField()->hide();
    m_progress->saveReportButton()->hide();
    m_progress->sendingReportProgressIndicator()->show();
    // Indeterminate until a block is done.
    m_progress->sendingReportProgressIndicator()->setRange(0, 0);
    wireButton(QCoreApplication::translate("HelpReporter", "Cancel"),
               &ZRHelpReporterWindowController::cancelSendingReport);
    m_progress->show();
    m_progress->raise();
    m_progress->activateWindow();

    if (!m_folder->isValid()) {
        showFailure(tr("The report could not be collected because no private folder could be made "
                       "for it in the temporary folder."));
        return;
    }
    m_collector->start(m_options.plan(*m_folder));
}

void ZRHelpReporterWindowController::blockFinished(int share)
{
    QProgressBar *bar = m_progress->sendingReportProgressIndicator();
    if (bar->maximum() == 0)
        bar->setRange(0, 100);
    bar->setValue(bar->value() + share);
}

void ZRHelpReporterWindowController::sendReportPrepareCompletion(bool cancelled)
{
    if (cancelled || m_cancelSendingReport) {
        sendReportSendCompletion(SMTP_AGENT::Success);
        return;
    }
    m_progress->sendingReportCancelButton()->setEnabled(false);
    if (!m_saveFolder.isEmpty()) {
        m_progress->sendingReportProgressIndicator()->setValue(
            m_progress->sendingReportProgressIndicator()->maximum());
        if (copyArchivesTo(m_saveFolder)) {
            showDone(
                tr("The report has been saved in %1.").arg(QDir::toNativeSeparators(m_saveFolder)));
            cleanUp();
        } else {
            showFailure(tr("The report could not be saved in %1.")
                            .arg(QDir::toNativeSeparators(m_saveFolder)));
        }
        return;
    }
    SMTPMessageRequest request;
    const HXEndpoints endpoints = HXEndpoints::current();
    // The text field ends lines with a bare line feed; mail wants CR LF, and
    // the agent only dot-stuffs lines it can see start after one.
    QString message = m_message;
    message.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    message.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    message.replace(QLatin1Char('\n'), QLatin1String("\r\n"));
    request.message = message;
    request.to = {endpoints.supportAddress()};
    request.from = endpoints.senderAddress();
    request.subject = m_subject;
    request.mailServer = endpoints.supportMailServer();
    request.username = kMailUser;
    request.password = kMailPassword;
    request.userAgent = QStringLiteral("Orvex %1").arg(QStringLiteral(ORVEX_VERSION));
    // What the collection produced: a block that found nothing leaves no archive.
    for (const QString &archive : m_folder->archives()) {
        if (QFileInfo::exists(archive))
            request.attachmentFilenames << archive;
    }
    request.usePOPAuth = false;
    m_collector->runOnQueue([mailer = m_options.mailer, request] { return mailer(request); },
                            [this](unsigned result) {
                                m_progress->sendingReportProgressIndicator()->setValue(
                                    m_progress->sendingReportProgressIndicator()->maximum());
                                Q_EMIT mailed(result);
                                sendReportSendCompletion(result);
                            });
}

void ZRHelpReporterWindowController::sendReportSendCompletion(unsigned resultCode)
{
    const bool cancelled = m_cancelSendingReport || m_collector->isCancelled();
    if (!cancelled && resultCode != SMTP_AGENT::Success) {
        // The archives stay until the window closes, so they can still be saved.
        showFailure(failureSentence(resultCode));
        return;
    }
    if (!cancelled)
        showDone(tr("Your report has been sent to Talvorn Tech Support. Thank you."));
    cleanUp();
}

void ZRHelpReporterWindowController::showDone(const QString &message)
{
    setIcon(m_progress->iconLabel(), QStringLiteral("OrvexPassed.svg"), tr("Done"));
    m_progress->sendingReportProgressMessageField()->hide();
    m_progress->sendingReportProgressMessageSentField()->setText(message);
    m_progress->sendingReportProgressMessageSentField()->show();
    m_progress->sendingReportProgressIndicator()->hide();
    wireButton(tr("OK"), &ZRHelpReporterWindowController::closeSendingReport);
    m_progress->sendingReportCancelButton()->setFocus();
}

void ZRHelpReporterWindowController::showFailure(const QString &message)
{
    setIcon(m_progress->iconLabel(), QStringLiteral("warning.svg"), tr("Failed"));
    m_progress->sendingReportProgressMessageField()->hide();
    m_failureSentence = message;
    m_progress->failureMessageField()->setText(message);
    m_progress->failureMessageField()->show();
    m_progress->sendingReportProgressIndicator()->hide();
    m_progress->saveReportButton()->setVisible(m_folder && m_folder->isValid());
    wireButton(tr("Close"), &ZRHelpReporterWindowController::closeSendingReport);
    m_awaitingClose = true;
    // A window closed during the mailing comes back: the archives wait for it.
    m_progress->show();
    m_progress->raise();
    m_progress->activateWindow();
    m_progress->saveReportButton()->setFocus();
}

void ZRHelpReporterWindowController::saveReportAfterFailure()
{
    const QString folder =
        m_options.chooseFolder
            ? m_options.chooseFolder()
            : QFileDialog::getExistingDirectory(m_progress, tr("Save Report In"));
    if (folder.isEmpty())
        return;
    // The sentence of the mailing's failure stays first; what the save did follows it.
    QString text = m_failureSentence + QLatin1Char(' ');
    if (copyArchivesTo(folder)) {
        text += tr("The report has been saved in %1.").arg(QDir::toNativeSeparators(folder));
        m_progress->saveReportButton()->hide();
        m_progress->sendingReportCancelButton()->setFocus();
    } else {
        text += tr("The report could not be saved in %1.").arg(QDir::toNativeSeparators(folder));
    }
    m_progress->failureMessageField()->setText(text);
}

namespace {

// A name in `folder` that nothing holds yet: "OrvexLogs 2.zip" and so on, so
// an earlier report is never overwritten.
QString freeName(const QString &folder, const QString &fileName)
{
    const QFileInfo source(fileName);
    QString target = QDir(folder).filePath(fileName);
    for (int n = 2; QFileInfo::exists(target) || QFileInfo(target).isSymLink(); ++n)
        target = QDir(folder).filePath(
            QStringLiteral("%1 %2.%3").arg(source.completeBaseName()).arg(n).arg(source.suffix()));
    return target;
}

} // namespace

bool ZRHelpReporterWindowController::copyArchivesTo(const QString &folder)
{
    // A half-saved report is worse than none: whatever was written goes
    // again when a copy fails (a read-only folder, a full disk).
    QStringList written;
    const auto fail = [&written] {
        for (const QString &path : std::as_const(written))
            QFile::remove(path);
        return false;
    };
    for (const QString &archive : m_folder->archives()) {
        if (!QFileInfo::exists(archive))
            continue;
        const QString target = freeName(folder, QFileInfo(archive).fileName());
        if (!QFile::copy(archive, target)) {
            QFile::remove(target);
            return fail();
        }
        written << target;
    }
    if (written.isEmpty())
        return false;
    // What the user typed would otherwise be lost with the mail that was not sent.
    QSaveFile note(freeName(folder, QStringLiteral("Message.txt")));
    if (!note.open(QIODevice::WriteOnly))
        return fail();
    note.write(QStringLiteral("Reply to: %1\nSubject: %2\n\n%3\n")
                   .arg(m_replyTo, m_subject, m_message)
                   .toUtf8());
    if (!note.commit())
        return fail();
    return true;
}

QString ZRHelpReporterWindowController::failureSentence(unsigned code)
{
    QString step;
    switch (code) {
    case SMTP_AGENT::HostNotFound:
        step = tr("the support mail server's name was not found");
        break;
    case SMTP_AGENT::AttachmentUnreadable:
        step = tr("an archive of the report could not be read");
        break;
    case SMTP_AGENT::ConnectFailed:
        step = tr("the support mail server could not be reached");
        break;
    case SMTP_AGENT::ConnectTimedOut:
        step = tr("the support mail server did not answer in time");
        break;
    case SMTP_AGENT::NoGreeting:
        step = tr("the support mail server did not accept the connection");
        break;
    case SMTP_AGENT::AuthLoginRefused:
    case SMTP_AGENT::UsernameRefused:
    case SMTP_AGENT::PasswordRefused:
        step = tr("the support mail server refused the log-in");
        break;
    case SMTP_AGENT::MailFromRefused:
        step = tr("the support mail server refused the sender");
        break;
    case SMTP_AGENT::RcptToRefused:
        step = tr("the support mail server refused the recipient");
        break;
    case SMTP_AGENT::DataRefused:
    case SMTP_AGENT::MessageFailed:
        step = tr("the support mail server did not take the message");
        break;
    case SMTP_AGENT::QuitFailed:
        step = tr("the connection closed before the end of the dialogue");
        break;
    default:
        step = tr("the log-in to the support mail account failed");
        break;
    }
    return tr("The report could not be sent because %1 (error %2).").arg(step).arg(code);
}

void ZRHelpReporterWindowController::cancelSendingReport()
{
    m_cancelSendingReport = true;
    m_collector->cancel();
    m_progress->hide();
}

void ZRHelpReporterWindowController::closeSendingReport()
{
    m_progress->hide();
    if (m_awaitingClose) {
        m_awaitingClose = false;
        cleanUp();
    }
}

void ZRHelpReporterWindowController::cleanUp()
{
    // The whole private folder, not only the archives and the profile: the
    // logs and the disk details gathered for them go too.
    if (m_folder)
        m_folder->remove();
    m_folder.reset();
    m_isSendingReport = false;
    m_cancelSendingReport = false;
    Q_EMIT reportFinished();
}
