#include "HXDebugLog.h"

#include "HXSystemLog.h"

#include <atomic>

namespace {
std::atomic<bool> g_enabled{false};
}

void HXDebugLog(const QString &message)
{
    if (g_enabled.load(std::memory_order_relaxed))
        HXSystemLog::write(message);
}

void HXDebugLogEnable(bool enabled)
{
    g_enabled.store(enabled, std::memory_order_relaxed);
}

bool HXDebugLogIsEnabled()
{
    return g_enabled.load(std::memory_order_relaxed);
}
