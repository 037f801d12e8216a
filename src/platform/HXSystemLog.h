#pragma once

#include <QString>

#include <functional>

// Developer messages: syslog(3) with the ident "Orvex" (journald keeps them),
// and standard error as well when that is a terminal.
class HXSystemLog
{
public:
    static void write(const QString &message);

    // Tests observe what would be logged; a sink replaces syslog and stderr.
    using Sink = std::function<void(const QString &)>;
    static void setSink(Sink sink);
};
