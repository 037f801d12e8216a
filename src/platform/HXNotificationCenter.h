#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <vector>

struct HXNotification
{
    QString name;
    const QObject *object = nullptr;
    QVariantMap userInfo;
};

// The application's local notification centre: string names, a sender object
// and a user-info map, delivered synchronously to every matching observer in
// the order they were added. An observer removed while a notification is being
// delivered is not called afterwards. Safe to use from any thread; handlers
// run on the posting thread.
class HXNotificationCenter
{
public:
    using Handler = std::function<void(const HXNotification &)>;
    using Token = quint64;

    static HXNotificationCenter &defaultCenter();

    // `object` filters by sender; nullptr observes every sender.
    Token addObserver(const QString &name, const QObject *object, Handler handler);
    void removeObserver(Token token);

    void post(const QString &name, const QObject *object, const QVariantMap &userInfo = {});

private:
    struct Entry
    {
        Token token;
        QString name;
        const QObject *object;
        Handler handler;
        bool removed = false;
    };
    QMutex m_mutex;
    std::vector<std::shared_ptr<Entry>> m_entries;
    Token m_next = 1;
};
