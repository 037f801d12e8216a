#pragma once

#include <QDBusConnection>
#include <QString>

// How the product's published objects are named on D-Bus: a connection name N
// is the well-known bus name "com.talvorn.N", a remote protocol P the
// interface "com.talvorn.P", and the published root object sits at "/".
namespace HXDBusNames {

inline const QString kRootObjectPath = QStringLiteral("/");

// Characters a bus name element cannot hold ([A-Za-z0-9_-] only) are written
// "_XX", the hex of each UTF-8 byte, so "OrvexAgent-jo.doe" becomes
// "com.talvorn.OrvexAgent-jo_2Edoe".
QString busName(const QString &connectionName);
QString interfaceName(const QString &protocol);

// The bus the worker and idle daemons are on: the system bus, or the session
// bus when ORVEX_DAEMON_BUS=session (tests, the demo, unprivileged runs).
QDBusConnection daemonBus();
QDBusConnection::BusType daemonBusType();

} // namespace HXDBusNames

// The short login name of the user running this process (empty when the
// account database does not know the user).
QString HXLoginName();
