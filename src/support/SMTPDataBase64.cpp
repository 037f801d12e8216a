#include "SMTPDataBase64.h"

#include <cstdio>
#include <memory>
#include <openssl/bio.h>
#include <openssl/evp.h>

namespace SMTPDataBase64 {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

struct BioChainFree
{
    void operator()(BIO *bio) const { BIO_free_all(bio); }
};

} // namespace

QByteArray dataWithBase64EncodedString(const QString &text)
{
    const QByteArray ascii = text.toLatin1();
    QByteArray out;
    out.reserve(ascii.size() * 3 / 4 + 3);
    unsigned accumulator = 0;
    int bits = 0;
    for (const char c : ascii) {
        if (c == '=')
            break;
        const int value = sextet(c);
        if (value < 0)
            continue;
        accumulator = (accumulator << 6) | unsigned(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.append(char((accumulator >> bits) & 0xff));
        }
    }
    return out;
}

QString base64EncodingWithLineLength(const QByteArray &data, unsigned lineLength)
{
    QByteArray out;
    out.reserve((data.size() + 2) / 3 * 4 + (lineLength ? data.size() / lineLength + 1 : 0));
    const auto *in = reinterpret_cast<const unsigned char *>(data.constData());
    const qsizetype n = data.size();
    unsigned onLine = 0;
    for (qsizetype i = 0; i < n; i += 3) {
        const unsigned b0 = in[i];
        const unsigned b1 = i + 1 < n ? in[i + 1] : 0;
        const unsigned b2 = i + 2 < n ? in[i + 2] : 0;
        out.append(kAlphabet[b0 >> 2]);
        out.append(kAlphabet[((b0 & 0x03) << 4) | (b1 >> 4)]);
        out.append(i + 1 < n ? kAlphabet[((b1 & 0x0f) << 2) | (b2 >> 6)] : '=');
        out.append(i + 2 < n ? kAlphabet[b2 & 0x3f] : '=');
        onLine += 4;
        if (lineLength != 0 && onLine >= lineLength) {
            out.append('\n');
            onLine = 0;
        }
    }
    return QString::fromLatin1(out);
}

QByteArray encodeBase64BytesWithNewlines(const QByteArray &data, bool newlines)
{
    BIO *filter = BIO_new(BIO_f_base64());
    BIO *sink = BIO_new(BIO_s_mem());
    if (!filter || !sink) {
        BIO_free(filter);
        BIO_free(sink);
        return {};
    }
    std::unique_ptr<BIO, BioChainFree> chain(BIO_push(filter, sink));
    if (!newlines)
        BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
    // In slices, since BIO_write takes an int length.
    constexpr qsizetype kSlice = 1 << 24;
    for (qsizetype done = 0; done < data.size();) {
        const int length = int(std::min(kSlice, data.size() - done));
        const int written = BIO_write(chain.get(), data.constData() + done, length);
        if (written <= 0)
            return {};
        done += written;
    }
    if (BIO_flush(chain.get()) != 1) {
        printf("flush failed\n");
        return {};
    }
    char *bytes = nullptr;
    const long size = BIO_get_mem_data(sink, &bytes);
    return QByteArray(bytes, qsizetype(size));
}

QString encodeBase64WithNewlines(const QByteArray &data, bool newlines)
{
    const QByteArray bytes = encodeBase64BytesWithNewlines(data, newlines);
    if (bytes.isEmpty() && !data.isEmpty())
        return {};
    return QString::fromUtf8(bytes);
}

bool hasPrefixBytes(const QByteArray &data, const char *bytes, qsizetype length)
{
    if (!bytes || length <= 0 || data.size() < length)
        return false;
    return memcmp(data.constData(), bytes, size_t(length)) == 0;
}

bool hasPrefix(const QByteArray &data, const QByteArray &prefix)
{
    return hasPrefixBytes(data, prefix.constData(), prefix.size());
}

QByteArray cleanEncodedAttachment(const QByteArray &encoded)
{
    const qsizetype length = encoded.size();
    QByteArray out;
    out.resize((length + 1) / 72 * 2 + length + 2);
    char *write = out.data();
    const char *read = encoded.constData();
    int sinceBreak = 0;
    // The walk includes the terminating NUL, so a break is due after a full
    // last line too.
    for (qsizetype i = 0; i <= length; ++i) {
        if (sinceBreak == 72) {
            *write++ = '\r';
            *write++ = '\n';
            sinceBreak = 0;
        }
        const char c = i < length ? read[i] : '\0';
        if (c == '\0' || c == '\n' || c == '\r')
            continue;
        *write++ = c;
        ++sinceBreak;
    }
    out.truncate(write - out.constData());
    return out;
}

QString sizeDescription(quint64 n)
{
    if (n > 1000000000)
        return QStringLiteral("%1 GB").arg(n / 1000000000);
    if (n > 1000000)
        return QStringLiteral("%1 MB").arg(n / 1000000);
    if (n > 1000)
        return n < 2 ? QStringLiteral("%1 KBs").arg(n / 1000)
                     : QStringLiteral("%1 KB").arg(n / 1000);
    return n < 2 ? QStringLiteral("%1 Bs").arg(n) : QStringLiteral("%1 B").arg(n);
}

} // namespace SMTPDataBase64
