// The log tab's actions against the stand-in daemons: the three outcomes of
// showing a logged file (the idle daemon's answers, then the file manager),
// also when the file manager refuses and when the idle daemon goes between
// its two answers, and what clearing the log and resetting the product do,
// in which order, as the stand-in sees it.
#include "HXAnimationTiming.h"
#include "HXConstants.h"
#include "HXDaemonInteraction.h"
#include "HXLogOutlineView.h"
#include "HXLogTreeModel.h"
#include "HXLogViewController.h"
#include "HXProductPaths.h"
#include "HXRemoteProxy.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "StandinProcess.h"
#include "TestSupport.h"

#include <QAction>
#include <QDBusConnection>
#include <QDBusContext>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <functional>

using TestSupport::AlertAnswerer;

// The desktop's file manager as the test's session bus offers it. It can
// refuse, and do something first (take the file's folder away).
class FakeFileManager : public QObject, protected QDBusContext
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

public:
    QStringList shown;
    QStringList refused;
    bool refuse = false;
    std::function<void()> beforeRefusing;

public Q_SLOTS:
    void ShowItems(const QStringList &uris, const QString &startupId)
    {
        Q_UNUSED(startupId);
        if (!refuse) {
            shown += uris;
            return;
        }
        refused += uris;
        if (beforeRefusing)
            beforeRefusing();
        sendErrorReply(QDBusError::Failed, QStringLiteral("No window to show it in"));
    }
};

// Where the desktop would open a folder, when the file manager refused.
class FolderOpener : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> opened;

public Q_SLOTS:
    void open(const QUrl &url) { opened << url; }
};

class TestLogActions : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    std::unique_ptr<StandinProcess> m_standin;
    std::unique_ptr<HXLogViewController> m_controller;
    FakeFileManager m_fileManager;
    QString m_visible;
    const QString m_othersFile = QStringLiteral("/home/ada/private/ledger.ods");
    const QString m_missing = QStringLiteral("/nowhere/at/all.txt");
    const QString m_namelessOwners = QStringLiteral("/home/1234/left behind.txt");
    QString m_scenarioPath;

    QModelIndex fileRow(const QString &path)
    {
        HXLogTreeModel *model = m_controller->model();
        for (int row = 0; row < model->rowCount(); ++row) {
            const QModelIndex parent = model->index(row, 0);
            for (int child = 0; child < model->rowCount(parent); ++child) {
                const QModelIndex index = model->index(child, 2, parent);
                if (index.data(HXLogTreeModel::PathRole).toString() == path)
                    return index;
            }
        }
        return {};
    }

private Q_SLOTS:
    void initTestCase()
    {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(m_root.isValid());
        QVERIFY(TestSupport::useTestRoot(m_root.path()));
        HXRemoteProxy::setCallTimeout(3000);
        HXSystemLog::setSink([](const QString &) {});
        HXAnimationTiming::setScale(0.02);

        QDBusConnection files = QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                              QStringLiteral("fake-file-manager"));
        QVERIFY(files.registerService(QStringLiteral("org.freedesktop.FileManager1")));
        QVERIFY(files.registerObject(QStringLiteral("/org/freedesktop/FileManager1"),
                                     &m_fileManager, QDBusConnection::ExportAllSlots));

        m_visible = m_root.filePath(QStringLiteral("documents/report draft.txt"));
        QVERIFY(QDir().mkpath(QFileInfo(m_visible).absolutePath()));
        QFile visible(m_visible);
        QVERIFY(visible.open(QIODevice::WriteOnly));
        visible.close();

        const QJsonObject scenario{
            {QStringLiteral("stepMilliseconds"), 50},
            {QStringLiteral("tests"),
             QJsonArray{QJsonObject{{QStringLiteral("test"), QStringLiteral("SMART")}}}},
            {QStringLiteral("daemonOnlyFiles"),
             QJsonObject{{m_othersFile, QStringLiteral("ada")}, {m_namelessOwners, QString()}}}};
        m_scenarioPath = m_root.filePath(QStringLiteral("scenario.json"));
        QFile file(m_scenarioPath);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QJsonDocument(scenario).toJson());
        file.close();
        m_standin = std::make_unique<StandinProcess>(m_root.path());
        QVERIFY2(m_standin->start({QStringLiteral("--scenario"), m_scenarioPath}),
                 qPrintable(m_standin->standardError()));

        HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
        QVERIFY(reporter->addLogEntry(HXLogEntry::entryWithTypeCompoundString(
            QStringLiteral("Error"),
            QStringLiteral("Error: File Structures test found 4 damaged files\n%1,\n%2\n%3\n%4")
                .arg(m_visible, m_othersFile, m_missing, m_namelessOwners))));
        m_controller = std::make_unique<HXLogViewController>();
        m_controller->view()->resize(700, 500);
        m_controller->view()->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_controller->view()));
    }

    void cleanupTestCase()
    {
        m_controller.reset();
        if (m_standin)
            m_standin->stop();
    }

    void showingAFileHasThreeOutcomes()
    {
        QCOMPARE(m_controller->model()->entryCount(), 1);
        // Visible to both: shown in the file manager, without the trailing ",".
        AlertAnswerer answerer(QStringLiteral("OK"));
        const QModelIndex visible = fileRow(m_visible);
        QVERIFY(visible.isValid());
        m_controller->loadFinderForFile(visible);
        QTRY_COMPARE(m_fileManager.shown, QStringList{QUrl::fromLocalFile(m_visible).toString()});

        // Only the daemon sees it: whose it is.
        m_controller->loadFinderForFile(fileRow(m_othersFile));
        QTRY_COMPARE(answerer.alerts().size(), 1);
        QCOMPARE(answerer.alerts().at(0).at(0), QStringLiteral("File Not Accessable!"));
        QCOMPARE(answerer.alerts().at(0).at(1),
                 QStringLiteral(
                     "Orvex was unable to show the file at path:\n\n%1\n\n...because this file is "
                     "owned by the user \"ada\". Log in as \"ada\" to view this file.")
                     .arg(m_othersFile));

        // Nobody sees it.
        m_controller->loadFinderForFile(fileRow(m_missing));
        QTRY_COMPARE(answerer.alerts().size(), 2);
        QCOMPARE(answerer.alerts().at(1).at(0), QStringLiteral("File Not Found!"));
        QCOMPARE(answerer.alerts().at(1).at(1),
                 QStringLiteral("Orvex was unable to find the file at path:\n\n%1").arg(m_missing));
        QCOMPARE(answerer.alerts().at(1).mid(2), QStringList{QStringLiteral("OK")});
        QCOMPARE(m_fileManager.shown.size(), 1);

        // Only the daemon sees it, and its owner has no name here.
        m_controller->loadFinderForFile(fileRow(m_namelessOwners));
        QTRY_COMPARE(answerer.alerts().size(), 3);
        QCOMPARE(answerer.alerts().at(2).mid(0, 2),
                 (QStringList{QStringLiteral("File Not Accessable!"),
                              QStringLiteral("Orvex was unable to show the file at path:\n\n%1\n\n"
                                             "...because this file belongs to another user "
                                             "account, one without a name on this computer.")
                                  .arg(m_namelessOwners)}));

        // The menu item and Ctrl+Enter act on the selected file row only.
        HXLogOutlineView *outline = m_controller->outlineView();
        outline->setCurrentIndex(m_controller->model()->index(2, 0));
        QVERIFY(!m_controller->showInFileManagerAction()->isEnabled());
        outline->setCurrentIndex(visible);
        QVERIFY(m_controller->showInFileManagerAction()->isEnabled());
        m_controller->showInFileManagerAction()->trigger();
        QTRY_COMPARE(m_fileManager.shown.size(), 2);
    }

    void clearingAsksFirstThenEmptiesTheLog()
    {
        HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
        {
            AlertAnswerer cancel(QStringLiteral("Cancel"));
            m_controller->clearLog();
            QCOMPARE(cancel.alerts().size(), 1);
            QCOMPARE(cancel.alerts().at(0),
                     (QStringList{QStringLiteral("Delete Orvex Log File?"),
                                  QStringLiteral("This will put the log file in the trash. Are you "
                                                 "sure you want to delete the log file for Orvex?"),
                                  QStringLiteral("OK"), QStringLiteral("Cancel")}));
        }
        QCOMPARE(reporter->report()->countOfLog(), 1);
        QCOMPARE(m_controller->model()->entryCount(), 1);
        int cleared = 0;
        int rowsWhenCleared = -1;
        const auto token = HXNotificationCenter::defaultCenter().addObserver(
            HXDidClearReportNotification, m_controller.get(), [&](const HXNotification &) {
                ++cleared;
                rowsWhenCleared = m_controller->model()->rowCount();
            });
        // The observer writes to this function's locals: it goes with them,
        // on a failed check too.
        const auto forget =
            qScopeGuard([token] { HXNotificationCenter::defaultCenter().removeObserver(token); });
        {
            AlertAnswerer ok(QStringLiteral("OK"));
            m_controller->clearLog();
        }
        QCOMPARE(m_controller->model()->rowCount(), 0);
        QTRY_COMPARE(cleared, 1);
        // Posted once the log is cleared and shown so.
        QCOMPARE(rowsWhenCleared, 0);
        // The file holds the empty log too: a reporter of its own reads it so.
        HXStatusReporter reader({HXProductPaths::reportFile(), nullptr, nullptr, false});
        QCOMPARE(reader.report()->countOfLog(), 0);
    }

    void resetClearsThenDeletesTheStoreThenRestarts()
    {
        HXStatusReporter *reporter = HXStatusReporter::sharedReporter();
        QVERIFY(reporter->addLogEntry(HXLogEntry::entryWithTypeCompoundString(
            QStringLiteral("Passed"), QStringLiteral("Passed: before the reset"))));
        QVERIFY(QDir().mkpath(QFileInfo(HXProductPaths::workerStoreFile()).absolutePath()));
        QFile store(HXProductPaths::workerStoreFile());
        QVERIFY(store.open(QIODevice::WriteOnly));
        store.close();

        {
            AlertAnswerer cancel(QStringLiteral("Cancel"));
            m_controller->resetOrvex();
            QCOMPARE(cancel.alerts().value(0).value(0), QStringLiteral("Reset Orvex?"));
        }
        // A marker through the same queue proves that nothing went before it.
        HXDaemonInteraction::tellIdleDaemon(
            [](HXIdleDaemonProxy &idle) { idle.restartIdleManager(); });
        QTRY_VERIFY(m_standin->standardError().contains(QLatin1String("Idle manager restarted")));
        QVERIFY(!m_standin->standardError().contains(QLatin1String("Worker daemon store deleted")));
        QVERIFY(QFile::exists(HXProductPaths::workerStoreFile()));
        QCOMPARE(reporter->report()->countOfLog(), 1);

        const int before = m_standin->standardError().size();
        {
            AlertAnswerer ok(QStringLiteral("OK"));
            m_controller->resetOrvex();
            QCOMPARE(
                ok.alerts().value(0),
                (QStringList{QStringLiteral("Reset Orvex?"),
                             QStringLiteral("This will reset Orvex and remove all logs and report "
                                            "files. Are you sure you want to reset Orvex?"),
                             QStringLiteral("OK"), QStringLiteral("Cancel")}));
        }
        QTRY_VERIFY(m_standin->standardError().mid(before).contains(
            QLatin1String("Idle manager restarted")));
        const QString seen = m_standin->standardError().mid(before);
        const qsizetype deleted = seen.indexOf(
            QLatin1String("Worker daemon store deleted; the report's log holds 0 entries"));
        QVERIFY2(deleted >= 0, qPrintable(seen));
        QVERIFY(deleted < seen.indexOf(QLatin1String("Idle manager restarted")));
        QVERIFY(!QFile::exists(HXProductPaths::workerStoreFile()));
        QCOMPARE(m_controller->model()->rowCount(), 0);
    }

    void aFileManagerThatRefusesOpensTheFolderOrSaysSo()
    {
        const QString kept = m_root.filePath(QStringLiteral("documents/kept.txt"));
        const QString folder = m_root.filePath(QStringLiteral("going away"));
        const QString doomed = folder + QStringLiteral("/notes.txt");
        QVERIFY(QDir().mkpath(folder));
        for (const QString &path : {kept, doomed}) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
        QVERIFY(
            HXStatusReporter::sharedReporter()->addLogEntry(HXLogEntry::entryWithTypeCompoundString(
                QStringLiteral("Error"),
                QStringLiteral("Error: two damaged files\n%1\n%2").arg(kept, doomed))));
        FolderOpener opener;
        QDesktopServices::setUrlHandler(QStringLiteral("file"), &opener, "open");
        m_fileManager.refuse = true;
        const auto restore = qScopeGuard([this] {
            QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
            m_fileManager.refuse = false;
            m_fileManager.beforeRefusing = nullptr;
        });
        AlertAnswerer answerer(QStringLiteral("OK"));

        // Refused with the folder there: the folder is opened instead.
        m_controller->loadFinderForFile(fileRow(kept));
        QTRY_COMPARE(opener.opened,
                     QList<QUrl>{QUrl::fromLocalFile(QFileInfo(kept).absolutePath())});
        QCOMPARE(m_fileManager.refused, QStringList{QUrl::fromLocalFile(kept).toString()});

        // Refused, and the folder went away meanwhile: nothing to open, so
        // the alert says so. It is the first alert: the refusal above had none.
        m_fileManager.beforeRefusing = [folder] {
            QDir(folder).removeRecursively();
        };
        m_controller->loadFinderForFile(fileRow(doomed));
        QTRY_COMPARE(answerer.alerts().size(), 1);
        QCOMPARE(answerer.alerts().at(0),
                 (QStringList{
                     QStringLiteral("File Not Found!"),
                     QStringLiteral("Orvex was unable to show the file at path:\n\n%1").arg(doomed),
                     QStringLiteral("OK")}));
        QCOMPARE(m_fileManager.refused.size(), 2);
        QCOMPARE(opener.opened.size(), 1);
    }

    void withoutTheIdleDaemonEveryFileIsNotFound()
    {
        QVERIFY(
            HXStatusReporter::sharedReporter()->addLogEntry(HXLogEntry::entryWithTypeCompoundString(
                QStringLiteral("Warning"),
                QStringLiteral("Warning: one file\n%1").arg(m_visible))));
        QCOMPARE(m_standin->stop(), 0);
        AlertAnswerer answerer(QStringLiteral("OK"));
        const int shown = int(m_fileManager.shown.size());
        m_controller->loadFinderForFile(fileRow(m_visible));
        QTRY_COMPARE(answerer.alerts().size(), 1);
        QCOMPARE(answerer.alerts().at(0).at(0), QStringLiteral("File Not Found!"));
        QCOMPARE(m_fileManager.shown.size(), shown);
    }

    // The idle daemon says the file is there, then goes before it names the
    // owner: the alert says what happened, not an empty name.
    void anIdleDaemonGoneBeforeNamingTheOwner()
    {
        QVERIFY(
            HXStatusReporter::sharedReporter()->addLogEntry(HXLogEntry::entryWithTypeCompoundString(
                QStringLiteral("Error"),
                QStringLiteral("Error: one damaged file\n%1").arg(m_othersFile))));
        m_standin = std::make_unique<StandinProcess>(m_root.path());
        QVERIFY2(m_standin->start({QStringLiteral("--scenario"), m_scenarioPath,
                                   QStringLiteral("--exit-after-file-exists")}),
                 qPrintable(m_standin->standardError()));
        AlertAnswerer answerer(QStringLiteral("OK"));
        m_controller->loadFinderForFile(fileRow(m_othersFile));
        QTRY_COMPARE(answerer.alerts().size(), 1);
        QCOMPARE(answerer.alerts().at(0).mid(0, 2),
                 (QStringList{QStringLiteral("File Not Accessable!"),
                              QStringLiteral("Orvex was unable to show the file at path:\n\n%1\n\n"
                                             "...because this file belongs to another user, and "
                                             "Orvex's background service stopped answering before "
                                             "it could say which one.")
                                  .arg(m_othersFile)}));
        QVERIFY(m_standin->waitForExit(5000));
        QVERIFY2(m_standin->standardError().contains(
                     QStringLiteral("exiting before naming the owner of %1").arg(m_othersFile)),
                 qPrintable(m_standin->standardError()));
    }
};

QTEST_MAIN(TestLogActions)
#include "tst_logactions.moc"
