#include "BinaryPlistDocument.h"

#include <QtEndian>

#include <cstring>

namespace {

constexpr qsizetype kHeaderSize = 8;
constexpr qsizetype kTrailerSize = 32;

bool validWidth(int width)
{
    return width == 1 || width == 2 || width == 4 || width == 8;
}

bool fail(QString *error, const QString &why)
{
    if (error)
        *error = why;
    return false;
}

} // namespace

std::optional<BinaryPlistDocument> BinaryPlistDocument::open(const QByteArray &bytes,
                                                             QString *error)
{
    const qsizetype size = bytes.size();
    if (size < kHeaderSize + kTrailerSize) {
        fail(error, QStringLiteral("the data is too short to be a binary property list"));
        return std::nullopt;
    }
    if (std::memcmp(bytes.constData(), "bplist00", 8) != 0) {
        fail(error, QStringLiteral("the data is not a binary property list"));
        return std::nullopt;
    }

    BinaryPlistDocument doc;
    doc.m_bytes = bytes;
    const qsizetype trailer = size - kTrailerSize;
    doc.m_offsetSize = quint8(bytes[trailer + 6]);
    doc.m_refSize = quint8(bytes[trailer + 7]);
    doc.m_objectCount = doc.readUnsigned(trailer + 8, 8);
    doc.m_topObject = doc.readUnsigned(trailer + 16, 8);
    const quint64 tableOffset = doc.readUnsigned(trailer + 24, 8);

    if (!validWidth(doc.m_offsetSize) || !validWidth(doc.m_refSize)) {
        fail(error, QStringLiteral("the property list's trailer has an invalid integer size"));
        return std::nullopt;
    }
    if (doc.m_objectCount == 0 || doc.m_topObject >= doc.m_objectCount) {
        fail(error, QStringLiteral("the property list's trailer names no valid top object"));
        return std::nullopt;
    }
    if (tableOffset < quint64(kHeaderSize) || tableOffset > quint64(trailer)) {
        fail(error, QStringLiteral("the property list's offset table lies outside the data"));
        return std::nullopt;
    }
    // Division, not multiplication: the count comes from the file and may be
    // anything up to 2^64.
    if (doc.m_objectCount > (quint64(trailer) - tableOffset) / quint64(doc.m_offsetSize)) {
        fail(error, QStringLiteral("the property list claims more objects than it holds"));
        return std::nullopt;
    }
    doc.m_offsetTable = qsizetype(tableOffset);
    return doc;
}

bool BinaryPlistDocument::object(quint64 ref, Object *out, QString *error) const
{
    if (ref >= m_objectCount)
        return fail(error, QStringLiteral("an object reference is out of range"));
    const quint64 offset =
        readUnsigned(m_offsetTable + qsizetype(ref) * m_offsetSize, m_offsetSize);
    // Objects lie between the header and the offset table.
    const quint64 limit = quint64(m_offsetTable);
    if (offset < quint64(kHeaderSize) || offset >= limit)
        return fail(error, QStringLiteral("an object offset points outside the object data"));

    qsizetype pos = qsizetype(offset);
    const auto marker = quint8(m_bytes[pos++]);
    const int high = marker >> 4;
    const int low = marker & 0xF;
    Object o;
    o.info = quint8(low);

    auto need = [&](quint64 bytesNeeded) {
        return bytesNeeded <= limit - quint64(pos);
    };
    // Reads a count: the low nibble, or an integer object after the marker.
    auto readCount = [&]() -> bool {
        if (low != 0xF) {
            o.count = quint64(low);
            return true;
        }
        if (!need(1))
            return false;
        const auto intMarker = quint8(m_bytes[pos++]);
        if ((intMarker >> 4) != 0x1 || (intMarker & 0xF) > 3)
            return false;
        const int width = 1 << (intMarker & 0xF);
        if (!need(quint64(width)))
            return false;
        o.count = readUnsigned(pos, width);
        pos += width;
        return true;
    };
    auto bad = [&]() {
        return fail(error, QStringLiteral("an object in the property list is malformed"));
    };

    switch (high) {
    case 0x0:
        if (marker == 0x00) {
            o.kind = Kind::Null;
        } else if (marker == 0x08 || marker == 0x09) {
            o.kind = Kind::Bool;
        } else {
            return bad();
        }
        break;
    case 0x1:
        if (low > 4 || !need(quint64(1) << low))
            return bad();
        o.kind = Kind::Int;
        break;
    case 0x2:
        if ((low != 2 && low != 3) || !need(quint64(1) << low))
            return bad();
        o.kind = Kind::Real;
        break;
    case 0x3:
        if (low != 3 || !need(8))
            return bad();
        o.kind = Kind::Date;
        break;
    case 0x4:
    case 0x5:
    case 0x6: {
        if (!readCount())
            return bad();
        // No division on this path: count is first bounded by the bytes left
        // (less than 2^63), so the product cannot overflow.
        const quint64 left = limit - quint64(pos);
        const quint64 unit = high == 0x6 ? 2 : 1;
        if (o.count > left || o.count * unit > left)
            return fail(error, QStringLiteral("a string or data object claims more bytes than "
                                              "the property list holds"));
        o.kind = high == 0x4 ? Kind::Data : high == 0x5 ? Kind::AsciiString : Kind::Utf16String;
        break;
    }
    case 0x8:
        if (!need(quint64(low) + 1) || low > 7)
            return bad();
        o.kind = Kind::Uid;
        break;
    case 0xA:
    case 0xC:
    case 0xD: {
        if (!readCount())
            return bad();
        const quint64 left = limit - quint64(pos);
        const quint64 perElement = quint64(m_refSize) * (high == 0xD ? 2 : 1);
        if (o.count > left || o.count * perElement > left)
            return fail(error, QStringLiteral("a container claims more elements than the "
                                              "property list holds"));
        o.kind = high == 0xA ? Kind::Array : high == 0xC ? Kind::Set : Kind::Dict;
        break;
    }
    default:
        return bad();
    }
    o.payload = pos;
    *out = o;
    return true;
}

qint64 BinaryPlistDocument::intValue(const Object &o, bool *isUnsigned64, bool *ok) const
{
    *isUnsigned64 = false;
    *ok = true;
    const int width = 1 << o.info;
    if (width < 8)
        return qint64(readUnsigned(o.payload, width)); // 1, 2 and 4 bytes are unsigned
    if (width == 8)
        return qint64(readUnsigned(o.payload, 8));     // 8 bytes are signed
    // 16 bytes, a signed 128-bit value: only the part that fits 64 bits is
    // representable, either as a signed or as an unsigned value.
    const quint64 hi = readUnsigned(o.payload, 8);
    const quint64 lo = readUnsigned(o.payload + 8, 8);
    if (hi == 0) {
        *isUnsigned64 = lo > quint64(std::numeric_limits<qint64>::max());
        return qint64(lo);
    }
    if (hi == ~quint64(0) && (lo >> 63) == 1)
        return qint64(lo);
    *ok = false;
    return 0;
}

double BinaryPlistDocument::realValue(const Object &o) const
{
    if (o.kind == Kind::Real && o.info == 2) {
        const quint32 bits = quint32(readUnsigned(o.payload, 4));
        float f;
        std::memcpy(&f, &bits, sizeof f);
        return f;
    }
    const quint64 bits = readUnsigned(o.payload, 8);
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

quint64 BinaryPlistDocument::uidValue(const Object &o) const
{
    return readUnsigned(o.payload, o.info + 1);
}

QString BinaryPlistDocument::stringValue(const Object &o) const
{
    const char *p = m_bytes.constData() + o.payload;
    if (o.kind == Kind::AsciiString)
        return QString::fromLatin1(p, qsizetype(o.count));
    QString s(qsizetype(o.count), Qt::Uninitialized);
    auto *dst = reinterpret_cast<char16_t *>(s.data());
    const auto *src = reinterpret_cast<const uchar *>(p);
    for (quint64 i = 0; i < o.count; ++i)
        dst[i] = char16_t((src[2 * i] << 8) | src[2 * i + 1]);
    return s;
}

QByteArray BinaryPlistDocument::dataValue(const Object &o) const
{
    return QByteArray(m_bytes.constData() + o.payload, qsizetype(o.count));
}
