// The help reporter: the reply-to rule and the subject, the collection's
// blocks and their concurrency, cancel during the profile, the clean-up after
// success, failure and cancel, saving instead of mailing, the private folder
// against planted links, and the dialog for the keyboard.

#include "SMTP_AGENT.h"
#include "ZRCommandRunner.h"
#include "ZRHelpReporterWindowController.h"
#include "ZRReplyToRule.h"
#include "ZRReportFolder.h"
#include "ZRSendReportDialog.h"
#include "ZRSendingReportProgress.h"

#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <sys/stat.h>
#include <thread>

namespace {

// Records every command with its block; the first step of each block waits
// until all four blocks have reached theirs, which only concurrent blocks can.
class RecordingRunner : public ZRCommandRunner
{
public:
    void run(const QString &command) override { record(command); }
    void runProfile(const QString &command) override { record(command); }
    void terminateProfile() override {}

    // Every block reached its first step while the other three were at theirs.
    bool allMet()
    {
        std::lock_guard lock(m_mutex);
        return m_arrived == 4 && !m_timedOut;
    }
    QMap<QString, QStringList> byBlock; // block tag → its commands in order

private:
    void record(const QString &command)
    {
        const QString tag = command.section(QLatin1Char(' '), 0, 0);
        std::unique_lock lock(m_mutex);
        const bool first = !byBlock.contains(tag);
        byBlock[tag] << command;
        if (first) {
            // A barrier: it opens only when all four blocks are in it at once.
            ++m_arrived;
            m_condition.notify_all();
            if (!m_condition.wait_for(lock, std::chrono::seconds(20),
                                      [this] { return m_arrived == 4; }))
                m_timedOut = true;
        }
    }
    int m_arrived = 0;
    bool m_timedOut = false;
    std::mutex m_mutex;
    std::condition_variable m_condition;
};

class FakeDaemon : public ZRDaemonFacts
{
public:
    QString sampleOfWorker() override
    {
        return QStringLiteral("Sampling process OrvexWorkerDaemon");
    }
    QVariantMap idleDaemonPreferences() override { return {{QStringLiteral("IdleMinutes"), 15}}; }
};

// Each block tags its commands with "echo <block>", so the recording runner
// can tell them apart.
ZRCollectionPlan taggedPlan(int stepsPerBlock)
{
    ZRCollectionPlan plan;
    for (int block = 0; block < ZRCollectionPlan::BlockCount; ++block) {
        for (int step = 0; step < stepsPerBlock; ++step)
            plan.blocks[size_t(block)] << ZRStep{
                block == ZRCollectionPlan::SystemProfile ? ZRStep::Profile : ZRStep::Shell,
                QStringLiteral("block%1 step%2").arg(block).arg(step),
                {},
                {}};
    }
    return plan;
}

// A plan that makes the four archives with real commands, the profile being
// `profileCommand`.
ZRCollectionPlan archivePlan(const ZRReportFolder &folder, const QString &profileCommand)
{
    ZRCollectionPlan plan;
    const QStringList archives{folder.installDebugArchive(), folder.diskInfoArchive(),
                               folder.logsArchive(), folder.systemProfileArchive()};
    const QStringList sources{folder.installDebugLog(),
                              folder.file(QStringLiteral("lsblk_list.log")),
                              folder.file(QStringLiteral("journal.log")), folder.systemProfile()};
    for (int block = 0; block < ZRCollectionPlan::BlockCount; ++block) {
        auto &steps = plan.blocks[size_t(block)];
        const QString source = ZRShellQuote(sources[block]);
        if (block == ZRCollectionPlan::SystemProfile)
            steps << ZRStep{ZRStep::Profile, profileCommand, {}, {}};
        else
            steps << ZRStep{
                ZRStep::Shell, QStringLiteral("echo block%1 > %2").arg(block).arg(source), {}, {}};
        steps << ZRStep{ZRStep::Shell, ZRHelpReporterZipPOSIXPath(source, archives[block]), {}, {}};
    }
    plan.blocks[ZRCollectionPlan::InstallDebug]
        << ZRStep{ZRStep::WorkerSample, {}, folder.workerSampleLog(), folder.installDebugArchive()};
    return plan;
}

} // namespace

class HelpReporterTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void replyToRule_data();
    void replyToRule();
    void subjectRule();
    void planForThisKindOfMachine();
    void blocksRunConcurrentlyEachInOrder();
    void sendsAndCleansUp();
    void failureOffersSaveAndCleansUpOnClose();
    void saveReportInstead();
    void failedSaveSaysSoAndLeavesNothing();
    void cancelDuringProfile();
    void closingTheWindowNeverJamsTheReporter();
    void plantedLinksAreLeftAlone();
    void dialogKeyboardAndMemory();

private:
    ZRHelpReporterWindowController::Options options(QSettings *settings);

    QTemporaryDir m_root;
    std::unique_ptr<QSettings> m_settings;
};

void HelpReporterTest::initTestCase()
{
    QVERIFY(m_root.isValid());
    qputenv("ORVEX_ROOT", QFile::encodeName(m_root.path()));
    qputenv("ORVEX_SUPPORT_REFUSED_PREFIX", "support@talvorn");
    QDir().mkpath(m_root.filePath(QStringLiteral("tmp")));
    m_settings = std::make_unique<QSettings>(m_root.filePath(QStringLiteral("defaults.ini")),
                                             QSettings::IniFormat);
}

ZRHelpReporterWindowController::Options HelpReporterTest::options(QSettings *settings)
{
    ZRHelpReporterWindowController::Options o;
    o.defaults = settings;
    o.daemon = std::make_shared<FakeDaemon>();
    o.temporaryFolder = m_root.filePath(QStringLiteral("tmp"));
    o.plan = [](const ZRReportFolder &folder) {
        return archivePlan(folder, QStringLiteral("echo profile > ") +
                                       ZRShellQuote(folder.systemProfile()));
    };
    return o;
}

void HelpReporterTest::replyToRule_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");
    QTest::newRow("plain") << QStringLiteral("ann@example.org") << true;
    QTest::newRow("blanks around") << QStringLiteral("  ann@example.org \t") << true;
    QTest::newRow("no dot after @") << QStringLiteral("ann@localhost") << false;
    QTest::newRow("no @") << QStringLiteral("ann.example.org") << false;
    QTest::newRow("blank inside") << QStringLiteral("ann smith@example.org") << false;
    QTest::newRow("empty") << QString() << false;
    QTest::newRow("support itself") << QStringLiteral("support@talvorn.example") << false;
    QTest::newRow("support in capitals") << QStringLiteral("Support@Talvorn.example") << false;
    QTest::newRow("support behind blanks") << QStringLiteral("   support@talvorn.example") << false;
    QTest::newRow("another mailbox there") << QStringLiteral("sales@talvorn.example") << true;
}

void HelpReporterTest::replyToRule()
{
    QFETCH(QString, text);
    QTEST(ZRReplyToRule::isValidEmailAddress(text, QStringLiteral("support@talvorn")), "valid");
}

void HelpReporterTest::subjectRule()
{
    QCOMPARE(ZRReplyToRule::senderName(QStringLiteral("  ann@example.org  ")),
             QStringLiteral("ann@example.org"));
    QCOMPARE(ZRReplyToRule::senderName(QStringLiteral(" \t ")), QStringLiteral("Anonymous"));
    QCOMPARE(ZRReplyToRule::subjectFor(QStringLiteral("Anonymous")),
             QStringLiteral("Anonymous Orvex report"));
    QCOMPARE(ZRReplyToRule::subjectFor(QStringLiteral("ann@example.org")),
             QStringLiteral("Orvex report from ann@example.org"));
}

void HelpReporterTest::planForThisKindOfMachine()
{
    ZRReportFolder folder(m_root.filePath(QStringLiteral("tmp")));
    QVERIFY(folder.isValid());
    ZRCollectionPlan::Machine bare;
    bare.hasProgram = [](const QString &) {
        return false;
    };
    bare.disks = {QStringLiteral("vda"), QStringLiteral("nvme0n1")};
    const ZRCollectionPlan minimal = ZRCollectionPlan::make(folder, bare);
    const auto joined = [](const QList<ZRStep> &steps) {
        QStringList commands;
        for (const ZRStep &s : steps)
            commands << s.command;
        return commands.join(QLatin1Char('\n'));
    };
    // What a machine lacks is left out without a word.
    for (const auto &steps : minimal.blocks) {
        const QString all = joined(steps);
        for (const char *missing : {"systemctl", "lsblk", "udevadm", "journalctl", "coredumpctl",
                                    "lshw", "lspci", "lsusb"})
            QVERIFY2(!all.contains(QLatin1String(missing)), missing);
    }
    QVERIFY(joined(minimal.blocks[ZRCollectionPlan::SystemProfile])
                .contains(QStringLiteral("cat /proc/cpuinfo; cat /proc/meminfo")));
    QCOMPARE(minimal.blocks[ZRCollectionPlan::SystemProfile].first().kind, ZRStep::Profile);
    const QList<ZRStep> &install = minimal.blocks[ZRCollectionPlan::InstallDebug];
    QVERIFY(install.first().command.contains(QStringLiteral("> '") + folder.installDebugLog()));
    QVERIFY(std::any_of(install.cbegin(), install.cend(),
                        [](const ZRStep &s) { return s.kind == ZRStep::WorkerSample; }));

    ZRCollectionPlan::Machine full = bare;
    full.hasProgram = [](const QString &) {
        return true;
    };
    const ZRCollectionPlan everything = ZRCollectionPlan::make(folder, full);
    const QString disks = joined(everything.blocks[ZRCollectionPlan::DiskInfo]);
    QVERIFY(disks.indexOf(QStringLiteral("udevadm info --query=all --name='/dev/vda'")) <
            disks.indexOf(QStringLiteral("lsblk --json --output-all '/dev/nvme0n1'")));
    QVERIFY(
        disks.endsWith(QStringLiteral("rm -rf '") + folder.diskInfoFolder() + QLatin1Char('\'')));
    QVERIFY(joined(everything.blocks[ZRCollectionPlan::SystemProfile])
                .startsWith(QStringLiteral("lshw -xml")));
    QVERIFY(joined(everything.blocks[ZRCollectionPlan::Logs])
                .contains(QStringLiteral("journalctl -b --no-pager")));
    folder.remove();
}

void HelpReporterTest::blocksRunConcurrentlyEachInOrder()
{
    auto runner = std::make_shared<RecordingRunner>();
    auto o = options(m_settings.get());
    o.runner = runner;
    const ZRCollectionPlan plan = taggedPlan(5);
    o.plan = [plan](const ZRReportFolder &) {
        return plan;
    };
    o.mailer = [](const SMTPMessageRequest &) {
        return unsigned(SMTP_AGENT::Success);
    };
    ZRHelpReporterWindowController reporter(o);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
    QList<int> progress;
    connect(reporter.sendingReportProgress()->sendingReportProgressIndicator(),
            &QProgressBar::valueChanged, this, [&progress](int value) {
                if (value > 0)
                    progress << value;
            });
    reporter.sendReportWithSubject(QStringLiteral("s"), QStringLiteral("m"));
    QVERIFY(finished.wait(30000));
    QVERIFY2(runner->allMet(), "the four blocks did not run at the same time");
    QCOMPARE(runner->byBlock.size(), 4);
    for (int block = 0; block < 4; ++block) {
        QStringList expected;
        for (const ZRStep &s : plan.blocks[size_t(block)])
            expected << s.command;
        QCOMPARE(runner->byBlock.value(QStringLiteral("block%1").arg(block)), expected);
    }
    // 15, 15, 10 and 25 in whatever order the blocks ended, then the rest after mailing.
    QVERIFY2(progress.size() == 5,
             qPrintable(QVariant::fromValue(progress).toStringList().join(QLatin1Char(' '))));
    QList<int> shares{progress.at(0)};
    for (int i = 1; i < 4; ++i)
        shares << progress.at(i) - progress.at(i - 1);
    std::sort(shares.begin(), shares.end());
    QCOMPARE(shares, (QList<int>{10, 15, 15, 25}));
    QCOMPARE(progress.last(), 100);
}

void HelpReporterTest::sendsAndCleansUp()
{
    m_settings->remove(ZRHelpReporterWindowController::kReplyToKey);
    auto o = options(m_settings.get());
    SMTPMessageRequest sent;
    QStringList presentWhenMailing;
    o.mailer = [&sent, &presentWhenMailing](const SMTPMessageRequest &request) {
        sent = request;
        for (const QString &path : request.attachmentFilenames)
            if (QFileInfo::exists(path))
                presentWhenMailing << QFileInfo(path).fileName();
        return unsigned(SMTP_AGENT::Success);
    };
    ZRHelpReporterWindowController reporter(o);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
    reporter.showSendReportDialog(ZRHelpReporterWindowController::UserRequest);
    reporter.sendReportDialog()->replyToEmailField()->setText(QStringLiteral("  ann@example.org "));
    reporter.sendReportDialog()->reportMessageField()->setPlainText(
        QStringLiteral("It stopped.\n.\nThanks"));
    QVERIFY(reporter.sendButtonEnabled());
    QTest::mouseClick(reporter.sendReportDialog()->sendButton(), Qt::LeftButton);
    QVERIFY(!reporter.sendReportDialog()->isVisible());
    const QString folder = reporter.reportFolderPath();
    QVERIFY(QFileInfo(folder).isDir());
    QVERIFY(finished.wait(30000));

    QCOMPARE(sent.subject, QStringLiteral("Orvex report from ann@example.org"));
    // Lines end in CR LF for the mail, so the lone "." is stuffed and cannot end it.
    QCOMPARE(sent.message, QStringLiteral("It stopped.\r\n.\r\nThanks"));
    QCOMPARE(SMTP_AGENT::dotStuffed(sent.message), QStringLiteral("It stopped.\r\n..\r\nThanks"));
    QCOMPARE(sent.username, QStringLiteral("Orvex"));
    QVERIFY(sent.userAgent.startsWith(QStringLiteral("Orvex ")));
    QCOMPARE(presentWhenMailing,
             (QStringList{QStringLiteral("OrvexLogs.zip"), QStringLiteral("SystemProfile.zip"),
                          QStringLiteral("OrvexInstallDebug.zip"),
                          QStringLiteral("OrvexDiskInfo.zip")}));
    QCOMPARE(m_settings->value(ZRHelpReporterWindowController::kReplyToKey).toString(),
             QStringLiteral("ann@example.org"));
    QVERIFY(!QFileInfo::exists(folder));
    ZRSendingReportProgress *progress = reporter.sendingReportProgress();
    QVERIFY(progress->sendingReportProgressMessageSentField()->isVisible());
    QVERIFY(!progress->sendingReportProgressMessageField()->isVisible());
    QVERIFY(!progress->failureMessageField()->isVisible());
    QCOMPARE(progress->sendingReportCancelButton()->text(), QStringLiteral("OK"));
    QTest::mouseClick(progress->sendingReportCancelButton(), Qt::LeftButton);
    QVERIFY(!progress->isVisible());
    QVERIFY(!reporter.isSendingReport());
}

void HelpReporterTest::failureOffersSaveAndCleansUpOnClose()
{
    auto o = options(m_settings.get());
    o.mailer = [](const SMTPMessageRequest &) {
        return unsigned(SMTP_AGENT::ConnectFailed);
    };
    QTemporaryDir saveIn;
    o.chooseFolder = [&saveIn] {
        return saveIn.path();
    };
    ZRHelpReporterWindowController reporter(o);
    QSignalSpy mailed(&reporter, &ZRHelpReporterWindowController::mailed);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
    reporter.sendReportDialog()->replyToEmailField()->setText(QStringLiteral("ann@example.org"));
    reporter.sendReportWithSubject(QStringLiteral("s"), QStringLiteral("It stopped."));
    QVERIFY(mailed.wait(30000));
    const QString folder = reporter.reportFolderPath();
    ZRSendingReportProgress *progress = reporter.sendingReportProgress();
    QVERIFY(progress->failureMessageField()->isVisible());
    QVERIFY(!progress->sendingReportProgressMessageSentField()->isVisible());
    QCOMPARE(progress->failureMessageField()->text(),
             QStringLiteral("The report could not be sent because the support mail server could "
                            "not be reached (error 116)."));
    // The archives wait for the window to close.
    QVERIFY(QFileInfo::exists(folder + QStringLiteral("/OrvexLogs.zip")));
    QVERIFY(finished.isEmpty());
    QVERIFY(progress->saveReportButton()->isVisible());
    QTest::mouseClick(progress->saveReportButton(), Qt::LeftButton);
    QCOMPARE(QDir(saveIn.path()).entryList(QDir::Files, QDir::Name),
             (QStringList{QStringLiteral("Message.txt"), QStringLiteral("OrvexDiskInfo.zip"),
                          QStringLiteral("OrvexInstallDebug.zip"), QStringLiteral("OrvexLogs.zip"),
                          QStringLiteral("SystemProfile.zip")}));
    QFile note(saveIn.filePath(QStringLiteral("Message.txt")));
    QVERIFY(note.open(QIODevice::ReadOnly));
    QCOMPARE(note.readAll(), QByteArray("Reply to: ann@example.org\nSubject: s\n\nIt stopped.\n"));
    progress->close();
    QCOMPARE(finished.size(), 1);
    QVERIFY(!QFileInfo::exists(folder));
    QVERIFY(!reporter.isSendingReport());
}

void HelpReporterTest::saveReportInstead()
{
    auto o = options(m_settings.get());
    int mails = 0;
    o.mailer = [&mails](const SMTPMessageRequest &) {
        ++mails;
        return unsigned(SMTP_AGENT::Success);
    };
    QTemporaryDir saveIn;
    // An archive of an earlier report is kept.
    QFile earlier(saveIn.filePath(QStringLiteral("OrvexLogs.zip")));
    QVERIFY(earlier.open(QIODevice::WriteOnly));
    earlier.write("earlier");
    earlier.close();
    o.chooseFolder = [&saveIn] {
        return saveIn.path();
    };
    ZRHelpReporterWindowController reporter(o);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
    reporter.showSendReportDialog(ZRHelpReporterWindowController::UserRequest);
    reporter.sendReportDialog()->replyToEmailField()->setText(QStringLiteral("ann@example.org"));
    reporter.sendReportDialog()->reportMessageField()->setPlainText(QStringLiteral("Kept."));
    QTest::mouseClick(reporter.sendReportDialog()->saveInsteadButton(), Qt::LeftButton);
    const QString folder = reporter.reportFolderPath();
    QVERIFY(finished.wait(30000));
    QCOMPARE(mails, 0);
    QVERIFY(!QFileInfo::exists(folder));
    QCOMPARE(QDir(saveIn.path()).entryList(QDir::Files).size(), 6);
    QFile note(saveIn.filePath(QStringLiteral("Message.txt")));
    QVERIFY(note.open(QIODevice::ReadOnly));
    QCOMPARE(note.readAll(), QByteArray("Reply to: ann@example.org\n"
                                        "Subject: Orvex report from ann@example.org\n\nKept.\n"));
    QVERIFY(QFileInfo::exists(saveIn.filePath(QStringLiteral("OrvexLogs 2.zip"))));
    QVERIFY(earlier.open(QIODevice::ReadOnly));
    QCOMPARE(earlier.readAll(), QByteArray("earlier"));
    QVERIFY(
        reporter.sendingReportProgress()->sendingReportProgressMessageSentField()->text().contains(
            saveIn.path()));

    // The same reporter mails next: its sent state says so, not where the last one was saved.
    reporter.sendReportWithSubject(QStringLiteral("s"), QString());
    QVERIFY(finished.wait(30000));
    QCOMPARE(mails, 1);
    QCOMPARE(reporter.sendingReportProgress()->sendingReportProgressMessageSentField()->text(),
             QStringLiteral("Your report has been sent to Talvorn Tech Support. Thank you."));
}

void HelpReporterTest::failedSaveSaysSoAndLeavesNothing()
{
    auto o = options(m_settings.get());
    // The last archive cannot be copied (a directory stands in for it), so
    // three copies are made before the save fails, as on a disk that fills up.
    o.plan = [](const ZRReportFolder &folder) {
        ZRCollectionPlan plan = archivePlan(folder, QStringLiteral("echo profile > ") +
                                                        ZRShellQuote(folder.systemProfile()));
        plan.blocks[ZRCollectionPlan::DiskInfo].last() =
            ZRStep{ZRStep::Shell,
                   QStringLiteral("mkdir ") + ZRShellQuote(folder.diskInfoArchive()),
                   {},
                   {}};
        return plan;
    };
    o.mailer = [](const SMTPMessageRequest &) {
        return unsigned(SMTP_AGENT::ConnectFailed);
    };
    QTemporaryDir saveIn;
    o.chooseFolder = [&saveIn] {
        return saveIn.path();
    };
    const QString couldNot =
        QStringLiteral("The report could not be saved in %1.").arg(saveIn.path());
    ZRHelpReporterWindowController reporter(o);
    ZRSendingReportProgress *progress = reporter.sendingReportProgress();
    QSignalSpy mailed(&reporter, &ZRHelpReporterWindowController::mailed);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);

    // Save Report Instead…
    reporter.showSendReportDialog(ZRHelpReporterWindowController::UserRequest);
    QTest::mouseClick(reporter.sendReportDialog()->saveInsteadButton(), Qt::LeftButton);
    QTRY_VERIFY_WITH_TIMEOUT(progress->failureMessageField()->isVisible(), 30000);
    QCOMPARE(progress->failureMessageField()->text(), couldNot);
    QCOMPARE(QDir(saveIn.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    QVERIFY(progress->close());
    QCOMPARE(finished.size(), 1);

    // Save Report… after a failed mailing.
    reporter.sendReportWithSubject(QStringLiteral("s"), QStringLiteral("m"));
    QVERIFY(mailed.wait(30000));
    QTest::mouseClick(progress->saveReportButton(), Qt::LeftButton);
    QCOMPARE(progress->failureMessageField()->text(),
             ZRHelpReporterWindowController::failureSentence(SMTP_AGENT::ConnectFailed) +
                 QLatin1Char(' ') + couldNot);
    QCOMPARE(QDir(saveIn.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList());
    QVERIFY(progress->close());
    QCOMPARE(finished.size(), 2);
}

void HelpReporterTest::cancelDuringProfile()
{
    auto o = options(m_settings.get());
    int mails = 0;
    o.mailer = [&mails](const SMTPMessageRequest &) {
        ++mails;
        return unsigned(SMTP_AGENT::Success);
    };
    const QString pidFile = m_root.filePath(QStringLiteral("profile.pid"));
    QFile::remove(pidFile);
    o.plan = [pidFile](const ZRReportFolder &folder) {
        // A profile that takes long, as lshw can: it says who it is first.
        return archivePlan(folder,
                           QStringLiteral("echo $$ > %1.part && mv %1.part %1 && exec sleep 60")
                               .arg(ZRShellQuote(pidFile)));
    };
    ZRHelpReporterWindowController reporter(o);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
    reporter.sendReportWithSubject(QStringLiteral("s"), QString());
    const QString folder = reporter.reportFolderPath();
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(pidFile), 20000);
    QFile f(pidFile);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const pid_t pid = f.readAll().trimmed().toInt();
    QVERIFY(pid > 0);
    QCOMPARE(kill(pid, 0), 0);
    QTest::mouseClick(reporter.sendingReportProgress()->sendingReportCancelButton(),
                      Qt::LeftButton);
    QVERIFY(!reporter.sendingReportProgress()->isVisible());
    QVERIFY(finished.wait(30000));
    QCOMPARE(kill(pid, 0), -1); // ended and reaped
    QCOMPARE(mails, 0);
    QVERIFY(!QFileInfo::exists(folder));
    QVERIFY(!reporter.isSendingReport());
}

void HelpReporterTest::closingTheWindowNeverJamsTheReporter()
{
    auto o = options(m_settings.get());
    std::atomic<int> mailing{0};
    std::atomic<bool> release{false};
    std::atomic<unsigned> answer{SMTP_AGENT::ConnectFailed};
    o.mailer = [&](const SMTPMessageRequest &) {
        ++mailing;
        while (!release)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        return answer.load();
    };
    const QString pidFile = m_root.filePath(QStringLiteral("profile2.pid"));
    QFile::remove(pidFile);
    bool slowProfile = true;
    o.plan = [&](const ZRReportFolder &folder) {
        return archivePlan(
            folder, slowProfile
                        ? QStringLiteral("echo $$ > %1.part && mv %1.part %1 && exec sleep 60")
                              .arg(ZRShellQuote(pidFile))
                        : QStringLiteral("echo profile > ") + ZRShellQuote(folder.systemProfile()));
    };
    ZRHelpReporterWindowController reporter(o);
    ZRSendingReportProgress *progress = reporter.sendingReportProgress();
    QSignalSpy mailed(&reporter, &ZRHelpReporterWindowController::mailed);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);

    // Closed by its frame while collecting: as Cancel.
    reporter.sendReportWithSubject(QStringLiteral("s"), QString());
    const QString first = reporter.reportFolderPath();
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(pidFile), 20000);
    QVERIFY(progress->close());
    QVERIFY(finished.wait(30000));
    QCOMPARE(mailing.load(), 0);
    QVERIFY(!QFileInfo::exists(first));
    QVERIFY(!reporter.isSendingReport());

    // Closed while mailing, and the mailing fails: the window comes back.
    slowProfile = false;
    reporter.sendReportWithSubject(QStringLiteral("s"), QString());
    const QString second = reporter.reportFolderPath();
    QTRY_VERIFY_WITH_TIMEOUT(mailing.load() == 1, 30000);
    progress->close();
    QVERIFY(!progress->isVisible());
    release = true;
    QVERIFY(mailed.wait(30000));
    QVERIFY(progress->isVisible());
    QVERIFY(progress->failureMessageField()->isVisible());
    QVERIFY(QFileInfo::exists(second));
    QVERIFY(progress->close());
    QCOMPARE(finished.size(), 2);
    QVERIFY(!QFileInfo::exists(second));
    QVERIFY(!reporter.isSendingReport());

    // And the reporter still works.
    answer = SMTP_AGENT::Success;
    reporter.sendReportWithSubject(QStringLiteral("s"), QString());
    QVERIFY(finished.wait(30000));
    QCOMPARE(mailing.load(), 2);
    QVERIFY(progress->sendingReportProgressMessageSentField()->isVisible());
}

void HelpReporterTest::plantedLinksAreLeftAlone()
{
    // Another user plants links at the fixed names in the shared /tmp.
    const QString tmp = m_root.filePath(QStringLiteral("tmp"));
    const QString victim = m_root.filePath(QStringLiteral("victim.txt"));
    QFile v(victim);
    QVERIFY(v.open(QIODevice::WriteOnly));
    v.write("precious");
    v.close();
    const QStringList names{QStringLiteral("OrvexLogs.zip"),
                            QStringLiteral("SystemProfile.zip"),
                            QStringLiteral("OrvexInstallDebug.zip"),
                            QStringLiteral("OrvexDiskInfo.zip"),
                            QStringLiteral("OrvexInstallDebug.log"),
                            QStringLiteral("OrvexWorkerSample.log"),
                            QStringLiteral("OrvexIdleDaemonPrefs.plist"),
                            QStringLiteral("system_profile.spx"),
                            QStringLiteral("tmp.Orvex.diskInfo")};
    for (const QString &name : names)
        QVERIFY(QFile::link(victim, tmp + QLatin1Char('/') + name));

    auto o = options(m_settings.get());
    o.temporaryFolder.clear(); // the product's /tmp, under the test's root
    ZRCollectionPlan::Machine machine;
    machine.hasProgram = [](const QString &) {
        return false;
    };
    o.plan = [machine](const ZRReportFolder &folder) {
        return ZRCollectionPlan::make(folder, machine);
    };
    QString folderMode;
    o.mailer = [&folderMode](const SMTPMessageRequest &request) {
        struct stat st
        {
        };
        if (!request.attachmentFilenames.isEmpty() &&
            stat(QFile::encodeName(QFileInfo(request.attachmentFilenames.first()).path())
                     .constData(),
                 &st) == 0)
            folderMode = QString::number(st.st_mode & 07777, 8);
        return unsigned(SMTP_AGENT::Success);
    };
    ZRHelpReporterWindowController reporter(o);
    QSignalSpy finished(&reporter, &ZRHelpReporterWindowController::reportFinished);
    reporter.sendReportWithSubject(QStringLiteral("s"), QString());
    QVERIFY(reporter.reportFolderPath().startsWith(tmp + QStringLiteral("/OrvexReport.")));
    QVERIFY(finished.wait(60000));
    QCOMPARE(folderMode, QStringLiteral("700"));
    for (const QString &name : names) {
        const QFileInfo link(tmp + QLatin1Char('/') + name);
        QVERIFY2(link.isSymLink(), qPrintable(name));
        QCOMPARE(link.symLinkTarget(), victim);
    }
    QVERIFY(v.open(QIODevice::ReadOnly));
    QCOMPARE(v.readAll(), QByteArray("precious"));
    QCOMPARE(QDir(tmp).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size(),
             names.size());
}

void HelpReporterTest::dialogKeyboardAndMemory()
{
    m_settings->setValue(ZRHelpReporterWindowController::kReplyToKey,
                         QStringLiteral("ann@example.org"));
    auto o = options(m_settings.get());
    ZRHelpReporterWindowController reporter(o);
    ZRSendReportDialog *dialog = reporter.sendReportDialog();
    // The remembered address, and Send enabled for it.
    QCOMPARE(dialog->replyToEmailField()->text(), QStringLiteral("ann@example.org"));
    QVERIFY(reporter.sendButtonEnabled());
    reporter.showSendReportDialog(ZRHelpReporterWindowController::TestsCouldNotRun);
    QCOMPARE(dialog->titleLabel()->text(), QStringLiteral("Unable to Schedule Tests"));
    QVERIFY(dialog->reportMessageField()->toPlainText().startsWith(
        QStringLiteral("This email is to notify Talvorn Tech Support")));
    // Opened again while visible: what the user typed stays.
    dialog->reportMessageField()->setPlainText(QStringLiteral("typed"));
    dialog->replyToEmailField()->setText(QStringLiteral("ann@localhost"));
    QVERIFY(!dialog->sendButton()->isEnabled());
    reporter.showSendReportDialog(ZRHelpReporterWindowController::UserRequest);
    QCOMPARE(dialog->titleLabel()->text(), QStringLiteral("Send Report"));
    QCOMPARE(dialog->reportMessageField()->toPlainText(), QStringLiteral("typed"));
    dialog->replyToEmailField()->setText(QStringLiteral("support@talvorn.example"));
    QVERIFY(!reporter.sendButtonEnabled());

    // Every control is named and reachable by Tab, in order.
    const QList<QWidget *> controls{dialog->replyToEmailField(), dialog->reportMessageField(),
                                    dialog->saveInsteadButton(), dialog->cancelButton(),
                                    dialog->sendButton()};
    for (QWidget *control : controls) {
        QVERIFY(!control->accessibleName().isEmpty());
        QVERIFY(control->focusPolicy() & Qt::TabFocus);
    }
    for (int i = 0; i + 1 < controls.size(); ++i) {
        QWidget *next = controls[i]->nextInFocusChain();
        while (next && !(next->focusPolicy() & Qt::TabFocus))
            next = next->nextInFocusChain();
        QCOMPARE(next, controls[i + 1]);
    }

    // Escape closes it.
    QVERIFY(dialog->isVisible());
    QTest::keyClick(dialog->replyToEmailField(), Qt::Key_Escape);
    QVERIFY(!dialog->isVisible());
}

QTEST_MAIN(HelpReporterTest)
#include "tst_helpreporter.moc"
