#pragma once

#include <QByteArray>
#include <QString>
#include <cstdint>
#include <optional>

// The records of the update-information protocol, the version values they
// carry and the rule that decides whether a reply offers an update. Pure
// logic: the socket lives in HXUpdateExchange, the alerts in HXUpdateCheck.
namespace HXUpdateRecords {

constexpr int kRequestSize = 180;
constexpr int kReplySize = 368;
constexpr quint16 kPort = 1055;
constexpr quint32 kRequestCode = 0x43303031; // "C001"

// What the running application sends about itself.
struct Request
{
    quint32 version = 0;  // the version value of the short version
    QByteArray signature; // "????"
    QByteArray fullName;  // the user's full name, UTF-8
    QByteArray locale;    // "en_US"
    quint32 systemVersion = 0;
};

// What the server answers about the newest release.
struct Reply
{
    quint32 code = 0;
    quint32 version = 0;
    QString productName;
    QString url;
    QString build; // decimal text
};

// 5.0.1 and 5.01 both give 0x501: every hexadecimal digit counts, in order,
// and everything else (the dots) is skipped.
quint32 valueFromHexidecimalString(const QString &text);
// 0x501 gives "5.0.1", 0x1021 "10.2.1", 0x10 (version 0.1.0) "0.1.0": the
// last four hexadecimal digits, the first two of them the major number;
// fewer than three digits are padded with zeros so that a 0 major still
// reads as one.
QString versionStringFromVersionValue(quint32 value);
// The operating-system value: 10.6.8 gives 0x1068, 10.10.3 gives 0xA0A03.
quint32 systemVersionValue(qint32 major, qint32 minor, qint32 bugfix);

QByteArray encodeRequest(const Request &request);
// Anything but exactly kReplySize bytes is no reply.
std::optional<Reply> decodeReply(const QByteArray &bytes);
// Used by the tests' own server side as well as by the tests themselves.
QByteArray encodeReply(const Reply &reply);

// The running build number of a build made without version history.
constexpr qint64 kUnknownBuild = 0;

// True when the reply names a release newer than the running one: a higher
// version value, or a higher build number with any version value. With the
// running build unknown only the version values count: any build number
// would otherwise look newer, and the same release would be offered to
// itself at every check.
bool offersUpdate(const Reply &reply, quint32 runningVersion, qint64 runningBuild);

} // namespace HXUpdateRecords
