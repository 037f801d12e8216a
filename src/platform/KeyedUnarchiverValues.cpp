// The property-list classes of an archive (lists, dictionaries, strings,
// dates, data, null) decoded to plain values, and lists walked in place.
#include "KeyedUnarchiver.h"

#include "BinaryPlistReader.h"

#include <QDateTime>

using Kind = BinaryPlistDocument::Kind;

template<class Take>
bool KeyedUnarchiver::forEachReferenced(const BinaryPlistDocument::Object &array, int depth,
                                        Take &&take)
{
    for (quint64 i = 0; i < array.count && !failed(); ++i) {
        quint64 uid = 0;
        if (!m_doc->uidAt(m_doc->reference(array, i), &uid)) {
            fail(QStringLiteral("an archived collection holds something other than object "
                                "references"));
            break;
        }
        QVariant v = decodeUid(uid, depth + 1);
        if (!v.isValid() && !failed()) {
            fail(QStringLiteral("an archived collection holds a nil object"));
            break;
        }
        if (!take(std::move(v)))
            break;
    }
    return !failed();
}

QVariant KeyedUnarchiver::listFromRefs(const BinaryPlistDocument::Object &array, int depth)
{
    QVariantList list;
    list.reserve(qsizetype(array.count));
    if (!forEachReferenced(array, depth, [&](QVariant &&v) {
            list.append(std::move(v));
            return true;
        }))
        return {};
    return list;
}

QVariant KeyedUnarchiver::decodeValueClass(ValueKind kind, Coder &coder)
{
    QString why;
    auto plainField = [&](QLatin1StringView key, BinaryPlistDocument::Object *out) {
        const Coder::Field *f = coder.find(key);
        return f && m_doc->object(f->valueRef, out, &why);
    };
    BinaryPlistDocument::Object v;
    switch (kind) {
    case ValueKind::List:
        if (!plainField(QLatin1StringView("NS.objects"), &v))
            return QVariantList();
        if (v.kind != Kind::Array) {
            fail(QStringLiteral("an archived list is damaged"));
            return {};
        }
        return listFromRefs(v, coder.m_depth);
    case ValueKind::Dictionary: {
        BinaryPlistDocument::Object keys;
        const bool hasKeys = plainField(QLatin1StringView("NS.keys"), &keys);
        const bool hasValues = plainField(QLatin1StringView("NS.objects"), &v);
        if (!hasKeys && !hasValues)
            return QVariantMap();
        if (!hasKeys || !hasValues || keys.kind != Kind::Array || v.kind != Kind::Array ||
            keys.count != v.count) {
            fail(QStringLiteral("an archived dictionary is damaged"));
            return {};
        }
        QVarLengthArray<QString, 16> names;
        if (!forEachReferenced(keys, coder.m_depth, [&](QVariant &&k) {
                if (k.metaType().id() != QMetaType::QString) {
                    fail(QStringLiteral("an archived dictionary has a key that is not text"));
                    return false;
                }
                names.append(k.toString());
                return true;
            }))
            return {};
        QVariantMap map;
        qsizetype i = 0;
        if (!forEachReferenced(v, coder.m_depth, [&](QVariant &&value) {
                map.insert(names[i++], std::move(value));
                return true;
            }))
            return {};
        return map;
    }
    case ValueKind::String:
        if (plainField(QLatin1StringView("NS.string"), &v) && BinaryPlistDocument::isString(v.kind))
            return m_doc->stringValue(v);
        if (plainField(QLatin1StringView("NS.bytes"), &v) && v.kind == Kind::Data)
            return QString::fromUtf8(m_doc->dataValue(v));
        fail(QStringLiteral("an archived string is damaged"));
        return {};
    case ValueKind::Date:
        if (plainField(QLatin1StringView("NS.time"), &v) &&
            (v.kind == Kind::Real || v.kind == Kind::Int)) {
            bool u = false, ok = true;
            const double t = v.kind == Kind::Real ? m_doc->realValue(v)
                                                  : double(m_doc->intValue(v, &u, &ok));
            const QDateTime d = plistDateFromSeconds(t);
            if (d.isValid() && ok)
                return d;
        }
        fail(QStringLiteral("an archived date is damaged"));
        return {};
    case ValueKind::Data:
        if (plainField(QLatin1StringView("NS.data"), &v)) {
            if (v.kind == Kind::Data)
                return m_doc->dataValue(v);
            if (v.kind == Kind::Uid) {
                const QVariant d = decodeUid(m_doc->uidValue(v), coder.m_depth + 1);
                if (d.metaType().id() == QMetaType::QByteArray)
                    return d;
            }
        }
        fail(QStringLiteral("an archived data object is damaged"));
        return {};
    case ValueKind::Null:
        return plistNull();
    case ValueKind::Registered:
    case ValueKind::Fields:
        break;
    }
    return {};
}

bool KeyedUnarchiver::forEachInListAt(quint64 uid, int depth,
                                      const std::function<bool(QVariant &&)> &take,
                                      const QString &what)
{
    if (failed())
        return false;
    if (uid == 0)
        return true;
    auto notAList = [&] {
        fail(QStringLiteral("the archive holds something other than %1").arg(what));
        return false;
    };
    if (uid >= m_objects.count) {
        fail(QStringLiteral("an archive reference is out of range"));
        return false;
    }
    // A list decoded before as a value is walked from there.
    if (m_state[uid] == Cached) {
        const QVariant cached = m_decoded.value(uid);
        if (cached.metaType().id() != QMetaType::QVariantList)
            return notAList();
        for (QVariant v : cached.toList()) {
            if (!take(std::move(v)))
                return false;
        }
        return true;
    }
    if (m_state[uid] == Decoding) {
        fail(QStringLiteral("the archive contains an object that contains itself"));
        return false;
    }
    if (depth > kMaxDepth) {
        fail(QStringLiteral("the archive is nested too deeply"));
        return false;
    }
    BinaryPlistDocument::Object entry, objects;
    QString why;
    if (!m_doc->object(m_doc->reference(m_objects, uid), &entry, &why)) {
        fail(why);
        return false;
    }
    Coder list(*this, QString());
    list.m_depth = depth;
    if (entry.kind != Kind::Dict || !loadFields(entry, &list))
        return failed() ? false : notAList();
    quint64 classUid = 0;
    const Coder::Field *cls = list.find(QLatin1StringView("$class"));
    if (!cls || !m_doc->uidAt(cls->valueRef, &classUid))
        return notAList();
    const ClassInfo *info = resolveClass(classUid);
    if (!info)
        return false;
    if (info->kind != ValueKind::List)
        return notAList();
    const Coder::Field *items = list.find(QLatin1StringView("NS.objects"));
    if (!items)
        return true;
    if (!m_doc->object(items->valueRef, &objects, &why) || objects.kind != Kind::Array) {
        fail(QStringLiteral("an archived list is damaged"));
        return false;
    }
    m_state[uid] = Decoding;
    const bool ok = forEachReferenced(objects, depth, take);
    // Walked, not kept: a second reference decodes it as a value.
    m_state[uid] = SeenOnce;
    return ok && !failed();
}
