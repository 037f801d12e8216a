#include "RemoteQueryAndControlManager.h"

#include "BinaryPlistWriter.h"
#include "HXSystemLog.h"
#include "PropertyList.h"

#include <atomic>

namespace {
std::atomic<int> g_liveControllers{0};
}

RemoteQueryAndControlManager::~RemoteQueryAndControlManager()
{
    if (m_asyncSocket)
        m_asyncSocket->setDelegate(nullptr);
}

std::shared_ptr<RemoteQueryAndController>
RemoteQueryAndControlManager::makeController(std::shared_ptr<GCDAsyncSocket> socket)
{
    return std::make_shared<RemoteQueryAndController>(std::move(socket));
}

bool RemoteQueryAndControlManager::start()
{
    m_asyncSocket = GCDAsyncSocket::create(this);
    QString error;
    if (!m_asyncSocket->acceptOnPort(port(), &error)) {
        HXSystemLog::write(QStringLiteral("Error connecting: %1").arg(error));
        return false;
    }
    return true;
}

void RemoteQueryAndControlManager::socketDidAcceptNewSocket(GCDAsyncSocket *,
                                                            const std::shared_ptr<GCDAsyncSocket> &newSocket)
{
    auto controller = makeController(newSocket);
    controller->attach();
    controller->start();
}

QByteArray RemoteQueryAndController::boundaryToken()
{
    return QStringLiteral("****%1*****").arg(QStringLiteral("123456789ABCDEFG")).toUtf8();
}

RemoteQueryAndController::RemoteQueryAndController(std::shared_ptr<GCDAsyncSocket> socket)
    : m_socket(std::move(socket))
    , m_boundaryData(boundaryToken())
{
    ++g_liveControllers;
}

RemoteQueryAndController::~RemoteQueryAndController()
{
    --g_liveControllers;
}

int RemoteQueryAndController::liveCount()
{
    return g_liveControllers.load();
}

void RemoteQueryAndController::attach()
{
    m_socket->setDelegate(this);
    m_socket->setUserData(shared_from_this());
}

void RemoteQueryAndController::start()
{
    m_socket->writeData(m_boundaryData, 30.0, kBoundaryTag);
}

void RemoteQueryAndController::read()
{
    m_socket->readDataToData(m_boundaryData, -1, kBoundaryTag, kMaxRequestLength);
}

void RemoteQueryAndController::processParams(const QVariant &params)
{
    Q_UNUSED(params);
}

void RemoteQueryAndController::writeString(const QString &text)
{
    writeData(text.toUtf8());
}

void RemoteQueryAndController::writeData(const QByteArray &data)
{
    m_socket->writeData(data, 30.0, kAnswerTag);
}

void RemoteQueryAndController::writePropertyList(const QVariant &object)
{
    QString error;
    const QByteArray bytes = BinaryPlistWriter::write(object, &error);
    if (bytes.isEmpty()) {
        writeError(QStringLiteral("Error converting object to binary plist: %1"), error);
        return;
    }
    writeData(bytes);
}

void RemoteQueryAndController::writeError(const QString &format, const QString &error)
{
    if (format.isEmpty())
        return;
    const QString text = error.isEmpty() ? format : format.arg(error);
    writeDictionary({{QStringLiteral("error"), text}});
}

void RemoteQueryAndController::socketDidReadData(GCDAsyncSocket *, const QByteArray &data, long)
{
    QByteArray request = data;
    const qsizetype at = request.indexOf(m_boundaryData);
    if (at >= 0)
        request.truncate(at);
    QString why;
    const QVariant params = readPropertyList(request, &why);
    if (!why.isEmpty()) {
        writeError(QStringLiteral("Error Converting Plist: %1"), why);
        return;
    }
    processParams(params);
}

void RemoteQueryAndController::socketDidWriteDataWithTag(GCDAsyncSocket *sock, long tag)
{
    if (tag == kBoundaryTag)
        read();
    else if (tag == kAnswerTag)
        sock->writeData(m_boundaryData, 30.0, kBoundaryTag);
    else
        sock->disconnect();
}

void RemoteQueryAndController::socketDidDisconnect(GCDAsyncSocket *sock, const QString &)
{
    sock->setDelegate(nullptr);
    sock->setUserData(nullptr); // may release this object: nothing after it
}
