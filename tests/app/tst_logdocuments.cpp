// The log taken away as a file when writing fails: "Save Log as PDF…" (the
// log tab's print copy, or the report's table without the tab) and the
// worker's log as text. A target that cannot be written is said so, with the
// reason; a file already there survives a write that fails half-way (a full
// disk), and nothing half-written is left beside it.
#include "HXAppDelegate.h"
#include "HXLogDocuments.h"
#include "HXLogEntry.h"
#include "HXLogViewController.h"
#include "HXProductPaths.h"
#include "HXReportArchive.h"
#include "HXStatusReport.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "HXUserPrompts.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <csignal>
#include <functional>
#include <sys/resource.h>

namespace {

class SavingPrompts : public HXUserPrompts
{
public:
    QString savePath;
    QList<HXError> errors;
    bool askDebugMode() override { return false; }
    void presentError(const HXError &error) override { errors.append(error); }
    QString askSavePath(const QString &, const QStringList &) override { return savePath; }
    int askQuitAnyway() override { return 1001; }
    bool askPrintSettings(QPrinter *) override { return false; }
};

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

// Runs `action` with files limited to `bytes`, as on a disk that fills up
// on the way: writes past it fail (and do not kill the process).
void onAFullDisk(rlim_t bytes, const std::function<void()> &action)
{
    rlimit before{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit small = before;
    small.rlim_cur = bytes;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
    const auto restore = qScopeGuard([&] {
        setrlimit(RLIMIT_FSIZE, &before);
        std::signal(SIGXFSZ, oldHandler);
    });
    action();
}

// The files in the target's folder: the target and nothing half-written.
QStringList filesBeside(const QString &path)
{
    return QFileInfo(path).dir().entryList(QDir::Files | QDir::Hidden);
}

} // namespace

class TestLogDocuments : public QObject
{
    Q_OBJECT

    QTemporaryDir m_root;
    const QByteArray m_old = "the user's own file, saved last week";

    // A log long enough for its PDF to outgrow a small file limit, encoded.
    static QByteArray longLog()
    {
        HXLogEntryList log;
        for (int i = 0; i < 300; ++i)
            log << HXLogEntry::entryWithTypeCompoundString(
                QStringLiteral("Warning"),
                QStringLiteral("Warning: Surface Scan test number %1 found slow sectors on the "
                               "second drive\n/home/user/file-%1.dat")
                    .arg(i));
        HXStatusReport report;
        report.setLog(log);
        return HXReportArchive::encodeReport(report);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qputenv("ORVEX_DAEMON_BUS", "session");
        QStandardPaths::setTestModeEnabled(true);
        HXSystemLog::setSink([](const QString &) {});
        writeFile(HXProductPaths::reportFile(), longLog());
        QTRY_COMPARE(HXStatusReporter::sharedReporter()->report()->countOfLog(), 300);
    }

    // Without the log tab: the report's table.
    void thePdfTableReplacesAFileOnlyWhenWhole()
    {
        const HXStatusReportRef report = HXStatusReporter::sharedReporter()->report();
        const QString pdf = m_root.filePath(QStringLiteral("table/Orvex Log.pdf"));
        writeFile(pdf, m_old);

        QString why;
        bool saved = true;
        onAFullDisk(4096, [&] { saved = HXLogDocuments::saveLogAsPdf(pdf, report, &why); });
        QVERIFY(!saved);
        QVERIFY2(why.startsWith(QStringLiteral("The log cannot be written to %1: ").arg(pdf)),
                 qPrintable(why));
        QVERIFY2(why.size() > QStringLiteral("The log cannot be written to %1: ").arg(pdf).size(),
                 qPrintable(why));
        QCOMPARE(readAll(pdf), m_old);
        QCOMPARE(filesBeside(pdf), QStringList{QStringLiteral("Orvex Log.pdf")});

        // With room, the old file is replaced by the whole PDF.
        why.clear();
        QVERIFY2(HXLogDocuments::saveLogAsPdf(pdf, report, &why), qPrintable(why));
        const QByteArray written = readAll(pdf);
        QVERIFY(written.startsWith("%PDF"));
        QVERIFY(written.trimmed().endsWith("%%EOF"));
        QCOMPARE(filesBeside(pdf), QStringList{QStringLiteral("Orvex Log.pdf")});

        // A folder that is a file: nothing to write into, said so.
        const QString blocked = m_root.filePath(QStringLiteral("table/Orvex Log.pdf/inside.pdf"));
        QVERIFY(!HXLogDocuments::saveLogAsPdf(blocked, report, &why));
        QVERIFY2(why.startsWith(QStringLiteral("The log cannot be written to %1: ").arg(blocked)),
                 qPrintable(why));
        QCOMPARE(readAll(pdf), written);
    }

    // "Save Log as PDF…" as the user meets it, with the log tab and without:
    // the error shown says why, and the file that was there is still there.
    void savingThePdfFromTheMenu_data()
    {
        QTest::addColumn<bool>("withLogTab");
        QTest::newRow("the log tab's print copy") << true;
        QTest::newRow("the report's table") << false;
    }
    void savingThePdfFromTheMenu()
    {
        QFETCH(bool, withLogTab);
        HXLogViewController log;
        SavingPrompts prompts;
        QSettings defaults(m_root.filePath(QStringLiteral("defaults.conf")), QSettings::IniFormat);
        HXAppDelegate::Options options;
        options.prompts = &prompts;
        options.storeFolder = m_root.filePath(QStringLiteral("store"));
        options.wakeServer = false;
        options.defaults = &defaults;
        if (withLogTab)
            options.controllers = {nullptr, &log, nullptr};
        HXAppDelegate delegate(options);
        QCOMPARE(delegate.logViewController() != nullptr, withLogTab);

        const QString folder = m_root.filePath(QStringLiteral("menu-%1").arg(withLogTab));
        const QString pdf = folder + QStringLiteral("/Orvex Log.pdf");
        writeFile(pdf, m_old);
        prompts.savePath = pdf;
        onAFullDisk(4096, [&] { delegate.saveLogAsPDF(); });
        QCOMPARE(prompts.errors.size(), 1);
        const QString why = prompts.errors[0].description;
        QVERIFY2(why.startsWith(QStringLiteral("The log cannot be written to %1: ").arg(pdf)),
                 qPrintable(why));
        QCOMPARE(readAll(pdf), m_old);
        QCOMPARE(filesBeside(pdf), QStringList{QFileInfo(pdf).fileName()});

        // Into a folder that is not there: said so, nothing made.
        prompts.savePath = folder + QStringLiteral("/gone/Orvex Log.pdf");
        delegate.saveLogAsPDF();
        QCOMPARE(prompts.errors.size(), 2);
        QVERIFY2(prompts.errors[1].description.startsWith(
                     QStringLiteral("The log cannot be written to %1: ").arg(prompts.savePath)),
                 qPrintable(prompts.errors[1].description));
        QVERIFY(!QFileInfo::exists(QFileInfo(prompts.savePath).absolutePath()));
    }

    void theTextCopyReplacesAFileOnlyWhenWhole()
    {
        QByteArray text;
        for (int i = 0; i < 2000; ++i)
            text += "2026-11-24 09:00:00 OrvexWorkerDaemon: a line of the worker's log\n";
        writeFile(HXLogDocuments::workerLogPath(), text);
        const QString copy = m_root.filePath(QStringLiteral("text/Orvex Log.txt"));
        writeFile(copy, m_old);

        QString why;
        bool saved = true;
        onAFullDisk(4096, [&] { saved = HXLogDocuments::saveWorkerLogAsText(copy, &why); });
        QVERIFY(!saved);
        QVERIFY2(why.startsWith(
                     QStringLiteral("The worker's log could not be copied to “%1”: ").arg(copy)),
                 qPrintable(why));
        QCOMPARE(readAll(copy), m_old);
        QCOMPARE(filesBeside(copy), QStringList{QStringLiteral("Orvex Log.txt")});

        QVERIFY2(HXLogDocuments::saveWorkerLogAsText(copy, &why), qPrintable(why));
        QCOMPARE(readAll(copy), text);
    }
};

QTEST_MAIN(TestLogDocuments)
#include "tst_logdocuments.moc"
