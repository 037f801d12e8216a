#include "HXFileSystemErrors.h"

#include "HXSystemRoot.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>

namespace {

struct Pattern
{
    QRegularExpression expression;     // captures the device, then the message's body
    QRegularExpression bodyMeansError; // empty: every such message is an error
    QRegularExpression inode;          // captures the inode number, decimal or "0x" hex
};

// The file systems' own wording: ext4_error_inode() / __ext4_error(), XFS's
// verifier and shutdown reports, btrfs_err() / btrfs_crit() and its checksum
// warnings, fat_fs_error() and exfat_fs_error().
const QList<Pattern> &patterns()
{
    static const auto rx = [](const char *pattern,
                              QRegularExpression::PatternOptions options = {}) {
        return QRegularExpression(QString::fromLatin1(pattern), options);
    };
    static const QList<Pattern> table{
        {rx(R"(^EXT[234]-fs error \(device ([^)\s]+)\)(.*)$)"), {}, rx(R"(\binode #(\d+))")},
        {rx(R"(^XFS \(([^)\s]+)\): (.*)$)"),
         rx(R"(corrupt|CRC error|Internal error|I/O error|shut(?:ting)? ?down|xfs_repair)",
            QRegularExpression::CaseInsensitiveOption),
         rx(R"(\binode (0x[0-9a-fA-F]+|\d+))")},
        {rx(R"(^BTRFS (?:error|critical) \(device ([^)\s]+)[^)]*\): (.*)$)"),
         {},
         rx(R"(\bino (\d+))")},
        {rx(R"(^BTRFS warning \(device ([^)\s]+)[^)]*\): (.*)$)"),
         rx(R"(csum failed|checksum verify failed|corrupt)"), rx(R"(\bino (\d+))")},
        {rx(R"(^(?:FAT|exFAT)-fs \(([^)\s]+)\): error, (.*)$)"), {}, {}},
    };
    return table;
}

QByteArray readSmallFile(const QString &path, bool *ok = nullptr)
{
    QFile file(path);
    const bool opened = file.open(QIODevice::ReadOnly);
    if (ok)
        *ok = opened;
    return opened ? file.read(4096) : QByteArray();
}

qint64 number(const QString &folder, const char *name, bool *ok = nullptr)
{
    bool read = false;
    const QByteArray text = readSmallFile(folder + QLatin1Char('/') + QLatin1String(name), &read);
    bool parsed = false;
    const qint64 value = text.trimmed().toLongLong(&parsed);
    if (ok)
        *ok = read && parsed;
    return parsed ? value : 0;
}

HXExt4ErrorRecord::Error readExt4Error(const QString &folder, const char *which)
{
    const auto name = [which](const char *field) {
        return QByteArray(which) + "_error_" + field;
    };
    HXExt4ErrorRecord::Error error;
    error.time = number(folder, name("time").constData());
    error.inode = quint64(number(folder, name("ino").constData()));
    error.function = QString::fromUtf8(
        readSmallFile(folder + QLatin1Char('/') + QLatin1String(name("func"))).trimmed());
    return error;
}

QString describeError(const HXExt4ErrorRecord::Error &error)
{
    QString text =
        QStringLiteral("on %1").arg(QDateTime::fromSecsSinceEpoch(error.time, Qt::UTC)
                                        .toString(QStringLiteral("yyyy-MM-dd HH:mm:ss 'UTC'")));
    if (!error.function.isEmpty())
        text += QStringLiteral(" in %1").arg(error.function);
    if (error.inode != 0)
        text += QStringLiteral(" (inode %1)").arg(error.inode);
    return text;
}

QString errorCount(qint64 count, const char *what)
{
    return QStringLiteral("%1 %2 error%3")
        .arg(count)
        .arg(QLatin1String(what))
        .arg(count == 1 ? QString() : QStringLiteral("s"));
}

} // namespace

QString HXExt4ErrorRecord::describe() const
{
    QString text = count == 1
                       ? QStringLiteral("1 error recorded since the last check")
                       : QStringLiteral("%1 errors recorded since the last check").arg(count);
    if (first.time > 0)
        text += QStringLiteral(", the first %1").arg(describeError(first));
    if (last.time > 0 && count > 1)
        text += QStringLiteral(", the last %1").arg(describeError(last));
    return text;
}

QString HXBtrfsErrorStats::describe() const
{
    QStringList parts;
    const std::pair<qint64, const char *> counters[] = {{write, "write"},
                                                        {read, "read"},
                                                        {flush, "flush"},
                                                        {corruption, "corruption"},
                                                        {generation, "generation"}};
    for (const auto &[count, name] : counters) {
        if (count > 0)
            parts.append(errorCount(count, name));
    }
    if (parts.size() > 1) {
        const QString last = parts.takeLast();
        return parts.join(QLatin1String(", ")) + QStringLiteral(" and ") + last;
    }
    return parts.value(0, QStringLiteral("no errors"));
}

std::optional<HXFileSystemLogError> HXFileSystemErrors::parseLogLine(const QString &text)
{
    for (const Pattern &pattern : patterns()) {
        const QRegularExpressionMatch match = pattern.expression.match(text);
        if (!match.hasMatch())
            continue;
        const QString body = match.captured(2);
        if (!pattern.bodyMeansError.pattern().isEmpty() &&
            !pattern.bodyMeansError.match(body).hasMatch())
            return std::nullopt;
        HXFileSystemLogError error;
        error.device = match.captured(1);
        if (!pattern.inode.pattern().isEmpty()) {
            const QString inode = pattern.inode.match(body).captured(1);
            bool ok = false;
            error.inode = inode.startsWith(QLatin1String("0x")) ? inode.mid(2).toULongLong(&ok, 16)
                                                                : inode.toULongLong(&ok);
            if (!ok)
                error.inode = 0;
        }
        return error;
    }
    return std::nullopt;
}

bool HXFileSystemErrors::addErrorStats(const QByteArray &text, HXBtrfsErrorStats *stats)
{
    bool any = false;
    for (const QByteArray &line : text.split('\n')) {
        const QList<QByteArray> words = line.simplified().split(' ');
        bool ok = false;
        const qint64 value = words.size() == 2 ? words[1].toLongLong(&ok) : 0;
        if (!ok || value < 0)
            continue;
        const QByteArray &name = words[0];
        qint64 *counter = name == "write_errs"        ? &stats->write
                          : name == "read_errs"       ? &stats->read
                          : name == "flush_errs"      ? &stats->flush
                          : name == "corruption_errs" ? &stats->corruption
                          : name == "generation_errs" ? &stats->generation
                                                      : nullptr;
        if (counter) {
            *counter += value;
            any = true;
        }
    }
    return any;
}

std::optional<HXExt4ErrorRecord> HXFileSystemErrors::readExt4(const QString &deviceName)
{
    if (deviceName.isEmpty() || deviceName.contains(QLatin1Char('/')))
        return std::nullopt;
    const QString folder = HXSystemRoot::sysfs() + QStringLiteral("/fs/ext4/") + deviceName;
    bool ok = false;
    HXExt4ErrorRecord record;
    record.count = number(folder, "errors_count", &ok);
    if (!ok)
        return std::nullopt;
    record.first = readExt4Error(folder, "first");
    record.last = readExt4Error(folder, "last");
    return record;
}

std::optional<HXBtrfsErrorStats> HXFileSystemErrors::readBtrfs(const QString &fsid)
{
    if (fsid.isEmpty() || fsid.contains(QLatin1Char('/')))
        return std::nullopt;
    const QDir devinfo(HXSystemRoot::sysfs() + QStringLiteral("/fs/btrfs/") + fsid +
                       QStringLiteral("/devinfo"));
    HXBtrfsErrorStats stats;
    for (const QString &device : devinfo.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool ok = false;
        const QByteArray text =
            readSmallFile(devinfo.filePath(device + QStringLiteral("/error_stats")), &ok);
        if (ok && addErrorStats(text, &stats))
            ++stats.devices;
    }
    if (stats.devices == 0)
        return std::nullopt;
    return stats;
}
