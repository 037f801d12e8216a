#include "CommandSender.h"

#include "BinaryPlistWriter.h"
#include "HXSystemLog.h"
#include "PropertyList.h"

#include <QDateTime>
#include <QEventLoop>
#include <QSettings>
#include <QTimer>
#include <QUrl>

#include <unistd.h>

namespace {

// Before a request object exists, the socket reports to the class itself,
// which only logs a failed connection.
class ClassDelegate : public GCDAsyncSocketDelegate
{
public:
    void socketDidDisconnect(GCDAsyncSocket *, const QString &error) override
    {
        if (!error.isEmpty())
            HXSystemLog::write(error);
    }
};
ClassDelegate g_classDelegate;

} // namespace

QString CommandSender::playoutServerAddress()
{
    QSettings settings(QStringLiteral("talvorn"), QStringLiteral("Orvex"));
    const QVariantList servers = settings.value(QStringLiteral("PlayoutServers")).toList();
    if (servers.isEmpty())
        return QStringLiteral("localhost");
    // An index past the end reads as an entry without an address.
    const int index = settings.value(QStringLiteral("PlayoutServer"), 0).toInt();
    const QString address = servers.value(index).toMap().value(QStringLiteral("address")).toString();
    const QString host = QUrl(address).host();
    return host.isEmpty() ? QStringLiteral("localhost") : host;
}

QVariant CommandSender::sendCommandWithParams(const QVariantMap &params)
{
    return send(params, Mode::Framed);
}

QVariant CommandSender::sendRawWithParams(const QVariantMap &params)
{
    return send(params, Mode::Raw);
}

QVariant CommandSender::send(const QVariantMap &params, Mode mode)
{
    QByteArray message;
    if (mode == Mode::Framed) {
        QString error;
        message = BinaryPlistWriter::write(params, &error);
        if (message.isEmpty()) {
            HXSystemLog::write(QStringLiteral("Error converting params to binary plist: %1").arg(error));
            return {};
        }
    } else {
        message = params.value(QStringLiteral("rawData")).toByteArray();
    }

    auto socket = GCDAsyncSocket::create(&g_classDelegate);
    QString address = params.value(QStringLiteral("address")).toString();
    if (address.isEmpty())
        address = playoutServerAddress();
    int port = params.value(QStringLiteral("port")).toInt();
    if (port == 0)
        port = defaultPort();
    if (address.isEmpty() || port == 0) {
        HXSystemLog::write(QStringLiteral("Missing address or port!"));
        return {};
    }

    QString error;
    if (!socket->connectToHost(address, quint16(port), 1.0, &error)) {
        HXSystemLog::write(QStringLiteral("Error connecting: %1").arg(error));
        HXSystemLog::write(QStringLiteral("Retrying connection...."));
        if (!socket->connectToHost(address, quint16(port), 1.0, &error)) {
            HXSystemLog::write(QStringLiteral("Error connecting: %1").arg(error));
            return {};
        }
    }

    auto request = std::make_shared<CommandSender>(socket, message);
    request->m_willReceiveData = params.value(QStringLiteral("willReceiveData")).toBool();
    if (mode == Mode::Raw) {
        request->startRaw();
        return {};
    }
    request->start();

    if (request->m_willReceiveData) {
        // The guard compares start minus now, which is never positive while
        // the clock runs forward: the wait ends with the exchange, as the
        // product has always behaved.
        const qint64 startSeconds = QDateTime::currentSecsSinceEpoch();
        while (!request->m_finished) {
            if (double(startSeconds - QDateTime::currentSecsSinceEpoch()) >= 2.0)
                request->m_socket->disconnect();
            QEventLoop slice;
            QTimer::singleShot(10, &slice, &QEventLoop::quit);
            slice.exec();
        }
    }
    return request->m_decodedDataObject;
}

CommandSender::CommandSender(std::shared_ptr<GCDAsyncSocket> socket, QByteArray message)
    : m_socket(std::move(socket))
    , m_message(std::move(message))
{
}

CommandSender::~CommandSender() = default;

void CommandSender::start()
{
    m_socket->setDelegate(this);
    m_socket->setUserData(shared_from_this());
    m_socket->readDataWithTimeout(30.0, kGreetingTag);
}

void CommandSender::startRaw()
{
    m_socket->setDelegate(this);
    m_socket->setUserData(shared_from_this());
    m_socket->writeData(m_message, -1, kRawTag);
}

void CommandSender::socketDidReadData(GCDAsyncSocket *sock, const QByteArray &data, long tag)
{
    if (tag == kGreetingTag) {
        m_boundaryData = data;
        sock->writeData(m_message, -1, kGreetingTag);
    } else if (tag == kBoundaryTag) {
        m_readData = data;
        sock->disconnect();
    } else {
        sock->disconnect();
    }
}

void CommandSender::socketDidWriteDataWithTag(GCDAsyncSocket *sock, long tag)
{
    if (tag == kGreetingTag) {
        sock->writeData(m_boundaryData, -1, kBoundaryTag);
    } else if (tag == kBoundaryTag) {
        if (m_willReceiveData)
            sock->readDataToData(m_boundaryData, -1, kBoundaryTag);
        else
            sock->disconnect();
    } else {
        sock->disconnect();
    }
}

void CommandSender::socketDidDisconnect(GCDAsyncSocket *sock, const QString &error)
{
    if (!error.isEmpty()) {
        HXSystemLog::write(error);
    } else if (!m_readData.isEmpty()) {
        QByteArray answer = m_readData;
        const qsizetype at = m_boundaryData.isEmpty() ? -1 : answer.indexOf(m_boundaryData);
        if (at >= 0)
            answer.truncate(at);
        QString why;
        m_decodedDataObject = readPropertyList(answer, &why);
        if (!why.isEmpty())
            HXSystemLog::write(QStringLiteral("Error Converting Plist: %1").arg(why));
    }
    m_finished = true;
    sock->setDelegate(nullptr);
    sock->setUserData(nullptr); // may release this object: nothing after it
}

namespace {
QVariantMap request(const QString &command, quint16 port)
{
    return {{QStringLiteral("command"), command},
            {QStringLiteral("address"), QStringLiteral("localhost")},
            {QStringLiteral("port"), int(port)},
            {QStringLiteral("willReceiveData"), false}};
}
} // namespace

void HXCommandSender::wakeServer()
{
    const qint32 pid = qint32(::getpid());
    QVariantMap params = request(QStringLiteral("wakeServer"), kWakePort);
    // Host byte order, as the listener reads it.
    params.insert(QStringLiteral("rawData"), QByteArray(reinterpret_cast<const char *>(&pid), sizeof pid));
    sendRawWithParams(params);
}

void HXCommandSender::startServer()
{
    sendCommandWithParams(request(QStringLiteral("startServer"), kDaemonPort));
}

void HXCommandSender::stopServer()
{
    sendCommandWithParams(request(QStringLiteral("stopServer"), kDaemonPort));
}

void HXCommandSender::registerPID()
{
    QVariantMap params = request(QStringLiteral("pid"), kDaemonPort);
    params.insert(QStringLiteral("pid"), qint64(::getpid()));
    sendCommandWithParams(params);
}
