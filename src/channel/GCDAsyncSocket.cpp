#include "GCDAsyncSocket.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

namespace {

// How deep the current thread is inside a Qt signal of one of our sockets or
// timers. A socket whose last reference goes while this is non-zero cannot be
// deleted at once (Qt would go on using the emitting object), so it is closed
// and deleted from the event loop instead.
thread_local int t_signalDepth = 0;

struct SignalScope
{
    SignalScope() { ++t_signalDepth; }
    ~SignalScope() { --t_signalDepth; }
    SignalScope(const SignalScope &) = delete;
    SignalScope &operator=(const SignalScope &) = delete;
};

int milliseconds(double seconds)
{
    return int(std::min(seconds * 1000.0, double(std::numeric_limits<int>::max())));
}

} // namespace

std::shared_ptr<GCDAsyncSocket> GCDAsyncSocket::create(GCDAsyncSocketDelegate *delegate)
{
    return std::shared_ptr<GCDAsyncSocket>(new GCDAsyncSocket(delegate), [](GCDAsyncSocket *s) {
        if (t_signalDepth == 0) {
            delete s;
            return;
        }
        s->m_delegate = nullptr;
        s->releaseSocket();
        s->deleteLater();
    });
}

GCDAsyncSocket::GCDAsyncSocket(GCDAsyncSocketDelegate *delegate)
    : m_delegate(delegate)
    , m_connectTimer(new QTimer(this))
    , m_readTimer(new QTimer(this))
    , m_writeTimer(new QTimer(this))
{
    for (QTimer *t : {m_connectTimer, m_readTimer, m_writeTimer})
        t->setSingleShot(true);
    connect(m_connectTimer, &QTimer::timeout, this, [this] {
        SignalScope scope;
        closeWithError(QStringLiteral("Attempt to connect to host timed out"));
    });
    connect(m_readTimer, &QTimer::timeout, this, [this] {
        SignalScope scope;
        closeWithError(QStringLiteral("Read operation timed out"));
    });
    connect(m_writeTimer, &QTimer::timeout, this, [this] {
        SignalScope scope;
        closeWithError(QStringLiteral("Write operation timed out"));
    });
}

GCDAsyncSocket::~GCDAsyncSocket()
{
    releaseSocket();
}

void GCDAsyncSocket::releaseSocket()
{
    if (m_socket) {
        QObject::disconnect(m_socket, nullptr, this, nullptr);
        m_socket->abort();
        if (t_signalDepth == 0)
            delete m_socket;
        else
            m_socket->deleteLater();
        m_socket = nullptr;
    }
    for (QTcpServer *server : std::as_const(m_servers)) {
        QObject::disconnect(server, nullptr, this, nullptr);
        server->close();
        if (t_signalDepth == 0)
            delete server;
        else
            server->deleteLater();
    }
    m_servers.clear();
    m_connectTimer->stop();
    m_readTimer->stop();
    m_writeTimer->stop();
}

void GCDAsyncSocket::adopt(QTcpSocket *socket)
{
    m_socket = socket;
    socket->setParent(nullptr);
    // The channel sends a message and then its boundary as two small writes;
    // with Nagle's algorithm the second waits for the peer's delayed
    // acknowledgement, some 40 ms per exchange.
    socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    connect(socket, &QTcpSocket::connected, this, [this] {
        SignalScope scope;
        onConnected();
    });
    connect(socket, &QTcpSocket::readyRead, this, [this] {
        SignalScope scope;
        onReadyRead();
    });
    connect(socket, &QTcpSocket::bytesWritten, this, [this](qint64 n) {
        SignalScope scope;
        onBytesWritten(n);
    });
    connect(socket, &QTcpSocket::errorOccurred, this, [this] {
        SignalScope scope;
        onSocketError();
    });
    connect(socket, &QTcpSocket::disconnected, this, [this] {
        SignalScope scope;
        onPeerClosed();
    });
}

bool GCDAsyncSocket::connectToHost(const QString &host, quint16 port, double timeoutSeconds,
                                   QString *error)
{
    if (m_socket || !m_servers.isEmpty() || m_closed) {
        if (error)
            *error = QStringLiteral("Attempting to connect while connected or accepting "
                                    "connections. Disconnect first.");
        return false;
    }
    if (host.isEmpty()) {
        if (error)
            *error = QStringLiteral("Invalid host parameter (nil or \"\"). Should be a domain "
                                    "name or IP address string.");
        return false;
    }
    adopt(new QTcpSocket());
    m_socket->connectToHost(host, port);
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    if (timeoutSeconds >= 0)
        m_connectTimer->start(milliseconds(timeoutSeconds));
    return true;
}

bool GCDAsyncSocket::acceptOnPort(quint16 port, QString *error)
{
    if (m_socket || !m_servers.isEmpty() || m_closed) {
        if (error)
            *error = QStringLiteral("Attempting to accept while connected or accepting "
                                    "connections. Disconnect first.");
        return false;
    }
    // A kernel-chosen port free on 127.0.0.1 may be taken on ::1: a few tries.
    for (int attempt = 0; attempt < (port == 0 ? 8 : 1); ++attempt) {
        auto *v4 = new QTcpServer();
        if (!v4->listen(QHostAddress::LocalHost, port)) {
            if (error)
                *error = v4->errorString();
            delete v4;
            return false;
        }
        auto *v6 = new QTcpServer();
        if (v6->listen(QHostAddress::LocalHostIPv6, v4->serverPort())) {
            adoptServer(v4);
            adoptServer(v6);
            return true;
        }
        const bool taken = v6->serverError() == QAbstractSocket::AddressInUseError;
        const QString why = v6->errorString();
        delete v6;
        if (!taken) {
            // No IPv6 loopback on this machine: 127.0.0.1 alone serves.
            adoptServer(v4);
            return true;
        }
        delete v4;
        // Someone else on ::1 would get the clients that try it first.
        if (error)
            *error = QStringLiteral("%1 (on ::1)").arg(why);
    }
    return false;
}

void GCDAsyncSocket::adoptServer(QTcpServer *server)
{
    m_servers.append(server);
    connect(server, &QTcpServer::newConnection, this, [this, server] {
        SignalScope scope;
        onNewConnection(server);
    });
    // Qt stops accepting after an error such as running out of descriptors;
    // a listener that anyone can reach must not stay stopped, so it tries
    // again shortly after.
    connect(server, &QTcpServer::acceptError, this, [this, server] {
        QTimer::singleShot(100, this, [this, server] {
            if (m_servers.contains(server))
                server->resumeAccepting();
        });
    });
}

quint16 GCDAsyncSocket::localPort() const
{
    if (!m_servers.isEmpty())
        return m_servers.first()->serverPort();
    return m_socket ? m_socket->localPort() : 0;
}

QList<QHostAddress> GCDAsyncSocket::listeningAddresses() const
{
    QList<QHostAddress> addresses;
    for (const QTcpServer *server : m_servers)
        addresses.append(server->serverAddress());
    return addresses;
}

bool GCDAsyncSocket::isConnected() const
{
    return m_connected && m_socket;
}

void GCDAsyncSocket::onNewConnection(QTcpServer *server)
{
    auto self = shared_from_this();
    while (m_servers.contains(server) && server->hasPendingConnections()) {
        QTcpSocket *incoming = server->nextPendingConnection();
        auto accepted = create(m_delegate);
        accepted->adopt(incoming);
        accepted->m_connected = true;
        if (m_delegate)
            m_delegate->socketDidAcceptNewSocket(this, accepted);
        // Bytes may already be waiting for reads the delegate just queued.
        if (accepted->m_socket && accepted->m_socket->bytesAvailable() > 0)
            accepted->onReadyRead();
    }
}

void GCDAsyncSocket::onConnected()
{
    m_connectTimer->stop();
    m_connected = true;
    auto self = shared_from_this();
    startNextWrite();
    pumpReads();
}

void GCDAsyncSocket::readDataWithTimeout(double timeoutSeconds, long tag)
{
    m_reads.push_back({false, {}, timeoutSeconds, tag, 0});
    if (m_reads.size() == 1)
        armTimer(m_readTimer, timeoutSeconds);
    if (m_connected) {
        auto self = shared_from_this();
        pumpReads();
    }
}

void GCDAsyncSocket::readDataToData(const QByteArray &terminator, double timeoutSeconds,
                                    long tag, qsizetype maxLength)
{
    m_reads.push_back({true, terminator, timeoutSeconds, tag, maxLength});
    if (m_reads.size() == 1)
        armTimer(m_readTimer, timeoutSeconds);
    if (m_connected) {
        auto self = shared_from_this();
        pumpReads();
    }
}

void GCDAsyncSocket::writeData(const QByteArray &data, double timeoutSeconds, long tag)
{
    m_writes.push_back({data, timeoutSeconds, tag, data.size()});
    if (!m_writeInFlight && m_connected) {
        auto self = shared_from_this();
        startNextWrite();
    }
}

void GCDAsyncSocket::armTimer(QTimer *timer, double seconds)
{
    if (seconds >= 0)
        timer->start(milliseconds(seconds));
    else
        timer->stop();
}

void GCDAsyncSocket::onReadyRead()
{
    if (!m_socket)
        return;
    auto self = shared_from_this();
    m_buffer += m_socket->readAll();
    pumpReads();
}

// Completes queued reads from the buffer, in order, for as long as it can.
void GCDAsyncSocket::pumpReads()
{
    while (!m_reads.empty() && !m_closed) {
        Read &r = m_reads.front();
        QByteArray result;
        if (!r.toTerminator) {
            if (m_buffer.isEmpty())
                return;
            result = std::exchange(m_buffer, QByteArray());
        } else {
            const qsizetype at = r.terminator.isEmpty() ? -1 : m_buffer.indexOf(r.terminator);
            if (at < 0) {
                if (r.maxLength > 0 && m_buffer.size() > r.maxLength) {
                    closeWithError(QStringLiteral("Read operation reached set maximum length"));
                    return;
                }
                return;
            }
            const qsizetype end = at + r.terminator.size();
            if (r.maxLength > 0 && end > r.maxLength) {
                closeWithError(QStringLiteral("Read operation reached set maximum length"));
                return;
            }
            result = m_buffer.left(end);
            m_buffer.remove(0, end);
        }
        const long tag = r.tag;
        m_reads.pop_front();
        m_readTimer->stop();
        if (!m_reads.empty())
            armTimer(m_readTimer, m_reads.front().timeout);
        if (m_delegate)
            m_delegate->socketDidReadData(this, result, tag);
    }
}

// Hands the head of the queue to Qt; one write at a time, so that Qt's
// written-byte counts belong to it alone.
void GCDAsyncSocket::startNextWrite()
{
    if (m_writeInFlight || m_writes.empty() || !m_socket || m_closed)
        return;
    Write &w = m_writes.front();
    armTimer(m_writeTimer, w.timeout);
    m_writeInFlight = true;
    if (w.data.isEmpty()) {
        onBytesWritten(0);
        return;
    }
    m_socket->write(w.data);
}

void GCDAsyncSocket::onBytesWritten(qint64 written)
{
    if (!m_writeInFlight || m_writes.empty() || m_closed)
        return;
    auto self = shared_from_this();
    Write &w = m_writes.front();
    w.left -= std::min(written, w.left);
    if (w.left > 0)
        return;
    const long tag = w.tag;
    m_writes.pop_front();
    m_writeTimer->stop();
    m_writeInFlight = false;
    if (m_delegate)
        m_delegate->socketDidWriteDataWithTag(this, tag);
    // The delegate may have queued (and so started) the next write itself.
    startNextWrite();
}

void GCDAsyncSocket::onSocketError()
{
    if (!m_socket)
        return;
    // The peer closing its end is an orderly end, not an error.
    if (m_socket->error() == QAbstractSocket::RemoteHostClosedError) {
        onPeerClosed();
        return;
    }
    closeWithError(m_socket->errorString());
}

void GCDAsyncSocket::onPeerClosed()
{
    if (m_closed)
        return;
    auto self = shared_from_this();
    // Whatever arrived with the close still completes the reads it can.
    if (m_socket && m_socket->bytesAvailable() > 0)
        m_buffer += m_socket->readAll();
    pumpReads();
    // The terminator a waiting read wants will never come now: the read
    // completes with what has, so that a peer that answers and closes
    // without it is still heard whole.
    if (!m_closed && !m_reads.empty() && m_reads.front().toTerminator && !m_buffer.isEmpty()) {
        const long tag = m_reads.front().tag;
        m_reads.pop_front();
        m_readTimer->stop();
        const QByteArray rest = std::exchange(m_buffer, QByteArray());
        if (m_delegate)
            m_delegate->socketDidReadData(this, rest, tag);
    }
    closeWithError(QString());
}

void GCDAsyncSocket::disconnect()
{
    closeWithError(QString());
}

void GCDAsyncSocket::closeWithError(const QString &error)
{
    if (m_closed)
        return;
    auto self = shared_from_this();
    m_closed = true;
    m_connected = false;
    m_reads.clear();
    m_writes.clear();
    m_writeInFlight = false;
    m_buffer = QByteArray(); // frees what a peer made us hold
    releaseSocket();
    if (m_delegate)
        m_delegate->socketDidDisconnect(this, error);
}
