#pragma once

#include <QVariant>

// The duration popup's index and the daemon's seconds, both ways. The index
// rows are 15 and 30 minutes, then 1 to 10 hours.
//
// Either way an invalid value gives an invalid value; a string is read as a
// decimal integer first (as atoi reads it: leading digits, else 0); anything
// else that is not a number is logged as "<class>: value <v> is not a
// number!" and gives an invalid value.
class HXSchedulingDurationTransformer
{
public:
    static QString className() { return QStringLiteral("HXSchedulingDurationTransformer"); }

    // Index → seconds: 0 → 900, 1 → 1800, n → n × 3600 − 3600.
    static QVariant transformedValue(const QVariant &index);
    // Seconds → index: 0 and −1 → 11 (they show as the longest duration),
    // 1800 → 1, 900 → 0, s → s / 3600 + 1 (whole hours, rounded toward zero).
    static QVariant reverseTransformedValue(const QVariant &seconds);
};
