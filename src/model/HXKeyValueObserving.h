#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <vector>

class HXKeyValueObservable;

// Receives the changes of the key paths it observes. `isPrior` is true for the
// announcement before a change (only for observers that asked for it); the
// old value is the one captured at that announcement.
class HXKeyValueObserver
{
public:
    virtual ~HXKeyValueObserver() = default;
    virtual void observeValueForKeyPath(const QString &keyPath, HXKeyValueObservable *object,
                                        const QVariant &oldValue, bool isPrior) = 0;

    // The key-path protocol: observe (or stop observing) every key path the
    // object lists, asking for the old value with each change. Nothing
    // happens for a null object.
    void startObservingObject(HXKeyValueObservable *object);
    void stopObservingObject(HXKeyValueObservable *object);
};

// The key-path protocol shared by the model classes: a fixed list of
// observable keys, by-key reading, change announcements and a description
// built from the keys. Observers are kept only for objects that have any, so
// the thousands of results in a report carry one null pointer each.
class HXKeyValueObservable
{
public:
    virtual ~HXKeyValueObservable();

    virtual QString className() const = 0;
    virtual QStringList keyPaths() const = 0;
    virtual QVariant valueForKey(const QString &key) const = 0;

    // "\n\nClass name: <name>\n" and "key: value" for each key path.
    QString descriptionForKeyPaths() const;
    QString description() const { return descriptionForKeyPaths(); }

    void addObserver(HXKeyValueObserver *observer, const QString &keyPath, bool wantsPrior = false);
    void removeObserver(HXKeyValueObserver *observer, const QString &keyPath);

    // Announcements; a change is bracketed by both, for each key, and the old
    // value is read at willChange time.
    void willChangeValueForKey(const QString &key);
    void didChangeValueForKey(const QString &key);

protected:
    // A property read under the object's own lock.
    template<class T>
    static T guardedGet(QMutex &mutex, const T &field)
    {
        QMutexLocker lock(&mutex);
        return field;
    }
    // A property written under the object's own lock, between its change
    // announcements (which run unlocked, so observers may read it back).
    template<class T>
    void guardedSet(QMutex &mutex, T &field, const T &value, const QString &key)
    {
        willChangeValueForKey(key);
        {
            QMutexLocker lock(&mutex);
            field = value;
        }
        didChangeValueForKey(key);
    }

    // One "key: value" a line (results, log entries) or all on one line.
    virtual bool describesOneKeyPerLine() const = 0;
    virtual bool describesKey(const QString &key) const
    {
        Q_UNUSED(key);
        return true;
    }

private:
    struct Registration
    {
        HXKeyValueObserver *observer;
        QString keyPath;
        bool wantsPrior;
    };
    struct Observation
    {
        std::vector<Registration> registrations;
        std::vector<std::pair<QString, QVariant>> pendingOld;
    };
    std::unique_ptr<Observation> m_observation;
};

// How a value prints in a description: text as it is, lists and maps in
// Foundation's bracketed form, model objects by their own description.
QString HXDescribeValue(const QVariant &value, int indent = 0);

// Lists of model objects travel through valueForKey() as this type.
using HXObjectRef = std::shared_ptr<HXKeyValueObservable>;
using HXObjectList = QList<HXObjectRef>;
// A shared_ptr moves as plain bytes; saying so lets QVariant hold it inline.
Q_DECLARE_TYPEINFO(HXObjectRef, Q_RELOCATABLE_TYPE);
Q_DECLARE_METATYPE(HXObjectRef)
Q_DECLARE_METATYPE(HXObjectList)

// A list of model objects as valueForKey() hands it out.
template<class List>
HXObjectList HXAsObjectList(const List &list)
{
    HXObjectList out;
    out.reserve(list.size());
    for (const auto &item : list)
        out.append(item);
    return out;
}
