// The archive walked object by object: its layout, the class records, and
// each object decoded once and shared. The property-list classes are in
// KeyedUnarchiverValues.cpp, the fields a decoder reads in KeyedUnarchiverCoder.cpp.
#include "KeyedUnarchiver.h"

#include "BinaryPlistReader.h"

using Kind = BinaryPlistDocument::Kind;

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
            haveArchiver = BinaryPlistDocument::isString(value.kind) &&
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
        if (!BinaryPlistDocument::isString(key.kind)) {
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
    if (!BinaryPlistDocument::isString(key.kind)) {
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
        if (k == "$classname" && BinaryPlistDocument::isString(value.kind)) {
            name = m_doc->stringValue(value);
        } else if (k == "$classes" && value.kind == Kind::Array) {
            for (quint64 c = 0; c < value.count; ++c) {
                BinaryPlistDocument::Object s;
                if (m_doc->object(m_doc->reference(value, c), &s, &why) && BinaryPlistDocument::isString(s.kind))
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
