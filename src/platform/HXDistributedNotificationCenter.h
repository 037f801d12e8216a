#pragma once

#include <QString>
#include <QVariantMap>

// Broadcasts a notification to other processes: a name, an object string and
// a user-info dictionary of property-list values. The transport is the
// implementation's; tests use a recording double.
class HXDistributedNotificationCenter
{
public:
    virtual ~HXDistributedNotificationCenter() = default;
    virtual void postNotification(const QString &name, const QString &object,
                                  const QVariantMap &userInfo, bool deliverImmediately) = 0;
};
