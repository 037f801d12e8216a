#include "IdleScheduleObject.h"

#include "BinaryPlistWriter.h"
#include "IdleDaemonService.h"

IdleScheduleObject::IdleScheduleObject(IdleDaemonService *daemon)
    : QObject(daemon)
    , m_daemon(daemon)
{
}

qint64 IdleScheduleObject::count()
{
    return m_daemon->schedule().size();
}

QStringList IdleScheduleObject::allKeys()
{
    return m_daemon->schedule().keys();
}

QByteArray IdleScheduleObject::objectForKey(const QString &key)
{
    const QVariantMap schedule = m_daemon->schedule();
    if (!schedule.contains(key))
        return {};
    return BinaryPlistWriter::write(schedule.value(key));
}
