// The helper installation through pkexec, with stand-ins for pkexec and the
// installer that answer as the real ones do.
#include "HXInstallManager.h"
#include "HXSystemLog.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class TestInstallManager : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QStringList m_log;

    QString script(const QString &name, const QByteArray &body)
    {
        const QString path = m_dir.filePath(name);
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write("#!/bin/sh\n" + body + "\n");
        file.close();
        file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }

private Q_SLOTS:
    void initTestCase() { HXSystemLog::setSink([this](const QString &line) { m_log.append(line); }); }
    void init() { m_log.clear(); }

    void outcomes_data()
    {
        QTest::addColumn<QByteArray>("pkexec");
        QTest::addColumn<bool>("installed");
        QTest::addColumn<QString>("domain");
        QTest::addColumn<qint64>("code");
        QTest::addColumn<QString>("logged");

        // pkexec runs its program as root and answers with its status.
        QTest::newRow("installed") << QByteArray("exec \"$@\"") << true << QString() << qint64(0)
                                   << QStringLiteral("Job is available!");
        QTest::newRow("dismissed") << QByteArray("exit 126") << false << HXInstallManager::kOSStatusErrorDomain
                                   << HXInstallManager::kAuthorizationCanceled
                                   << QStringLiteral("Something went wrong! NSOSStatusErrorDomain / -60006");
        QTest::newRow("not authorised") << QByteArray("echo 'Not authorized' >&2; exit 127") << false
                                        << HXInstallManager::kOSStatusErrorDomain
                                        << HXInstallManager::kAuthorizationDenied
                                        << QStringLiteral("Something went wrong! NSOSStatusErrorDomain / -60005");
        QTest::newRow("no such helper") << QByteArray("FAIL=3 exec \"$@\"") << false
                                        << HXInstallManager::kInstallErrorDomain << qint64(3)
                                        << QStringLiteral("Something went wrong! HXInstallManagerErrorDomain / 3");
    }

    void outcomes()
    {
        QFETCH(QByteArray, pkexec);
        QFETCH(bool, installed);
        QFETCH(QString, domain);
        QFETCH(qint64, code);
        QFETCH(QString, logged);
        const QString record = m_dir.filePath(QStringLiteral("label"));
        QFile::remove(record);
        const HXInstallManager::Programs programs{
            script(QStringLiteral("pkexec"), pkexec),
            script(QStringLiteral("installer"), "echo \"$1\" > '" + record.toUtf8() + "'; exit ${FAIL:-0}")};

        HXError error;
        QCOMPARE(HXInstallManager(programs).blessHelperWithLabel(QStringLiteral("orvex-helper"), &error), installed);
        QCOMPARE(error.domain, domain);
        QCOMPARE(error.code, code);
        if (installed) {
            QFile label(record);
            QVERIFY(label.open(QIODevice::ReadOnly));
            QCOMPARE(label.readAll().trimmed(), QByteArray("orvex-helper"));
        }
        HXInstallManager(programs).install();
        QCOMPARE(m_log, QStringList{logged});
    }

    void withoutPkexecOrErrorSlot()
    {
        HXError error;
        QVERIFY(!HXInstallManager({QString(), QStringLiteral("/nonexistent")}).blessHelperWithLabel(QStringLiteral("x"), &error));
        QCOMPARE(error.code, HXInstallManager::kAuthorizationInternal);
        const QString marker = m_dir.filePath(QStringLiteral("ran"));
        const HXInstallManager::Programs programs{script(QStringLiteral("pkexec"), "touch '" + marker.toUtf8() + "'"),
                                                  QStringLiteral("/bin/true")};
        QVERIFY(!HXInstallManager(programs).blessHelperWithLabel(QStringLiteral("x"), nullptr));
        QVERIFY(!QFile::exists(marker));
        QVERIFY(m_log.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestInstallManager)
#include "tst_installmanager.moc"
