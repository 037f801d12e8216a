#include "KeyedArchiver.h"

#include "BinaryPlistReader.h"

#include <QDateTime>

#include <cstring>

namespace {

const QString kClassKey = QStringLiteral("$class");

const QStringList &arrayChain(bool isMutable)
{
    static const QStringList immutable{QStringLiteral("NSArray"), QStringLiteral("NSObject")};
    static const QStringList mut{QStringLiteral("NSMutableArray"), QStringLiteral("NSArray"),
                                 QStringLiteral("NSObject")};
    return isMutable ? mut : immutable;
}

} // namespace

KeyedArchiver::KeyedArchiver()
{
    // The top dictionary comes first, as in Foundation's files.
    m_topRef = m_writer.reserve();
    m_objects.push_back(m_writer.string(QStringLiteral("$null")));
}

quint64 KeyedArchiver::newSlot(BinaryPlistWriter::Ref ref)
{
    m_objects.push_back(ref);
    return m_objects.size() - 1;
}

quint64 KeyedArchiver::classUid(const QString &name, const QStringList &chain)
{
    if (auto it = m_classUids.constFind(name); it != m_classUids.cend())
        return *it;
    std::vector<BinaryPlistWriter::Ref> chainRefs;
    chainRefs.reserve(size_t(chain.size()));
    const auto self = m_writer.reserve();
    const quint64 uid = newSlot(self);
    const BinaryPlistWriter::Ref keys[] = {m_writer.string(QStringLiteral("$classes")),
                                           m_writer.string(QStringLiteral("$classname"))};
    for (const QString &c : chain)
        chainRefs.push_back(m_writer.string(c));
    const BinaryPlistWriter::Ref values[] = {m_writer.array(chainRefs), m_writer.string(name)};
    m_writer.setDict(self, keys, values);
    m_classUids.insert(name, uid);
    return uid;
}

quint64 KeyedArchiver::beginEntry(const QString &className, const QStringList &chain)
{
    const quint64 uid = newSlot(m_writer.reserve());
    if (m_frames.size() <= m_depth)
        m_frames.emplace_back();
    Frame &f = m_frames[m_depth++];
    f.uid = uid;
    f.keys.clear();
    f.values.clear();
    const quint64 cls = classUid(className, chain);
    f.keys.push_back(keyRef(kClassKey));
    f.values.push_back(m_writer.uid(cls));
    return uid;
}

void KeyedArchiver::endEntry(quint64 uid)
{
    Frame &f = m_frames[--m_depth];
    Q_ASSERT(f.uid == uid);
    m_writer.setDict(m_objects[uid], f.keys, f.values);
}

BinaryPlistWriter::Ref KeyedArchiver::keyRef(const QString &key)
{
    // Literal keys (no allocated buffer) keep their characters at one
    // address; the saved copy guards against a buffer reused for other text.
    if (key.capacity() == 0 && !key.isEmpty()) {
        const QChar *chars = key.constData();
        KeySlot &slot = m_keySlots[(quintptr(chars) >> 3) % m_keySlots.size()];
        if (slot.chars == chars && slot.text.size() == key.size() &&
            std::memcmp(slot.text.constData(), chars, size_t(key.size()) * sizeof(QChar)) == 0)
            return slot.ref;
        slot = {chars, QString(chars, key.size()), m_writer.string(key)};
        return slot.ref;
    }
    return m_writer.string(key);
}

void KeyedArchiver::field(const QString &key, BinaryPlistWriter::Ref value)
{
    Q_ASSERT(m_depth > 0);
    Frame &f = m_frames[m_depth - 1];
    f.keys.push_back(keyRef(key));
    f.values.push_back(value);
}

quint64 KeyedArchiver::archiveObject(const KeyedArchivable *object)
{
    if (!object)
        return 0;
    if (auto it = m_objectUids.constFind(object); it != m_objectUids.cend())
        return *it;
    const quint64 uid = beginEntry(object->archiveClassName(), object->archiveClassChain());
    m_objectUids.insert(object, uid);
    object->encodeWithArchiver(*this);
    endEntry(uid);
    return uid;
}

quint64 KeyedArchiver::archiveValue(const QVariant &value, int depth)
{
    if (!value.isValid() || depth > BinaryPlistReader::kMaxDepth)
        return 0;
    switch (value.metaType().id()) {
    case QMetaType::QString: {
        const QString s = value.toString();
        if (auto it = m_stringUids.constFind(s); it != m_stringUids.cend())
            return *it;
        // Unique here already, so the writer need not look for an equal one.
        const quint64 uid = newSlot(m_writer.distinctString(s));
        m_stringUids.insert(s, uid);
        return uid;
    }
    case QMetaType::Bool:
        return newSlot(m_writer.boolean(value.toBool()));
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Long:
    case QMetaType::Short:
        return newSlot(m_writer.integer(value.toLongLong()));
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::ULong:
    case QMetaType::UShort:
        return newSlot(m_writer.unsignedInteger(value.toULongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return newSlot(m_writer.real(value.toDouble()));
    case QMetaType::QByteArray:
        return newSlot(m_writer.data(value.toByteArray()));
    case QMetaType::QDateTime: {
        static const QStringList chain{QStringLiteral("NSDate"), QStringLiteral("NSObject")};
        const quint64 uid = beginEntry(QStringLiteral("NSDate"), chain);
        field(QStringLiteral("NS.time"), m_writer.real(plistSecondsFromDate(value.toDateTime())));
        endEntry(uid);
        return uid;
    }
    case QMetaType::Nullptr: {
        static const QStringList chain{QStringLiteral("NSNull"), QStringLiteral("NSObject")};
        const quint64 uid = beginEntry(QStringLiteral("NSNull"), chain);
        endEntry(uid);
        return uid;
    }
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        const QVariantList list = value.toList();
        const quint64 uid = beginEntry(QStringLiteral("NSArray"), arrayChain(false));
        std::vector<BinaryPlistWriter::Ref> refs;
        refs.reserve(size_t(list.size()));
        for (const QVariant &e : list)
            refs.push_back(m_writer.uid(archiveValue(e, depth + 1)));
        field(QStringLiteral("NS.objects"), m_writer.array(refs));
        endEntry(uid);
        return uid;
    }
    case QMetaType::QVariantMap: {
        static const QStringList chain{QStringLiteral("NSDictionary"), QStringLiteral("NSObject")};
        const QVariantMap map = value.toMap();
        const quint64 uid = beginEntry(QStringLiteral("NSDictionary"), chain);
        std::vector<BinaryPlistWriter::Ref> keys, values;
        keys.reserve(size_t(map.size()));
        values.reserve(size_t(map.size()));
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            keys.push_back(m_writer.uid(archiveValue(it.key(), depth + 1)));
            values.push_back(m_writer.uid(archiveValue(it.value(), depth + 1)));
        }
        field(QStringLiteral("NS.keys"), m_writer.array(keys));
        field(QStringLiteral("NS.objects"), m_writer.array(values));
        endEntry(uid);
        return uid;
    }
    default:
        return 0;
    }
}

void KeyedArchiver::encodeObject(const QString &key, const KeyedArchivable *object)
{
    const quint64 uid = archiveObject(object);
    field(key, m_writer.uid(uid));
}

void KeyedArchiver::encodeValue(const QString &key, const QVariant &value)
{
    const quint64 uid = archiveValue(value, 0);
    field(key, m_writer.uid(uid));
}

void KeyedArchiver::encodeInt64(const QString &key, qint64 value)
{
    field(key, m_writer.integer(value));
}

void KeyedArchiver::encodeBool(const QString &key, bool value)
{
    field(key, m_writer.boolean(value));
}

void KeyedArchiver::encodeDouble(const QString &key, double value)
{
    field(key, m_writer.real(value));
}

void KeyedArchiver::encodeObjectPointers(const QString &key,
                                         const std::vector<const KeyedArchivable *> &objects,
                                         bool isMutable)
{
    const quint64 uid = beginEntry(arrayChain(isMutable).first(), arrayChain(isMutable));
    std::vector<BinaryPlistWriter::Ref> refs;
    refs.reserve(objects.size());
    for (const KeyedArchivable *o : objects)
        refs.push_back(m_writer.uid(archiveObject(o)));
    field(QStringLiteral("NS.objects"), m_writer.array(refs));
    endEntry(uid);
    field(key, m_writer.uid(uid));
}

QByteArray KeyedArchiver::finish(quint64 rootUid)
{
    const BinaryPlistWriter::Ref topKeys[] = {m_writer.string(QStringLiteral("root"))};
    const BinaryPlistWriter::Ref topValues[] = {m_writer.uid(rootUid)};
    const auto top = m_writer.dict(topKeys, topValues);
    const auto objects = m_writer.array(m_objects);
    const BinaryPlistWriter::Ref keys[] = {
        m_writer.string(QStringLiteral("$version")), m_writer.string(QStringLiteral("$archiver")),
        m_writer.string(QStringLiteral("$top")), m_writer.string(QStringLiteral("$objects"))};
    const BinaryPlistWriter::Ref values[] = {
        m_writer.integer(100000), m_writer.string(QStringLiteral("NSKeyedArchiver")), top,
        objects};
    m_writer.setDict(m_topRef, keys, values);
    return m_writer.finish(m_topRef);
}

QByteArray KeyedArchiver::archiveRootObject(const KeyedArchivable &root)
{
    return finish(archiveObject(&root));
}

QByteArray KeyedArchiver::archiveRootValue(const QVariant &root)
{
    return finish(archiveValue(root, 0));
}
