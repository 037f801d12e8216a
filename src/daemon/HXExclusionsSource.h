#pragma once

#include <QString>
#include <QVariantList>

// Where the worker learns the user's test exclusions: from the idle daemon,
// which owns them, when it answers; else from the file the idle daemon keeps
// them in; else there are none. Blocks for up to `timeoutMs` on the idle
// daemon: call it from the pass's own thread, never an interface thread.
class HXExclusionsSource
{
public:
    // The entries; `from` says where they came from, for the worker's log.
    static QVariantList fetch(int timeoutMs, QString *from);
};
