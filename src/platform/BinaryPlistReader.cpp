#include "BinaryPlistReader.h"

#include "PlistUid.h"

#include <QDateTime>
#include <QHash>

#include <algorithm>
#include <cmath>
#include <vector>

QVariant plistNull()
{
    return QVariant::fromValue(nullptr);
}

bool isPlistNull(const QVariant &v)
{
    return v.metaType() == QMetaType::fromType<std::nullptr_t>();
}

bool isPropertyListValue(const QVariant &v)
{
    switch (v.metaType().id()) {
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Int:
    case QMetaType::Double:
    case QMetaType::QString:
    case QMetaType::QDateTime:
    case QMetaType::QByteArray:
    case QMetaType::Nullptr:
        return true;
    case QMetaType::QVariantList: {
        const QVariantList list = v.toList();
        return std::all_of(list.cbegin(), list.cend(), isPropertyListValue);
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = v.toMap();
        return std::all_of(map.cbegin(), map.cend(), isPropertyListValue);
    }
    default:
        return false;
    }
}

QDateTime plistDateFromSeconds(double secondsSince2001)
{
    // About ±31 million years: far inside QDateTime's range, far outside any
    // date a report holds.
    if (!std::isfinite(secondsSince2001) || std::fabs(secondsSince2001) > 1e15)
        return {};
    const auto msecs = qint64(std::llround(secondsSince2001 * 1000.0));
    return QDateTime::fromMSecsSinceEpoch(msecs + kPlistEpochOffsetSeconds * 1000, Qt::UTC);
}

double plistSecondsFromDate(const QDateTime &date)
{
    return double(date.toMSecsSinceEpoch() - kPlistEpochOffsetSeconds * 1000) / 1000.0;
}

namespace {

class VariantBuilder
{
public:
    explicit VariantBuilder(const BinaryPlistDocument &doc)
        : m_doc(doc)
        , m_inProgress(doc.objectCount(), false)
    {
    }

    QVariant build(quint64 ref, int depth)
    {
        if (!m_error.isEmpty())
            return {};
        if (depth > BinaryPlistReader::kMaxDepth)
            return fail(QStringLiteral("the property list is nested too deeply"));
        BinaryPlistDocument::Object o;
        if (!m_doc.object(ref, &o, &m_error))
            return {};
        using K = BinaryPlistDocument::Kind;
        switch (o.kind) {
        case K::Null:
            return plistNull();
        case K::Bool:
            return m_doc.boolValue(o);
        case K::Int: {
            bool isUnsigned = false, ok = false;
            const qint64 v = m_doc.intValue(o, &isUnsigned, &ok);
            if (!ok)
                return fail(QStringLiteral("an integer in the property list is too large"));
            if (isUnsigned)
                return QVariant::fromValue(quint64(v));
            return QVariant::fromValue(v);
        }
        case K::Real:
            return m_doc.realValue(o);
        case K::Date: {
            const QDateTime d = plistDateFromSeconds(m_doc.realValue(o));
            if (!d.isValid())
                return fail(QStringLiteral("a date in the property list is out of range"));
            return d;
        }
        case K::Data:
            return m_doc.dataValue(o);
        case K::AsciiString:
        case K::Utf16String:
            return m_doc.stringValue(o);
        case K::Uid:
            return QVariant::fromValue(PlistUid{m_doc.uidValue(o)});
        case K::Array:
        case K::Set:
        case K::Dict:
            return container(ref, o, depth);
        }
        return {};
    }

    const QString &error() const { return m_error; }

private:
    QVariant fail(const QString &why)
    {
        if (m_error.isEmpty())
            m_error = why;
        return {};
    }

    QVariant container(quint64 ref, const BinaryPlistDocument::Object &o, int depth)
    {
        if (auto it = m_done.constFind(ref); it != m_done.cend())
            return *it;
        if (m_inProgress[ref])
            return fail(QStringLiteral("the property list contains a container that "
                                       "contains itself"));
        m_inProgress[ref] = true;
        QVariant result;
        if (o.kind == BinaryPlistDocument::Kind::Dict) {
            QVariantMap map;
            for (quint64 i = 0; i < o.count && m_error.isEmpty(); ++i) {
                BinaryPlistDocument::Object key;
                const quint64 keyRef = m_doc.reference(o, i);
                if (!m_doc.object(keyRef, &key, &m_error))
                    break;
                if (key.kind != BinaryPlistDocument::Kind::AsciiString &&
                    key.kind != BinaryPlistDocument::Kind::Utf16String) {
                    fail(QStringLiteral("a dictionary key in the property list is not a string"));
                    break;
                }
                QVariant value = build(m_doc.reference(o, o.count + i), depth + 1);
                map.insert(m_doc.stringValue(key), std::move(value));
            }
            result = std::move(map);
        } else {
            QVariantList list;
            list.reserve(qsizetype(o.count));
            for (quint64 i = 0; i < o.count && m_error.isEmpty(); ++i)
                list.append(build(m_doc.reference(o, i), depth + 1));
            result = std::move(list);
        }
        m_inProgress[ref] = false;
        if (!m_error.isEmpty())
            return {};
        m_done.insert(ref, result);
        return result;
    }

    const BinaryPlistDocument &m_doc;
    std::vector<bool> m_inProgress;
    QHash<quint64, QVariant> m_done;
    QString m_error;
};

} // namespace

QVariant BinaryPlistReader::objectValue(const BinaryPlistDocument &doc, quint64 ref,
                                        QString *error)
{
    VariantBuilder builder(doc);
    QVariant v = builder.build(ref, 0);
    if (!builder.error().isEmpty()) {
        if (error)
            *error = builder.error();
        return {};
    }
    return v;
}

QVariant BinaryPlistReader::read(const QByteArray &bytes, QString *error)
{
    const auto doc = BinaryPlistDocument::open(bytes, error);
    if (!doc)
        return {};
    return objectValue(*doc, doc->topObject(), error);
}
