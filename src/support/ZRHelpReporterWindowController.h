#pragma once

#include "ZRCollectionPlan.h"
#include "ZRSendReportDialog.h"
#include "ZRSendingReportProgress.h"

#include <QObject>
#include <QPointer>
#include <functional>
#include <memory>

class QSettings;
class ZRCommandRunner;
class ZRDaemonFacts;
class ZRReportCollector;
class ZRReportFolder;
struct SMTPMessageRequest;

// The help reporter: asks for a reply-to address and a message, collects the
// diagnostics into four archives in a private folder, mails them to support
// with the program's own mail client (or copies them to a folder the user
// picks), and removes them again.
//
// Lives on the interface thread; the collection and the mailing run on the
// report queue and come back as queued calls.
class ZRHelpReporterWindowController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool sendButtonEnabled READ sendButtonEnabled NOTIFY sendButtonEnabledChanged)

public:
    enum Kind { UserRequest = 0, TestsCouldNotRun = 1 };
    static const QString kReplyToKey; // "ZRHelpReporterReplyToEmail"

    struct Options
    {
        QSettings *defaults = nullptr;           // the application's when null
        std::shared_ptr<ZRCommandRunner> runner; // /bin/sh when null
        std::shared_ptr<ZRDaemonFacts> daemon;   // the idle daemon when null
        // Sends and answers the mail agent's result code; SMTP_AGENT when null.
        std::function<unsigned(const SMTPMessageRequest &)> mailer;
        // Asks for the folder to save a report in; empty when the user declines.
        std::function<QString()> chooseFolder;
        // The collection's steps; this machine's commands when null.
        std::function<ZRCollectionPlan(const ZRReportFolder &)> plan;
        QString temporaryFolder; // where private report folders go; the product's /tmp when empty
    };

    explicit ZRHelpReporterWindowController(QObject *parent = nullptr);
    explicit ZRHelpReporterWindowController(Options options, QObject *parent = nullptr);
    ~ZRHelpReporterWindowController() override;

    void showSendReportDialog(int kind);
    bool isValidEmailAddress(const QString &text) const;
    bool sendButtonEnabled() const { return m_sendButtonEnabled; }
    bool isSendingReport() const { return m_isSendingReport; }
    ZRSendReportDialog *sendReportDialog() const { return m_dialog; }
    ZRSendingReportProgress *sendingReportProgress() const { return m_progress; }
    // The current report's private folder; empty when there is none.
    QString reportFolderPath() const;

    // The one sentence the progress window shows when mailing failed.
    static QString failureSentence(unsigned resultCode);

public Q_SLOTS:
    void replyToEmailFieldDidChange();
    void cancelSendReportDialogAction();
    void sendReportDialogAction();
    void saveReportInsteadAction();
    void sendReportWithSubject(const QString &subject, const QString &message);
    void cancelSendingReport();
    void closeSendingReport();

Q_SIGNALS:
    void sendButtonEnabledChanged(bool enabled);
    // The mail agent answered (on the interface thread).
    void mailed(unsigned resultCode);
    // A report is over and its archives are gone.
    void reportFinished();

private:
    void startReport(const QString &subject, const QString &message, const QString &saveFolder);
    void blockFinished(int share);
    void sendReportPrepareCompletion(bool cancelled);
    void sendReportSendCompletion(unsigned resultCode);
    void showDone(const QString &text);
    void showFailure(const QString &text);
    void saveReportAfterFailure();
    bool copyArchivesTo(const QString &folder);
    void cleanUp();
    void setSendButtonEnabled(bool enabled);
    void wireButton(const QString &title, void (ZRHelpReporterWindowController::*action)());

    Options m_options;
    std::unique_ptr<QSettings> m_ownDefaults;
    QString m_refusedPrefix;
    QPointer<ZRSendReportDialog> m_dialog;
    QPointer<ZRSendingReportProgress> m_progress;
    ZRReportCollector *m_collector = nullptr;
    std::unique_ptr<ZRReportFolder> m_folder;
    QString m_subject;
    QString m_message;
    QString m_replyTo;
    QString m_failureSentence;
    QString m_saveFolder; // set when the report is saved instead of mailed
    bool m_sendButtonEnabled = false;
    bool m_isSendingReport = false;
    bool m_cancelSendingReport = false;
    bool m_awaitingClose = false; // a failed report keeps its archives until the window closes
};
