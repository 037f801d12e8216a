#include "SMTPSocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

SMTPSocket::~SMTPSocket()
{
    close();
}

std::optional<in_addr> SMTPSocket::resolve(const QString &server)
{
    const QByteArray name = server.toUtf8();
    in_addr address{};
    if (inet_aton(name.constData(), &address) != 0)
        return address;
    addrinfo hints{};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(name.constData(), nullptr, &hints, &found) != 0 || !found)
        return std::nullopt;
    address = reinterpret_cast<const sockaddr_in *>(found->ai_addr)->sin_addr;
    freeaddrinfo(found);
    return address;
}

bool SMTPSocket::open()
{
    close();
    m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    return m_fd >= 0;
}

SMTPSocket::Connect SMTPSocket::connectTo(in_addr address, quint16 port, int timeoutMs)
{
    if (m_fd < 0)
        return Connect::Failed;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr = address;
    const int flags = fcntl(m_fd, F_GETFL);
    fcntl(m_fd, F_SETFL, flags | O_NONBLOCK);
    int result = ::connect(m_fd, reinterpret_cast<const sockaddr *>(&peer), sizeof peer);
    if (result != 0 && errno != EINPROGRESS)
        return Connect::Failed;
    if (result != 0) {
        pollfd waiting{m_fd, POLLOUT, 0};
        do
            result = ::poll(&waiting, 1, timeoutMs);
        while (result < 0 && errno == EINTR);
        if (result == 0)
            return Connect::TimedOut;
        int error = 0;
        socklen_t length = sizeof error;
        if (result < 0 || getsockopt(m_fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0 ||
            error != 0)
            return Connect::Failed;
    }
    fcntl(m_fd, F_SETFL, flags & ~O_NONBLOCK);
    return Connect::Connected;
}

void SMTPSocket::setExchangeTimeout(int timeoutMs)
{
    const timeval limit{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
    setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(m_fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool SMTPSocket::writeAll(const char *bytes, qsizetype length)
{
    qsizetype done = 0;
    while (done < length) {
        const ssize_t written = ::send(m_fd, bytes + done, size_t(length - done), MSG_NOSIGNAL);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += written;
    }
    return true;
}

QByteArray SMTPSocket::readReply(qsizetype limit)
{
    QByteArray reply;
    qsizetype lineStart = 0;
    char chunk[4096];
    while (reply.size() < limit) {
        const ssize_t got = ::recv(m_fd, chunk, sizeof chunk, 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        reply.append(chunk, got);
        // Judge each finished line: "NNN-" goes on, anything else ends the reply.
        for (qsizetype end; (end = reply.indexOf('\n', lineStart)) >= 0; lineStart = end + 1) {
            const QByteArray line = reply.mid(lineStart, end - lineStart);
            const bool continued = line.size() >= 4 && line[3] == '-' &&
                                   std::isdigit(uchar(line[0])) && std::isdigit(uchar(line[1])) &&
                                   std::isdigit(uchar(line[2]));
            if (!continued)
                return reply;
        }
    }
    return reply;
}

void SMTPSocket::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}
