#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QSet>
#include <QStringList>

class QDBusServiceWatcher;

// Whether the worker and idle daemons are on their bus, followed without
// ever waiting: the first answer comes from an asynchronous question to the
// bus, every later one from the bus's own announcements of owner changes.
// A daemon that is on the bus but stopped still counts as running; only its
// calls time out.
class HXDaemonPresence : public QObject
{
    Q_OBJECT

public:
    explicit HXDaemonPresence(QObject *parent = nullptr);
    // Watches the given connection names on `bus` (for tests).
    HXDaemonPresence(const QDBusConnection &bus, const QStringList &connectionNames,
                     QObject *parent = nullptr);

    // False until the bus has answered, and whenever one of them is missing.
    bool daemonsAreRunning() const { return m_known && m_missing.isEmpty(); }
    // The bus has said which of them are there.
    bool isKnown() const { return m_known; }

Q_SIGNALS:
    // Sent once the first answer is in (from the event loop, never during
    // construction), and on every change after it.
    void daemonsAreRunningChanged(bool running);

private:
    void setOwned(const QString &busName, bool owned);

    QDBusConnection m_bus;
    QStringList m_busNames;
    QSet<QString> m_missing;
    QSet<QString> m_heardOf; // names whose owner changed since the watch began
    int m_unanswered = 0;
    bool m_known = false;
    QDBusServiceWatcher *m_watcher = nullptr;
};
