#include "HXBlockIOErrors.h"

#include <QRegularExpression>

namespace {

struct Pattern
{
    QRegularExpression expression;
    const char *location; // "%1" is the place the message names, "%2" the device
};

// Of the block layer's words for a failed request (blk_status_to_str()),
// those that mean the device did not do the read or write; not "operation
// not supported" (a discard the device lacks), nor the kernel's own shortage
// of memory or space.
const char *const kDeviceFailures =
    "I/O|critical medium|critical target|critical nexus|timeout|protection|recoverable transport";

const QList<Pattern> &patterns()
{
    static const QList<Pattern> table{
        {QRegularExpression(QStringLiteral(R"(\b(?:%1) error, dev ([^,\s]+), sector (\d+))")
                                .arg(QLatin1String(kDeviceFailures))),
         "sector %1"},
        {QRegularExpression(
             QStringLiteral(R"(\bBuffer I/O error on dev(?:ice)? ([^,\s]+), logical block (\d+))")),
         "logical block %1 of %2"},
        {QRegularExpression(QStringLiteral(
             R"(^(nvme\d+(?:c\d+)?n\d+): .*\(0x[0-9a-fA-F]+\) @ LBA (\d+), \d+ blocks, .* \(sct 0x)")),
         "LBA %1"},
    };
    return table;
}

} // namespace

std::optional<HXBlockIOError> HXBlockIOErrors::parse(const QString &text)
{
    // Most kernel messages are not about I/O at all: a cheap look first.
    if (!text.contains(QLatin1String("rror")) && !text.contains(QLatin1String("@ LBA")))
        return std::nullopt;
    for (const Pattern &pattern : patterns()) {
        const QRegularExpressionMatch match = pattern.expression.match(text);
        if (!match.hasMatch())
            continue;
        HXBlockIOError error;
        error.device = match.captured(1);
        error.location = QString::fromLatin1(pattern.location)
                             .replace(QLatin1String("%1"), match.captured(2))
                             .replace(QLatin1String("%2"), error.device);
        return error;
    }
    return std::nullopt;
}

bool HXBlockIOErrors::belongsToDisk(const QString &device, const QString &diskKernelName)
{
    if (diskKernelName.isEmpty())
        return false;
    static const QRegularExpression nvmePath(QStringLiteral(R"(^(nvme\d+)c\d+(n\d+.*)$)"));
    QString name = device;
    const QRegularExpressionMatch path = nvmePath.match(device);
    if (path.hasMatch())
        name = path.captured(1) + path.captured(2);
    if (name == diskKernelName)
        return true;
    if (!name.startsWith(diskKernelName))
        return false;
    // "sda" + "1", but "nvme0n1" + "p1": a "p" parts the numbers when the
    // disk's name ends in a digit. "sdaa" is another disk than "sda".
    QStringView rest = QStringView(name).mid(diskKernelName.size());
    if (diskKernelName.back().isDigit()) {
        if (!rest.startsWith(QLatin1Char('p')))
            return false;
        rest = rest.mid(1);
    }
    if (rest.isEmpty())
        return false;
    for (const QChar c : rest) {
        if (!c.isDigit())
            return false;
    }
    return true;
}
