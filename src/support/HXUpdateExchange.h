#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// One exchange with the update-information server: look the host up, connect
// over IPv4, write the request, read the reply. Blocking, so it runs on a
// worker thread; each step is bounded so that a dead or silent server ends
// in a failure instead of an endless wait.
class HXUpdateExchange
{
public:
    struct Limits
    {
        int connectMilliseconds = 10000;
        int readMilliseconds = 15000;
    };

    // The reply's bytes (exactly `replySize` of them), or nothing with the
    // reason in *error.
    static std::optional<QByteArray> run(const QString &host, quint16 port,
                                         const QByteArray &request, int replySize, Limits limits,
                                         QString *error);
};
