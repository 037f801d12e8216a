// Distributed notifications over a real D-Bus daemon (the private session bus
// the test command starts), between separate connections as between processes.
#include "BinaryPlistReader.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXNotificationCenter.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "KeyedUnarchiver.h"

#include <QDBusMessage>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QDBusConnection connection(const QString &name)
{
    return QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
}

// QtDBus sends a listener's match rule without waiting for the bus to take
// it, and a signal from another connection may reach the bus first and be
// dropped. A blocking call on the listening connection queues behind the
// rule, so once it answers the rule is in place.
void waitForMatchRules(const QString &listenerName)
{
    const QDBusMessage reply = connection(listenerName).call(QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
    QCOMPARE(reply.type(), QDBusMessage::ReplyMessage);
}

} // namespace

class TestDBusNotifications : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus: run the tests under dbus-run-session, as scripts/test.sh does");
    }

    void aNotificationReachesAnotherConnectionWhole()
    {
        HXDBusNotificationCenter sender(connection(QStringLiteral("sender")), {});
        HXDBusNotificationCenter listener(connection(QStringLiteral("sender-a")), {connection(QStringLiteral("listener-a"))});
        QList<HXDistributedNotification> heard;
        listener.addObserver(QStringLiteral("OrvexWorkerDaemonTestStatusChangedNotification"), QString(),
                             [&](const HXDistributedNotification &n) { heard.append(n); });
        const QVariantMap info{{QStringLiteral("test"), QStringLiteral("SMART test")},
                               {QStringLiteral("status"), 2},
                               {QStringLiteral("when"), QDateTime::fromSecsSinceEpoch(1769860800, Qt::UTC)}};
        waitForMatchRules(QStringLiteral("listener-a"));
        sender.postNotification(QStringLiteral("Unrelated"), QStringLiteral("x"), {}, true);
        sender.postNotification(QStringLiteral("OrvexWorkerDaemonTestStatusChangedNotification"),
                                QStringLiteral("OrvexWorkerDaemon"), info, true);
        QTRY_COMPARE(heard.size(), 1);
        QCOMPARE(heard.first().object, QStringLiteral("OrvexWorkerDaemon"));
        QCOMPARE(heard.first().userInfo, info);
    }

    void theSameBusGivenTwiceIsHeardOnce()
    {
        const QDBusConnection bus = connection(QStringLiteral("twice"));
        HXDBusNotificationCenter sender(connection(QStringLiteral("sender-b")), {});
        HXDBusNotificationCenter listener(bus, {bus, bus});
        QStringList heard;
        const auto token =
            listener.addObserver(QString(), QStringLiteral("me"),
                                 [&](const HXDistributedNotification &n) { heard.append(n.name); });
        QStringList markers;
        listener.addObserver(QStringLiteral("Marker"), QStringLiteral("marker"),
                             [&](const HXDistributedNotification &n) { markers.append(n.name); });
        waitForMatchRules(QStringLiteral("twice"));
        // Each marker comes from the same sender after the notifications it
        // follows, so a second delivery of those would be heard before it.
        sender.postNotification(QStringLiteral("A"), QStringLiteral("me"), {}, true);
        sender.postNotification(QStringLiteral("B"), QStringLiteral("someone else"), {}, true);
        sender.postNotification(QStringLiteral("Marker"), QStringLiteral("marker"), {}, true);
        QTRY_COMPARE(markers.size(), 1);
        QCOMPARE(heard, QStringList{QStringLiteral("A")});
        listener.removeObserver(token);
        sender.postNotification(QStringLiteral("A"), QStringLiteral("me"), {}, true);
        sender.postNotification(QStringLiteral("Marker"), QStringLiteral("marker"), {}, true);
        QTRY_COMPARE(markers.size(), 2);
        QCOMPARE(heard, QStringList{QStringLiteral("A")});
    }

    void aMalformedUserInfoIsRefusedWithALogLine_data()
    {
        QTest::addColumn<QVariantList>("arguments");
        QTest::addColumn<QString>("expected");
        QTest::newRow("not a property list") << QVariantList{QStringLiteral("N"), QStringLiteral("o"), QByteArray("bplist00 nonsense here, not a list at all")}
                                             << QStringLiteral("not a binary property-list dictionary");
        QTest::newRow("a list, not a dictionary") << QVariantList{QStringLiteral("N"), QStringLiteral("o"), BinaryPlistWriterList()}
                                                  << QStringLiteral("another kind of value");
        QTest::newRow("wrong arguments") << QVariantList{QStringLiteral("N"), 42} << QStringLiteral("arguments are not");
    }
    void aMalformedUserInfoIsRefusedWithALogLine()
    {
        QFETCH(QVariantList, arguments);
        QFETCH(QString, expected);
        QStringList log;
        HXSystemLog::setSink([&](const QString &l) { log.append(l); });
        HXDBusNotificationCenter listener(connection(QStringLiteral("listener-c")), {connection(QStringLiteral("listener-c"))});
        int heard = 0;
        listener.addObserver(QString(), QString(), [&](const HXDistributedNotification &) { ++heard; });
        waitForMatchRules(QStringLiteral("listener-c"));
        QDBusMessage signal = QDBusMessage::createSignal(HXDBusNotificationCenter::kPath,
                                                         HXDBusNotificationCenter::kInterface,
                                                         HXDBusNotificationCenter::kSignal);
        signal.setArguments(arguments);
        QVERIFY(connection(QStringLiteral("hostile")).send(signal));
        QTRY_COMPARE(log.size(), 1);
        HXSystemLog::setSink({});
        QVERIFY2(log.first().contains(expected), qPrintable(log.first()));
        QCOMPARE(heard, 0);
    }

    // The reporter's found-error broadcast, heard by another connection.
    void theReporterBroadcastsAFoundError()
    {
        QTemporaryDir dir;
        HXNotificationCenter local;
        HXDBusNotificationCenter bus(connection(QStringLiteral("reporter")), {});
        HXDBusNotificationCenter listener(connection(QStringLiteral("listener-d")), {connection(QStringLiteral("listener-d"))});
        QVariantMap heard;
        listener.addObserver(HXDTestFoundErrorNotification, QStringLiteral("HXStatusReporter"),
                             [&](const HXDistributedNotification &n) { heard = n.userInfo; });
        waitForMatchRules(QStringLiteral("listener-d"));
        HXStatusReporter reporter({dir.filePath(QStringLiteral("Report.zrrpt")), &local, &bus, false});
        reporter.postErrorNotificationWithTestResult(
            HXTestResult::resultWithType(HXDTestResultErrorType, HXDMemoryTestName, QStringLiteral("bad RAM"), {}));
        QTRY_VERIFY(!heard.isEmpty());
        KeyedUnarchiver u(KeyedUnarchiver::Mode::Secure);
        QVERIFY(u.open(heard.value(HXDistributedNotificationUserInfoArchivedDataKey).toByteArray()));
        QCOMPARE(u.decodeRoot().toMap().value(QStringLiteral("log")).toString(), QStringLiteral("bad RAM"));
    }

private:
    static QByteArray BinaryPlistWriterList();
};

#include "BinaryPlistWriter.h"
QByteArray TestDBusNotifications::BinaryPlistWriterList()
{
    return BinaryPlistWriter::write(QVariantList{1, 2});
}

QTEST_GUILESS_MAIN(TestDBusNotifications)
#include "tst_dbusnotifications.moc"
