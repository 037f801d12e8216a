#include "HXDBusNames.h"

#include <pwd.h>
#include <unistd.h>

namespace HXDBusNames {

QString busName(const QString &connectionName)
{
    QString escaped;
    const QByteArray utf8 = connectionName.toUtf8();
    escaped.reserve(utf8.size());
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        const bool allowed = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                             (byte >= '0' && byte <= '9') || byte == '_' || byte == '-';
        if (allowed)
            escaped.append(QLatin1Char(c));
        else
            escaped.append(QStringLiteral("_%1").arg(byte, 2, 16, QLatin1Char('0')).toUpper());
    }
    return QStringLiteral("com.talvorn.") + escaped;
}

QString interfaceName(const QString &protocol)
{
    return QStringLiteral("com.talvorn.") + protocol;
}

QDBusConnection::BusType daemonBusType()
{
    if (qEnvironmentVariable("ORVEX_DAEMON_BUS") == QLatin1String("session"))
        return QDBusConnection::SessionBus;
    return QDBusConnection::SystemBus;
}

QDBusConnection daemonBus()
{
    return daemonBusType() == QDBusConnection::SessionBus ? QDBusConnection::sessionBus()
                                                          : QDBusConnection::systemBus();
}

} // namespace HXDBusNames

QString HXLoginName()
{
    const passwd *entry = ::getpwuid(::geteuid());
    return entry && entry->pw_name ? QString::fromLocal8Bit(entry->pw_name) : QString();
}
