#pragma once

#include "BinaryPlistWriter.h"

#include <QHash>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <array>
#include <vector>

class KeyedArchiver;

// An object that can be written into a keyed archive under its own class name.
class KeyedArchivable
{
public:
    virtual ~KeyedArchivable() = default;
    virtual QString archiveClassName() const = 0;
    // The class chain written as "$classes"; the class and its bases.
    virtual QStringList archiveClassChain() const
    {
        return {archiveClassName(), QStringLiteral("NSObject")};
    }
    virtual void encodeWithArchiver(KeyedArchiver &archiver) const = 0;
};

// Writes Apple's keyed-archive layout ("$archiver" "NSKeyedArchiver",
// "$version" 100000, "$top", "$objects" with "$null" first, class records with
// "$classname" and "$classes") as a binary property list that Foundation's
// unarchiver reads. Property-list values are archived the way Foundation
// archives the matching classes: strings, numbers and data as plain objects,
// dates as NSDate with "NS.time", lists as NSArray and maps as NSDictionary
// with "NS.objects" and "NS.keys", null as NSNull.
//
// The same object (by address) and equal strings are archived once and
// shared by reference; an object that contains itself is written as a
// reference cycle, as Foundation does.
class KeyedArchiver
{
public:
    KeyedArchiver();

    QByteArray archiveRootObject(const KeyedArchivable &root);
    // A property-list value as the root (a dictionary becomes an NSDictionary).
    QByteArray archiveRootValue(const QVariant &root);

    // Only inside encodeWithArchiver(). Keys should be QStringLiteral constants.
    void encodeObject(const QString &key, const KeyedArchivable *object);
    // A property-list value as an object; an invalid QVariant encodes nil, a
    // value of a type with no property-list form is encoded as nil too.
    void encodeValue(const QString &key, const QVariant &value);
    void encodeInt64(const QString &key, qint64 value);
    void encodeBool(const QString &key, bool value);
    void encodeDouble(const QString &key, double value);

    // A list of archivable objects as an NSMutableArray (the model's mutable
    // lists) or NSArray.
    template<class List>
    void encodeObjectList(const QString &key, const List &list, bool isMutable = true)
    {
        std::vector<const KeyedArchivable *> objects;
        objects.reserve(size_t(list.size()));
        for (const auto &item : list)
            objects.push_back(&*item);
        encodeObjectPointers(key, objects, isMutable);
    }

private:
    struct Frame
    {
        quint64 uid = 0;
        std::vector<BinaryPlistWriter::Ref> keys;
        std::vector<BinaryPlistWriter::Ref> values;
    };

    void encodeObjectPointers(const QString &key, const std::vector<const KeyedArchivable *> &objects,
                              bool isMutable);
    quint64 archiveObject(const KeyedArchivable *object);
    quint64 archiveValue(const QVariant &value, int depth);
    quint64 newSlot(BinaryPlistWriter::Ref ref);
    quint64 classUid(const QString &name, const QStringList &chain);
    // Starts an object entry whose fields follow; returns its UID.
    quint64 beginEntry(const QString &className, const QStringList &chain);
    void endEntry(quint64 uid);
    void field(const QString &key, BinaryPlistWriter::Ref value);
    QByteArray finish(quint64 rootUid);

    BinaryPlistWriter::Ref keyRef(const QString &key);

    BinaryPlistWriter m_writer;
    // Keys are nearly always the same few literals: found by the address of
    // their characters before any hashing.
    struct KeySlot
    {
        const QChar *chars = nullptr;
        QString text;
        BinaryPlistWriter::Ref ref = 0;
    };
    std::array<KeySlot, 64> m_keySlots;
    std::vector<BinaryPlistWriter::Ref> m_objects; // index = UID
    std::vector<Frame> m_frames; // reused between objects; m_depth are in use
    size_t m_depth = 0;
    QHash<const void *, quint64> m_objectUids;
    QHash<QString, quint64> m_stringUids;
    QHash<QString, quint64> m_classUids;
    BinaryPlistWriter::Ref m_topRef = 0;
};
