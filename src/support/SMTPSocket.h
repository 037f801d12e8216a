#pragma once

#include <QByteArray>
#include <QString>
#include <netinet/in.h>
#include <optional>

// One blocking TCP connection of the mail agent, on POSIX sockets. Not
// thread-safe; made and used on the sending thread only.
class SMTPSocket
{
public:
    enum class Connect { Connected, Failed, TimedOut };

    // A dotted IPv4 address as it stands, else the first IPv4 address the
    // host name resolves to; nothing when the look-up fails.
    static std::optional<in_addr> resolve(const QString &server);

    SMTPSocket() = default;
    ~SMTPSocket();
    SMTPSocket(const SMTPSocket &) = delete;
    SMTPSocket &operator=(const SMTPSocket &) = delete;

    // A fresh socket (closing any former one); false when none can be made.
    bool open();
    bool isOpen() const { return m_fd >= 0; }
    // Connects the open socket within `timeoutMs`, without signals: a
    // non-blocking connect waited for with poll(2). The socket blocks again
    // once connected.
    Connect connectTo(in_addr address, quint16 port, int timeoutMs);
    // Bounds each later read and write: a peer silent for `timeoutMs` ends
    // the exchange as if it had closed.
    void setExchangeTimeout(int timeoutMs);
    // Writes every byte (a short write is retried); false on a failed write,
    // a closed peer included. Never raises SIGPIPE.
    bool writeAll(const char *bytes, qsizetype length);
    // Reads one whole reply: lines up to the first that is not a "NNN-"
    // continuation line, or what came before the peer closed or fell
    // silent; `limit` bounds what a misbehaving peer can make us keep.
    QByteArray readReply(qsizetype limit = 65536);
    void close();

private:
    int m_fd = -1;
};
