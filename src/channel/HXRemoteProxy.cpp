#include "HXRemoteProxy.h"

#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "HXDBusNames.h"
#include "HXSystemLog.h"

#include <QDBusMessage>
#include <QDateTime>
#include <QXmlStreamReader>

#include <atomic>
#include <cmath>
#include <limits>

namespace {
std::atomic<int> g_callTimeout{5000};
std::atomic<int> g_longCallTimeout{5 * 60 * 1000};

const QString kBusService = QStringLiteral("org.freedesktop.DBus");
const QString kBusPath = QStringLiteral("/org/freedesktop/DBus");

QString kindName(int type)
{
    switch (type) {
    case QMetaType::QVariantMap:
        return QStringLiteral("a dictionary");
    case QMetaType::QVariantList:
        return QStringLiteral("an array");
    default:
        return QStringLiteral("a property list");
    }
}
} // namespace

QDateTime HXDateFromDBus(double seconds)
{
    // Beyond a few hundred million years QDateTime has no place for it.
    if (!std::isfinite(seconds) || std::fabs(seconds) > 1e16)
        return {};
    return QDateTime::fromMSecsSinceEpoch(qint64(std::llround(seconds * 1000.0)), Qt::UTC);
}

double HXDateToDBus(const QDateTime &date)
{
    if (!date.isValid())
        return std::numeric_limits<double>::quiet_NaN();
    return double(date.toMSecsSinceEpoch()) / 1000.0;
}

HXRemoteProxy::HXRemoteProxy(HXPeer peer)
    : m_peer(std::move(peer))
{
}

HXRemoteProxy::~HXRemoteProxy() = default;

int HXRemoteProxy::callTimeout()
{
    return g_callTimeout.load();
}

void HXRemoteProxy::setCallTimeout(int milliseconds)
{
    g_callTimeout.store(milliseconds);
}

int HXRemoteProxy::longCallTimeout()
{
    return g_longCallTimeout.load();
}

void HXRemoteProxy::setLongCallTimeout(int milliseconds)
{
    g_longCallTimeout.store(milliseconds);
}

QString HXRemoteProxy::nameOwner(const QDBusConnection &bus, const QString &busName)
{
    if (!bus.isConnected())
        return {};
    QDBusMessage ask = QDBusMessage::createMethodCall(kBusService, kBusPath, kBusService,
                                                      QStringLiteral("GetNameOwner"));
    ask << busName;
    const QDBusMessage answer = bus.call(ask, QDBus::Block, callTimeout());
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
        return {}; // NameHasNoOwner, or a bus too busy to say: nobody to talk to
    return answer.arguments().constFirst().toString();
}

std::optional<HXPeer> HXRemoteProxy::lookUp(const QDBusConnection &bus, const QString &connectionName)
{
    const QString busName = HXDBusNames::busName(connectionName);
    QString owner = nameOwner(bus, busName);
    if (owner.isEmpty())
        return std::nullopt;
    return HXPeer{bus, busName, std::move(owner), HXDBusNames::kRootObjectPath};
}

bool HXRemoteProxy::conformsTo(const QString &protocol) const
{
    return publishesInterface(m_peer, HXDBusNames::interfaceName(protocol));
}

bool HXRemoteProxy::isValid() const
{
    return nameOwner(m_peer.bus, m_peer.busName) == m_peer.owner;
}

bool HXRemoteProxy::publishesInterface(const HXPeer &peer, const QString &interface)
{
    const QDBusMessage ask = QDBusMessage::createMethodCall(
        peer.owner, peer.path, QStringLiteral("org.freedesktop.DBus.Introspectable"),
        QStringLiteral("Introspect"));
    const QDBusMessage answer = peer.bus.call(ask, QDBus::Block, callTimeout());
    if (answer.type() != QDBusMessage::ReplyMessage || answer.arguments().isEmpty())
        return false;
    QXmlStreamReader xml(answer.arguments().constFirst().toString());
    // Only the node's own interfaces count, not those of child nodes.
    int depth = 0;
    while (!xml.atEnd()) {
        switch (xml.readNext()) {
        case QXmlStreamReader::StartElement:
            ++depth;
            if (depth == 2 && xml.name() == QLatin1String("interface") &&
                xml.attributes().value(QLatin1String("name")) == interface)
                return true;
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        default:
            break;
        }
    }
    return false;
}

void HXRemoteProxy::throwCallError(const QDBusError &error, const char *method)
{
    throw HXDaemonInteractionException(error.name(), QStringLiteral("%1 failed: %2")
                                                         .arg(QLatin1String(method), error.message()));
}

QVariant HXRemoteProxy::decodeCopy(const QByteArray &bytes, const char *method, int expected) const
{
    QString why;
    QVariant value = BinaryPlistReader::read(bytes, &why);
    if (value.isValid() && (expected == QMetaType::UnknownType || value.metaType().id() == expected))
        return value;
    if (why.isEmpty())
        why = QStringLiteral("it holds another kind of value");
    HXSystemLog::write(QStringLiteral("Refused the answer of %1 from %2 (%3): it is not %4 as a "
                                      "binary property list: %5")
                           .arg(QLatin1String(method), m_peer.busName, m_peer.owner, kindName(expected),
                                why));
    return {};
}

QByteArray HXRemoteProxy::encodeCopy(const QVariant &value, const char *method)
{
    QString why;
    QByteArray bytes = BinaryPlistWriter::write(value, &why);
    if (bytes.isEmpty())
        HXSystemLog::write(QStringLiteral("%1 was not sent: its argument has no property-list form (%2)")
                               .arg(QLatin1String(method), why));
    return bytes;
}
