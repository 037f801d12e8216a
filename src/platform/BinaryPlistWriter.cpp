#include "BinaryPlistWriter.h"

#include "BinaryPlistReader.h"
#include "PlistUid.h"

#include <QDateTime>
#include <QtEndian>

#include <algorithm>
#include <cstring>

namespace {

constexpr BinaryPlistWriter::Ref kNone = ~BinaryPlistWriter::Ref(0);

int sizeFor(quint64 count)
{
    if (count < (quint64(1) << 8))
        return 1;
    if (count < (quint64(1) << 16))
        return 2;
    if (count < (quint64(1) << 32))
        return 4;
    return 8;
}

quint64 bitsOf(double d)
{
    quint64 bits;
    std::memcpy(&bits, &d, sizeof bits);
    return bits;
}

class Output
{
public:
    explicit Output(qsizetype capacity) { m_bytes.resize(capacity); m_p = m_bytes.data(); }
    void byte(quint8 b) { *m_p++ = char(b); }
    void bytes(const char *src, qsizetype n)
    {
        std::memcpy(m_p, src, size_t(n));
        m_p += n;
    }
    void be(quint64 v, int width)
    {
        switch (width) {
        case 1:
            *m_p = char(quint8(v));
            break;
        case 2:
            qToBigEndian(quint16(v), m_p);
            break;
        case 4:
            qToBigEndian(quint32(v), m_p);
            break;
        default:
            qToBigEndian(v, m_p);
            break;
        }
        m_p += width;
    }
    // A marker whose low nibble holds the count, or 0xF and an integer object.
    void sized(quint8 token, quint64 count)
    {
        if (count < 15) {
            byte(quint8(token | count));
            return;
        }
        byte(token | 0xF);
        const int width = sizeFor(count);
        byte(quint8(0x10 | (width == 1 ? 0 : width == 2 ? 1 : width == 4 ? 2 : 3)));
        be(count, width);
    }
    qsizetype position() const { return m_p - m_bytes.constData(); }
    QByteArray take()
    {
        m_bytes.truncate(position());
        return std::move(m_bytes);
    }

private:
    QByteArray m_bytes;
    char *m_p = nullptr;
};

} // namespace

BinaryPlistWriter::Ref BinaryPlistWriter::add(Kind kind, quint32 count, quint64 value)
{
    m_nodes.push_back(Node{kind, count, value});
    return Ref(m_nodes.size() - 1);
}

BinaryPlistWriter::Ref BinaryPlistWriter::blob(Kind kind, const char *bytes, qsizetype length,
                                               quint32 units)
{
    const auto at = quint64(m_blob.size());
    m_blob.append(bytes, length);
    return add(kind, units, at);
}

BinaryPlistWriter::Ref BinaryPlistWriter::null()
{
    if (m_null == kNone)
        m_null = add(Kind::Null, 0, 0);
    return m_null;
}

BinaryPlistWriter::Ref BinaryPlistWriter::boolean(bool value)
{
    Ref &slot = value ? m_true : m_false;
    if (slot == kNone)
        slot = add(value ? Kind::True : Kind::False, 0, 0);
    return slot;
}

template<class Key>
BinaryPlistWriter::Ref BinaryPlistWriter::shared(QHash<Key, Ref> &seen, Key key, Kind kind,
                                                 quint64 value)
{
    auto it = seen.constFind(key);
    if (it != seen.cend())
        return *it;
    const Ref r = add(kind, 0, value);
    seen.insert(key, r);
    return r;
}

BinaryPlistWriter::Ref BinaryPlistWriter::integer(qint64 value)
{
    return shared(m_ints, value, Kind::Int, quint64(value));
}

BinaryPlistWriter::Ref BinaryPlistWriter::unsignedInteger(quint64 value)
{
    if (value <= quint64(std::numeric_limits<qint64>::max()))
        return integer(qint64(value));
    return shared(m_uints, value, Kind::UInt, value);
}

BinaryPlistWriter::Ref BinaryPlistWriter::real(double value)
{
    return shared(m_reals, bitsOf(value), Kind::Real, bitsOf(value));
}

BinaryPlistWriter::Ref BinaryPlistWriter::date(double secondsSince2001)
{
    return shared(m_dates, bitsOf(secondsSince2001), Kind::Date, bitsOf(secondsSince2001));
}

BinaryPlistWriter::Ref BinaryPlistWriter::data(QByteArrayView bytes)
{
    const QByteArray key = bytes.toByteArray();
    auto it = m_datas.constFind(key);
    if (it != m_datas.cend())
        return *it;
    const Ref r = blob(Kind::Data, bytes.data(), bytes.size(), quint32(bytes.size()));
    m_datas.insert(key, r);
    return r;
}

BinaryPlistWriter::Ref BinaryPlistWriter::string(const QString &text)
{
    auto it = m_strings.constFind(text);
    if (it != m_strings.cend())
        return *it;
    const Ref r = addString(text);
    m_strings.insert(text, r);
    return r;
}

BinaryPlistWriter::Ref BinaryPlistWriter::distinctString(const QString &text)
{
    return addString(text);
}

BinaryPlistWriter::Ref BinaryPlistWriter::addString(const QString &text)
{
    const qsizetype n = text.size();
    const auto *src = reinterpret_cast<const char16_t *>(text.utf16());
    bool ascii = true;
    for (qsizetype i = 0; i < n && ascii; ++i)
        ascii = src[i] < 0x80;
    const auto at = m_blob.size();
    if (ascii) {
        m_blob.resize(at + n);
        char *dst = m_blob.data() + at;
        for (qsizetype i = 0; i < n; ++i)
            dst[i] = char(src[i]);
        return add(Kind::Ascii, quint32(n), quint64(at));
    }
    m_blob.resize(at + 2 * n);
    auto *dst = reinterpret_cast<uchar *>(m_blob.data() + at);
    for (qsizetype i = 0; i < n; ++i) {
        dst[2 * i] = uchar(src[i] >> 8);
        dst[2 * i + 1] = uchar(src[i] & 0xFF);
    }
    return add(Kind::Utf16, quint32(n), quint64(at));
}

BinaryPlistWriter::Ref BinaryPlistWriter::uid(quint64 value)
{
    constexpr quint64 kDense = quint64(1) << 24;
    if (value < kDense) {
        if (value >= m_smallUids.size())
            m_smallUids.resize(std::max<size_t>(size_t(value) + 1, m_smallUids.size() * 2), kNone);
        Ref &slot = m_smallUids[size_t(value)];
        if (slot == kNone)
            slot = add(Kind::Uid, 0, value);
        return slot;
    }
    return shared(m_uids, value, Kind::Uid, value);
}

BinaryPlistWriter::Ref BinaryPlistWriter::reserve()
{
    return add(Kind::Reserved, 0, 0);
}

void BinaryPlistWriter::setArray(Ref container, std::span<const Ref> elements)
{
    Node &n = m_nodes[container];
    n.kind = Kind::Array;
    n.count = quint32(elements.size());
    n.value = m_refs.size();
    m_refs.insert(m_refs.end(), elements.begin(), elements.end());
}

void BinaryPlistWriter::setDict(Ref container, std::span<const Ref> keys,
                                std::span<const Ref> values)
{
    Q_ASSERT(keys.size() == values.size());
    Node &n = m_nodes[container];
    n.kind = Kind::Dict;
    n.count = quint32(keys.size());
    n.value = m_refs.size();
    m_refs.insert(m_refs.end(), keys.begin(), keys.end());
    m_refs.insert(m_refs.end(), values.begin(), values.end());
}

BinaryPlistWriter::Ref BinaryPlistWriter::array(std::span<const Ref> elements)
{
    const Ref r = reserve();
    setArray(r, elements);
    return r;
}

BinaryPlistWriter::Ref BinaryPlistWriter::dict(std::span<const Ref> keys,
                                               std::span<const Ref> values)
{
    const Ref r = reserve();
    setDict(r, keys, values);
    return r;
}

QByteArray BinaryPlistWriter::finish(Ref top) const
{
    const quint64 count = m_nodes.size();
    const int refSize = sizeFor(count);
    // An upper bound of the object data: a marker, an extended count and the
    // payload of each object.
    qsizetype bound = 8 + m_blob.size() + qsizetype(m_refs.size()) * refSize;
    bound += qsizetype(count) * (1 + 9 + 16);
    const qsizetype tableBound = qsizetype(count) * 8 + 32;
    Output out(bound + tableBound);
    out.bytes("bplist00", 8);

    std::vector<quint64> offsets(count);
    for (quint64 i = 0; i < count; ++i) {
        offsets[i] = quint64(out.position());
        const Node &n = m_nodes[i];
        switch (n.kind) {
        case Kind::Null:
        case Kind::Reserved: // a container never filled is written as null
            out.byte(0x00);
            break;
        case Kind::False:
            out.byte(0x08);
            break;
        case Kind::True:
            out.byte(0x09);
            break;
        case Kind::Int: {
            const auto v = qint64(n.value);
            if (v < 0) {
                out.byte(0x13);
                out.be(n.value, 8);
            } else {
                const int width = sizeFor(n.value);
                out.byte(quint8(0x10 | (width == 1 ? 0 : width == 2 ? 1 : width == 4 ? 2 : 3)));
                out.be(n.value, width);
            }
            break;
        }
        case Kind::UInt:
            out.byte(0x14);
            out.be(0, 8);
            out.be(n.value, 8);
            break;
        case Kind::Real:
            out.byte(0x23);
            out.be(n.value, 8);
            break;
        case Kind::Date:
            out.byte(0x33);
            out.be(n.value, 8);
            break;
        case Kind::Data:
            out.sized(0x40, n.count);
            out.bytes(m_blob.constData() + n.value, n.count);
            break;
        case Kind::Ascii:
            out.sized(0x50, n.count);
            out.bytes(m_blob.constData() + n.value, n.count);
            break;
        case Kind::Utf16:
            out.sized(0x60, n.count);
            out.bytes(m_blob.constData() + n.value, qsizetype(n.count) * 2);
            break;
        case Kind::Uid: {
            const int width = sizeFor(n.value);
            out.byte(quint8(0x80 | (width - 1)));
            out.be(n.value, width);
            break;
        }
        case Kind::Array:
        case Kind::Dict: {
            const bool isDict = n.kind == Kind::Dict;
            out.sized(isDict ? 0xD0 : 0xA0, n.count);
            const quint64 total = quint64(n.count) * (isDict ? 2 : 1);
            for (quint64 k = 0; k < total; ++k)
                out.be(m_refs[n.value + k], refSize);
            break;
        }
        }
    }
    const auto tableOffset = quint64(out.position());
    const int offsetSize = sizeFor(tableOffset);
    for (quint64 off : offsets)
        out.be(off, offsetSize);
    for (int i = 0; i < 6; ++i)
        out.byte(0); // five unused bytes and the sort version
    out.byte(quint8(offsetSize));
    out.byte(quint8(refSize));
    out.be(count, 8);
    out.be(top, 8);
    out.be(tableOffset, 8);
    return out.take();
}

namespace {

bool flatten(BinaryPlistWriter &w, const QVariant &v, BinaryPlistWriter::Ref *out, QString *error,
             int depth)
{
    if (depth > BinaryPlistReader::kMaxDepth) {
        *error = QStringLiteral("the value is nested too deeply for a property list");
        return false;
    }
    switch (v.metaType().id()) {
    case QMetaType::Bool:
        *out = w.boolean(v.toBool());
        return true;
    case QMetaType::Int:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::Char:
    case QMetaType::SChar:
        *out = w.integer(v.toLongLong());
        return true;
    case QMetaType::UInt:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UShort:
    case QMetaType::UChar:
        *out = w.unsignedInteger(v.toULongLong());
        return true;
    case QMetaType::Double:
    case QMetaType::Float:
        *out = w.real(v.toDouble());
        return true;
    case QMetaType::QDateTime:
        *out = w.date(plistSecondsFromDate(v.toDateTime()));
        return true;
    case QMetaType::QByteArray:
        *out = w.data(v.toByteArray());
        return true;
    case QMetaType::QString:
        *out = w.string(v.toString());
        return true;
    case QMetaType::Nullptr:
        *out = w.null();
        return true;
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        const QVariantList list = v.toList();
        const auto self = w.reserve();
        std::vector<BinaryPlistWriter::Ref> refs(size_t(list.size()));
        for (qsizetype i = 0; i < list.size(); ++i) {
            if (!flatten(w, list[i], &refs[size_t(i)], error, depth + 1))
                return false;
        }
        w.setArray(self, refs);
        *out = self;
        return true;
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = v.toMap();
        const auto self = w.reserve();
        std::vector<BinaryPlistWriter::Ref> keys, values(size_t(map.size()));
        keys.reserve(size_t(map.size()));
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            keys.push_back(w.string(it.key()));
        size_t i = 0;
        for (auto it = map.cbegin(); it != map.cend(); ++it, ++i) {
            if (!flatten(w, it.value(), &values[i], error, depth + 1))
                return false;
        }
        w.setDict(self, keys, values);
        *out = self;
        return true;
    }
    default:
        if (v.metaType() == QMetaType::fromType<PlistUid>()) {
            *out = w.uid(v.value<PlistUid>().value);
            return true;
        }
        *error = QStringLiteral("a value of type %1 has no property-list form")
                     .arg(QString::fromLatin1(v.metaType().name() ? v.metaType().name()
                                                                  : "(invalid)"));
        return false;
    }
}

} // namespace

QByteArray BinaryPlistWriter::write(const QVariant &value, QString *error)
{
    BinaryPlistWriter w;
    BinaryPlistWriter::Ref top = 0;
    QString why;
    if (!flatten(w, value, &top, &why, 0)) {
        if (error)
            *error = why;
        return {};
    }
    return w.finish(top);
}
