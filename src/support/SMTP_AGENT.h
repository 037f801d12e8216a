#pragma once

#include <QString>
#include <QStringList>
#include <memory>

class SMTPSocket;

// What one send carries.
struct SMTPMessageRequest
{
    QString message; // the message text, sent as it stands (dot-stuffed)
    QStringList to;  // one transaction each; empty entries are skipped
    QString from;
    QString subject;
    QString mailServer; // dotted IPv4 address or host name
    QString username;
    QString password;
    QString userAgent;
    QStringList attachmentFilenames; // paths of zip files, in order
    bool usePOPAuth = false;         // a POP3 login instead of AUTH LOGIN
};

// The program's own minimal mail client: one plain-text message with zip
// attachments, over a blocking TCP socket to port 5331, else 50025, with
// AUTH LOGIN or a POP3 login first. Everything it says and hears goes to the
// in-memory protocol log (PGLog.h).
//
// A send blocks its thread for the whole dialogue, each read and write bounded
// by kReplyTimeoutMs: call it on a worker thread, never the interface thread. The time-out flag
// and the protocol log are process-wide; one send at a time is expected.
class SMTP_AGENT
{
public:
    // Result codes: 222 is success, every other one names the failed step.
    enum Result : unsigned {
        HostNotFound = 114,
        AttachmentUnreadable = 115,
        ConnectFailed = 116,
        NoGreeting = 117,
        AuthLoginRefused = 119,
        UsernameRefused = 120,
        PasswordRefused = 121,
        MailFromRefused = 122,
        RcptToRefused = 123,
        DataRefused = 124,
        MessageFailed = 125,
        QuitFailed = 126,
        POPNoSocket = 130,
        POPHostNotFound = 131,
        POPConnectFailed = 132,
        POPNoGreeting = 133,
        POPUserRefused = 134,
        POPPassRefused = 135,
        ConnectTimedOut = 136,
        POPLookUpTimedOut = 137,
        Success = 222,
    };

    static constexpr quint16 kFirstPort = 5331;
    static constexpr quint16 kSecondPort = 50025;
    static constexpr quint16 kPOPPort = 110;
    static constexpr int kPieceLength = 524288;
    static constexpr int kConnectTimeoutMs = 5000;
    // A server that stops answering must not hold the report for ever, but
    // RFC 5321 (4.5.3.2.6) asks a client to wait 10 minutes for the reply to
    // the end of the data: the server may still be checking or storing the
    // message, and giving up early can get the same report delivered twice.
    static constexpr int kReplyTimeoutMs = 10 * 60 * 1000;
    static const char *const kBoundary;

    // Makes an agent, sends, and answers the result code.
    static unsigned sendMessage(const QString &message, const QStringList &to, const QString &from,
                                const QString &subject, const QString &mailServer,
                                const QString &username, const QString &password,
                                const QString &userAgent, const QStringList &attachmentFilenames,
                                bool usePOPAuth);

    SMTP_AGENT();
    ~SMTP_AGENT();

    unsigned sendMessage(const SMTPMessageRequest &request);
    // Without log-out the POP connection stays open as long as the agent.
    unsigned loginToPOPServer(const QString &server, const QString &username,
                              const QString &password, bool logOutWhenFinished);
    // One exchange: writes `transmit` (if any) in full and pauses 10 ms;
    // then, unless `expect` is empty or "None", reads one whole reply and
    // answers whether it begins with `expect`.
    bool socketDialog(SMTPSocket &socket, const QByteArray &transmit, const QByteArray &expect);

    // The message text exactly as it goes after DATA, for one recipient.
    static QString composeMessage(const SMTPMessageRequest &request, const QString &recipient,
                                  const QString &date, const QList<QByteArray> &encodedAttachments);
    // Doubles a "." that begins a line of `text` (RFC 5321, 4.5.2).
    static QString dotStuffed(const QString &text);

    // The process-wide flag a bounded connect sets when it runs out of time.
    static bool timeoutFlag();
    static void clearTimeoutFlag();
    // Tests make connects give up sooner than the five seconds.
    static void setConnectTimeoutForTesting(int milliseconds);
    static void setReplyTimeoutForTesting(int milliseconds);

private:
    unsigned send(const SMTPMessageRequest &request);
    unsigned connectToMailServer(SMTPSocket &socket, const QString &server);
    unsigned authenticate(SMTPSocket &socket, const QString &username, const QString &password);

    std::unique_ptr<SMTPSocket> m_popSocket; // kept open when a POP login did not log out
};
