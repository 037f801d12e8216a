#include "HXNetworkReachability.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

bool HXNetworkReachability::isReachable(const QString &hostName)
{
    const QByteArray name = hostName.toUtf8();
    if (name.isEmpty())
        return false;
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo *found = nullptr;
    if (::getaddrinfo(name.constData(), "80", &hints, &found) != 0)
        return false;
    bool reachable = false;
    for (addrinfo *a = found; a && !reachable; a = a->ai_next) {
        // Connecting a datagram socket only picks a route; no packet leaves.
        const int fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (fd < 0)
            continue;
        reachable = ::connect(fd, a->ai_addr, a->ai_addrlen) == 0;
        ::close(fd);
    }
    ::freeaddrinfo(found);
    return reachable;
}
