#pragma once

#include <QByteArray>
#include <QString>
#include <QtEndian>

#include <optional>

// A read-only view of a binary property list ("bplist00") that decodes objects
// on demand. Opening checks the header, the trailer and that the offset table
// lies inside the file; every object is checked when it is first looked at,
// so that a hostile file cannot make the reader leave the buffer, allocate
// more than the file could hold, or loop.
//
// The view keeps a shallow copy of the bytes (QByteArray is implicitly
// shared), so it stays valid on its own.
class BinaryPlistDocument
{
public:
    enum class Kind : quint8 {
        Null,
        Bool,
        Int,
        Real,
        Date,
        Data,
        AsciiString,
        Utf16String,
        Uid,
        Array,
        Set,
        Dict,
    };
    static constexpr bool isString(Kind k) { return k == Kind::AsciiString || k == Kind::Utf16String; }

    // One object's header. For strings and data `count` is the length in
    // units (bytes, or UTF-16 code units); for containers the number of
    // elements (a dictionary's pairs). `payload` is where the content starts.
    struct Object
    {
        Kind kind = Kind::Null;
        quint8 info = 0;     // the marker's low nibble (integer and real width)
        quint64 count = 0;
        qsizetype payload = 0;
    };

    static std::optional<BinaryPlistDocument> open(const QByteArray &bytes, QString *error);

    quint64 objectCount() const { return m_objectCount; }
    quint64 topObject() const { return m_topObject; }
    const QByteArray &bytes() const { return m_bytes; }

    // False, with a sentence in *error, when `ref` is out of range or the
    // object there is malformed.
    bool object(quint64 ref, Object *out, QString *error) const;

    // The i-th reference of an array or set; for a dictionary, keys are
    // 0..count-1 and values count..2*count-1. The caller has checked `i`.
    quint64 reference(const Object &container, quint64 i) const
    {
        return readUnsigned(container.payload + qsizetype(i) * m_refSize, m_refSize);
    }

    // The value of the UID object at `ref`, the commonest lookup of a keyed
    // archive; false when `ref` is out of range or holds something else.
    bool uidAt(quint64 ref, quint64 *value) const
    {
        if (ref >= m_objectCount)
            return false;
        const quint64 offset =
            readUnsigned(m_offsetTable + qsizetype(ref) * m_offsetSize, m_offsetSize);
        if (offset < 8 || offset >= quint64(m_offsetTable))
            return false;
        const auto marker = quint8(m_bytes.constData()[offset]);
        const int width = (marker & 0xF) + 1;
        if ((marker >> 4) != 0x8 || width > 8 ||
            quint64(width) > quint64(m_offsetTable) - offset - 1)
            return false;
        *value = readUnsigned(qsizetype(offset) + 1, width);
        return true;
    }

    // Scalar readers; each expects an object of the matching kind.
    qint64 intValue(const Object &o, bool *isUnsigned64, bool *ok) const;
    double realValue(const Object &o) const;
    bool boolValue(const Object &o) const { return o.info == 0x9; }
    quint64 uidValue(const Object &o) const;
    QString stringValue(const Object &o) const;
    QByteArray dataValue(const Object &o) const;
    // The raw ASCII bytes of an AsciiString object, for cheap key comparisons.
    QByteArrayView asciiView(const Object &o) const
    {
        return QByteArrayView(m_bytes.constData() + o.payload, qsizetype(o.count));
    }

private:
    quint64 readUnsigned(qsizetype at, int width) const
    {
        const auto *p = reinterpret_cast<const uchar *>(m_bytes.constData()) + at;
        switch (width) {
        case 1:
            return *p;
        case 2:
            return qFromBigEndian<quint16>(p);
        case 4:
            return qFromBigEndian<quint32>(p);
        case 8:
            return qFromBigEndian<quint64>(p);
        default: {
            quint64 v = 0;
            for (int i = 0; i < width; ++i)
                v = (v << 8) | p[i];
            return v;
        }
        }
    }

    QByteArray m_bytes;
    quint64 m_objectCount = 0;
    quint64 m_topObject = 0;
    qsizetype m_offsetTable = 0;
    int m_offsetSize = 0;
    int m_refSize = 0;
};
