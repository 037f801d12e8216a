#include "HXDBusNotificationCenter.h"

#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "HXDBusNames.h"
#include "HXSystemLog.h"

#include <QDBusMessage>

#include <algorithm>

const QString HXDBusNotificationCenter::kInterface = QStringLiteral("com.talvorn.Orvex.DistributedNotificationCenter");
const QString HXDBusNotificationCenter::kPath = QStringLiteral("/com/talvorn/Orvex/DistributedNotificationCenter");
const QString HXDBusNotificationCenter::kSignal = QStringLiteral("Notification");

HXDBusNotificationCenter *HXDBusNotificationCenter::defaultCenter()
{
    // The application and the agent share the session bus; what the daemons
    // post arrives on theirs, which only root may post on.
    static auto *center = new HXDBusNotificationCenter(
        QDBusConnection::sessionBus(), {QDBusConnection::sessionBus(), HXDBusNames::daemonBus()});
    return center;
}

HXDBusNotificationCenter::HXDBusNotificationCenter(const QDBusConnection &postBus,
                                                   const QList<QDBusConnection> &listenBuses,
                                                   QObject *parent)
    : QObject(parent)
    , m_postBus(postBus)
{
    for (const QDBusConnection &bus : listenBuses) {
        if (!bus.isConnected())
            continue; // a machine without a system bus still has the session's
        const bool already = std::any_of(m_listening.cbegin(), m_listening.cend(),
                                         [&bus](const QDBusConnection &c) { return c.name() == bus.name(); });
        if (already)
            continue;
        // QtDBus offers only the string-based form for signals of other peers.
        QDBusConnection(bus).connect(QString(), kPath, kInterface, kSignal, this,
                                     SLOT(onNotification(QDBusMessage)));
        m_listening.append(bus);
    }
}

HXDBusNotificationCenter::~HXDBusNotificationCenter()
{
    for (QDBusConnection &bus : m_listening)
        bus.disconnect(QString(), kPath, kInterface, kSignal, this, SLOT(onNotification(QDBusMessage)));
}

void HXDBusNotificationCenter::postNotification(const QString &name, const QString &object,
                                                const QVariantMap &userInfo, bool deliverImmediately)
{
    Q_UNUSED(deliverImmediately);
    QString error;
    const QByteArray info = BinaryPlistWriter::write(userInfo, &error);
    if (info.isEmpty()) {
        HXSystemLog::write(QStringLiteral("The distributed notification \"%1\" was not sent: its user "
                                          "info has no property-list form (%2)")
                               .arg(name, error));
        return;
    }
    QDBusMessage signal = QDBusMessage::createSignal(kPath, kInterface, kSignal);
    signal << name << object << info;
    if (!m_postBus.isConnected() || !m_postBus.send(signal))
        HXSystemLog::write(QStringLiteral("The distributed notification \"%1\" was not sent: %2")
                               .arg(name, m_postBus.isConnected() ? m_postBus.lastError().message()
                                                                  : QStringLiteral("the bus is not connected")));
}

HXDBusNotificationCenter::Token HXDBusNotificationCenter::addObserver(const QString &name,
                                                                      const QString &object,
                                                                      Handler handler)
{
    const Token token = m_next++;
    m_observers.push_back(std::make_shared<Observer>(Observer{token, name, object, std::move(handler)}));
    return token;
}

void HXDBusNotificationCenter::removeObserver(Token token)
{
    for (auto it = m_observers.begin(); it != m_observers.end(); ++it) {
        if ((*it)->token == token) {
            (*it)->removed = true;
            m_observers.erase(it);
            return;
        }
    }
}

void HXDBusNotificationCenter::onNotification(const QDBusMessage &message)
{
    const QVariantList args = message.arguments();
    const QString sender = message.service();
    if (args.size() != 3 || args[0].metaType().id() != QMetaType::QString ||
        args[1].metaType().id() != QMetaType::QString || args[2].metaType().id() != QMetaType::QByteArray) {
        HXSystemLog::write(QStringLiteral("Refused a distributed notification from %1: its arguments are "
                                          "not (name, object, user info)")
                               .arg(sender));
        return;
    }
    HXDistributedNotification n{args[0].toString(), args[1].toString(), {}};
    const QByteArray info = args[2].toByteArray();
    if (!info.isEmpty()) {
        QString why;
        const QVariant decoded = BinaryPlistReader::read(info, &why);
        if (decoded.metaType().id() != QMetaType::QVariantMap) {
            HXSystemLog::write(QStringLiteral("Refused the distributed notification \"%1\" from %2: its "
                                              "user info is not a binary property-list dictionary (%3)")
                                   .arg(n.name.left(200), sender,
                                        why.isEmpty() ? QStringLiteral("another kind of value") : why));
            return;
        }
        n.userInfo = decoded.toMap();
    }
    // A copy: an observer may add or remove observers while being told.
    const auto observers = m_observers;
    for (const auto &o : observers) {
        if (o->removed)
            continue;
        if ((o->name.isEmpty() || o->name == n.name) && (o->object.isEmpty() || o->object == n.object))
            o->handler(n);
    }
}
