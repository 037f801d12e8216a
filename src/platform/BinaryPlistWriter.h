#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QVariant>

#include <span>
#include <vector>

// Builds a binary property list ("bplist00") object by object and lays it out
// as Apple's writer does: minimal integer, offset and reference sizes, ASCII
// strings where possible and UTF-16 otherwise, and equal scalars (strings,
// numbers, dates, data) stored once and shared by reference.
//
// Objects are numbered in the order they are added. A container can be
// reserved before its elements exist and filled afterwards, which keeps the
// parent-before-children order of Apple's and Python's writers.
class BinaryPlistWriter
{
public:
    using Ref = quint32;

    Ref null();
    Ref boolean(bool value);
    Ref integer(qint64 value);
    Ref unsignedInteger(quint64 value);
    Ref real(double value);
    Ref date(double secondsSince2001);
    Ref data(QByteArrayView bytes);
    Ref string(const QString &text);
    // A string object written as given, not shared with an equal one: for
    // callers that already keep their strings unique.
    Ref distinctString(const QString &text);
    Ref uid(quint64 value);

    Ref reserve();
    void setArray(Ref container, std::span<const Ref> elements);
    void setDict(Ref container, std::span<const Ref> keys, std::span<const Ref> values);
    Ref array(std::span<const Ref> elements);
    Ref dict(std::span<const Ref> keys, std::span<const Ref> values);

    qsizetype objectCount() const { return qsizetype(m_nodes.size()); }

    // The finished file with `top` as its root object.
    QByteArray finish(Ref top) const;

    // Writes a QVariant tree of property-list values (the types the reader
    // produces, plus QStringList and any integer type). Returns an empty array,
    // with a sentence in *error, for a value that has no property-list form.
    static QByteArray write(const QVariant &value, QString *error = nullptr);

private:
    enum class Kind : quint8 { Null, False, True, Int, UInt, Real, Date, Data, Ascii, Utf16, Uid, Array, Dict, Reserved };
    struct Node
    {
        Kind kind;
        quint32 count;  // bytes or units for strings and data; elements for containers
        quint64 value;  // integer bits, blob offset, or first index in m_refs
    };

    Ref add(Kind kind, quint32 count, quint64 value);
    Ref blob(Kind kind, const char *bytes, qsizetype length, quint32 units);
    Ref addString(const QString &text);
    // The object of this kind already made for `key`, or a new one.
    template<class Key>
    Ref shared(QHash<Key, Ref> &seen, Key key, Kind kind, quint64 value);

    std::vector<Node> m_nodes;
    std::vector<Ref> m_refs;
    QByteArray m_blob;

    QHash<QString, Ref> m_strings;
    QHash<QByteArray, Ref> m_datas;
    QHash<qint64, Ref> m_ints;
    QHash<quint64, Ref> m_uints;
    QHash<quint64, Ref> m_reals;
    QHash<quint64, Ref> m_dates;
    std::vector<Ref> m_smallUids; // UIDs are dense indexes: most are found here
    QHash<quint64, Ref> m_uids;   // and the rare large one here
    Ref m_null = ~Ref(0), m_false = ~Ref(0), m_true = ~Ref(0);
};
