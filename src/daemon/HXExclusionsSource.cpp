#include "HXExclusionsSource.h"

#include "HXDBusNames.h"
#include "HXDaemonFiles.h"
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

QVariantList HXExclusionsSource::fetch(int timeoutMs, QString *from)
{
    if (const auto answer = askIdleDaemon(timeoutMs)) {
        *from = QStringLiteral("the idle daemon");
        return *answer;
    }
    const QString file = HXProductPaths::idleDaemonSettingsFile();
    if (!QFile::exists(file)) {
        *from = QStringLiteral("nowhere: the idle daemon did not answer and has no settings file");
        return {};
    }
    QString why;
    const QVariant exclusions =
        HXDaemonReadPlistFile(file, &why).toMap().value(QStringLiteral("exclusions"));
    if (!why.isEmpty()) {
        *from = QStringLiteral("nowhere: the idle daemon did not answer and its settings file %1 "
                               "cannot be read (%2)")
                    .arg(file, why);
        return {};
    }
    *from = file;
    return exclusions.toList();
}
