#pragma once

#include "BinaryPlistDocument.h"

#include <QVariant>

// Turns a binary property list into QVariant values: QVariantMap, QVariantList,
// QString, qint64 (quint64 above the signed range), double, bool, QDateTime
// (UTC, millisecond precision), QByteArray, PlistUid, and std::nullptr_t for
// the null object. Sets become lists.
//
// A container referenced from several places is decoded once and shared, so a
// file cannot expand exponentially; a container that contains itself, keys
// that are not strings and nesting deeper than kMaxDepth are refused.
class BinaryPlistReader
{
public:
    static constexpr int kMaxDepth = 512;

    // An invalid QVariant, with a sentence in *error, when the data is not a
    // well-formed binary property list.
    static QVariant read(const QByteArray &bytes, QString *error);

    // Decodes one object of an open document with the same rules.
    static QVariant objectValue(const BinaryPlistDocument &doc, quint64 ref, QString *error);
};

// Seconds between 1970-01-01 and the property-list epoch 2001-01-01 (UTC).
constexpr qint64 kPlistEpochOffsetSeconds = 978307200;

QVariant plistNull();
bool isPlistNull(const QVariant &v);
// Whether the value is made only of property-list values (UIDs excluded): what
// a dictionary of details may hold.
bool isPropertyListValue(const QVariant &v);
// Converts a property-list date (seconds since 2001, UTC); invalid QDateTime
// when the value is not finite or lies beyond any representable date.
QDateTime plistDateFromSeconds(double secondsSince2001);
double plistSecondsFromDate(const QDateTime &date);
