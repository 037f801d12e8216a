// One archived object's fields as a registered decoder reads them.
#include "KeyedUnarchiver.h"

#include <QDateTime>

#include <cstring>

using Kind = BinaryPlistDocument::Kind;

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
