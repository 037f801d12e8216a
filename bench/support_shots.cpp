// Pictures of the help reporter for a person to judge: the dialog of both
// kinds, the progress window during the collection, the sent state and the
// failure state.
//
//   support_shots OUTDIR     (QT_QPA_PLATFORM=offscreen works)

#include "SMTP_AGENT.h"
#include "ZRCommandRunner.h"
#include "ZRHelpReporterWindowController.h"
#include "ZRReportFolder.h"

#include <QApplication>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

class NoDaemon : public ZRDaemonFacts
{
public:
    QString sampleOfWorker() override { return {}; }
    QVariantMap idleDaemonPreferences() override { return {}; }
};

// Quick blocks, and a profile that takes a while, like lshw.
ZRCollectionPlan slowProfilePlan(const ZRReportFolder &folder)
{
    ZRCollectionPlan plan;
    const QStringList archives = folder.archives();
    for (int block = 0; block < ZRCollectionPlan::BlockCount; ++block) {
        const QString source = ZRShellQuote(folder.file(QStringLiteral("part%1.log").arg(block)));
        if (block == ZRCollectionPlan::SystemProfile)
            plan.blocks[size_t(block)]
                << ZRStep{ZRStep::Profile, QStringLiteral("sleep 2; echo p > ") + source, {}, {}};
        else
            plan.blocks[size_t(block)]
                << ZRStep{ZRStep::Shell, QStringLiteral("echo b > ") + source, {}, {}};
        plan.blocks[size_t(block)]
            << ZRStep{ZRStep::Shell, ZRHelpReporterZipPOSIXPath(source, archives[block]), {}, {}};
    }
    return plan;
}

void save(QWidget *window, const QString &path)
{
    QTest::qWait(100);
    window->grab().save(path);
    printf("%s\n", qPrintable(path));
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    const QString out = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(".");
    QTemporaryDir dir;
    QSettings settings(dir.filePath(QStringLiteral("defaults.ini")), QSettings::IniFormat);

    ZRHelpReporterWindowController::Options options;
    options.defaults = &settings;
    options.daemon = std::make_shared<NoDaemon>();
    options.temporaryFolder = dir.path();
    options.plan = slowProfilePlan;
    options.mailer = [](const SMTPMessageRequest &) {
        return unsigned(SMTP_AGENT::Success);
    };

    {
        ZRHelpReporterWindowController reporter(options);
        reporter.showSendReportDialog(ZRHelpReporterWindowController::UserRequest);
        ZRSendReportDialog *dialog = reporter.sendReportDialog();
        dialog->replyToEmailField()->setText(QStringLiteral("ann@example.org"));
        dialog->reportMessageField()->setPlainText(
            QStringLiteral("The surface scan stops at 40 % every night since the last update."));
        save(dialog, out + QStringLiteral("/support-dialog-request.png"));
        dialog->hide();
        reporter.showSendReportDialog(ZRHelpReporterWindowController::TestsCouldNotRun);
        save(dialog, out + QStringLiteral("/support-dialog-tests-could-not-run.png"));

        QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
        reporter.sendReportDialogAction();
        ZRSendingReportProgress *progress = reporter.sendingReportProgress();
        if (!QTest::qWaitFor(
                [progress] { return progress->sendingReportProgressIndicator()->value() >= 40; },
                20000))
            return 1;
        save(progress, out + QStringLiteral("/support-progress-collecting.png"));
        finished.wait(20000);
        save(progress, out + QStringLiteral("/support-sent.png"));
        progress->hide();
    }
    {
        options.mailer = [](const SMTPMessageRequest &) {
            return unsigned(SMTP_AGENT::ConnectFailed);
        };
        ZRHelpReporterWindowController reporter(options);
        QSignalSpy mailed(&reporter, &ZRHelpReporterWindowController::mailed);
        reporter.sendReportWithSubject(QStringLiteral("Anonymous Orvex report"), QString());
        mailed.wait(20000);
        save(reporter.sendingReportProgress(), out + QStringLiteral("/support-failed.png"));
        reporter.closeSendingReport();
    }
    return 0;
}
