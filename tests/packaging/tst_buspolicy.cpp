// The system-bus policy shipped for the daemons, on a bus of the test's own
// with the stock system-bus defaults: root may own the daemons' names and
// broadcast, other users may only call.
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

// Stands in for the worker on the root side.
class RootWorker : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.talvorn.HXDWorkerActionsProtocol")

public Q_SLOTS:
    bool isActive() { return true; }

public:
    QStringList senders; // the object argument of each notification heard

public Q_SLOTS:
    void onNotification(const QString &, const QString &object, const QByteArray &)
    {
        senders.append(object);
    }
};

class TestBusPolicy : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QProcess m_bus;
    QString m_address;
    uid_t m_uid = 0;
    gid_t m_gid = 0;

    struct Outcome
    {
        int exitCode = -1;
        QString output;
    };

    // dbus-send on the test bus, as root or as the unprivileged user; the
    // event loop runs meanwhile, so that the root side can answer.
    Outcome send(bool asUser, const QStringList &arguments)
    {
        QProcess p;
        if (asUser) {
            const uid_t uid = m_uid;
            const gid_t gid = m_gid;
            p.setChildProcessModifier([uid, gid] {
                if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
                    ::_exit(99);
            });
        }
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(QStringLiteral("dbus-send"), QStringList{QStringLiteral("--bus=") + m_address} + arguments);
        if (!p.waitForStarted())
            return {};
        [&] { QTRY_VERIFY_WITH_TIMEOUT(p.state() == QProcess::NotRunning, 10000); }();
        return {p.exitCode(), QString::fromLocal8Bit(p.readAll())};
    }

    Outcome requestName(bool asUser, const QString &name)
    {
        return send(asUser, {QStringLiteral("--print-reply"), QStringLiteral("--dest=org.freedesktop.DBus"),
                             QStringLiteral("/org/freedesktop/DBus"), QStringLiteral("org.freedesktop.DBus.RequestName"),
                             QStringLiteral("string:") + name, QStringLiteral("uint32:4")});
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (::geteuid() != 0)
            QSKIP("acting as root and as another user needs root");
        if (QStandardPaths::findExecutable(QStringLiteral("dbus-send")).isEmpty())
            QSKIP("dbus-send is not installed");
        const passwd *nobody = ::getpwnam("nobody");
        QVERIFY(nobody);
        m_uid = nobody->pw_uid;
        m_gid = nobody->pw_gid;
        QVERIFY(m_dir.isValid());
        QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadOther |
                                                QFile::ExeOther | QFile::ReadGroup | QFile::ExeGroup);

        const QString config = m_dir.filePath(QStringLiteral("bus.conf"));
        QFile file(config);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QFile stock(QStringLiteral(ORVEX_TEST_BUS_CONFIG));
        QVERIFY(stock.open(QIODevice::ReadOnly));
        file.write(QString::fromUtf8(stock.readAll())
                       .replace(QLatin1String("@SOCKET_DIR@"), m_dir.path())
                       .replace(QLatin1String("@POLICY@"), QStringLiteral(ORVEX_BUS_POLICY))
                       .toUtf8());
        file.close();
        m_bus.start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--config-file=") + config, QStringLiteral("--nofork"), QStringLiteral("--print-address")});
        QVERIFY(m_bus.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(m_bus.canReadLine() || m_bus.state() == QProcess::NotRunning, 10000);
        m_address = QString::fromLocal8Bit(m_bus.readLine()).trimmed();
        QVERIFY2(m_address.startsWith(QLatin1String("unix:")), m_bus.readAllStandardError().constData());
    }

    void cleanupTestCase()
    {
        m_bus.terminate();
        m_bus.waitForFinished();
    }

    void onlyRootOwnsTheDaemonNames()
    {
        for (const QString &name : {QStringLiteral("com.talvorn.OrvexIdleDaemon"), QStringLiteral("com.talvorn.OrvexWorkerDaemon")}) {
            const Outcome user = requestName(true, name);
            QVERIFY2(user.exitCode != 0 && user.output.contains(QLatin1String("AccessDenied")), qPrintable(user.output));
            const Outcome root = requestName(false, name);
            QVERIFY2(root.exitCode == 0 && root.output.contains(QLatin1String("uint32 1")), qPrintable(root.output));
        }
        // Names beside them stay as closed as the stock policy keeps them.
        const Outcome other = requestName(false, QStringLiteral("com.talvorn.OrvexAgent-root"));
        QVERIFY2(other.output.contains(QLatin1String("AccessDenied")), qPrintable(other.output));
    }

    void anyUserCallsTheDaemonsButOnlyRootBroadcasts()
    {
        QDBusConnection root = QDBusConnection::connectToBus(m_address, QStringLiteral("root-worker"));
        QVERIFY2(root.isConnected(), qPrintable(root.lastError().message()));
        RootWorker worker;
        QVERIFY(root.registerObject(QStringLiteral("/"), &worker, QDBusConnection::ExportAllSlots));
        QVERIFY(root.registerService(QStringLiteral("com.talvorn.OrvexWorkerDaemon")));

        const Outcome call = send(true, {QStringLiteral("--print-reply"), QStringLiteral("--dest=com.talvorn.OrvexWorkerDaemon"),
                                         QStringLiteral("/"), QStringLiteral("com.talvorn.HXDWorkerActionsProtocol.isActive")});
        QVERIFY2(call.exitCode == 0 && call.output.contains(QLatin1String("boolean true")), qPrintable(call.output));

        QVERIFY(root.connect(QString(),
                             QStringLiteral("/com/talvorn/Orvex/DistributedNotificationCenter"),
                             QStringLiteral("com.talvorn.Orvex.DistributedNotificationCenter"),
                             QStringLiteral("Notification"), &worker,
                             SLOT(onNotification(QString, QString, QByteArray))));
        const auto signal = [](const QString &object) {
            return QStringList{
                QStringLiteral("--type=signal"),
                QStringLiteral("/com/talvorn/Orvex/DistributedNotificationCenter"),
                QStringLiteral("com.talvorn.Orvex.DistributedNotificationCenter.Notification"),
                QStringLiteral("string:HXDTestFoundErrorNotification"),
                QStringLiteral("string:") + object,
                QStringLiteral("array:byte:")};
        };
        // The user's broadcast is dropped; root's, sent once the user's sender
        // has finished, is the marker that the bus has dealt with the first.
        send(true, signal(QStringLiteral("user")));
        send(false, signal(QStringLiteral("root")));
        QTRY_VERIFY_WITH_TIMEOUT(!worker.senders.isEmpty(), 5000);
        QCOMPARE(worker.senders, QStringList{QStringLiteral("root")});

        root.unregisterService(QStringLiteral("com.talvorn.OrvexWorkerDaemon"));
        QDBusConnection::disconnectFromBus(QStringLiteral("root-worker"));
    }
};

QTEST_GUILESS_MAIN(TestBusPolicy)
#include "tst_buspolicy.moc"
