#include "HXUpdateRecords.h"

#include <QtEndian>

namespace HXUpdateRecords {

namespace {

void putNumber(QByteArray &record, int offset, quint32 value)
{
    qToBigEndian(value, record.data() + offset);
}

// A C string in a field of `size` bytes; the rest of the field stays zero.
// A text too long for its field is cut so that its terminating NUL still fits,
// and never inside a UTF-8 character: the server would read half a character
// as an invalid name.
void putText(QByteArray &record, int offset, int size, const QByteArray &text)
{
    int length = std::min<int>(int(text.size()), size - 1);
    if (length < text.size()) {
        // Step back over continuation bytes (10xxxxxx) to the start of the
        // character the cut falls in, which then goes whole.
        while (length > 0 && (quint8(text.at(length)) & 0xC0) == 0x80)
            --length;
    }
    std::copy_n(text.constData(), length, record.data() + offset);
}

QByteArray takeText(const QByteArray &record, int offset, int size)
{
    const QByteArray field = record.mid(offset, size);
    const int end = int(field.indexOf('\0'));
    return end < 0 ? field : field.left(end);
}

} // namespace

quint32 valueFromHexidecimalString(const QString &text)
{
    static const QString digits = QStringLiteral("0123456789ABCDEF");
    quint32 value = 0;
    for (const QChar c : text) {
        const int digit = int(digits.indexOf(c, 0, Qt::CaseInsensitive));
        if (digit >= 0)
            value = value * 16 + quint32(digit);
    }
    return value;
}

QString versionStringFromVersionValue(quint32 value)
{
    // Servers send three or four hexadecimal digits; the last two are the
    // minor and bug-fix numbers and whatever stands before them is the major
    // number. Padding to three digits keeps a 0 major (0.1.0 is 0x10) from
    // vanishing.
    QString hex = QString::number(value, 16).rightJustified(3, QLatin1Char('0'));
    hex = hex.right(4);
    const QString major = hex.left(hex.size() - 2);
    return QStringLiteral("%1.%2.%3").arg(major, hex.at(hex.size() - 2), hex.at(hex.size() - 1));
}

quint32 systemVersionValue(qint32 major, qint32 minor, qint32 bugfix)
{
    if (major < 10 || minor < 10)
        return quint32((major / 10) * 0x1000 + minor * 0x10 + bugfix);
    return quint32(major * 0x10000 + minor * 0x100 + bugfix);
}

QByteArray encodeRequest(const Request &request)
{
    QByteArray record(kRequestSize, '\0');
    putNumber(record, 0, kRequestCode);
    putNumber(record, 4, request.version);
    putText(record, 8, 32, request.signature);
    // 40 and 72: two text fields the protocol has and this program sends empty.
    putText(record, 104, 32, request.fullName);
    putText(record, 136, 32, request.locale);
    putNumber(record, 168, request.systemVersion);
    return record;
}

std::optional<Reply> decodeReply(const QByteArray &bytes)
{
    if (bytes.size() != kReplySize)
        return std::nullopt;
    Reply reply;
    reply.code = qFromBigEndian<quint32>(bytes.constData());
    reply.version = qFromBigEndian<quint32>(bytes.constData() + 4);
    reply.productName = QString::fromUtf8(takeText(bytes, 8, 32));
    reply.url = QString::fromUtf8(takeText(bytes, 40, 64));
    reply.build = QString::fromUtf8(takeText(bytes, 104, 264));
    return reply;
}

QByteArray encodeReply(const Reply &reply)
{
    QByteArray record(kReplySize, '\0');
    putNumber(record, 0, reply.code);
    putNumber(record, 4, reply.version);
    putText(record, 8, 32, reply.productName.toUtf8());
    putText(record, 40, 64, reply.url.toUtf8());
    putText(record, 104, 264, reply.build.toUtf8());
    return record;
}

bool offersUpdate(const Reply &reply, quint32 runningVersion, qint64 runningBuild)
{
    if (runningBuild <= kUnknownBuild)
        return reply.version > runningVersion;
    // The build text is read as a C library would: leading digits, 0 if none.
    qint64 build = 0;
    for (const QChar c : reply.build.trimmed()) {
        if (!c.isDigit())
            break;
        build = build * 10 + c.digitValue();
        if (build > (qint64(1) << 53))
            break;
    }
    const bool current = reply.version <= runningVersion && build <= runningBuild;
    return !current;
}

} // namespace HXUpdateRecords
