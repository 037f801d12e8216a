// The listener's memory with 1,000 connections that never send anything,
// opened by the Python peer, and after they close: resident size and heap.
#include "RemoteQueryAndControlManager.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>

#include <cstdio>
#include <fstream>
#include <malloc.h>
#include <string>

namespace {

long rssKb()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0)
            return std::stol(line.substr(6));
    }
    return -1;
}

void spinUntil(const std::function<bool()> &done, int ms)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

void report(const char *when, long baseKb, size_t baseHeap)
{
    std::printf("%-28s rss %+7.1f MB  heap %+7.2f MB  handlers %d\n", when,
                double(rssKb() - baseKb) / 1024.0,
                (double(mallinfo2().uordblks) - double(baseHeap)) / 1e6,
                RemoteQueryAndController::liveCount());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    struct Any : RemoteQueryAndControlManager
    {
        quint16 port() const override { return 0; }
    } listener;
    if (!listener.start())
        return 1;
    const long baseKb = rssKb();
    const size_t baseHeap = mallinfo2().uordblks;
    report("listening", baseKb, baseHeap);

    QProcess idle;
    idle.start(QStringLiteral("/usr/bin/python3"),
               {QStringLiteral(ORVEX_PEERS_DIR "/channel_peer.py"), QStringLiteral("idle"),
                QString::number(listener.asyncSocket()->localPort()), QStringLiteral("1000")});
    spinUntil([] { return RemoteQueryAndController::liveCount() == 1000; }, 30000);
    report("1,000 silent connections", baseKb, baseHeap);
    idle.closeWriteChannel();
    spinUntil([] { return RemoteQueryAndController::liveCount() == 0; }, 30000);
    idle.waitForFinished(5000);
    for (int i = 0; i < 20; ++i)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    report("after they closed", baseKb, baseHeap);
    return 0;
}
