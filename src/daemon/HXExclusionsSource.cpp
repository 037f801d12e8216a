#include "HXExclusionsSource.h"

#include "HXDBusNames.h"
#include "HXProductPaths.h"
#include "PropertyList.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QThread>

namespace {

std::optional<QVariantList> askIdleDaemon(int timeoutMs)
{
    // A connection of this thread's own, so the call never waits on another
    // thread's event loop.
    const QString name =
        QStringLiteral("orvex-exclusions-%1").arg(quintptr(QThread::currentThreadId()));
    std::optional<QVariantList> answer;
    {
        QDBusConnection bus = QDBusConnection::connectToBus(HXDBusNames::daemonBusType(), name);
        if (bus.isConnected()) {
            QDBusMessage call = QDBusMessage::createMethodCall(
                HXDBusNames::busName(QStringLiteral("OrvexIdleDaemon")),
                HXDBusNames::kRootObjectPath,
                QStringLiteral("com.talvorn.HXIdleDaemonUserInteractionProtocol"),
                QStringLiteral("exclusions"));
            const QDBusMessage reply = bus.call(call, QDBus::Block, timeoutMs);
            if (reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()) {
                QString why;
                const QVariant value =
                    readPropertyList(reply.arguments().constFirst().toByteArray(), &why);
                if (value.typeId() == QMetaType::QVariantList)
                    answer = value.toList();
            }
        }
    }
    QDBusConnection::disconnectFromBus(name);
    return answer;
}

} // namespace

QString HXExclusionsSource::settingsFile()
{
    return HXProductPaths::map(QStringLiteral("/var/lib/orvex/OrvexIdleDaemon.plist"));
}

QVariantList HXExclusionsSource::fetch(int timeoutMs, QString *from)
{
    if (const auto answer = askIdleDaemon(timeoutMs)) {
        *from = QStringLiteral("the idle daemon");
        return *answer;
    }
    QFile file(settingsFile());
    if (file.open(QIODevice::ReadOnly)) {
        QString why;
        const QVariant settings = readPropertyList(file.readAll(), &why);
        const QVariant exclusions = settings.toMap().value(QStringLiteral("exclusions"));
        if (exclusions.typeId() == QMetaType::QVariantList) {
            *from = file.fileName();
            return exclusions.toList();
        }
    }
    *from = QStringLiteral("nowhere (the idle daemon did not answer and keeps no settings file)");
    return {};
}
