// The application delegate: its store's failure paths with real files, the
// quit rules, the launch modifiers against the stand-in idle daemon, and the
// log taken away as text, as PDF and on paper.
#include "HXAppDelegate.h"
#include "HXDaemonInteraction.h"
#include "HXLogDocuments.h"
#include "HXLogEntry.h"
#include "HXProductPaths.h"
#include "HXRemoteProxy.h"
#include "HXStatusReport.h"
#include "HXSystemLog.h"
#include "StandinProcess.h"

#include <QDir>
#include <QFile>
#include <QPrinter>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

namespace {

// Answers for the user, and what was asked.
class ScriptedPrompts : public HXUserPrompts
{
public:
    bool debugAnswer = true;
    QString savePath;
    int quitAnswer = 1001; // "Cancel"
    QStringList asked;
    QList<HXError> errors;

    bool askDebugMode() override
    {
        asked.append(QStringLiteral("debug mode"));
        return debugAnswer;
    }
    void presentError(const HXError &error) override { errors.append(error); }
    QString askSavePath(const QString &proposedName, const QStringList &extensions) override
    {
        asked.append(proposedName + QLatin1Char(' ') + extensions.join(QLatin1Char(',')));
        return savePath;
    }
    int askQuitAnyway() override
    {
        asked.append(QStringLiteral("quit anyway"));
        return quitAnswer;
    }
};

QString pdfText(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("pdftotext"), {path, QStringLiteral("-")});
    p.waitForFinished();
    // Table cells wrap where the page says; compare words, not lines.
    return QString::fromUtf8(p.readAllStandardOutput()).simplified();
}

} // namespace

class TestAppDelegate : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    QStringList m_log;

    HXAppDelegate::Options options(ScriptedPrompts *prompts, const QString &storeFolder)
    {
        HXAppDelegate::Options o;
        o.prompts = prompts;
        o.storeFolder = storeFolder;
        o.wakeServer = false;
        return o;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        QStandardPaths::setTestModeEnabled(true);
        QCoreApplication::setOrganizationName(QStringLiteral("talvorn-test"));
        HXRemoteProxy::setCallTimeout(3000);
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }
    void init() { m_log.clear(); }

    void storeFolderThatIsAFile()
    {
        const QString folder = m_root.filePath(QStringLiteral("file-not-folder"));
        QFile blocker(folder);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, folder));
        QVERIFY(!delegate.managedObjectContext());
        QCOMPARE(prompts.errors.size(), 2);
        QCOMPARE(prompts.errors[0].domain, QStringLiteral("com.talvorn.OrvexErrorDomain"));
        QCOMPARE(prompts.errors[0].code, 101);
        QCOMPARE(prompts.errors[0].description,
                 QStringLiteral("Expected a folder to store application data, found a file (%1).").arg(folder));
        QCOMPARE(prompts.errors[1].code, 9999);
        QVERIFY(prompts.errors[1].description.startsWith(QLatin1String("Failed to initialize the store")));
        // Nothing was made, so quitting asks nothing.
        QVERIFY(delegate.applicationShouldTerminate());
        QVERIFY(prompts.asked.isEmpty());
    }

    void damagedStoreIsReplacedWithoutAsking()
    {
        const QString folder = m_root.filePath(QStringLiteral("damaged"));
        QDir().mkpath(folder);
        QFile damaged(folder + QStringLiteral("/Orvex.storedata"));
        QVERIFY(damaged.open(QIODevice::WriteOnly));
        damaged.write(QByteArray(8192, 'x'));
        damaged.close();

        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, folder));
        HXPersistentStore *store = delegate.managedObjectContext();
        QVERIFY(store);
        QVERIFY(prompts.errors.isEmpty());
        QCOMPARE(m_log.size(), 1);
        QVERIFY(m_log[0].contains(QLatin1String("damaged")));
        for (const QString &entity : HXPersistentStore::kEntityNames)
            QCOMPARE(store->count(entity), 0);
        HXError error;
        QVERIFY(store->insert(QStringLiteral("SMARTTest"), QStringLiteral("SMART test"), QStringLiteral("passed"), &error));
        delegate.saveAction();
        QVERIFY(prompts.errors.isEmpty());

        // Saved for real: a second store on the same folder reads it back.
        HXAppDelegate again(options(&prompts, folder));
        QCOMPARE(again.managedObjectContext()->count(QStringLiteral("SMARTTest")), 1);
    }

    void quitGoesOnWhateverTheAlertAnswers()
    {
        const QString folder = m_root.filePath(QStringLiteral("locked"));
        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, folder));
        HXPersistentStore *store = delegate.managedObjectContext();
        QVERIFY(store);
        HXError error;
        QVERIFY(store->insert(QStringLiteral("Disk"), QStringLiteral("sda"), QString(), &error));

        // Another reader holds the file, so the changes cannot be saved.
        {
            QSqlDatabase other = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
            other.setDatabaseName(store->path());
            QVERIFY(other.open());
            QSqlQuery reading(other);
            QVERIFY(reading.exec(QStringLiteral("BEGIN")));
            QVERIFY(reading.exec(QStringLiteral("SELECT COUNT(*) FROM \"Test\"")) && reading.next());

            prompts.quitAnswer = 1001; // "Cancel"
            QVERIFY(delegate.applicationShouldTerminate());
            QCOMPARE(prompts.asked, QStringList{QStringLiteral("quit anyway")});
            QCOMPARE(prompts.errors.size(), 1);
            reading.exec(QStringLiteral("ROLLBACK"));
            other.close();
        }
        QSqlDatabase::removeDatabase(QStringLiteral("other"));
    }

    void launchModifiersSetTheDaemonsDebugMode()
    {
        StandinProcess standin(m_root.path());
        QVERIFY(standin.start({QStringLiteral("--serve"), QStringLiteral("idle")}));
        const auto idle = HXDaemonInteraction::idleDaemonProxy();
        QVERIFY(idle);
        QSettings defaults(m_root.filePath(QStringLiteral("modifiers.conf")), QSettings::IniFormat);
        ScriptedPrompts prompts;
        HXAppDelegate::Options o = options(&prompts, m_root.filePath(QStringLiteral("store-m")));
        o.defaults = &defaults;
        HXAppDelegate delegate(o);

        const Qt::KeyboardModifiers exactly = Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier;
        delegate.checkForLaunchModifiers(exactly | Qt::ShiftModifier);
        QVERIFY(HXDaemonInteraction::waitForQueues(10000));
        QVERIFY(prompts.asked.isEmpty());
        QVERIFY(!idle->isDebugModeEnabled());

        delegate.checkForLaunchModifiers(exactly);
        QVERIFY(HXDaemonInteraction::waitForQueues(10000));
        QCOMPARE(prompts.asked, QStringList{QStringLiteral("debug mode")});
        QVERIFY(idle->isDebugModeEnabled());

        // A stored value has the last word.
        defaults.setValue(kOrvexDebugModeKey, false);
        delegate.checkForLaunchModifiers(exactly);
        QVERIFY(HXDaemonInteraction::waitForQueues(10000));
        QCOMPARE(prompts.asked.size(), 2);
        QVERIFY(!idle->isDebugModeEnabled());
    }

    void resetItemShowsWithExactlyAlt()
    {
        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, m_root.filePath(QStringLiteral("store-r"))));
        delegate.menuNeedsUpdate(Qt::AltModifier);
        QVERIFY(delegate.showResetMenuItem());
        delegate.menuNeedsUpdate(Qt::AltModifier | Qt::ShiftModifier);
        QVERIFY(!delegate.showResetMenuItem());
    }

    void logAsTextPdfAndPaper()
    {
        const QString logs = HXProductPaths::logsFolder();
        QDir().mkpath(logs);
        QFile worker(HXLogDocuments::workerLogPath());
        QVERIFY(worker.open(QIODevice::WriteOnly));
        worker.write("2026-11-22 10:00:00 Passed: SMART test passed on sda\n"
                     "2026-11-22 10:05:00 Error: Surface Scan test found bad blocks on sdb\n");
        worker.close();

        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, m_root.filePath(QStringLiteral("store-l"))));
        prompts.savePath = m_root.filePath(QStringLiteral("out/Orvex Log.txt"));
        QDir().mkpath(m_root.filePath(QStringLiteral("out")));
        QFile stale(prompts.savePath);
        QVERIFY(stale.open(QIODevice::WriteOnly));
        stale.write("an older copy that is longer than the log and must go entirely");
        stale.close();
        delegate.saveLogAsText();
        QCOMPARE(prompts.asked.last(), QStringLiteral("Orvex Log.txt txt,log"));
        QFile copy(prompts.savePath);
        QVERIFY(copy.open(QIODevice::ReadOnly));
        QVERIFY(copy.readAll().startsWith("2026-11-22 10:00:00 Passed: SMART test passed on sda\n"));

        // Cancelled panels do nothing; a missing log is shown to the user.
        prompts.savePath.clear();
        delegate.saveLogAsText();
        QVERIFY(prompts.errors.isEmpty());

        // The report's log as a PDF, damaged files under their message.
        auto report = std::make_shared<HXStatusReport>();
        report->setLog({HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"), QStringLiteral("Memory test passed")),
                        HXLogEntry::entryWithTypeCompoundString(
                            QStringLiteral("Error"), QStringLiteral("File Structures test found 2 damaged files\n/home/a.ods\n/home/b.jpg"))});
        const QString pdf = m_root.filePath(QStringLiteral("out/Orvex Log.pdf"));
        QString why;
        QVERIFY2(HXLogDocuments::saveLogAsPdf(pdf, report, &why), qPrintable(why));
        const QString text = pdfText(pdf);
        QVERIFY2(text.contains(QLatin1String("Memory test passed")), qPrintable(text));
        QVERIFY2(text.contains(QLatin1String("File Structures test found 2 damaged files")), qPrintable(text));
        QVERIFY(text.contains(QLatin1String("/home/b.jpg")));
        QVERIFY(text.indexOf(QLatin1String("Memory test passed")) < text.indexOf(QLatin1String("/home/a.ods")));

        // Printing always prints the worker's log as text.
        QPrinter printer(QPrinter::HighResolution);
        printer.setOutputFormat(QPrinter::PdfFormat);
        const QString printed = m_root.filePath(QStringLiteral("out/printed.pdf"));
        printer.setOutputFileName(printed);
        HXLogDocuments::printWorkerLog(&printer);
        QVERIFY(pdfText(printed).contains(QLatin1String("Surface Scan test found bad blocks on sdb")));

        QFile::remove(HXLogDocuments::workerLogPath());
        prompts.savePath = m_root.filePath(QStringLiteral("out/none.txt"));
        delegate.saveLogAsText();
        QCOMPARE(prompts.errors.size(), 1);
        QVERIFY(prompts.errors[0].description.contains(QLatin1String("could not be copied")));
    }

    void answersWithoutAWindow()
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
        for (const QString &option : {QStringLiteral("--version"), QStringLiteral("--help")}) {
            QProcess orvex;
            orvex.setProcessEnvironment(env);
            orvex.start(QStringLiteral(ORVEX_APP_PATH), {option});
            QVERIFY(orvex.waitForFinished(10000));
            QCOMPARE(orvex.exitCode(), 0);
            const QByteArray out = orvex.readAllStandardOutput();
            QVERIFY2(out.startsWith(option == QLatin1String("--version") ? "orvex " ORVEX_VERSION : "Usage: orvex"), out.constData());
        }
    }
};

QTEST_MAIN(TestAppDelegate)
#include "tst_appdelegate.moc"
