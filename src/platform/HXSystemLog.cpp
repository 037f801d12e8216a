#include "HXSystemLog.h"

#include <QMutex>

#include <cstdio>
#include <syslog.h>
#include <unistd.h>

namespace {
QMutex g_mutex;
HXSystemLog::Sink g_sink;
} // namespace

void HXSystemLog::setSink(Sink sink)
{
    QMutexLocker lock(&g_mutex);
    g_sink = std::move(sink);
}

void HXSystemLog::write(const QString &message)
{
    QMutexLocker lock(&g_mutex);
    if (g_sink) {
        g_sink(message);
        return;
    }
    static const bool opened = [] {
        openlog("Orvex", LOG_PID, LOG_USER);
        return true;
    }();
    Q_UNUSED(opened);
    const QByteArray text = message.toUtf8();
    syslog(LOG_NOTICE, "%s", text.constData());
    if (isatty(STDERR_FILENO))
        std::fprintf(stderr, "Orvex: %s\n", text.constData());
}
