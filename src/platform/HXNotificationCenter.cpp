#include "HXNotificationCenter.h"

HXNotificationCenter &HXNotificationCenter::defaultCenter()
{
    static HXNotificationCenter center;
    return center;
}

HXNotificationCenter::Token HXNotificationCenter::addObserver(const QString &name,
                                                              const QObject *object,
                                                              Handler handler)
{
    QMutexLocker lock(&m_mutex);
    const Token token = m_next++;
    m_entries.push_back(std::make_shared<Entry>(Entry{token, name, object, std::move(handler)}));
    return token;
}

void HXNotificationCenter::removeObserver(Token token)
{
    QMutexLocker lock(&m_mutex);
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        if ((*it)->token == token) {
            (*it)->removed = true;
            m_entries.erase(it);
            return;
        }
    }
}

void HXNotificationCenter::post(const QString &name, const QObject *object,
                                const QVariantMap &userInfo)
{
    std::vector<std::shared_ptr<Entry>> targets;
    {
        QMutexLocker lock(&m_mutex);
        for (const auto &e : m_entries) {
            if (e->name == name && (!e->object || e->object == object))
                targets.push_back(e);
        }
    }
    const HXNotification n{name, object, userInfo};
    for (const auto &e : targets) {
        if (!e->removed)
            e->handler(n);
    }
}
