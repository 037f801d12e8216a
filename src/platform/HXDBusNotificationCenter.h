#pragma once

#include "HXDistributedNotificationCenter.h"

#include <QDBusConnection>
#include <QList>
#include <QObject>

#include <functional>
#include <memory>
#include <vector>

class QDBusMessage;

struct HXDistributedNotification
{
    QString name;
    QString object;
    QVariantMap userInfo;
};

// The distributed notification centre on D-Bus: a notification is the signal
// Notification(s name, s object, ay userInfo) on the interface
// com.talvorn.Orvex.DistributedNotificationCenter at
// /com/talvorn/Orvex/DistributedNotificationCenter, the user info being a
// binary property-list dictionary. It posts on one bus and listens on every
// bus it is given (the same bus given twice is heard once), delivering on the
// thread that made it. A signal whose user info is not such a dictionary is
// refused with one line in the system log; its observers hear nothing.
class HXDBusNotificationCenter : public QObject, public HXDistributedNotificationCenter
{
    Q_OBJECT

public:
    static const QString kInterface;
    static const QString kPath;
    static const QString kSignal;

    // The application's centre: posts on the session bus and listens on the
    // session bus and the daemons' bus.
    static HXDBusNotificationCenter *defaultCenter();

    HXDBusNotificationCenter(const QDBusConnection &postBus, const QList<QDBusConnection> &listenBuses,
                             QObject *parent = nullptr);
    ~HXDBusNotificationCenter() override;

    // Sent at once on a connected bus; D-Bus has no other kind of delivery,
    // so `deliverImmediately` changes nothing.
    void postNotification(const QString &name, const QString &object, const QVariantMap &userInfo,
                          bool deliverImmediately) override;

    using Handler = std::function<void(const HXDistributedNotification &)>;
    using Token = quint64;
    // An empty name or object matches any.
    Token addObserver(const QString &name, const QString &object, Handler handler);
    void removeObserver(Token token);

private Q_SLOTS:
    void onNotification(const QDBusMessage &message);

private:
    struct Observer
    {
        Token token;
        QString name;
        QString object;
        Handler handler;
        bool removed = false;
    };
    QDBusConnection m_postBus;
    QList<QDBusConnection> m_listening;
    std::vector<std::shared_ptr<Observer>> m_observers;
    Token m_next = 1;
};
