#pragma once

#include <QString>

// Whether a host can be reached from here, as far as this machine can tell
// without sending anything: its name resolves and the kernel has a route to
// one of its addresses. Blocking (the name lookup may wait on the network):
// call it off the interface thread.
class HXNetworkReachability
{
public:
    static bool isReachable(const QString &hostName);
};
