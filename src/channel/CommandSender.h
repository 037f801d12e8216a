#pragma once

#include "GCDAsyncSocket.h"

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <memory>

// The client of the command channel: one TCP connection per request. In
// framed mode it reads the server's greeting (taken whole as the boundary
// token), sends the request dictionary as a binary property list, echoes the
// token, and, when "willReceiveData" is true, reads the answer up to the token.
// In raw mode it sends the "rawData" bytes and nothing else.
//
// A request object owns its socket and is the socket's user data, which keeps
// it alive after the class operation returns until the connection closes.
// Everything runs on the main thread; a request that awaits an answer runs the
// event loop in 10 ms slices until the exchange ends.
class CommandSender : public GCDAsyncSocketDelegate, public std::enable_shared_from_this<CommandSender>
{
public:
    static constexpr long kGreetingTag = 100;
    static constexpr long kBoundaryTag = 101;
    static constexpr long kRawTag = 102;

    // The port of a request without "port": none, so such a request fails.
    static int defaultPort() { return 0; }
    // The host of the chosen entry of the user default "PlayoutServers", or
    // "localhost".
    static QString playoutServerAddress();

    // The decoded answer, or an invalid QVariant (nothing awaited, none came,
    // or it did not decode). Failures go to the system log.
    static QVariant sendCommandWithParams(const QVariantMap &params);
    static QVariant sendRawWithParams(const QVariantMap &params);

    CommandSender(std::shared_ptr<GCDAsyncSocket> socket, QByteArray message);
    ~CommandSender() override;

    void start();
    void startRaw();

    const std::shared_ptr<GCDAsyncSocket> &socket() const { return m_socket; }
    QByteArray message() const { return m_message; }
    QByteArray boundaryData() const { return m_boundaryData; }
    QByteArray readData() const { return m_readData; }
    QVariant decodedDataObject() const { return m_decodedDataObject; }
    bool willReceiveData() const { return m_willReceiveData; }
    void setWillReceiveData(bool value) { m_willReceiveData = value; }
    bool finished() const { return m_finished; }

    // GCDAsyncSocketDelegate
    void socketDidReadData(GCDAsyncSocket *sock, const QByteArray &data, long tag) override;
    void socketDidWriteDataWithTag(GCDAsyncSocket *sock, long tag) override;
    void socketDidDisconnect(GCDAsyncSocket *sock, const QString &error) override;

private:
    enum class Mode { Framed, Raw };
    static QVariant send(const QVariantMap &params, Mode mode);

    std::shared_ptr<GCDAsyncSocket> m_socket;
    QByteArray m_message;
    QByteArray m_boundaryData;
    QByteArray m_readData;
    QVariant m_decodedDataObject;
    bool m_willReceiveData = false;
    bool m_finished = false;
};

// The product's four ready-made requests; each ignores its answer.
class HXCommandSender : public CommandSender
{
public:
    static constexpr quint16 kWakePort = 6331;
    static constexpr quint16 kDaemonPort = 6332;

    static void wakeServer();
    static void startServer();
    static void stopServer();
    static void registerPID();
};
