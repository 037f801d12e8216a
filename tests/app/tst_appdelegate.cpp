// The application delegate: its store's failure paths with real files, the
// quit rules, the launch modifiers against the stand-in idle daemon, and the
// log taken away as text, as PDF and on paper.
#include "HXAppDelegate.h"
#include "HXDaemonInteraction.h"
#include "HXLogDocuments.h"
#include "HXLogEntry.h"
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXProductPaths.h"
#include "HXRemoteProxy.h"
#include "HXReportArchive.h"
#include "HXStatusReport.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPrinter>
#include <QProcess>
#include <QRegularExpression>
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
    // The "printer" writes a PDF here; none is a cancelled panel.
    QString printTo;
    bool askPrintSettings(QPrinter *printer) override
    {
        asked.append(QStringLiteral("print"));
        if (printTo.isEmpty())
            return false;
        printer->setOutputFormat(QPrinter::PdfFormat);
        printer->setOutputFileName(printTo);
        return true;
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

int pdfPages(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("pdfinfo"), {path});
    p.waitForFinished();
    for (const QByteArray &line : p.readAllStandardOutput().split('\n')) {
        if (line.startsWith("Pages:"))
            return line.mid(6).trimmed().toInt();
    }
    return -1;
}

// Where pdftotext finds each word: the page's width, and per word its
// right edge and its line's top.
struct PdfWord
{
    QString text;
    double right = 0;
    double top = 0;
    double pageWidth = 0;
};

QList<PdfWord> pdfWords(const QString &path)
{
    QProcess p;
    p.start(QStringLiteral("pdftotext"), {QStringLiteral("-bbox"), path, QStringLiteral("-")});
    p.waitForFinished();
    const QString html = QString::fromUtf8(p.readAllStandardOutput());
    static const QRegularExpression tag(QStringLiteral(
        R"re(<page width="([0-9.]+)"|<word xMin="[0-9.]+" yMin="([0-9.]+)" xMax="([0-9.]+)" yMax="[0-9.]+">([^<]*)</word>)re"));
    QList<PdfWord> words;
    double pageWidth = 0;
    for (auto it = tag.globalMatch(html); it.hasNext();) {
        const QRegularExpressionMatch m = it.next();
        if (m.capturedLength(1) > 0)
            pageWidth = m.captured(1).toDouble();
        else
            words.append(
                {m.captured(4), m.captured(3).toDouble(), m.captured(2).toDouble(), pageWidth});
    }
    return words;
}

// Rows of an entity as a second reader of the store's file sees them: what
// was saved, not what the store holds in its open transaction.
qint64 savedRows(const QString &storePath, const QString &entity)
{
    qint64 rows = -1;
    {
        QSqlDatabase reader =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("reader"));
        reader.setDatabaseName(storePath);
        reader.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        QSqlQuery query(reader);
        if (reader.open() &&
            query.exec(QStringLiteral("SELECT COUNT(*) FROM \"%1\"").arg(entity)) && query.next())
            rows = query.value(0).toLongLong();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("reader"));
    return rows;
}

bool isSQLiteFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.read(16) == QByteArray("SQLite format 3\0", 16);
}

// The File menu's items as a person reads them: title and shortcut.
QStringList fileMenu(HXAppDelegate &delegate)
{
    QStringList items;
    const auto actions = delegate.menuBar()->actions().value(0)->menu()->actions();
    for (QAction *action : actions) {
        items.append(QStringLiteral("%1 %2")
                         .arg(action->text().remove(QLatin1Char('&')),
                              action->shortcut().toString(QKeySequence::PortableText))
                         .trimmed());
    }
    return items;
}

QAction *fileMenuItem(HXAppDelegate &delegate, const QString &title)
{
    const auto actions = delegate.menuBar()->actions().value(0)->menu()->actions();
    for (QAction *action : actions) {
        if (action->text().remove(QLatin1Char('&')) == title)
            return action;
    }
    return nullptr;
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(bytes), bytes.size());
}

// The worker's log: two lines to find, then enough to fill several pages,
// the longest line wider than any page.
QByteArray workerLog()
{
    QByteArray log = "2026-11-22 10:00:00 Passed: SMART test passed on sda\n"
                     "2026-11-22 10:05:00 Error: Surface Scan test found bad blocks on sdb\n";
    for (int i = 0; i < 200; ++i)
        log += "2026-11-22 10:06:00 Info: Surface Scan test read block range " +
               QByteArray::number(i) + "\n";
    for (int i = 0; i < 40; ++i)
        log += "word" + QByteArray::number(i) + ' ';
    return log + "\n2026-11-22 11:00:00 Passed: the last line\n";
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

    // The Help menu as the build has it: the update check only when built
    // in; "About Orvex" opens a new about window each time.
    void helpMenu()
    {
        QSettings defaults(m_root.filePath(QStringLiteral("help.conf")), QSettings::IniFormat);
        ScriptedPrompts prompts;
        HXAppDelegate::Options o = options(&prompts, m_root.filePath(QStringLiteral("store-help")));
        o.defaults = &defaults;
        HXAppDelegate delegate(o);
        delegate.applicationDidFinishLaunching({});
        QMenu *help = delegate.menuBar()->actions().constLast()->menu();
        QCOMPARE(help->title().remove(QLatin1Char('&')), QStringLiteral("Help"));
        QStringList titles;
        QAction *about = nullptr;
        const auto actions = help->actions();
        for (QAction *action : actions) {
            titles.append(action->text().remove(QLatin1Char('&')));
            if (titles.constLast() == QLatin1String("About Orvex"))
                about = action;
        }
#ifdef ORVEX_UPDATE_CHECK
        QVERIFY(titles.contains(QStringLiteral("Check for Update…")));
#else
        QVERIFY(!titles.contains(QStringLiteral("Check for Update…")));
#endif
        QCOMPARE(titles.constLast(), QStringLiteral("About Orvex"));
        about->trigger();
        QPointer<QWidget> first = delegate.aboutWindow();
        QVERIFY(first);
        QVERIFY(first->isVisible());
        QCOMPARE(first->windowTitle(), QStringLiteral("About Orvex"));
        about->trigger();
        QVERIFY(delegate.aboutWindow() != first);
        QVERIFY(first); // the first stays open
    }

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
        QCOMPARE(prompts.errors[1].description, QStringLiteral("Failed to initialize the store"));
        QCOMPARE(prompts.errors[1].failureReason,
                 QStringLiteral("There was an error building up the data file."));
        // Nothing was made, so quitting asks nothing.
        QVERIFY(delegate.applicationShouldTerminate());
        QVERIFY(prompts.asked.isEmpty());
    }

    // The window asks for its undo manager when it first becomes active, and
    // that opens the store; Save (Ctrl+S) saves it, and the log's text has
    // moved to Ctrl+Shift+S.
    void theStoreOpensWhenTheWindowFirstBecomesActive()
    {
        const QString folder = m_root.filePath(QStringLiteral("store-window"));
        const QString path = folder + QStringLiteral("/Orvex.storedata");
        QSettings defaults(m_root.filePath(QStringLiteral("window.conf")), QSettings::IniFormat);
        ScriptedPrompts prompts;
        HXAppDelegate::Options o = options(&prompts, folder);
        o.defaults = &defaults;
        HXAppDelegate delegate(o);
        delegate.applicationDidFinishLaunching({});
        QCOMPARE(fileMenu(delegate), QStringList({QStringLiteral("Save Ctrl+S"),
                                                  QStringLiteral("Save Log as Text… Ctrl+Shift+S"),
                                                  QStringLiteral("Save Log as PDF…"),
                                                  QStringLiteral("Print Log… Ctrl+P"), QString(),
                                                  QStringLiteral("Quit Ctrl+Q")}));
        QVERIFY(!QFile::exists(path));
        // The help reporter is made at launch; Help ▸ Send Report… opens its dialog.
        QVERIFY(delegate.helpReporter());
        QMenu *help = delegate.menuBar()->actions().last()->menu();
        QAction *sendReport = nullptr;
        for (QAction *action : help->actions())
            if (action->text().remove(QLatin1Char('&')) == QStringLiteral("Send Report…"))
                sendReport = action;
        QVERIFY(sendReport);
        sendReport->trigger();
        QVERIFY(delegate.helpReporter()->sendReportDialog()->isVisible());
        QCOMPARE(delegate.helpReporter()->sendReportDialog()->titleLabel()->text(),
                 QStringLiteral("Send Report"));
        delegate.helpReporter()->cancelSendReportDialogAction();

        delegate.window()->show();
        QVERIFY(QTest::qWaitForWindowActive(delegate.window()));
        QTRY_VERIFY(isSQLiteFile(path));
        HXPersistentStore *store = delegate.persistentStore();
        QVERIFY(store);
        QCOMPARE(store->path(), path);
        QVERIFY(prompts.errors.isEmpty());

        HXError error;
        QVERIFY(store->insert(QStringLiteral("Disk"), QStringLiteral("sda"), QString(), &error));
        QCOMPARE(savedRows(path, QStringLiteral("Disk")), 0);
        QTest::keyClick(delegate.window(), Qt::Key_S, Qt::ControlModifier);
        QCOMPARE(savedRows(path, QStringLiteral("Disk")), 1);
        QVERIFY(!store->hasChanges());
        QVERIFY(prompts.asked.isEmpty());
        QTest::keyClick(delegate.window(), Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
        QCOMPARE(prompts.asked, QStringList{QStringLiteral("Orvex Log.txt txt,log")});
        QVERIFY(delegate.applicationShouldTerminate());
    }

    // The alerts a person sees when the store cannot be made, over the
    // window, in order; Save afterwards shows only its own.
    void storeFailuresAreShownOverTheWindow_data()
    {
        QTest::addColumn<QString>(
            "blocker"); // "folder": the store's folder is a file; "store": the store is a folder
        QTest::newRow("the folder is a file") << QStringLiteral("folder");
        QTest::newRow("the store is a folder") << QStringLiteral("store");
    }
    void storeFailuresAreShownOverTheWindow()
    {
        QFETCH(QString, blocker);
        const QString folder = m_root.filePath(QStringLiteral("blocked-") + blocker);
        const QString path = folder + QStringLiteral("/Orvex.storedata");
        if (blocker == QLatin1String("folder"))
            writeFile(folder, "not a folder");
        else
            QVERIFY(QDir().mkpath(path));
        QSettings defaults(m_root.filePath(QStringLiteral("blocked.conf")), QSettings::IniFormat);
        HXAppDelegate::Options o; // the real alerts
        o.storeFolder = folder;
        o.defaults = &defaults;
        o.wakeServer = false;
        HXAppDelegate delegate(o);
        TestSupport::AlertAnswerer answerer;
        delegate.applicationDidFinishLaunching({});
        delegate.window()->show();
        // Counted between rounds of the event loop: the two alerts come from
        // one request, which has ended by the time both are answered.
        QTRY_COMPARE(answerer.alerts().size(), 2);
        const QStringList first = answerer.alerts().at(0);
        if (blocker == QLatin1String("folder")) {
            QCOMPARE(
                first,
                QStringList({QStringLiteral(
                                 "Expected a folder to store application data, found a file (%1).")
                                 .arg(folder),
                             QStringLiteral("(com.talvorn.OrvexErrorDomain error 101)"),
                             QStringLiteral("OK")}));
        } else {
            QVERIFY2(first.value(0).contains(path), qPrintable(first.join(QLatin1Char('|'))));
            QVERIFY(QFileInfo(path).isDir()); // deleting the store did not take the folder
        }
        const QStringList initialize{
            QStringLiteral("Failed to initialize the store"),
            QStringLiteral("There was an error building up the data file.\n"
                           "(com.talvorn.OrvexErrorDomain error 9999)"),
            QStringLiteral("OK")};
        QCOMPARE(answerer.alerts().at(1), initialize);

        QAction *save = fileMenuItem(delegate, QStringLiteral("Save"));
        QVERIFY(save);
        save->trigger();
        QCOMPARE(answerer.alerts().size(), 3);
        QCOMPARE(answerer.alerts().at(2), initialize);
        QVERIFY(delegate.applicationShouldTerminate());
    }

    // The program itself, as started from the desktop: its window's first
    // activation makes the store in the XDG data folder, and a damaged
    // store from before is replaced by a good one.
    void aRealRunMakesTheStore_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::newRow("no store yet") << QByteArray();
        QTest::newRow("a damaged store") << QByteArray(8192, 'x');
    }
    void aRealRunMakesTheStore()
    {
        QFETCH(QByteArray, before);
        QTemporaryDir root;
        const QString path = root.filePath(QStringLiteral("data/Orvex/Orvex.storedata"));
        if (!before.isEmpty())
            writeFile(path, before);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        env.insert(QStringLiteral("XDG_DATA_HOME"), root.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), root.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("ORVEX_ROOT"), root.path());
        QProcess orvex;
        orvex.setProcessEnvironment(env);
        orvex.start(QStringLiteral(ORVEX_APP_PATH));
        QVERIFY(orvex.waitForStarted());
        // The file exists before its tables do: wait for the whole store.
        auto storeIsMade = [&] {
            if (!isSQLiteFile(path))
                return false;
            for (const QString &entity : HXPersistentStore::kEntityNames) {
                if (savedRows(path, entity) != 0)
                    return false;
            }
            return true;
        };
        QTRY_VERIFY_WITH_TIMEOUT(storeIsMade() || orvex.state() != QProcess::Running, 20000);
        QVERIFY2(orvex.state() == QProcess::Running, orvex.readAllStandardError().constData());
        QVERIFY(storeIsMade());
        orvex.terminate();
        QVERIFY(orvex.waitForFinished(10000));
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

    // With the log tab, the Log menu carries its items, the reset item only
    // while Alt is held, and "Save Log as PDF…" is the tab's print copy:
    // sorted by the message, the files of expanded messages listed.
    void logMenuAndPdfComeFromTheLogTab()
    {
        HXStatusReport report;
        report.setLog(
            {HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"),
                                                     QStringLiteral("Passed: RAID test passed")),
             HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"),
                                                     QStringLiteral("Passed: Memory test passed")),
             HXLogEntry::entryWithTypeCompoundString(
                 QStringLiteral("Error"),
                 QStringLiteral("Error: File Structures test found 1 damaged file\n/home/a.ods"))});
        writeFile(HXProductPaths::reportFile(), HXReportArchive::encodeReport(report));
        QTRY_COMPARE(HXStatusReporter::sharedReporter()->report()->countOfLog(), 3);

        HXLogViewController log;
        ScriptedPrompts prompts;
        QSettings defaults(m_root.filePath(QStringLiteral("logtab.conf")), QSettings::IniFormat);
        HXAppDelegate::Options o =
            options(&prompts, m_root.filePath(QStringLiteral("store-logtab")));
        o.defaults = &defaults;
        o.controllers = {nullptr, &log, nullptr};
        HXAppDelegate delegate(o);
        delegate.applicationDidFinishLaunching({});
        QCOMPARE(delegate.logViewController(), &log);
        QStringList items;
        const auto actions = delegate.logMenu()->actions();
        for (QAction *action : actions)
            items << action->text();
        QVERIFY(items.contains(QStringLiteral("Clear Log…")));
        QVERIFY(items.contains(QStringLiteral("Show in File Manager")));
        QVERIFY(!log.resetAction()->isVisible());
        delegate.menuNeedsUpdate(Qt::AltModifier);
        QVERIFY(log.resetAction()->isVisible());
        delegate.menuNeedsUpdate(Qt::NoModifier);
        QVERIFY(!log.resetAction()->isVisible());
        // Alt pressed and let go while the menu is open.
        QKeyEvent altDown(QEvent::KeyPress, Qt::Key_Alt, Qt::AltModifier);
        QCoreApplication::sendEvent(delegate.logMenu(), &altDown);
        QVERIFY(log.resetAction()->isVisible());
        QKeyEvent altUp(QEvent::KeyRelease, Qt::Key_Alt, Qt::AltModifier);
        QCoreApplication::sendEvent(delegate.logMenu(), &altUp);
        QVERIFY(!log.resetAction()->isVisible());

        HXLogTreeModel *model = log.model();
        QCOMPARE(model->entryCount(), 3);
        log.outlineView()->expand(model->index(2, 0)); // the newest: the damaged file
        QVERIFY(QDir().mkpath(m_root.filePath(QStringLiteral("out"))));
        prompts.savePath = m_root.filePath(QStringLiteral("out/Orvex Log tab.pdf"));
        delegate.saveLogAsPDF();
        QVERIFY(prompts.errors.isEmpty());
        const QString text = pdfText(prompts.savePath);
        QVERIFY2(text.indexOf(QLatin1String("File Structures test found 1 damaged file")) <
                     text.indexOf(QLatin1String("Memory test passed")),
                 qPrintable(text));
        QVERIFY(text.indexOf(QLatin1String("Memory test passed")) <
                text.indexOf(QLatin1String("RAID test passed")));
        QVERIFY(text.contains(QLatin1String("a.ods")));
        QVERIFY(text.contains(QLatin1String("Log Message")));
    }

    void logAsText()
    {
        writeFile(HXLogDocuments::workerLogPath(), workerLog());
        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, m_root.filePath(QStringLiteral("store-t"))));
        prompts.savePath = m_root.filePath(QStringLiteral("out/Orvex Log.txt"));
        writeFile(prompts.savePath,
                  QByteArray(64 * 1024, 'x')); // an older, longer copy goes entirely
        delegate.saveLogAsText();
        QCOMPARE(prompts.asked, QStringList{QStringLiteral("Orvex Log.txt txt,log")});
        QCOMPARE(TestSupport::readFile(prompts.savePath), workerLog());

        // A cancelled panel does nothing; a missing log is shown to the user.
        prompts.savePath.clear();
        delegate.saveLogAsText();
        QVERIFY(prompts.errors.isEmpty());
        QFile::remove(HXLogDocuments::workerLogPath());
        prompts.savePath = m_root.filePath(QStringLiteral("out/none.txt"));
        delegate.saveLogAsText();
        QCOMPARE(prompts.errors.size(), 1);
        QVERIFY(prompts.errors[0].description.contains(QLatin1String("could not be copied")));
        QVERIFY(!QFile::exists(prompts.savePath));
    }

    // "Save Log as PDF…": the report's log, damaged files under their message.
    void logAsPdfFromTheReport()
    {
        HXStatusReport report;
        report.setLog(
            {HXLogEntry::entryWithTypeCompoundString(QStringLiteral("Passed"),
                                                     QStringLiteral("Memory test passed")),
             HXLogEntry::entryWithTypeCompoundString(
                 QStringLiteral("Error"),
                 QStringLiteral(
                     "File Structures test found 2 damaged files\n/home/a.ods\n/home/b.jpg"))});
        writeFile(HXProductPaths::reportFile(), HXReportArchive::encodeReport(report));
        QTRY_COMPARE(HXStatusReporter::sharedReporter()->report()->countOfLog(), 2);

        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, m_root.filePath(QStringLiteral("store-p"))));
        prompts.savePath = m_root.filePath(QStringLiteral("out/Orvex Log.pdf"));
        writeFile(prompts.savePath, "not a PDF, replaced");
        delegate.saveLogAsPDF();
        QCOMPARE(prompts.asked, QStringList{QStringLiteral("Orvex Log.pdf pdf")});
        QVERIFY(prompts.errors.isEmpty());
        const QString text = pdfText(prompts.savePath);
        QVERIFY2(text.contains(QLatin1String("Memory test passed")), qPrintable(text));
        QVERIFY2(text.contains(QLatin1String("File Structures test found 2 damaged files")), qPrintable(text));
        QVERIFY(text.contains(QLatin1String("/home/b.jpg")));
        QVERIFY(text.indexOf(QLatin1String("Memory test passed")) < text.indexOf(QLatin1String("/home/a.ods")));

        prompts.savePath.clear();
        const QDateTime written =
            QFileInfo(m_root.filePath(QStringLiteral("out/Orvex Log.pdf"))).lastModified();
        delegate.saveLogAsPDF();
        QCOMPARE(QFileInfo(m_root.filePath(QStringLiteral("out/Orvex Log.pdf"))).lastModified(),
                 written);
    }

    // "Print Log…" prints the worker's log file as text, whatever the
    // preference says, never the report's log.
    void printingIsTheWorkersText_data()
    {
        QTest::addColumn<QVariant>("isText");
        QTest::newRow("preference unset") << QVariant();
        QTest::newRow("text") << QVariant(true);
        QTest::newRow("not text") << QVariant(false);
    }
    void printingIsTheWorkersText()
    {
        QFETCH(QVariant, isText);
        writeFile(HXLogDocuments::workerLogPath(), workerLog());
        HXStatusReport report;
        report.setLog({HXLogEntry::entryWithTypeCompoundString(
            QStringLiteral("Passed"), QStringLiteral("Battery test passed"))});
        writeFile(HXProductPaths::reportFile(), HXReportArchive::encodeReport(report));
        QTRY_COMPARE(HXStatusReporter::sharedReporter()->report()->countOfLog(), 1);

        QSettings defaults(m_root.filePath(QStringLiteral("print.conf")), QSettings::IniFormat);
        defaults.clear();
        if (isText.isValid())
            defaults.setValue(HXPrintPreferenceIsTextKey, isText);
        ScriptedPrompts prompts;
        HXAppDelegate::Options o =
            options(&prompts, m_root.filePath(QStringLiteral("store-print")));
        o.defaults = &defaults;
        HXAppDelegate delegate(o);
        prompts.printTo = m_root.filePath(QStringLiteral("out/printed.pdf"));
        QDir().mkpath(m_root.filePath(QStringLiteral("out")));
        QFile::remove(prompts.printTo);
        delegate.print();
        QCOMPARE(prompts.asked, QStringList{QStringLiteral("print")});
        QVERIFY(prompts.errors.isEmpty());
        const QString text = pdfText(prompts.printTo);
        QVERIFY2(
            text.startsWith(QLatin1String("2026-11-22 10:00:00 Passed: SMART test passed on sda")),
            qPrintable(text.left(200)));
        QVERIFY(text.contains(QLatin1String("Surface Scan test found bad blocks on sdb")));
        QVERIFY(!text.contains(QLatin1String("Battery test passed")));
        // The pages follow one another to the end of the file, numbered.
        const int pages = pdfPages(prompts.printTo);
        QVERIFY2(pages >= 3, qPrintable(QString::number(pages)));
        QVERIFY2(text.endsWith(QStringLiteral("Passed: the last line %1").arg(pages)),
                 qPrintable(text.right(120)));
        // The wide line wraps inside the page rather than running off it.
        QStringList words;
        for (int i = 0; i < 40; ++i)
            words.append(QStringLiteral("word%1").arg(i));
        QVERIFY(text.contains(words.join(QLatin1Char(' '))));
        const QList<PdfWord> placed = pdfWords(prompts.printTo);
        QVERIFY(!placed.isEmpty());
        double firstTop = -1, lastTop = -1;
        for (const PdfWord &w : placed) {
            QVERIFY2(w.right <= w.pageWidth, qPrintable(QStringLiteral("%1 ends at %2 of %3")
                                                            .arg(w.text)
                                                            .arg(w.right)
                                                            .arg(w.pageWidth)));
            if (w.text == words.constFirst())
                firstTop = w.top;
            if (w.text == words.constLast())
                lastTop = w.top;
        }
        QVERIFY(firstTop >= 0 && lastTop > firstTop);
    }

    void printingCancelledOrWithoutALog()
    {
        ScriptedPrompts prompts;
        HXAppDelegate delegate(options(&prompts, m_root.filePath(QStringLiteral("store-noprint"))));
        writeFile(HXLogDocuments::workerLogPath(), workerLog());
        delegate.print(); // the panel cancelled
        QCOMPARE(prompts.asked, QStringList{QStringLiteral("print")});
        QVERIFY(prompts.errors.isEmpty());

        // A printer that cannot write is the user's to hear of.
        prompts.printTo = m_root.filePath(QStringLiteral("no such folder/printed.pdf"));
        delegate.print();
        QCOMPARE(prompts.errors.size(), 1);
        QVERIFY2(prompts.errors[0].description.contains(prompts.printTo),
                 qPrintable(prompts.errors[0].description));

        QFile::remove(HXLogDocuments::workerLogPath());
        prompts.printTo = m_root.filePath(QStringLiteral("out/unprinted.pdf"));
        delegate.print();
        QCOMPARE(prompts.errors.size(), 2);
        QVERIFY2(prompts.errors[1].description.contains(HXLogDocuments::workerLogPath()),
                 qPrintable(prompts.errors[1].description));
        QVERIFY(!QFile::exists(prompts.printTo));
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
