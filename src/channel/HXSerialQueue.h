#pragma once

#include <QMutex>
#include <QString>

// A labelled serial queue for work submitted synchronously: the work runs on
// the submitting thread, one submission at a time.
class HXSerialQueue
{
public:
    explicit HXSerialQueue(QString label)
        : m_label(std::move(label))
    {
    }

    const QString &label() const { return m_label; }

    template<class Work>
    auto sync(Work &&work)
    {
        QMutexLocker lock(&m_mutex);
        return work();
    }

private:
    QString m_label;
    QMutex m_mutex;
};
