#include "KeyedUnarchiver.h"

#include "BinaryPlistReader.h"
#include "PlistUid.h"

#include <QDateTime>

#include <cstring>

using Kind = BinaryPlistDocument::Kind;

namespace {

bool isString(Kind k)
{
    return k == Kind::AsciiString || k == Kind::Utf16String;
}

} // namespace

KeyedUnarchiver::KeyedUnarchiver(Mode mode)
    : m_mode(mode)
{
}

void KeyedUnarchiver::registerClass(const QString &className, Decoder decoder)
{
    m_decoders.insert(className, std::move(decoder));
}

void KeyedUnarchiver::fail(const QString &why)
{
    if (m_error.isEmpty())
        m_error = why;
}

bool KeyedUnarchiver::open(const QByteArray &bytes)
{
    QString why;
    m_doc = BinaryPlistDocument::open(bytes, &why);
    if (!m_doc) {
        fail(why);
        return false;
    }
    BinaryPlistDocument::Object top;
    if (!m_doc->object(m_doc->topObject(), &top, &why)) {
        fail(why);
        return false;
    }
    if (top.kind != Kind::Dict) {
        fail(QStringLiteral("the property list is not a keyed archive"));
        return false;
    }
    bool haveArchiver = false, haveTop = false, haveObjects = false;
    for (quint64 i = 0; i < top.count; ++i) {
        BinaryPlistDocument::Object key, value;
        if (!m_doc->object(m_doc->reference(top, i), &key, &why) ||
            !m_doc->object(m_doc->reference(top, top.count + i), &value, &why)) {
            fail(why);
            return false;
        }
        if (key.kind != Kind::AsciiString)
            continue;
        const QByteArrayView name = m_doc->asciiView(key);
        if (name == "$archiver") {
            haveArchiver = isString(value.kind) &&
                           m_doc->stringValue(value) == QLatin1StringView("NSKeyedArchiver");
        } else if (name == "$top" && value.kind == Kind::Dict) {
            m_top = value;
            haveTop = true;
        } else if (name == "$objects" && value.kind == Kind::Array) {
            m_objects = value;
            haveObjects = true;
        }
    }
    if (!haveArchiver || !haveTop || !haveObjects) {
        fail(QStringLiteral("the property list is not a keyed archive"));
        return false;
    }
    m_decoded.clear();
    m_state.assign(size_t(m_objects.count), New);
    return true;
}

QVariant KeyedUnarchiver::decodeRoot()
{
    if (failed() || !m_doc)
        return {};
    QString why;
    for (quint64 i = 0; i < m_top.count; ++i) {
        BinaryPlistDocument::Object key, value;
        if (!m_doc->object(m_doc->reference(m_top, i), &key, &why) ||
            !m_doc->object(m_doc->reference(m_top, m_top.count + i), &value, &why)) {
            fail(why);
            return {};
        }
        if (key.kind == Kind::AsciiString && m_doc->asciiView(key) == "root") {
            if (value.kind != Kind::Uid) {
                fail(QStringLiteral("the archive's root is not an object reference"));
                return {};
            }
            QVariant v = decodeUid(m_doc->uidValue(value), 0);
            return failed() ? QVariant() : v;
        }
    }
    fail(QStringLiteral("the archive has no root object"));
    return {};
}

QVariantMap KeyedUnarchiver::decodeTop()
{
    QVariantMap result;
    if (failed() || !m_doc)
        return result;
    QString why;
    for (quint64 i = 0; i < m_top.count && !failed(); ++i) {
        BinaryPlistDocument::Object key;
        if (!m_doc->object(m_doc->reference(m_top, i), &key, &why)) {
            fail(why);
            break;
        }
        if (!isString(key.kind)) {
            fail(QStringLiteral("a key of the archive's top is not a string"));
            break;
        }
        result.insert(m_doc->stringValue(key), decodeRef(m_doc->reference(m_top, m_top.count + i), 0));
    }
    return failed() ? QVariantMap() : result;
}

QVariant KeyedUnarchiver::decodeRef(quint64 bplistRef, int depth)
{
    BinaryPlistDocument::Object o;
    QString why;
    if (!m_doc->object(bplistRef, &o, &why)) {
        fail(why);
        return {};
    }
    if (o.kind == Kind::Uid)
        return decodeUid(m_doc->uidValue(o), depth);
    // An inline value: a number or boolean written with encodeInt: and the like.
    QVariant v = BinaryPlistReader::objectValue(*m_doc, bplistRef, &why);
    if (!why.isEmpty())
        fail(why);
    return v;
}

QVariant KeyedUnarchiver::decodeUid(quint64 uid, int depth)
{
    if (failed())
        return {};
    if (uid >= m_objects.count) {
        fail(QStringLiteral("an archive reference is out of range"));
        return {};
    }
    if (uid == 0)
        return {}; // "$null"
    const quint8 state = m_state[uid];
    switch (state) {
    case Cached:
        return m_decoded.value(uid);
    case Decoding:
        fail(QStringLiteral("the archive contains an object that contains itself"));
        return {};
    default:
        break;
    }
    if (depth > kMaxDepth) {
        fail(QStringLiteral("the archive is nested too deeply"));
        return {};
    }
    BinaryPlistDocument::Object o;
    QString why;
    if (!m_doc->object(m_doc->reference(m_objects, uid), &o, &why)) {
        fail(why);
        return {};
    }
    m_state[uid] = Decoding;
    m_decodedRegistered = false;
    QVariant v = decodeEntry(uid, o, depth);
    if (failed())
        return {};
    // Objects of registered classes keep their identity, so they are kept
    // from the first time. Anything else is kept once it is met a second
    // time: most values are referenced once, and a value referenced many
    // times is still decoded at most twice.
    if (m_decodedRegistered || state == SeenOnce) {
        m_state[uid] = Cached;
        m_decoded.insert(uid, v);
    } else {
        m_state[uid] = SeenOnce;
    }
    return v;
}

bool KeyedUnarchiver::loadFields(const BinaryPlistDocument::Object &dict, Coder *coder)
{
    coder->m_fields.reserve(qsizetype(dict.count));
    for (quint64 i = 0; i < dict.count; ++i) {
        QByteArrayView view;
        if (!keyView(m_doc->reference(dict, i), &view))
            return false;
        coder->m_fields.push_back({view, m_doc->reference(dict, dict.count + i)});
    }
    return true;
}

bool KeyedUnarchiver::keyView(quint64 bplistRef, QByteArrayView *out)
{
    KeySlot &slot = m_keys[bplistRef % m_keys.size()];
    if (slot.ref == bplistRef) {
        *out = slot.view;
        return true;
    }
    BinaryPlistDocument::Object key;
    QString why;
    if (!m_doc->object(bplistRef, &key, &why)) {
        fail(why);
        return false;
    }
    if (!isString(key.kind)) {
        fail(QStringLiteral("a key of an archived object is not a string"));
        return false;
    }
    // Keys are ASCII in every archive Foundation writes; others cannot match.
    *out = key.kind == Kind::AsciiString ? m_doc->asciiView(key) : QByteArrayView();
    slot = {bplistRef, *out};
    return true;
}

const KeyedUnarchiver::ClassInfo *KeyedUnarchiver::resolveClass(quint64 classUid)
{
    if (auto it = m_classes.find(classUid); it != m_classes.end())
        return &it->second;
    auto broken = [this]() -> const ClassInfo * {
        fail(QStringLiteral("an archived object has a damaged class record"));
        return nullptr;
    };
    if (classUid == 0 || classUid >= m_objects.count)
        return broken();
    BinaryPlistDocument::Object rec;
    QString why;
    if (!m_doc->object(m_doc->reference(m_objects, classUid), &rec, &why) ||
        rec.kind != Kind::Dict)
        return broken();
    QString name;
    QStringList chain;
    for (quint64 i = 0; i < rec.count; ++i) {
        BinaryPlistDocument::Object key, value;
        if (!m_doc->object(m_doc->reference(rec, i), &key, &why) ||
            !m_doc->object(m_doc->reference(rec, rec.count + i), &value, &why))
            return broken();
        if (key.kind != Kind::AsciiString)
            continue;
        const QByteArrayView k = m_doc->asciiView(key);
        if (k == "$classname" && isString(value.kind)) {
            name = m_doc->stringValue(value);
        } else if (k == "$classes" && value.kind == Kind::Array) {
            for (quint64 c = 0; c < value.count; ++c) {
                BinaryPlistDocument::Object s;
                if (m_doc->object(m_doc->reference(value, c), &s, &why) && isString(s.kind))
                    chain.append(m_doc->stringValue(s));
            }
        }
    }
    if (name.isEmpty())
        return broken();

    static const QHash<QString, ValueKind> secureValueClasses{
        {QStringLiteral("NSString"), ValueKind::String},
        {QStringLiteral("NSMutableString"), ValueKind::String},
        {QStringLiteral("NSDate"), ValueKind::Date},
        {QStringLiteral("NSData"), ValueKind::Data},
        {QStringLiteral("NSMutableData"), ValueKind::Data},
        {QStringLiteral("NSArray"), ValueKind::List},
        {QStringLiteral("NSMutableArray"), ValueKind::List},
        {QStringLiteral("NSDictionary"), ValueKind::Dictionary},
        {QStringLiteral("NSMutableDictionary"), ValueKind::Dictionary},
        {QStringLiteral("NSNull"), ValueKind::Null},
    };
    // Only for inspecting foreign archives: sets read as lists.
    static const QHash<QString, ValueKind> permissiveExtras{
        {QStringLiteral("NSSet"), ValueKind::List},
        {QStringLiteral("NSMutableSet"), ValueKind::List},
        {QStringLiteral("NSOrderedSet"), ValueKind::List},
        {QStringLiteral("NSMutableOrderedSet"), ValueKind::List},
    };
    auto lookUp = [&](const QString &c) -> std::optional<ClassInfo> {
        if (auto it = m_decoders.constFind(c); it != m_decoders.cend())
            return ClassInfo{c, ValueKind::Registered, &*it};
        if (auto it = secureValueClasses.constFind(c); it != secureValueClasses.cend())
            return ClassInfo{c, *it, nullptr};
        if (m_mode == Mode::Permissive) {
            if (auto it = permissiveExtras.constFind(c); it != permissiveExtras.cend())
                return ClassInfo{c, *it, nullptr};
        }
        return std::nullopt;
    };

    std::optional<ClassInfo> info = lookUp(name);
    if (!info) {
        if (m_mode == Mode::Secure) {
            fail(QStringLiteral("the archive contains an object of class \u201c%1\u201d, which it "
                                "may not hold")
                     .arg(name.left(100)));
            return nullptr;
        }
        for (const QString &c : std::as_const(chain)) {
            if ((info = lookUp(c)))
                break;
        }
        if (!info)
            info = ClassInfo{name, ValueKind::Fields, nullptr};
    }
    return &m_classes.emplace(classUid, std::move(*info)).first->second;
}

QVariant KeyedUnarchiver::decodeEntry(quint64 uid, const BinaryPlistDocument::Object &o, int depth)
{
    Q_UNUSED(uid);
    QString why;
    switch (o.kind) {
    case Kind::AsciiString:
    case Kind::Utf16String:
        return m_doc->stringValue(o);
    case Kind::Dict:
        break;
    case Kind::Uid:
        fail(QStringLiteral("an archived object is a bare reference"));
        return {};
    case Kind::Array:
    case Kind::Set:
        if (m_mode == Mode::Secure) {
            fail(QStringLiteral("an archived object has no class"));
            return {};
        }
        [[fallthrough]];
    default: {
        QVariant v = BinaryPlistReader::objectValue(*m_doc, m_doc->reference(m_objects, uid), &why);
        if (!why.isEmpty())
            fail(why);
        return v;
    }
    }

    Coder coder(*this, QString());
    coder.m_depth = depth;
    if (!loadFields(o, &coder))
        return {};
    const Coder::Field *classField = coder.find(QLatin1StringView("$class"));
    if (!classField) {
        if (m_mode == Mode::Secure) {
            fail(QStringLiteral("an archived object has no class"));
            return {};
        }
        QVariant v = BinaryPlistReader::objectValue(*m_doc, m_doc->reference(m_objects, uid), &why);
        if (!why.isEmpty())
            fail(why);
        return v;
    }
    quint64 classUid = 0;
    if (!m_doc->uidAt(classField->valueRef, &classUid)) {
        fail(QStringLiteral("an archived object has a damaged class record"));
        return {};
    }
    const ClassInfo *info = resolveClass(classUid);
    if (!info)
        return {};
    coder.m_className = info->name;
    if (info->kind == ValueKind::Registered) {
        QVariant v = (*info->decoder)(coder);
        m_decodedRegistered = true; // set after the decoder, which may decode others
        return v;
    }
    if (info->kind != ValueKind::Fields)
        return decodeValueClass(info->kind, coder);

    // Permissive: a class nobody here knows, kept as its fields.
    QVariantMap fields;
    fields.insert(QStringLiteral("$class"), info->name);
    for (const Coder::Field &f : coder.m_fields) {
        if (f.key == "$class")
            continue;
        fields.insert(QString::fromLatin1(f.key), decodeRef(f.valueRef, depth + 1));
        if (failed())
            return {};
    }
    return fields;
}

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
        if (plainField(QLatin1StringView("NS.string"), &v) && isString(v.kind))
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

// --- Coder ---

const KeyedUnarchiver::Coder::Field *KeyedUnarchiver::Coder::find(QLatin1StringView key) const
{
    const qsizetype n = key.size();
    const char *k = key.data();
    auto matches = [n, k](const Field &f) {
        return f.key.size() == n && std::memcmp(f.key.data(), k, size_t(n)) == 0;
    };
    // Objects of one class list their keys in one order: try where this key
    // (a literal, so one address) was found last time before scanning.
    FindHint &hint = m_owner.m_findHints[(quintptr(k) >> 3) % m_owner.m_findHints.size()];
    if (hint.key == k && hint.index < m_fields.size() && matches(m_fields[hint.index]))
        return &m_fields[hint.index];
    for (qsizetype i = 0; i < m_fields.size(); ++i) {
        if (matches(m_fields[i])) {
            hint = {k, i};
            return &m_fields[i];
        }
    }
    return nullptr;
}

bool KeyedUnarchiver::Coder::wrongType(QLatin1StringView key, const char *expected)
{
    m_owner.fail(QStringLiteral("an object of class \u201c%1\u201d holds something other than %2 "
                                "under \u201c%3\u201d")
                     .arg(m_className, QLatin1StringView(expected), key));
    return false;
}

QVariant KeyedUnarchiver::Coder::decodeObject(QLatin1StringView key)
{
    const Field *f = find(key);
    if (!f || m_owner.failed())
        return {};
    quint64 uid = 0;
    if (!m_owner.m_doc->uidAt(f->valueRef, &uid)) {
        wrongType(key, "an object reference");
        return {};
    }
    return m_owner.decodeUid(uid, m_depth + 1);
}

bool KeyedUnarchiver::Coder::decodeString(QLatin1StringView key, QString *out)
{
    const QVariant v = decodeObject(key);
    if (m_owner.failed())
        return false;
    if (!v.isValid())
        return true;
    if (v.metaType().id() != QMetaType::QString)
        return wrongType(key, "text");
    *out = *static_cast<const QString *>(v.constData());
    return true;
}

bool KeyedUnarchiver::Coder::decodeDate(QLatin1StringView key, QDateTime *out)
{
    const QVariant v = decodeObject(key);
    if (m_owner.failed())
        return false;
    if (!v.isValid())
        return true;
    if (v.metaType().id() != QMetaType::QDateTime)
        return wrongType(key, "a date");
    *out = *static_cast<const QDateTime *>(v.constData());
    return true;
}

bool KeyedUnarchiver::Coder::hasObject(QLatin1StringView key) const
{
    const Field *f = find(key);
    quint64 uid = 0;
    return f && m_owner.m_doc->uidAt(f->valueRef, &uid) && uid != 0;
}

bool KeyedUnarchiver::Coder::referencedUid(QLatin1StringView key, quint64 *uid)
{
    const Field *f = find(key);
    if (!f)
        return false;
    if (!m_owner.m_doc->uidAt(f->valueRef, uid))
        return wrongType(key, "an object reference");
    return true;
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

qint64 KeyedUnarchiver::Coder::decodeInt64(QLatin1StringView key)
{
    const Field *f = find(key);
    BinaryPlistDocument::Object o;
    QString why;
    if (!f || !m_owner.m_doc->object(f->valueRef, &o, &why))
        return 0;
    if (o.kind == Kind::Int) {
        bool u = false, ok = false;
        const qint64 v = m_owner.m_doc->intValue(o, &u, &ok);
        return ok ? v : 0;
    }
    if (o.kind == Kind::Bool)
        return m_owner.m_doc->boolValue(o) ? 1 : 0;
    return 0;
}

bool KeyedUnarchiver::Coder::decodeBool(QLatin1StringView key)
{
    return decodeInt64(key) != 0;
}

