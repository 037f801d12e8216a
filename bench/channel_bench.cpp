// Framed request/answer round trips over loopback, against our listener and
// against the Python peer's server, side by side:
//   SyncRoundTrip   sendCommandWithParams() as the product calls it: the wait
//                   runs the event loop in 10 ms slices, which bounds it
//   Exchange        the same exchange driven without the slices: what the
//                   protocol and the two peers cost
#include "BinaryPlistWriter.h"
#include "CommandSender.h"
#include "RemoteQueryAndControlManager.h"

#include <QCoreApplication>
#include <QProcess>

#include <benchmark/benchmark.h>

namespace {

class EchoController : public RemoteQueryAndController
{
public:
    using RemoteQueryAndController::RemoteQueryAndController;
    void processParams(const QVariant &params) override { writeDictionary({{QStringLiteral("echo"), params}}); }
};

class EchoManager : public RemoteQueryAndControlManager
{
public:
    quint16 port() const override { return 0; }
    std::shared_ptr<RemoteQueryAndController> makeController(std::shared_ptr<GCDAsyncSocket> s) override
    {
        return std::make_shared<EchoController>(std::move(s));
    }
};

QVariantMap request(quint16 port)
{
    return {{QStringLiteral("address"), QStringLiteral("127.0.0.1")},
            {QStringLiteral("port"), int(port)},
            {QStringLiteral("willReceiveData"), true},
            {QStringLiteral("command"), QStringLiteral("status")},
            {QStringLiteral("pid"), 4242}};
}

quint16 ourPort()
{
    static EchoManager manager;
    static const bool started = manager.start();
    return started ? manager.asyncSocket()->localPort() : 0;
}

quint16 pythonPort()
{
    static QProcess *py = [] {
        auto *p = new QProcess;
        p->start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(ORVEX_PEERS_DIR "/channel_peer.py"), QStringLiteral("server"),
                  QStringLiteral("100000")});
        p->waitForReadyRead(20000);
        return p;
    }();
    static const quint16 port = quint16(py->readLine().trimmed().toUInt());
    return port;
}

// One exchange through the request object, the event loop run until it ends.
bool exchange(quint16 port)
{
    auto socket = GCDAsyncSocket::create(nullptr);
    QString error;
    if (!socket->connectToHost(QStringLiteral("127.0.0.1"), port, 1.0, &error))
        return false;
    auto sender = std::make_shared<CommandSender>(socket, BinaryPlistWriter::write(request(port)));
    sender->setWillReceiveData(true);
    sender->start();
    while (!sender->finished())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return sender->decodedDataObject().isValid();
}

void SyncRoundTrip(benchmark::State &state, quint16 (*port)())
{
    const quint16 p = port();
    for (auto _ : state) {
        if (!CommandSender::sendCommandWithParams(request(p)).isValid())
            state.SkipWithError("no answer");
    }
    state.counters["round_trips_per_s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

void Exchange(benchmark::State &state, quint16 (*port)())
{
    const quint16 p = port();
    for (auto _ : state) {
        if (!exchange(p))
            state.SkipWithError("no answer");
    }
    state.counters["round_trips_per_s"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(SyncRoundTrip, our_server, &ourPort)->Unit(benchmark::kMillisecond)->MinTime(2)->UseRealTime();
BENCHMARK_CAPTURE(SyncRoundTrip, python_server, &pythonPort)->Unit(benchmark::kMillisecond)->MinTime(2)->UseRealTime();
BENCHMARK_CAPTURE(Exchange, our_server, &ourPort)->Unit(benchmark::kMicrosecond)->MinTime(2)->UseRealTime();
BENCHMARK_CAPTURE(Exchange, python_server, &pythonPort)->Unit(benchmark::kMicrosecond)->MinTime(2)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
