#pragma once

#include "GCDAsyncSocket.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <memory>

class RemoteQueryAndController;

// The server side of the command channel: listens on a fixed port of this
// machine's loopback addresses only (other hosts have no business there) and
// gives each accepted connection a fresh handler made by makeController(). A
// port that cannot be listened on is logged and leaves the listener inert.
class RemoteQueryAndControlManager : public GCDAsyncSocketDelegate
{
public:
    virtual ~RemoteQueryAndControlManager();

    virtual quint16 port() const { return 5331; }
    // The handler of one connection (the base answers nothing).
    virtual std::shared_ptr<RemoteQueryAndController> makeController(std::shared_ptr<GCDAsyncSocket> socket);

    // False when the port could not be listened on.
    bool start();
    const std::shared_ptr<GCDAsyncSocket> &asyncSocket() const { return m_asyncSocket; }

    void socketDidAcceptNewSocket(GCDAsyncSocket *sock,
                                  const std::shared_ptr<GCDAsyncSocket> &newSocket) override;

private:
    std::shared_ptr<GCDAsyncSocket> m_asyncSocket;
};

// One connection's handler: greets the client with the boundary token, reads
// property-list requests framed by it, and hands each to processParams().
// An answer is followed by the token, after which the next request is read.
//
// The handler is its socket's user data: the cycle keeps it alive until the
// connection closes. A request that grows past kMaxRequestLength without the
// token ends the connection, so a peer cannot make the handler hold more.
class RemoteQueryAndController : public GCDAsyncSocketDelegate,
                                 public std::enable_shared_from_this<RemoteQueryAndController>
{
public:
    static constexpr long kBoundaryTag = 101;
    static constexpr long kAnswerTag = 102;
    static constexpr qsizetype kMaxRequestLength = 1024 * 1024;

    static QByteArray boundaryToken();

    explicit RemoteQueryAndController(std::shared_ptr<GCDAsyncSocket> socket);
    ~RemoteQueryAndController() override;

    // Takes over the socket (delegate and user data); then start() greets.
    void attach();
    void start();
    void read();

    virtual void processParams(const QVariant &params);

    void writeString(const QString &text);
    void writeData(const QByteArray &data);
    void writePropertyList(const QVariant &object);
    void writeArray(const QVariantList &array) { writePropertyList(array); }
    void writeDictionary(const QVariantMap &dictionary) { writePropertyList(dictionary); }
    // Writes {"error": text}, the text being `format` with "%1" filled by
    // `error` when one is given. An empty format writes nothing.
    void writeError(const QString &format, const QString &error = QString());

    const std::shared_ptr<GCDAsyncSocket> &socket() const { return m_socket; }
    QByteArray boundaryData() const { return m_boundaryData; }

    // How many handlers exist: what the connections a peer opens cost us.
    static int liveCount();

    void socketDidReadData(GCDAsyncSocket *sock, const QByteArray &data, long tag) override;
    void socketDidWriteDataWithTag(GCDAsyncSocket *sock, long tag) override;
    void socketDidDisconnect(GCDAsyncSocket *sock, const QString &error) override;

private:
    std::shared_ptr<GCDAsyncSocket> m_socket;
    QByteArray m_boundaryData;
};
