// The command channel over real sockets on 127.0.0.1, ports chosen by the
// kernel: framing, order and tags, timeouts, ownership when a peer vanishes,
// hostile peers, and an independent peer written in Python.
#include "CommandSender.h"
#include "HXNotificationCenter.h"
#include "HXStatusViewRemoteControlManager.h"
#include "HXSystemLog.h"
#include "PropertyList.h"
#include "TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkInterface>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <plist/plist.h>

namespace {

// Answers every request with {"echo": request}.
class EchoController : public RemoteQueryAndController
{
public:
    using RemoteQueryAndController::RemoteQueryAndController;
    void processParams(const QVariant &params) override
    {
        writeDictionary({{QStringLiteral("echo"), params}});
    }
};

class EchoManager : public RemoteQueryAndControlManager
{
public:
    explicit EchoManager(quint16 port = 0)
        : m_port(port)
    {
    }
    quint16 port() const override { return m_port; }
    std::shared_ptr<RemoteQueryAndController> makeController(std::shared_ptr<GCDAsyncSocket> s) override
    {
        return std::make_shared<EchoController>(std::move(s));
    }
    quint16 m_port;
};

class LogCapture
{
public:
    LogCapture() { HXSystemLog::setSink([this](const QString &l) { lines.append(l); }); }
    ~LogCapture() { HXSystemLog::setSink({}); }
    QStringList lines;
};

// Records the callbacks of a socket in order.
class Recorder : public GCDAsyncSocketDelegate
{
public:
    QStringList events;
    QList<QByteArray> reads;
    std::shared_ptr<GCDAsyncSocket> accepted;
    void socketDidAcceptNewSocket(GCDAsyncSocket *, const std::shared_ptr<GCDAsyncSocket> &s) override
    {
        accepted = s;
        events.append(QStringLiteral("accept"));
    }
    void socketDidReadData(GCDAsyncSocket *, const QByteArray &data, long tag) override
    {
        reads.append(data);
        events.append(QStringLiteral("read %1").arg(tag));
    }
    void socketDidWriteDataWithTag(GCDAsyncSocket *, long tag) override
    {
        events.append(QStringLiteral("write %1").arg(tag));
    }
    void socketDidDisconnect(GCDAsyncSocket *, const QString &error) override
    {
        events.append(error.isEmpty() ? QStringLiteral("closed") : QStringLiteral("error: ") + error);
    }
};

QVariantMap framed(quint16 port, const QVariantMap &extra = {}, bool answer = true)
{
    QVariantMap p{{QStringLiteral("address"), QStringLiteral("127.0.0.1")},
                  {QStringLiteral("port"), int(port)},
                  {QStringLiteral("willReceiveData"), answer}};
    for (auto it = extra.cbegin(); it != extra.cend(); ++it)
        p.insert(it.key(), it.value());
    return p;
}

const QByteArray kToken("****123456789ABCDEFG*****");

// A plain socket connected to the listener, once its handler exists (each
// test starts with none, see init()).
bool connectPeer(QTcpSocket &peer, const RemoteQueryAndControlManager &manager)
{
    peer.connectToHost(QHostAddress::LocalHost, manager.asyncSocket()->localPort());
    if (!peer.waitForConnected(5000))
        return false;
    QElapsedTimer waited;
    waited.start();
    while (RemoteQueryAndController::liveCount() != 1 && waited.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    return RemoteQueryAndController::liveCount() == 1;
}

// A stand-in for the daemon's listener on its fixed port, keeping what it hears.
QList<QVariantMap> g_seen;
class Recording : public RemoteQueryAndController
{
public:
    using RemoteQueryAndController::RemoteQueryAndController;
    void processParams(const QVariant &params) override { g_seen.append(params.toMap()); }
};
class RecordingDaemon : public EchoManager
{
public:
    RecordingDaemon()
        : EchoManager(HXCommandSender::kDaemonPort)
    {
    }
    std::shared_ptr<RemoteQueryAndController> makeController(std::shared_ptr<GCDAsyncSocket> s) override
    {
        return std::make_shared<Recording>(std::move(s));
    }
};

} // namespace

class TestCommandChannel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Every test leaves no connection handler behind (they go when their
    // peers' closes are seen, which takes the event loop a moment).
    void init() { QTRY_COMPARE(RemoteQueryAndController::liveCount(), 0); }
    void cleanup() { QTRY_COMPARE(RemoteQueryAndController::liveCount(), 0); }

    // --- the socket layer ---

    void readsAndWritesCompleteInOrderWithTheirTags()
    {
        Recorder serverSide, clientSide;
        auto listener = GCDAsyncSocket::create(&serverSide);
        QVERIFY(listener->acceptOnPort(0, nullptr));
        auto client = GCDAsyncSocket::create(&clientSide);
        QVERIFY(client->connectToHost(QStringLiteral("127.0.0.1"), listener->localPort(), 5, nullptr));
        client->writeData("one|", -1, 1);
        client->writeData("two|", -1, 2);
        client->writeData("three", -1, 3);
        QTRY_VERIFY(serverSide.accepted);
        auto server = serverSide.accepted;
        server->setDelegate(&serverSide);
        server->readDataToData("|", -1, 10);
        server->readDataToData("|", -1, 11);
        QTRY_COMPARE(serverSide.reads, (QList<QByteArray>{"one|", "two|"})); // terminator included
        server->readDataWithTimeout(-1, 12);
        QTRY_COMPARE(serverSide.reads.size(), 3);
        QCOMPARE(serverSide.reads.last(), QByteArray("three"));
        QTRY_COMPARE(clientSide.events, (QStringList{QStringLiteral("write 1"), QStringLiteral("write 2"),
                                                     QStringLiteral("write 3")}));
        client->disconnect();
        QCOMPARE(clientSide.events.last(), QStringLiteral("closed"));
        QTRY_COMPARE(serverSide.events.last(), QStringLiteral("closed"));
    }

    void timeoutsEndTheConnectionAndNegativeMeansNone()
    {
        Recorder serverSide, clientSide;
        auto listener = GCDAsyncSocket::create(&serverSide);
        QVERIFY(listener->acceptOnPort(0, nullptr));
        auto client = GCDAsyncSocket::create(&clientSide);
        QVERIFY(client->connectToHost(QStringLiteral("127.0.0.1"), listener->localPort(), 5, nullptr));
        client->readDataWithTimeout(-1, 1); // waits as long as it takes
        client->readDataWithTimeout(0.2, 2);
        QTRY_VERIFY(serverSide.accepted);
        QTest::qWait(400); // twice the second read's time-out, had its clock started
        // The byte is the marker: whatever the wait brought is ahead of it.
        serverSide.accepted->writeData("x", -1, 0);
        QTRY_COMPARE(clientSide.events.size(), 2); // the first read, then the second times out
        QCOMPARE(clientSide.events,
                 (QStringList{QStringLiteral("read 1"),
                              QStringLiteral("error: Read operation timed out")}));
    }

    void anOrderlyCloseCompletesAReadToATerminatorWithWhatCame()
    {
        Recorder serverSide, clientSide;
        auto listener = GCDAsyncSocket::create(&serverSide);
        QVERIFY(listener->acceptOnPort(0, nullptr));
        auto client = GCDAsyncSocket::create(&clientSide);
        QVERIFY(
            client->connectToHost(QStringLiteral("127.0.0.1"), listener->localPort(), 5, nullptr));
        QTRY_VERIFY(serverSide.accepted);
        auto server = serverSide.accepted;
        server->setDelegate(&serverSide);
        server->readDataToData("|", -1, 10);
        server->readDataToData("|", -1, 11);
        client->writeData("whole|half", -1, 1);
        QTRY_COMPARE(clientSide.events, QStringList{QStringLiteral("write 1")});
        client->disconnect();
        // The first read ends at its terminator, the second with the rest;
        // then the close, without an error.
        QTRY_COMPARE(serverSide.events.size(), 4);
        QCOMPARE(serverSide.events,
                 (QStringList{QStringLiteral("accept"), QStringLiteral("read 10"),
                              QStringLiteral("read 11"), QStringLiteral("closed")}));
        QCOMPARE(serverSide.reads, (QList<QByteArray>{"whole|", "half"}));
    }

    void anOrderlyCloseWithNothingBufferedCompletesNoRead()
    {
        Recorder serverSide, clientSide;
        auto listener = GCDAsyncSocket::create(&serverSide);
        QVERIFY(listener->acceptOnPort(0, nullptr));
        auto client = GCDAsyncSocket::create(&clientSide);
        QVERIFY(
            client->connectToHost(QStringLiteral("127.0.0.1"), listener->localPort(), 5, nullptr));
        QTRY_VERIFY(serverSide.accepted);
        auto server = serverSide.accepted;
        server->setDelegate(&serverSide);
        server->readDataToData("|", -1, 10);
        client->writeData("done|", -1, 1);
        QTRY_COMPARE(serverSide.reads.size(), 1);
        server->readDataToData("|", -1, 11);
        client->disconnect();
        QTRY_COMPARE(serverSide.events.last(), QStringLiteral("closed"));
        QCOMPARE(serverSide.events,
                 (QStringList{QStringLiteral("accept"), QStringLiteral("read 10"),
                              QStringLiteral("closed")}));
    }

    void aFailedConnectSurfacesOnlyAsADisconnect()
    {
        QTcpServer probe; // a port that was free a moment ago, now closed
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const quint16 port = probe.serverPort();
        probe.close();
        Recorder r;
        auto s = GCDAsyncSocket::create(&r);
        QString error;
        QVERIFY(s->connectToHost(QStringLiteral("127.0.0.1"), port, 1.0, &error));
        QTRY_COMPARE(r.events.size(), 1);
        QVERIFY2(r.events.first().startsWith(QStringLiteral("error: ")), qPrintable(r.events.first()));
        QVERIFY(!s->connectToHost(QString(), port, 1.0, &error)); // cannot even start
        QVERIFY(!error.isEmpty());
    }

    void theDelegateMayDropTheLastReferenceInsideACallback()
    {
        // The user-data cycle: the handler owns the socket, the socket its
        // handler; clearing the slot at disconnect frees both mid-callback.
        EchoManager manager;
        QVERIFY(manager.start());
        QTcpSocket peer;
        QVERIFY(connectPeer(peer, manager));
        QTRY_VERIFY(peer.bytesAvailable() >= kToken.size());
        peer.write(QByteArray("half a req")); // and vanish in the middle of a request
        peer.abort();
        QTRY_COMPARE(RemoteQueryAndController::liveCount(), 0);
    }

    // --- client and server together ---

    void aFramedRequestIsAnsweredBeforeTheBoundary()
    {
        EchoManager manager;
        QVERIFY(manager.start());
        const QVariantMap sent = framed(manager.asyncSocket()->localPort(),
                                        {{QStringLiteral("command"), QStringLiteral("status")},
                                         {QStringLiteral("pid"), 4242}});
        const QVariantMap answer = CommandSender::sendCommandWithParams(sent).toMap();
        QString where;
        QVERIFY2(TestSupport::samePlistValue(answer.value(QStringLiteral("echo")), sent, &where), qPrintable(where));
    }

    void theStatusViewListenerPostsItsFourNotifications()
    {
        HXNotificationCenter center;
        QStringList posted;
        for (const char *name : {"UpdateTestStatusNotification", "TestingFinishedStatusNotification",
                                 "TestingStartupVolumeNotification", "FinishedTestingStartupVolumeNotification"})
            center.addObserver(QLatin1String(name), nullptr, [&](const HXNotification &n) {
                QVERIFY(!n.object && n.userInfo.isEmpty());
                posted.append(n.name);
            });
        HXStatusViewRemoteControlManager manager(0, &center);
        QVERIFY(manager.start());
        const quint16 port = manager.asyncSocket()->localPort();
        for (const char *command : {"updateTestStatus", "UPDATETESTSTATUS", "testingFinished", "reboot",
                                    "testingStartupVolume", "finishedTestingStartupVolume"}) {
            QVERIFY(!CommandSender::sendCommandWithParams(
                         framed(port, {{QStringLiteral("command"), QLatin1String(command)}}, false))
                         .isValid());
        }
        QTRY_COMPARE(posted.size(), 4);
        QCOMPARE(posted, (QStringList{QStringLiteral("UpdateTestStatusNotification"),
                                      QStringLiteral("TestingFinishedStatusNotification"),
                                      QStringLiteral("TestingStartupVolumeNotification"),
                                      QStringLiteral("FinishedTestingStartupVolumeNotification")}));
        QCOMPARE(HXStatusViewRemoteControlManager().port(), quint16(6333));
    }

    void rawModeSendsOnlyTheRawBytes()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        const qint32 pid = 0x01020304;
        CommandSender::sendRawWithParams(
            {{QStringLiteral("address"), QStringLiteral("127.0.0.1")},
             {QStringLiteral("port"), int(server.serverPort())},
             {QStringLiteral("command"), QStringLiteral("wakeServer")},
             {QStringLiteral("rawData"), QByteArray(reinterpret_cast<const char *>(&pid), 4)}});
        QTRY_VERIFY(server.hasPendingConnections());
        QTcpSocket *in = server.nextPendingConnection();
        QByteArray got;
        QTRY_VERIFY((got += in->readAll(), in->state() != QAbstractSocket::ConnectedState));
        got += in->readAll();
        QCOMPARE(got, QByteArray("\x04\x03\x02\x01", 4)); // host order on this machine
    }

    void requestsThatCannotGoOutSayWhy()
    {
        LogCapture log;
        QVERIFY(!CommandSender::sendCommandWithParams({{QStringLiteral("command"), QStringLiteral("x")}}).isValid());
        QCOMPARE(log.lines, QStringList{QStringLiteral("Missing address or port!")});
        log.lines.clear();
        QVERIFY(!CommandSender::sendCommandWithParams(
                     {{QStringLiteral("port"), 1}, {QStringLiteral("odd"), QVariant::fromValue(QPoint(1, 1))}})
                     .isValid());
        QVERIFY(log.lines.first().startsWith(QStringLiteral("Error converting params to binary plist: ")));
    }

    void playoutServerAddressFollowsTheUserDefaults()
    {
        QStandardPaths::setTestModeEnabled(true);
        QSettings settings(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
        settings.remove(QStringLiteral("PlayoutServers"));
        QCOMPARE(CommandSender::playoutServerAddress(), QStringLiteral("localhost"));
        settings.setValue(QStringLiteral("PlayoutServers"),
                          QVariantList{QVariantMap{{QStringLiteral("address"), QStringLiteral("http://player.example:8080/x")}},
                                       QVariantMap{{QStringLiteral("address"), QStringLiteral("bareword")}}});
        settings.setValue(QStringLiteral("PlayoutServer"), 0);
        settings.sync();
        QCOMPARE(CommandSender::playoutServerAddress(), QStringLiteral("player.example"));
        settings.setValue(QStringLiteral("PlayoutServer"), 1);
        settings.sync();
        QCOMPARE(CommandSender::playoutServerAddress(), QStringLiteral("localhost"));
        settings.remove(QStringLiteral("PlayoutServers"));
        settings.remove(QStringLiteral("PlayoutServer"));
    }

    void aServerThatVanishesAfterItsGreetingEndsTheRequest()
    {
        QTcpServer server;
        QVERIFY(server.listen(QHostAddress::LocalHost));
        connect(&server, &QTcpServer::newConnection, this, [&server] {
            QTcpSocket *in = server.nextPendingConnection();
            in->write(kToken);
            in->flush();
            in->disconnectFromHost(); // before any answer
        });
        LogCapture log;
        QVERIFY(!CommandSender::sendCommandWithParams(framed(server.serverPort())).isValid());
    }

    // The product's four requests go to fixed ports; each is checked when its
    // port is free here.
    void theReadyMadeRequestsSayWhatTheyShould()
    {
        RecordingDaemon daemon;
        LogCapture log; // a taken port is logged, not shown
        if (!daemon.start())
            QSKIP("port 6332 is taken on this machine");
        g_seen.clear();
        HXCommandSender::startServer();
        HXCommandSender::stopServer();
        HXCommandSender::registerPID();
        QTRY_COMPARE(g_seen.size(), 3);
        QStringList commands;
        for (const QVariantMap &m : std::as_const(g_seen)) {
            commands.append(m.value(QStringLiteral("command")).toString());
            QCOMPARE(m.value(QStringLiteral("willReceiveData")).toBool(), false);
            QCOMPARE(m.value(QStringLiteral("address")).toString(), QStringLiteral("localhost"));
        }
        commands.sort();
        QCOMPARE(commands, (QStringList{QStringLiteral("pid"), QStringLiteral("startServer"), QStringLiteral("stopServer")}));
        for (const QVariantMap &m : std::as_const(g_seen)) {
            if (m.value(QStringLiteral("command")) == QLatin1String("pid"))
                QCOMPARE(m.value(QStringLiteral("pid")).toLongLong(), qint64(QCoreApplication::applicationPid()));
        }

        QTcpServer wake;
        if (!wake.listen(QHostAddress::Any, HXCommandSender::kWakePort))
            QSKIP("port 6331 is taken on this machine");
        HXCommandSender::wakeServer();
        QTRY_VERIFY(wake.hasPendingConnections());
        QTcpSocket *in = wake.nextPendingConnection();
        QByteArray got;
        QTRY_VERIFY((got += in->readAll(), in->state() != QAbstractSocket::ConnectedState));
        got += in->readAll();
        const qint32 pid = qint32(QCoreApplication::applicationPid());
        QCOMPARE(got, QByteArray(reinterpret_cast<const char *>(&pid), 4));
    }

    // --- hostile peers ---

    void bytesThatAreNotAPropertyListGetTheErrorDictionary()
    {
        EchoManager manager;
        QVERIFY(manager.start());
        QTcpSocket peer;
        QVERIFY(connectPeer(peer, manager));
        QTRY_VERIFY(peer.bytesAvailable() >= kToken.size());
        QCOMPARE(peer.readAll(), kToken);
        peer.write(QByteArray("GET / HTTP/1.0\r\n\r\n") + kToken);
        QByteArray answer;
        QTRY_VERIFY((answer += peer.readAll()).endsWith(kToken));
        QString why;
        const QVariantMap error = readPropertyList(answer.chopped(kToken.size()), &why).toMap();
        QVERIFY(error.value(QStringLiteral("error")).toString().startsWith(QStringLiteral("Error Converting Plist: ")));
        // The connection still serves the next request.
        plist_t dict = plist_new_dict();
        plist_dict_set_item(dict, "command", plist_new_string("ping"));
        char *bin = nullptr;
        uint32_t len = 0;
        plist_to_bin(dict, &bin, &len);
        peer.write(QByteArray(bin, len) + kToken);
        plist_to_bin_free(bin);
        plist_free(dict);
        answer.clear();
        QTRY_VERIFY((answer += peer.readAll()).endsWith(kToken));
        QVERIFY(readPropertyList(answer.chopped(kToken.size()), &why).toMap().contains(QStringLiteral("echo")));
    }

    void aRequestOverOneMegabyteWithoutTheBoundaryIsCutOff()
    {
        EchoManager manager;
        QVERIFY(manager.start());
        QTcpSocket peer;
        QVERIFY(connectPeer(peer, manager));
        const QByteArray chunk(64 * 1024, 'A');
        for (int i = 0; i < 20 && peer.state() == QAbstractSocket::ConnectedState; ++i) {
            peer.write(chunk);
            peer.waitForBytesWritten(2000);
            QCoreApplication::processEvents();
        }
        QTRY_COMPARE(RemoteQueryAndController::liveCount(), 0); // handler and its buffer are gone
        // The listener closes the connection: the close comes after anything
        // it wrote, and it wrote its greeting and no answer.
        QTRY_COMPARE(peer.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(peer.readAll(), kToken);
        // And the listener still serves.
        QVERIFY(CommandSender::sendCommandWithParams(framed(manager.asyncSocket()->localPort())).isValid());
    }

    void aThousandSilentConnectionsDoNotStopTheListener()
    {
        if (!TestSupport::pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 is not installed");
        EchoManager manager;
        QVERIFY(manager.start());
        QProcess idle;
        idle.start(QStringLiteral("/usr/bin/python3"),
                   {QStringLiteral(ORVEX_PEERS_DIR "/channel_peer.py"), QStringLiteral("idle"),
                    QString::number(manager.asyncSocket()->localPort()), QStringLiteral("1000")});
        QTRY_VERIFY_WITH_TIMEOUT(idle.canReadLine(), 30000);
        QTRY_COMPARE_WITH_TIMEOUT(RemoteQueryAndController::liveCount(), 1000, 30000);
        const QVariantMap answer =
            CommandSender::sendCommandWithParams(framed(manager.asyncSocket()->localPort(),
                                                        {{QStringLiteral("command"), QStringLiteral("hello")}}))
                .toMap();
        QCOMPARE(answer.value(QStringLiteral("echo")).toMap().value(QStringLiteral("command")).toString(),
                 QStringLiteral("hello"));
        idle.closeWriteChannel();
        QTRY_VERIFY_WITH_TIMEOUT(idle.state() == QProcess::NotRunning, 10000);
        QTRY_COMPARE(RemoteQueryAndController::liveCount(), 0);
    }

    // The command ports are this machine's business only.
    void theListenerServesLoopbackAndRefusesEveryOtherAddress()
    {
        EchoManager manager;
        QVERIFY(manager.start());
        const quint16 port = manager.asyncSocket()->localPort();

        QList<QHostAddress> others;
        for (const QHostAddress &a : QNetworkInterface::allAddresses()) {
            if (!a.isLoopback())
                others.append(a);
        }
        for (const QHostAddress &address : std::as_const(others)) {
            QTcpSocket outsider;
            outsider.connectToHost(address, port);
            QVERIFY2(!outsider.waitForConnected(5000), qPrintable(address.toString()));
            QVERIFY2(outsider.error() == QAbstractSocket::ConnectionRefusedError,
                     qPrintable(QStringLiteral("%1: %2").arg(address.toString(), outsider.errorString())));
        }
        QCOMPARE(RemoteQueryAndController::liveCount(), 0);

        QTcpServer probe;
        const bool hasIPv6Loopback = probe.listen(QHostAddress::LocalHostIPv6);
        probe.close();
        QList<QHostAddress> expected{QHostAddress::LocalHost};
        if (hasIPv6Loopback)
            expected.append(QHostAddress::LocalHostIPv6);
        QCOMPARE(manager.asyncSocket()->listeningAddresses(), expected);
        for (const QString &host : {QStringLiteral("127.0.0.1"), QStringLiteral("::1"), QStringLiteral("localhost")}) {
            if (host == QLatin1String("::1") && !hasIPv6Loopback)
                continue;
            QVariantMap request = framed(port, {{QStringLiteral("command"), host}});
            request.insert(QStringLiteral("address"), host);
            const QVariantMap answer = CommandSender::sendCommandWithParams(request).toMap();
            QCOMPARE(answer.value(QStringLiteral("echo")).toMap().value(QStringLiteral("command")), QVariant(host));
        }
        if (others.isEmpty())
            QSKIP("this machine has no address but its loopback ones, so no outsider could be tried");
    }

    void aTakenPortLeavesAnInertListenerAndALogLine()
    {
        EchoManager first;
        QVERIFY(first.start());
        LogCapture log;
        EchoManager second(first.asyncSocket()->localPort());
        QVERIFY(!second.start());
        QCOMPARE(log.lines.size(), 1);
        QVERIFY(log.lines.first().startsWith(QStringLiteral("Error connecting: ")));
        QVERIFY(CommandSender::sendCommandWithParams(framed(first.asyncSocket()->localPort())).isValid());
    }

    // --- an implementation nobody here wrote ---

    void aPythonClientTalksToOurServer()
    {
        if (!TestSupport::pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 is not installed");
        EchoManager manager;
        QVERIFY(manager.start());
        const QVariantMap request{{QStringLiteral("command"), QStringLiteral("status")},
                                  {QStringLiteral("when"), QDateTime::fromSecsSinceEpoch(1769860800, Qt::UTC)},
                                  {QStringLiteral("blob"), QByteArray("\x00\xff", 2)}};
        QProcess py;
        py.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(ORVEX_PEERS_DIR "/channel_peer.py"), QStringLiteral("client"),
                  QString::number(manager.asyncSocket()->localPort()),
                  QString::fromUtf8(QJsonDocument(TestSupport::toTagged(request).toObject()).toJson(QJsonDocument::Compact))});
        QTRY_VERIFY_WITH_TIMEOUT(py.state() == QProcess::NotRunning, 20000);
        QVERIFY2(py.exitCode() == 0, py.readAllStandardError().constData());
        const QVariantMap answer = TestSupport::fromTagged(QJsonDocument::fromJson(py.readAllStandardOutput()).object()).toMap();
        QString where;
        QVERIFY2(TestSupport::samePlistValue(answer.value(QStringLiteral("echo")), request, &where), qPrintable(where));
    }

    // The server answers and closes without the boundary token: the answer
    // is still decoded whole.
    void anAnswerCutShortByAnOrderlyCloseIsDecodedWhole()
    {
        if (!TestSupport::pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 is not installed");
        QProcess py;
        py.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(ORVEX_PEERS_DIR "/channel_peer.py"), QStringLiteral("server"),
                  QStringLiteral("1"), QStringLiteral("early-close")});
        QTRY_VERIFY_WITH_TIMEOUT(py.canReadLine(), 20000);
        const quint16 port = quint16(py.readLine().trimmed().toUInt());
        const QVariantMap sent =
            framed(port, {{QStringLiteral("command"), QStringLiteral("status")},
                          {QStringLiteral("list"), QVariantList{1, QStringLiteral("two")}}});
        LogCapture log;
        const QVariantMap answer = CommandSender::sendCommandWithParams(sent).toMap();
        QVERIFY2(log.lines.isEmpty(), qPrintable(log.lines.join(QLatin1Char('\n'))));
        QString where;
        QVERIFY2(TestSupport::samePlistValue(answer.value(QStringLiteral("got")), sent, &where),
                 qPrintable(where));
        QTRY_VERIFY_WITH_TIMEOUT(py.state() == QProcess::NotRunning, 10000);
        QCOMPARE(py.exitCode(), 0);
    }

    void ourClientTalksToAPythonServer()
    {
        if (!TestSupport::pythonPeerAvailable())
            QSKIP("Debian's /usr/bin/python3 is not installed");
        QProcess py;
        py.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(ORVEX_PEERS_DIR "/channel_peer.py"), QStringLiteral("server"), QStringLiteral("1")});
        QTRY_VERIFY_WITH_TIMEOUT(py.canReadLine(), 20000);
        const quint16 port = quint16(py.readLine().trimmed().toUInt());
        const QVariantMap sent = framed(port, {{QStringLiteral("command"), QStringLiteral("pid")},
                                               {QStringLiteral("pid"), 77}});
        const QVariantMap answer = CommandSender::sendCommandWithParams(sent).toMap();
        QString where;
        QVERIFY2(TestSupport::samePlistValue(answer.value(QStringLiteral("got")), sent, &where), qPrintable(where));
        QTRY_VERIFY(py.canReadLine());
        // Byte for byte: a binary property list version 1.0, then the token.
        const QByteArray wire = QByteArray::fromHex(py.readLine().trimmed());
        QVERIFY(wire.startsWith("bplist00"));
        QVERIFY(wire.endsWith(kToken));
        QCOMPARE(wire.count(kToken), 1);
        QTRY_VERIFY_WITH_TIMEOUT(py.state() == QProcess::NotRunning, 10000); // it saw our close
        QCOMPARE(py.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TestCommandChannel)
#include "tst_commandchannel.moc"
