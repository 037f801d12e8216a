#pragma once

#include <QByteArray>
#include <QObject>
#include <QStringList>

class IdleDaemonService;

// The schedule as a dictionary passed by reference (HXRemoteDictionary).
class IdleScheduleObject : public QObject
{
    Q_OBJECT

public:
    explicit IdleScheduleObject(IdleDaemonService *daemon);

public Q_SLOTS:
    qint64 count();
    QStringList allKeys();
    QByteArray objectForKey(const QString &key);

private:
    IdleDaemonService *m_daemon;
};
