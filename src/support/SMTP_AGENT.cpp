#include "SMTP_AGENT.h"

#include "PGLog.h"
#include "SMTPBase64.h"
#include "SMTPDataBase64.h"
#include "SMTPSocket.h"

#include <QFile>
#include <QFileInfo>
#include <QHostInfo>
#include <atomic>
#include <clocale>
#include <cstring>
#include <ctime>
#include <locale.h>
#include <unistd.h>

const char *const SMTP_AGENT::kBoundary = "------------070805090207080801070001";

namespace {

std::atomic<bool> g_timedOut{false};
std::atomic<int> g_connectTimeoutMs{SMTP_AGENT::kConnectTimeoutMs};
std::atomic<int> g_replyTimeoutMs{SMTP_AGENT::kReplyTimeoutMs};

constexpr size_t kScratchSize = 255;

// The send time in the mail form, with English names whatever the locale.
QString mailDate()
{
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    char text[64] = {};
    if (locale_t c = newlocale(LC_ALL_MASK, "C", nullptr)) {
        strftime_l(text, sizeof text, "%a, %d %b %Y %H:%M:%S %z", &local, c);
        freelocale(c);
    }
    return QString::fromLatin1(text);
}

// The name a mail server greeting expects after EHLO or HELO.
QByteArray hostName()
{
    const QString name = QHostInfo::localHostName();
    return name.isEmpty() ? QByteArrayLiteral("localhost") : name.toUtf8();
}

// A user name or password, base64-encoded in the 255-byte scratch buffer.
// One the encoder refuses (a byte of 128 or more), or whose encoded form would
// not fit, goes as it stands.
QByteArray encodedCredential(char (&scratch)[kScratchSize], const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    memset(scratch, 0, sizeof scratch);
    const size_t length = std::min(size_t(bytes.size()), sizeof scratch - 1);
    memcpy(scratch, bytes.constData(), length);
    if (4 * ((length + 2) / 3) < sizeof scratch)
        base64(EDSwitchEncode, scratch);
    QByteArray line(scratch);
    memset(scratch, 0, sizeof scratch);
    return line + "\r\n";
}

} // namespace

SMTP_AGENT::SMTP_AGENT() = default;
SMTP_AGENT::~SMTP_AGENT() = default;

bool SMTP_AGENT::timeoutFlag()
{
    return g_timedOut;
}

void SMTP_AGENT::clearTimeoutFlag()
{
    g_timedOut = false;
}

void SMTP_AGENT::setConnectTimeoutForTesting(int milliseconds)
{
    g_connectTimeoutMs = milliseconds;
}

void SMTP_AGENT::setReplyTimeoutForTesting(int milliseconds)
{
    g_replyTimeoutMs = milliseconds;
}

unsigned SMTP_AGENT::sendMessage(const QString &message, const QStringList &to, const QString &from,
                                 const QString &subject, const QString &mailServer,
                                 const QString &username, const QString &password,
                                 const QString &userAgent, const QStringList &attachmentFilenames,
                                 bool usePOPAuth)
{
    SMTP_AGENT agent;
    return agent.sendMessage({message, to, from, subject, mailServer, username, password, userAgent,
                              attachmentFilenames, usePOPAuth});
}

bool SMTP_AGENT::socketDialog(SMTPSocket &socket, const QByteArray &transmit,
                              const QByteArray &expect)
{
    if (!transmit.isEmpty()) {
        if (!socket.writeAll(transmit.constData(), transmit.size()))
            return false;
        usleep(10000);
    }
    PGLog(QStringLiteral("> ") + QString::fromUtf8(transmit));
    if (expect.isEmpty() || expect == "None")
        return true;
    const QByteArray reply = socket.readReply();
    PGLog(QStringLiteral("< ") + QString::fromUtf8(reply));
    return reply.startsWith(expect);
}

QString SMTP_AGENT::dotStuffed(const QString &text)
{
    QString out;
    out.reserve(text.size() + 16);
    qsizetype from = 0;
    if (text.startsWith(QLatin1Char('.')))
        out += QLatin1Char('.');
    for (qsizetype at; (at = text.indexOf(QLatin1String("\r\n."), from)) >= 0; from = at + 2) {
        out += QStringView(text).mid(from, at + 2 - from);
        out += QLatin1Char('.');
    }
    out += QStringView(text).mid(from);
    return out;
}

QString SMTP_AGENT::composeMessage(const SMTPMessageRequest &request, const QString &recipient,
                                   const QString &date, const QList<QByteArray> &encodedAttachments)
{
    const QString boundary = QLatin1String(kBoundary);
    const bool attaching = !encodedAttachments.isEmpty();
    qsizetype size = request.message.size() + 1024;
    for (const QByteArray &contents : encodedAttachments)
        size += contents.size() + 256;
    QString text;
    text.reserve(size);
    text += QStringLiteral("Date: %1\r\nFrom: %2\r\nUser-Agent: %3\r\nMIME-Version: 1.0\r\nTo: "
                           "%4\r\nSubject: %5\r\n")
                .arg(date, request.from, request.userAgent, recipient, request.subject);
    if (attaching)
        text +=
            QStringLiteral("Content-Type: multipart/mixed;\r\n boundary=\"%1\"\r\n").arg(boundary);
    text += QLatin1String("\r\n");
    if (attaching)
        text += QStringLiteral("This is a multi-part message in MIME format.\r\n--%1\r\n"
                               "Content-Transfer-Encoding: 7bit\r\nContent-Type: text/plain;\r\n"
                               "\tcharset=ISO-8859-1;\r\n\tformat=flowed\r\n\r\n")
                    .arg(boundary);
    text += dotStuffed(request.message);
    qsizetype index = 0;
    for (const QByteArray &contents : encodedAttachments) {
        const QString name = QFileInfo(request.attachmentFilenames.value(index++)).fileName();
        text += QStringLiteral("\r\n\r\n\r\n\r\n--%1\r\nContent-Transfer-Encoding: base64\r\n"
                               "Content-Type: %2;\r\n\tx-mac-type=50444620;\r\n\tname=%3;\r\n"
                               "\tx-mac-creator=70727677\r\nContent-Disposition: inline\r\n\r\n")
                    .arg(boundary, QStringLiteral("application/zip"), name);
        text += QLatin1String(contents);
        text += QLatin1String("\r\n");
    }
    if (attaching)
        text += QStringLiteral("--%1--\r\n").arg(boundary);
    text += QLatin1String("\r\n\r\n.\r\n");
    return text;
}

unsigned SMTP_AGENT::connectToMailServer(SMTPSocket &socket, const QString &server)
{
    const std::optional<in_addr> address = SMTPSocket::resolve(server);
    if (!address)
        return HostNotFound;
    // A fresh socket for each port: one whose connect failed may not connect again.
    bool connected = false;
    for (const quint16 port : {kFirstPort, kSecondPort}) {
        if (port == kSecondPort)
            g_timedOut = false;
        if (!socket.open())
            return ConnectFailed;
        const SMTPSocket::Connect outcome = socket.connectTo(*address, port, g_connectTimeoutMs);
        if (outcome == SMTPSocket::Connect::TimedOut)
            g_timedOut = true;
        if (outcome == SMTPSocket::Connect::Connected) {
            socket.setExchangeTimeout(g_replyTimeoutMs);
            connected = true;
            break;
        }
    }
    if (!connected)
        return g_timedOut ? ConnectTimedOut : ConnectFailed;
    return Success;
}

unsigned SMTP_AGENT::authenticate(SMTPSocket &socket, const QString &username,
                                  const QString &password)
{
    char scratch[kScratchSize];
    if (!socketDialog(socket, "AUTH LOGIN\r\n", "334"))
        return AuthLoginRefused;
    if (!socketDialog(socket, encodedCredential(scratch, username), "334"))
        return UsernameRefused;
    if (!socketDialog(socket, encodedCredential(scratch, password), "235"))
        return PasswordRefused;
    return Success;
}

unsigned SMTP_AGENT::sendMessage(const SMTPMessageRequest &request)
{
    const unsigned result = send(request);
    return result;
}

unsigned SMTP_AGENT::send(const SMTPMessageRequest &request)
{
    PGLog(QStringLiteral("\nRetrieving attachment file contents...\n"));
    QList<QByteArray> attachments;
    QStringList attachedNames;
    for (const QString &path : request.attachmentFilenames) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return AttachmentUnreadable;
        const QByteArray contents = file.readAll();
        if (file.error() != QFileDevice::NoError)
            return AttachmentUnreadable;
        PGLog(QStringLiteral("OK - Success retrieving attachment file contents\n"));
        PGLog(QStringLiteral("Encoding attachment file contents...\n"));
        const QByteArray encoded = SMTPDataBase64::encodeBase64BytesWithNewlines(contents, true);
        if (encoded.isEmpty() && !contents.isEmpty())
            continue;
        PGLog(QStringLiteral("OK - Success encoding attachment file contents\n"));
        PGLog(QStringLiteral("Cleaning up encoded attachment file contents...\n"));
        attachments.append(SMTPDataBase64::cleanEncodedAttachment(encoded));
        attachedNames.append(path);
        PGLog(QStringLiteral("OK - Success cleaning encoded attachment file contents\n"));
        const quint64 size = quint64(encoded.size() + 1) / 72 + quint64(encoded.size()) + 1;
        PGLog(QStringLiteral("\n\nEncoded Attachment file content size:\n\n%1\n\n")
                  .arg(SMTPDataBase64::sizeDescription(size)));
    }
    SMTPMessageRequest message = request;
    message.attachmentFilenames = attachedNames; // the names beside what is attached

    if (request.usePOPAuth) {
        const unsigned pop =
            loginToPOPServer(request.mailServer, request.username, request.password, true);
        if (pop != Success)
            return pop;
    }

    SMTPSocket socket;
    if (const unsigned connected = connectToMailServer(socket, request.mailServer);
        connected != Success)
        return connected;
    if (!socketDialog(socket, {}, "220"))
        return NoGreeting;
    const QByteArray host = hostName();
    // EHLO first: AUTH is an ESMTP extension, and servers refuse a bare name.
    if (!socketDialog(socket, "EHLO " + host + "\r\n", "250"))
        socketDialog(socket, "HELO " + host + "\r\n", "250");
    if (!request.usePOPAuth && !request.username.isEmpty() && !request.password.isEmpty()) {
        if (const unsigned auth = authenticate(socket, request.username, request.password);
            auth != Success)
            return auth;
    }

    const QString date = mailDate();
    for (const QString &recipient : request.to) {
        if (recipient.isEmpty())
            continue;
        if (!socketDialog(socket, QStringLiteral("MAIL FROM:<%1>\r\n").arg(request.from).toUtf8(),
                          "250"))
            return MailFromRefused;
        if (!socketDialog(socket, QStringLiteral("RCPT TO:<%1>\r\n").arg(recipient).toUtf8(),
                          "250"))
            return RcptToRefused;
        if (!socketDialog(socket, "DATA\r\n", "354"))
            return DataRefused;
        const QString text = composeMessage(message, recipient, date, attachments);
        PGLog(QStringLiteral("Full message content:...\n\n%1\n\n").arg(text));
        PGLog(QStringLiteral("\n\tdoing chunked write!!\n"));
        const qsizetype pieces = text.size() > kPieceLength ? text.size() / kPieceLength : 0;
        for (qsizetype i = 0; i < pieces; ++i) {
            const QByteArray piece = QStringView(text).mid(i * kPieceLength, kPieceLength).toUtf8();
            if (!socketDialog(socket, piece, {}))
                return MessageFailed;
        }
        const QByteArray rest = QStringView(text).mid(pieces * kPieceLength).toUtf8();
        if (!socketDialog(socket, rest, "250"))
            return MessageFailed;
    }
    if (!socketDialog(socket, "QUIT\r\n", "None"))
        return QuitFailed;
    return Success;
}

unsigned SMTP_AGENT::loginToPOPServer(const QString &server, const QString &username,
                                      const QString &password, bool logOutWhenFinished)
{
    auto socket = std::make_unique<SMTPSocket>();
    if (!socket->open())
        return POPNoSocket;
    const std::optional<in_addr> address = SMTPSocket::resolve(server);
    if (!address) {
        if (g_timedOut.exchange(false))
            return POPLookUpTimedOut;
        return POPHostNotFound;
    }
    const SMTPSocket::Connect outcome = socket->connectTo(*address, kPOPPort, g_connectTimeoutMs);
    if (outcome == SMTPSocket::Connect::TimedOut)
        g_timedOut = true;
    if (outcome != SMTPSocket::Connect::Connected)
        return POPConnectFailed;
    socket->setExchangeTimeout(g_replyTimeoutMs);
    if (!socketDialog(*socket, {}, "+OK"))
        return POPNoGreeting;
    if (!username.isEmpty() && !password.isEmpty()) {
        if (!socketDialog(*socket, QStringLiteral("USER %1\r\n").arg(username).toUtf8(), "+OK"))
            return POPUserRefused;
        if (!socketDialog(*socket, QStringLiteral("PASS %1\r\n").arg(password).toUtf8(), "+OK"))
            return POPPassRefused;
    }
    if (logOutWhenFinished) {
        socketDialog(*socket, "QUIT\r\n", {});
        socket->close();
        return Success;
    }
    m_popSocket = std::move(socket);
    return Success;
}
