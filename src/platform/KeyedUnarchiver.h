#pragma once

#include "BinaryPlistDocument.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QVarLengthArray>
#include <QVariant>

#include <array>
#include <functional>
#include <optional>
#include <unordered_map>
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

    // The bytes being decoded, for a second unarchiver that decodes another
    // part of the same archive (on another thread: the bytes are read-only).
    QByteArray bytes() const { return m_doc ? m_doc->bytes() : QByteArray(); }

    // Hands each object of the list archived at `uid` to `take`, at nesting
    // `depth`. False, with the archive failed, when `uid` is not a list (the
    // error names `what`) or `take` said no. Uid 0 ("$null") is an empty list.
    bool forEachInListAt(quint64 uid, int depth, const std::function<bool(QVariant &&)> &take,
                         const QString &what);

    bool failed() const { return !m_error.isEmpty(); }
    const QString &error() const { return m_error; }
    void fail(const QString &why);

    // One archived object's fields, handed to a registered decoder.
    class Coder
    {
    public:
        bool contains(QLatin1StringView key) const { return find(key) != nullptr; }
        // The key refers to an object (not missing, not "$null").
        bool hasObject(QLatin1StringView key) const;
        // The UID the key holds: true with *uid set (0 for "$null"); false when
        // the key is missing, or holds something else (which fails the archive).
        bool referencedUid(QLatin1StringView key, quint64 *uid);
        int depth() const { return m_depth; }
        // The object a key refers to; invalid for a missing key or "$null".
        QVariant decodeObject(QLatin1StringView key);
        // Typed forms that refuse (fail the archive) when the value is present
        // but of another type. A missing key leaves *out alone and answers true.
        bool decodeString(QLatin1StringView key, QString *out);
        bool decodeDate(QLatin1StringView key, QDateTime *out);
        // Inline scalars; 0 and false when missing or of another type.
        qint64 decodeInt64(QLatin1StringView key);
        bool decodeBool(QLatin1StringView key);

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
        QVarLengthArray<Field, 12> m_fields;
        int m_depth = 0;
    };

private:
    // How a resolved class decodes: through a registered decoder, as one of
    // the property-list classes, or (permissive) as its fields.
    enum class ValueKind : quint8 { Registered, List, Dictionary, String, Date, Data, Null, Fields };
    struct ClassInfo
    {
        QString name;
        ValueKind kind;
        const Decoder *decoder = nullptr;
    };

    QVariant decodeUid(quint64 uid, int depth);
    QVariant decodeRef(quint64 bplistRef, int depth); // a UID value inside an object
    QVariant decodeEntry(quint64 uid, const BinaryPlistDocument::Object &o, int depth);
    QVariant decodeValueClass(ValueKind kind, Coder &coder);
    const ClassInfo *resolveClass(quint64 classUid);
    bool loadFields(const BinaryPlistDocument::Object &dict, Coder *coder);
    QVariant listFromRefs(const BinaryPlistDocument::Object &array, int depth);
    template<class Take>
    bool forEachReferenced(const BinaryPlistDocument::Object &array, int depth, Take &&take);
    // The ASCII text of a key object; empty for keys of another kind.
    bool keyView(quint64 bplistRef, QByteArrayView *out);

    Mode m_mode;
    std::optional<BinaryPlistDocument> m_doc;
    BinaryPlistDocument::Object m_objects;
    BinaryPlistDocument::Object m_top;
    QHash<QString, Decoder> m_decoders;
    std::unordered_map<quint64, ClassInfo> m_classes; // by class record UID; stable addresses
    enum State : quint8 { New, Decoding, SeenOnce, Cached };
    QHash<quint64, QVariant> m_decoded;     // by UID, the Cached ones only
    std::vector<quint8> m_state;            // by UID
    bool m_decodedRegistered = false;       // the entry just decoded was a registered class
    // Archived objects of one class share their key objects: a small
    // direct-mapped cache spares parsing them again for every object.
    struct KeySlot
    {
        quint64 ref = ~quint64(0);
        QByteArrayView view;
    };
    std::array<KeySlot, 64> m_keys;
    struct FindHint
    {
        const char *key = nullptr;
        qsizetype index = 0;
    };
    std::array<FindHint, 64> m_findHints;
    QString m_error;
};
