#include "HXSchedulingDurationTransformer.h"

#include "HXKeyValueObserving.h"
#include "HXSystemLog.h"

#include <cstdlib>
#include <optional>

namespace {

// The value as a number the way Foundation's number and string classes
// answer integerValue; nothing for a value that is neither.
std::optional<qint64> integerOf(const QVariant &value)
{
    switch (value.metaType().id()) {
    case QMetaType::QString:
        return qint64(std::atoi(value.toString().toUtf8().constData()));
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::ULong:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toLongLong();
    case QMetaType::Double:
    case QMetaType::Float:
        return qint64(value.toDouble()); // truncates, as integerValue does
    default:
        HXSystemLog::write(
            QStringLiteral("%1: value %2 is not a number!")
                .arg(HXSchedulingDurationTransformer::className(), HXDescribeValue(value)));
        return std::nullopt;
    }
}

} // namespace

QVariant HXSchedulingDurationTransformer::transformedValue(const QVariant &index)
{
    if (!index.isValid())
        return {};
    const std::optional<qint64> n = integerOf(index);
    if (!n)
        return {};
    if (*n == 0)
        return qint64(900);
    if (*n == 1)
        return qint64(1800);
    return *n * 3600 - 3600;
}

QVariant HXSchedulingDurationTransformer::reverseTransformedValue(const QVariant &seconds)
{
    if (!seconds.isValid())
        return {};
    const std::optional<qint64> s = integerOf(seconds);
    if (!s)
        return {};
    if (*s == 0 || *s == -1)
        return qint64(11);
    if (*s == 1800)
        return qint64(1);
    if (*s == 900)
        return qint64(0);
    return *s / 3600 + 1;
}
