#pragma once

#include <QHash>
#include <QObject>
#include <QString>

class QSocketNotifier;

// One inotify instance read through a QSocketNotifier on the thread that made
// it. Each wake-up drains every pending event and reports each watch that had
// any, once, in the order they first occurred: like a kqueue vnode event with
// EV_CLEAR, a burst of writes between two wake-ups is one event per watch.
class InotifyQueue : public QObject
{
    Q_OBJECT

public:
    explicit InotifyQueue(QObject *parent = nullptr);
    ~InotifyQueue() override;

    // False when the kernel refused to make the queue; the error says why.
    bool isValid() const { return m_fd >= 0; }
    QString creationError() const { return m_creationError; }

    // Watches a file or folder for changes to it or, for a folder, to what it
    // holds. Answers the watch descriptor, or -1 with errno's text in *error.
    // Watching the same path again answers the same descriptor.
    int addWatch(const QString &path, QString *error, int *errorNumber = nullptr);

Q_SIGNALS:
    void watchesFired(const QList<int> &watchDescriptors);
    // After watchesFired of the same wake-up: watches whose path no longer
    // leads to what they watch. A deleted file or folder is dropped by the
    // kernel; one that was moved away is dropped here, so that a new one made
    // under the old name is not mistaken for it.
    void watchesLost(const QList<int> &watchDescriptors);
    // A read from the queue failed (errno and its text).
    void readFailed(int errorNumber, const QString &errorText);

private:
    void readEvents();

    int m_fd = -1;
    QString m_creationError;
    QSocketNotifier *m_notifier = nullptr;
};
