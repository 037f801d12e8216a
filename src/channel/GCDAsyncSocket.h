#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>

#include <deque>
#include <memory>

class GCDAsyncSocket;
class QTcpServer;
class QTcpSocket;
class QTimer;

// What a GCDAsyncSocket tells its delegate. Every callback runs on the thread
// that owns the socket (the main thread in this program).
class GCDAsyncSocketDelegate
{
public:
    virtual ~GCDAsyncSocketDelegate() = default;
    // A listener accepted a connection. The new socket has the listener's
    // delegate until someone takes it over; whoever wants it kept must hold it.
    virtual void socketDidAcceptNewSocket(GCDAsyncSocket *sock,
                                          const std::shared_ptr<GCDAsyncSocket> &newSocket)
    {
        Q_UNUSED(sock);
        Q_UNUSED(newSocket);
    }
    virtual void socketDidReadData(GCDAsyncSocket *sock, const QByteArray &data, long tag)
    {
        Q_UNUSED(sock);
        Q_UNUSED(data);
        Q_UNUSED(tag);
    }
    virtual void socketDidWriteDataWithTag(GCDAsyncSocket *sock, long tag)
    {
        Q_UNUSED(sock);
        Q_UNUSED(tag);
    }
    // `error` is empty after an orderly close or a local disconnect().
    virtual void socketDidDisconnect(GCDAsyncSocket *sock, const QString &error)
    {
        Q_UNUSED(sock);
        Q_UNUSED(error);
    }
};

// An asynchronous TCP socket in the manner of the Cocoa class of that name, on
// Qt's sockets in the owning thread's event loop. Reads and writes are queued
// and complete in the order issued, each with an integer tag and its own
// timeout (a negative timeout is none). A read to a terminator completes with
// the bytes up to and including it, or, when the peer closes in order before
// it comes, with whatever has arrived (if anything) just before the
// disconnect callback.
//
// Always held by std::shared_ptr (use create()). The socket keeps itself alive
// while it calls its delegate, so the delegate may drop the last reference
// from inside any callback. The user-data slot holds its object strongly:
// the channel stores there the request or handler that owns the socket, a
// cycle that keeps both alive until the disconnect callback clears the slot.
class GCDAsyncSocket : public QObject, public std::enable_shared_from_this<GCDAsyncSocket>
{
    Q_OBJECT

public:
    static std::shared_ptr<GCDAsyncSocket> create(GCDAsyncSocketDelegate *delegate);
    ~GCDAsyncSocket() override;

    // False, with *error, only when the attempt cannot be started (already
    // connected or listening, or no host). Later failures, a refusal or the
    // timeout included, arrive through socketDidDisconnect with an error.
    bool connectToHost(const QString &host, quint16 port, double timeoutSeconds, QString *error);
    // Listens on this machine's loopback addresses only, 127.0.0.1 and ::1
    // (where the machine has IPv6), on the same port; port 0 takes a free one
    // (see localPort()). Another host cannot connect.
    bool acceptOnPort(quint16 port, QString *error);
    quint16 localPort() const;
    QList<QHostAddress> listeningAddresses() const;

    void readDataWithTimeout(double timeoutSeconds, long tag);
    // maxLength 0 is no limit; a read that collects more than maxLength bytes
    // without the terminator ends the connection with an error.
    void readDataToData(const QByteArray &terminator, double timeoutSeconds, long tag,
                        qsizetype maxLength = 0);
    void writeData(const QByteArray &data, double timeoutSeconds, long tag);
    // Closes at once; queued operations are dropped and the delegate hears
    // socketDidDisconnect with no error.
    void disconnect();
    bool isConnected() const;

    GCDAsyncSocketDelegate *delegate() const { return m_delegate; }
    void setDelegate(GCDAsyncSocketDelegate *delegate) { m_delegate = delegate; }
    std::shared_ptr<void> userData() const { return m_userData; }
    void setUserData(std::shared_ptr<void> userData) { m_userData = std::move(userData); }

private:
    explicit GCDAsyncSocket(GCDAsyncSocketDelegate *delegate);

    struct Read
    {
        bool toTerminator;
        QByteArray terminator;
        double timeout;
        long tag;
        qsizetype maxLength;
    };
    struct Write
    {
        QByteArray data;
        double timeout;
        long tag;
        qint64 left = 0;
    };

    void adopt(QTcpSocket *socket);
    void onConnected();
    void onReadyRead();
    void onBytesWritten(qint64 written);
    void onSocketError();
    void onPeerClosed();
    void adoptServer(QTcpServer *server);
    void onNewConnection(QTcpServer *server);
    void pumpReads();
    void startNextWrite();
    void armTimer(QTimer *timer, double seconds);
    void closeWithError(const QString &error);
    void releaseSocket();

    GCDAsyncSocketDelegate *m_delegate;
    std::shared_ptr<void> m_userData;
    QTcpSocket *m_socket = nullptr;
    QList<QTcpServer *> m_servers;
    QTimer *m_connectTimer;
    QTimer *m_readTimer;
    QTimer *m_writeTimer;
    std::deque<Read> m_reads;
    std::deque<Write> m_writes;
    QByteArray m_buffer;
    bool m_connected = false;
    bool m_closed = false;
    bool m_writeInFlight = false;
};
