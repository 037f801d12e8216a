#include "HXUpdateExchange.h"

#include <QElapsedTimer>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class Socket
{
public:
    explicit Socket(int fd)
        : m_fd(fd)
    {
    }
    ~Socket()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    int fd() const { return m_fd; }

private:
    int m_fd;
};

QString systemError(const char *what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what),
                                        QString::fromLocal8Bit(std::strerror(errno)));
}

// Waits for `events` on the socket for at most `milliseconds`; false on a
// time-out or an error.
bool waitFor(int fd, short events, int milliseconds)
{
    pollfd p{fd, events, 0};
    int r;
    do {
        r = ::poll(&p, 1, milliseconds);
    } while (r < 0 && errno == EINTR);
    return r > 0;
}

} // namespace

std::optional<QByteArray> HXUpdateExchange::run(const QString &host, quint16 port,
                                                const QByteArray &request, int replySize,
                                                Limits limits, QString *error)
{
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const QByteArray name = host.toUtf8();
    if (name.isEmpty() || ::getaddrinfo(name.constData(), nullptr, &hints, &found) != 0 || !found) {
        *error = QStringLiteral("no address for %1").arg(host);
        return std::nullopt;
    }
    sockaddr_in address{};
    std::memcpy(&address, found->ai_addr, sizeof address);
    ::freeaddrinfo(found);
    address.sin_port = htons(port);

    // Non-blocking only while connecting, so that the connect can time out.
    Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket.fd() < 0) {
        *error = systemError("socket");
        return std::nullopt;
    }
    if (::connect(socket.fd(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno != EINPROGRESS) {
            *error = systemError("connect");
            return std::nullopt;
        }
        if (!waitFor(socket.fd(), POLLOUT, limits.connectMilliseconds)) {
            *error =
                QStringLiteral("connect: no answer within %1 ms").arg(limits.connectMilliseconds);
            return std::nullopt;
        }
        int status = 0;
        socklen_t length = sizeof status;
        if (::getsockopt(socket.fd(), SOL_SOCKET, SO_ERROR, &status, &length) != 0 || status != 0) {
            errno = status;
            *error = systemError("connect");
            return std::nullopt;
        }
    }

    // Blocking again from here on: the reads below wait in poll() with what
    // is left of the read limit, so a recv() only ever follows readable data.
    const int flags = ::fcntl(socket.fd(), F_GETFL);
    if (flags < 0 || ::fcntl(socket.fd(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
        *error = systemError("fcntl");
        return std::nullopt;
    }

    // The request is a few bytes into an empty send buffer: one write.
    const ssize_t written =
        ::send(socket.fd(), request.constData(), size_t(request.size()), MSG_NOSIGNAL);
    if (written != request.size()) {
        *error = written < 0 ? systemError("send") : QStringLiteral("short write");
        return std::nullopt;
    }

    // The reply is read until it is whole, the server closes or the time is
    // up: the network may hand a record over in pieces even when the server
    // wrote it at once.
    QByteArray reply(replySize, '\0');
    qsizetype have = 0;
    QElapsedTimer clock;
    clock.start();
    while (have < replySize) {
        const int left = limits.readMilliseconds - int(clock.elapsed());
        if (left <= 0 || !waitFor(socket.fd(), POLLIN, left)) {
            *error = QStringLiteral("read: %1 of %2 bytes within %3 ms")
                         .arg(have)
                         .arg(replySize)
                         .arg(limits.readMilliseconds);
            return std::nullopt;
        }
        const ssize_t n = ::recv(socket.fd(), reply.data() + have, size_t(replySize - have), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            *error = systemError("recv");
            return std::nullopt;
        }
        if (n == 0) {
            *error = QStringLiteral("reply of %1 bytes instead of %2").arg(have).arg(replySize);
            return std::nullopt;
        }
        have += n;
    }
    return reply;
}
