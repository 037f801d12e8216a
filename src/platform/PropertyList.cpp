#include "PropertyList.h"

#include "BinaryPlistReader.h"
#include "PlistUid.h"

#include <QDateTime>

#include <plist/plist.h>

#include <cmath>

#include <memory>

namespace {

struct PlistFree
{
    void operator()(plist_t p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

QVariant fromNode(plist_t node, int depth, QString *error)
{
    if (depth > BinaryPlistReader::kMaxDepth) {
        *error = QStringLiteral("the property list is nested too deeply");
        return {};
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return bool(b);
    }
    case PLIST_UINT: {
        uint64_t v = 0;
        plist_get_uint_val(node, &v);
        return QVariant::fromValue(qint64(v));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return d;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        uint64_t len = 0;
        const char *s = plist_get_string_ptr(node, &len);
        return QString::fromUtf8(s, qsizetype(len));
    }
    case PLIST_DATA: {
        char *bytes = nullptr;
        uint64_t len = 0;
        plist_get_data_val(node, &bytes, &len);
        QByteArray data(bytes, qsizetype(len));
        free(bytes);
        return data;
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return plistDateFromSeconds(double(sec) + double(usec) / 1e6);
    }
    case PLIST_UID: {
        uint64_t v = 0;
        plist_get_uid_val(node, &v);
        return QVariant::fromValue(PlistUid{v});
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t n = plist_array_get_size(node);
        for (uint32_t i = 0; i < n && error->isEmpty(); ++i)
            list.append(fromNode(plist_array_get_item(node, i), depth + 1, error));
        return list;
    }
    case PLIST_DICT: {
        // Apple's XML form of a keyed archive's UID.
        if (plist_dict_get_size(node) == 1) {
            plist_t uid = plist_dict_get_item(node, "CF$UID");
            if (uid && plist_get_node_type(uid) == PLIST_UINT) {
                uint64_t v = 0;
                plist_get_uint_val(uid, &v);
                return QVariant::fromValue(PlistUid{v});
            }
        }
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char *key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!key)
                break;
            map.insert(QString::fromUtf8(key), fromNode(value, depth + 1, error));
            free(key);
        }
        free(it);
        return map;
    }
    case PLIST_NONE:
        break;
    }
    *error = QStringLiteral("the property list holds a value of unknown type");
    return {};
}

plist_t toNode(const QVariant &v, QString *error)
{
    switch (v.metaType().id()) {
    case QMetaType::Bool:
        return plist_new_bool(v.toBool());
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return plist_new_uint(v.toULongLong());
    case QMetaType::Double:
        return plist_new_real(v.toDouble());
    case QMetaType::QString:
        return plist_new_string(v.toString().toUtf8().constData());
    case QMetaType::QByteArray: {
        const QByteArray b = v.toByteArray();
        return plist_new_data(b.constData(), uint64_t(b.size()));
    }
    case QMetaType::QDateTime: {
        // libplist 2.2 keeps dates as seconds since 2001 in 32 bits.
        const double s = plistSecondsFromDate(v.toDateTime());
        const auto whole = qint64(std::floor(s));
        return plist_new_date(int32_t(whole), int32_t(std::lround((s - double(whole)) * 1e6)));
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t a = plist_new_array();
        for (const QVariant &e : v.toList()) {
            plist_t n = toNode(e, error);
            if (!n) {
                plist_free(a);
                return nullptr;
            }
            plist_array_append_item(a, n);
        }
        return a;
    }
    case QMetaType::QVariantMap: {
        plist_t d = plist_new_dict();
        const QVariantMap map = v.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            plist_t n = toNode(it.value(), error);
            if (!n) {
                plist_free(d);
                return nullptr;
            }
            plist_dict_set_item(d, it.key().toUtf8().constData(), n);
        }
        return d;
    }
    default:
        if (v.metaType() == QMetaType::fromType<PlistUid>())
            return plist_new_uid(v.value<PlistUid>().value);
        *error = QStringLiteral("a value has no XML property-list form");
        return nullptr;
    }
}

} // namespace

QVariant readPropertyList(const QByteArray &bytes, QString *error)
{
    if (bytes.startsWith("bplist"))
        return BinaryPlistReader::read(bytes, error);
    if (bytes.size() > std::numeric_limits<uint32_t>::max()) {
        *error = QStringLiteral("the property list is too large");
        return {};
    }
    plist_t root = nullptr;
    plist_from_xml(bytes.constData(), uint32_t(bytes.size()), &root);
    if (!root) {
        if (error)
            *error = QStringLiteral("the data is not a property list in a format this program "
                                    "reads");
        return {};
    }
    PlistPtr holder(root);
    QString why;
    QVariant v = fromNode(root, 0, &why);
    if (!why.isEmpty()) {
        if (error)
            *error = why;
        return {};
    }
    return v;
}

QByteArray writeXmlPropertyList(const QVariant &value, QString *error)
{
    QString why;
    PlistPtr root(toNode(value, &why));
    if (!root) {
        if (error)
            *error = why;
        return {};
    }
    char *xml = nullptr;
    uint32_t len = 0;
    plist_to_xml(root.get(), &xml, &len);
    QByteArray out(xml, qsizetype(len));
    plist_to_xml_free(xml);
    return out;
}
