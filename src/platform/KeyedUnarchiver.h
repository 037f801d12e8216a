#pragma once

#include "BinaryPlistDocument.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QVariant>

#include <functional>
#include <optional>
#include <vector>

// Reads Apple's keyed-archive layout from a binary property list.
//
// Property-list classes (NSString, NSNumber, NSDate, NSData, NSArray,
// NSDictionary, NSNull and their mutable forms) decode to the QVariant values
// of BinaryPlistReader. Other classes decode through decoders registered by
// name, which return their object wrapped in a QVariant.
//
// In secure mode, as with secure decoding on a Mac, an archive that names any
// class that is neither a property-list class nor registered is refused. In
// permissive mode (for inspecting foreign archives) an unknown class falls
// back along its "$classes" chain to a known one, and failing that decodes to
// a QVariantMap of its fields with its name under "$class".
//
// Every object is decoded once and shared, so identity survives and a file
// cannot expand; an object that contains itself and nesting deeper than
// kMaxDepth are refused. After the first failure every call answers an
// invalid QVariant and error() holds one sentence a person can read.
class KeyedUnarchiver
{
public:
    static constexpr int kMaxDepth = 512;
    enum class Mode { Secure, Permissive };

    class Coder;
    using Decoder = std::function<QVariant(Coder &)>;

    explicit KeyedUnarchiver(Mode mode = Mode::Secure);

    void registerClass(const QString &className, Decoder decoder);

    bool open(const QByteArray &bytes);
    // The object under "$top" "root"; invalid when absent (see error()).
    QVariant decodeRoot();
    // Every entry of "$top" decoded.
    QVariantMap decodeTop();

    bool failed() const { return !m_error.isEmpty(); }
    const QString &error() const { return m_error; }
    void fail(const QString &why);

    // One archived object's fields, handed to a registered decoder.
    class Coder
    {
    public:
        bool contains(QLatin1StringView key) const { return find(key) != nullptr; }
        // The object a key refers to; invalid for a missing key or "$null".
        QVariant decodeObject(QLatin1StringView key);
        // Typed forms that refuse (fail the archive) when the value is present
        // but of another type. A missing key leaves *out alone and answers true.
        bool decodeString(QLatin1StringView key, QString *out);
        bool decodeDate(QLatin1StringView key, QDateTime *out);
        bool decodeMap(QLatin1StringView key, QVariantMap *out, bool *isNull = nullptr);
        bool decodeList(QLatin1StringView key, QVariantList *out);
        // Inline scalars; 0 and false when missing or of another type.
        qint64 decodeInt64(QLatin1StringView key);
        bool decodeBool(QLatin1StringView key);
        double decodeDouble(QLatin1StringView key);

        const QString &className() const { return m_className; }
        KeyedUnarchiver &unarchiver() { return m_owner; }

    private:
        friend class KeyedUnarchiver;
        Coder(KeyedUnarchiver &owner, QString className)
            : m_owner(owner)
            , m_className(std::move(className))
        {
        }
        struct Field
        {
            QByteArrayView key;
            quint64 valueRef;
        };
        const Field *find(QLatin1StringView key) const;
        bool wrongType(QLatin1StringView key, const char *expected);

        KeyedUnarchiver &m_owner;
        QString m_className;
        std::vector<Field> m_fields;
        int m_depth = 0;
    };

private:
    QVariant decodeUid(quint64 uid, int depth);
    QVariant decodeRef(quint64 bplistRef, int depth); // a UID value inside an object
    QVariant decodeEntry(quint64 uid, const BinaryPlistDocument::Object &o, int depth);
    QVariant decodeValueClass(const QString &cls, Coder &coder);
    std::optional<QString> resolveClass(quint64 classUid);
    bool loadFields(const BinaryPlistDocument::Object &dict, Coder *coder);
    QVariant listFromRefs(const BinaryPlistDocument::Object &array, int depth);

    Mode m_mode;
    std::optional<BinaryPlistDocument> m_doc;
    BinaryPlistDocument::Object m_objects;
    BinaryPlistDocument::Object m_top;
    QHash<QString, Decoder> m_decoders;
    QHash<quint64, QString> m_classNames;   // class record UID -> resolved name
    std::vector<QVariant> m_decoded;        // by UID
    std::vector<quint8> m_state;            // by UID: 0 new, 1 decoding, 2 done
    QString m_error;
};
