// Preferences for every user and for the current user: where the files are
// under ORVEX_ROOT, what reads them back, and a write the system folder
// refuses.
#include "GlobalDefaults.h"
#include "HXSystemLog.h"

#include <QProcess>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>
#include <cstdio>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <unistd.h>

using User = GlobalDefaults::User;

namespace {

const QString kAgent = QStringLiteral("com.talvorn.OrvexAgent");

// The write of the refused-write case, made in a process of its own so that
// it can run as another user: "--write APPLICATION KEY VALUE" prints what it
// reads before and after the write and every system-log line, and exits 0
// when the write was taken.
int writeAsChild(char **argv)
{
    HXSystemLog::setSink([](const QString &line) { std::printf("log: %s\n", qPrintable(line)); });
    const QString application = QString::fromLocal8Bit(argv[2]);
    const QString key = QString::fromLocal8Bit(argv[3]);
    const auto read = [&] {
        std::printf(
            "read: %s\n",
            qPrintable(GlobalDefaults::copyCFObjectForGlobalKey(key, application).toString()));
    };
    read();
    const bool taken =
        GlobalDefaults::setCFObject(QString::fromLocal8Bit(argv[4]), key, application);
    read();
    std::fflush(stdout);
    return taken ? 0 : 1;
}

} // namespace

class TestGlobalDefaults : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_root;
    QStringList m_log;

    QString systemFile(const QString &relative) const
    {
        return m_root.filePath(QStringLiteral("etc/xdg/") + relative);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_root.isValid());
        qputenv("ORVEX_ROOT", m_root.path().toUtf8());
        qunsetenv("XDG_CONFIG_DIRS");
        QStandardPaths::setTestModeEnabled(true);
        QFile::remove(GlobalDefaults::preferencesFiles(kAgent, User::Current).constFirst());
        HXSystemLog::setSink([this](const QString &line) { m_log.append(line); });
    }
    void init() { m_log.clear(); }

    void roundTrips_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("asText"); // how an independent reader of the file sees it
        QTest::newRow("boolean") << QVariant(true) << QStringLiteral("true");
        QTest::newRow("number") << QVariant(qint64(6333)) << QStringLiteral("6333");
        QTest::newRow("text") << QVariant(QStringLiteral("zoë, Straße"))
                              << QStringLiteral("zoë, Straße");
        QTest::newRow("list") << QVariant(QVariantList{1, QStringLiteral("two")}) << QString();
        QTest::newRow("dictionary")
            << QVariant(QVariantMap{{QStringLiteral("hour"), 2}, {QStringLiteral("on"), true}})
            << QString();
    }
    void roundTrips()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, asText);
        for (const User user : {User::Any, User::Current}) {
            const QString key =
                QStringLiteral("roundTrip-%1").arg(QString::fromLatin1(QTest::currentDataTag()));
            QVERIFY(GlobalDefaults::setCFObject(value, key, kAgent, user));
            const QVariant back = GlobalDefaults::copyCFObjectForGlobalKey(key, kAgent, user);
            if (asText.isEmpty())
                QCOMPARE(back, value);
            else
                QCOMPARE(back.toString(), asText);
        }
        // Read by QSettings on the files the platform names: the system
        // folder under the root, and the agent's own settings.
        const QString key =
            QStringLiteral("roundTrip-%1").arg(QString::fromLatin1(QTest::currentDataTag()));
        const QSettings system(systemFile(QStringLiteral("talvorn/OrvexAgent.conf")),
                               QSettings::NativeFormat);
        const QSettings agent(QStringLiteral("talvorn"), QStringLiteral("OrvexAgent"));
        for (const QSettings *reader : {&system, &agent}) {
            if (asText.isEmpty())
                QCOMPARE(reader->value(key), value);
            else
                QCOMPARE(reader->value(key).toString(), asText);
        }
        QVERIFY(m_log.isEmpty());
    }

    // Each application, and each scope, keeps its own keys; removing is
    // writing nothing.
    void applicationsAndUsersAreApart()
    {
        const QString key = QStringLiteral("PlayoutServer");
        QVERIFY(GlobalDefaults::setCFObject(QStringLiteral("mail.example"), key, kAgent));
        QVERIFY(GlobalDefaults::isGlobalKeySet(key, kAgent));
        QVERIFY(!GlobalDefaults::isGlobalKeySet(key, QStringLiteral("com.talvorn.Orvex")));
        QVERIFY(!GlobalDefaults::isGlobalKeySet(key)); // any application is a file of its own
        QVERIFY(!GlobalDefaults::copyCFObjectForGlobalKey(key, kAgent, User::Current).isValid());

        QVERIFY(GlobalDefaults::setCFObject(QStringLiteral("everybody"), key));
        QVERIFY(QFile::exists(systemFile(QStringLiteral("talvorn.conf"))));
        QCOMPARE(GlobalDefaults::copyCFObjectForGlobalKey(key).toString(),
                 QStringLiteral("everybody"));
        QCOMPARE(GlobalDefaults::copyCFObjectForGlobalKey(key, kAgent).toString(),
                 QStringLiteral("mail.example"));

        // The current user's value is not everybody's.
        QVERIFY(GlobalDefaults::setCFObject(QStringLiteral("mine"), QStringLiteral("OnlyMine"),
                                            kAgent, User::Current));
        QVERIFY(!GlobalDefaults::isGlobalKeySet(QStringLiteral("OnlyMine"), kAgent));

        QVERIFY(GlobalDefaults::setCFObject(QVariant(), key, kAgent));
        QVERIFY(!GlobalDefaults::isGlobalKeySet(key, kAgent));
        QVERIFY(!QSettings(systemFile(QStringLiteral("talvorn/OrvexAgent.conf")),
                           QSettings::NativeFormat)
                     .contains(key));
        QVERIFY(GlobalDefaults::isGlobalKeySet(key)); // the other file keeps its own
    }

    // $XDG_CONFIG_DIRS in order: the first folder with the key answers, and
    // writes go to the first folder.
    void systemFoldersInTheirOrder()
    {
        qputenv("XDG_CONFIG_DIRS", "/site:/vendor");
        const auto restore = qScopeGuard([] { qunsetenv("XDG_CONFIG_DIRS"); });
        QCOMPARE(GlobalDefaults::preferencesFiles(kAgent, User::Any),
                 QStringList({m_root.filePath(QStringLiteral("site/talvorn/OrvexAgent.conf")),
                              m_root.filePath(QStringLiteral("vendor/talvorn/OrvexAgent.conf"))}));
        {
            QSettings vendor(m_root.filePath(QStringLiteral("vendor/talvorn/OrvexAgent.conf")),
                             QSettings::NativeFormat);
            vendor.setValue(QStringLiteral("Shipped"), QStringLiteral("vendor"));
            vendor.setValue(QStringLiteral("Overridden"), QStringLiteral("vendor"));
        }
        QVERIFY(GlobalDefaults::setCFObject(QStringLiteral("site"), QStringLiteral("Overridden"),
                                            kAgent));
        QCOMPARE(
            GlobalDefaults::copyCFObjectForGlobalKey(QStringLiteral("Shipped"), kAgent).toString(),
            QStringLiteral("vendor"));
        QCOMPARE(GlobalDefaults::copyCFObjectForGlobalKey(QStringLiteral("Overridden"), kAgent)
                     .toString(),
                 QStringLiteral("site"));
        QVERIFY(GlobalDefaults::isGlobalKeySet(QStringLiteral("Shipped"), kAgent));
        QCOMPARE(QSettings(m_root.filePath(QStringLiteral("vendor/talvorn/OrvexAgent.conf")),
                           QSettings::NativeFormat)
                     .value(QStringLiteral("Overridden"))
                     .toString(),
                 QStringLiteral("vendor"));
    }

    // Where no file can be made, the write is refused for anybody, root
    // included: logged, false, and nothing of it is read back.
    void aWriteWithNowhereToGoIsRefused()
    {
        const QString application = QStringLiteral("com.blocked.Orvex");
        QVERIFY(QDir().mkpath(systemFile(QString())));
        QFile blocker(systemFile(QStringLiteral("blocked")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        QVERIFY(!GlobalDefaults::setCFObject(true, QStringLiteral("Key"), application));
        QCOMPARE(m_log,
                 QStringList{
                     QStringLiteral("GlobalDefaults: could not write \"Key\" to %1: access refused")
                         .arg(systemFile(QStringLiteral("blocked/Orvex.conf")))});
        QVERIFY(!GlobalDefaults::copyCFObjectForGlobalKey(QStringLiteral("Key"), application)
                     .isValid());
        QVERIFY(!GlobalDefaults::isGlobalKeySet(QStringLiteral("Key"), application));
    }

    // A folder a user may read but not write: the user reads the value,
    // the write is refused, logged, and the file keeps what it had, though
    // the file itself is writable. As root the write runs as "nobody".
    void aReadOnlyFolderRefusesAUsersWrite()
    {
        const QString folder = m_root.filePath(QStringLiteral("readonly/talvorn"));
        const QString file = folder + QStringLiteral("/OrvexAgent.conf");
        QVERIFY(QDir().mkpath(folder));
        {
            QSettings seed(file, QSettings::NativeFormat);
            seed.setValue(QStringLiteral("Setting"), QStringLiteral("before"));
        }
        const auto all = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup |
                         QFile::ExeGroup | QFile::ReadOther | QFile::ExeOther;
        for (const QString &path : {m_root.path(), m_root.filePath(QStringLiteral("readonly"))})
            QVERIFY(QFile::setPermissions(path, all));
        QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner |
                                                  QFile::ReadGroup | QFile::ExeGroup |
                                                  QFile::ReadOther | QFile::ExeOther));
        QVERIFY(QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner |
                                                QFile::ReadGroup | QFile::WriteGroup |
                                                QFile::ReadOther | QFile::WriteOther));
        const auto restore = qScopeGuard([folder, all] { QFile::setPermissions(folder, all); });

        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("ORVEX_ROOT"), m_root.path());
        env.insert(QStringLiteral("XDG_CONFIG_DIRS"), QStringLiteral("/readonly"));
        env.insert(QStringLiteral("HOME"), m_root.path());
        child.setProcessEnvironment(env);
        if (::geteuid() == 0) {
            const passwd *nobody = ::getpwnam("nobody");
            QVERIFY(nobody);
            const uid_t uid = nobody->pw_uid;
            const gid_t gid = nobody->pw_gid;
            child.setChildProcessModifier([uid, gid] {
                if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
                    ::_exit(99);
            });
        }
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--write"), kAgent, QStringLiteral("Setting"),
                     QStringLiteral("after")});
        QVERIFY(child.waitForFinished(30000));
        const QString out = QString::fromLocal8Bit(child.readAllStandardOutput());
        QVERIFY2(child.exitStatus() == QProcess::NormalExit && child.exitCode() == 1,
                 qPrintable(QStringLiteral("exit %1: %2 %3")
                                .arg(child.exitCode())
                                .arg(out, QString::fromLocal8Bit(child.readAllStandardError()))));
        // Read again in the same process: what was refused is not read back.
        QCOMPARE(out, QStringLiteral("read: before\nlog: GlobalDefaults: could not write "
                                     "\"Setting\" to %1: access refused\nread: before\n")
                          .arg(file));
        QCOMPARE(
            QSettings(file, QSettings::NativeFormat).value(QStringLiteral("Setting")).toString(),
            QStringLiteral("before"));
    }
};

int main(int argc, char **argv)
{
    if (argc == 5 && std::strcmp(argv[1], "--write") == 0) {
        QCoreApplication app(argc, argv);
        return writeAsChild(argv);
    }
    QCoreApplication app(argc, argv);
    TestGlobalDefaults test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_globaldefaults.moc"
