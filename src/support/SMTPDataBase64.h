#pragma once

#include <QByteArray>
#include <QString>

// Base64 for byte buffers, as the mail agent encodes its attachments.
namespace SMTPDataBase64 {

// Decodes standard base64, skipping characters outside the alphabet (line
// breaks) and stopping at the first "=".
QByteArray dataWithBase64EncodedString(const QString &text);
inline QByteArray initWithBase64EncodedString(const QString &text)
{
    return dataWithBase64EncodedString(text);
}

// Group by group with the standard alphabet and "=" padding; with a line
// length other than 0, "\n" follows the group that brings a line to that
// length or beyond.
QString base64EncodingWithLineLength(const QByteArray &data, unsigned lineLength);
inline QString base64Encoding(const QByteArray &data)
{
    return base64EncodingWithLineLength(data, 0);
}

// Through OpenSSL's base64 filter over a memory sink: 64-character lines,
// each ending in "\n", when `newlines`; one line otherwise. A null string
// when OpenSSL fails ("flush failed" is printed when the flush does).
QString encodeBase64WithNewlines(const QByteArray &data, bool newlines);
inline QString encodeBase64(const QByteArray &data)
{
    return encodeBase64WithNewlines(data, true);
}
// The same, handing back the filter's bytes without a detour through UTF-16;
// empty when OpenSSL fails.
QByteArray encodeBase64BytesWithNewlines(const QByteArray &data, bool newlines);

// False for an empty prefix or a shorter buffer, else whether the buffer
// starts with the prefix's bytes.
bool hasPrefix(const QByteArray &data, const QByteArray &prefix);
bool hasPrefixBytes(const QByteArray &data, const char *bytes, qsizetype length);

// Rebuilds encoded attachment text into lines of 72 characters ending in
// CR LF: every NUL, LF and CR is dropped, and a break is written before any
// byte (the terminating NUL included) that follows 72 characters. A text
// whose length is a multiple of 72 therefore ends with CR LF.
QByteArray cleanEncodedAttachment(const QByteArray &encoded);

// The mail agent's size wording for its log: "%lu GB", "MB", "KB", "B", and
// "Bs" for 0 and 1 bytes.
QString sizeDescription(quint64 bytes);

} // namespace SMTPDataBase64
