// The mail agent against real servers on 127.0.0.1: Debian's aiosmtpd, and
// small scripted SMTP and POP3 servers (tests/peers/mail_peer.py), each on the
// agent's own ports. Every result code is reached by a server or a setting
// that fails at that step.

#include "MailPeer.h"
#include "PGLog.h"
#include "SMTP_AGENT.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QtConcurrent>
#include <sys/resource.h>
#include <unistd.h>

namespace {

const QString kLocal = QStringLiteral("127.0.0.1");
const QString kSmtpPort = QString::number(SMTP_AGENT::kFirstPort);
const QString kSecondPort = QString::number(SMTP_AGENT::kSecondPort);
const QString kPopPort = QString::number(SMTP_AGENT::kPOPPort);

// The agent blocks its thread; like the help reporter, run it on another.
unsigned sendOnWorker(SMTPMessageRequest request)
{
    return QtConcurrent::run([request] {
               SMTP_AGENT agent;
               return agent.sendMessage(request);
           })
        .result();
}

SMTPMessageRequest basicRequest()
{
    SMTPMessageRequest r;
    r.message = QStringLiteral("Hello support.\r\n");
    r.to = {QStringLiteral("support@talvorn.example")};
    r.from = QStringLiteral("orvex@talvorn.example");
    r.subject = QStringLiteral("Orvex report from someone@example.org");
    r.mailServer = kLocal;
    r.username = QStringLiteral("Orvex");
    r.password = QStringLiteral("secret");
    r.userAgent = QStringLiteral("Orvex 0.1.0");
    return r;
}

} // namespace

class SMTPAgentTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void deliversMessageWithAttachments();
    void transactionPerRecipient();
    void longMessageInPieces();
    void refusalsByAiosmtpd_data();
    void refusalsByAiosmtpd();
    void refusalsByScriptedServer_data();
    void refusalsByScriptedServer();
    void quitThatCannotBeWritten();
    void failuresBeforeAnyServer();
    void connectTimeoutAndStaleFlag();
    void popLoginThenSmtp();
    void popRefusals_data();
    void popRefusals();
    void popWithoutSocket();

private:
    QString zipOf(const QString &name, qsizetype randomBytes);

    QTemporaryDir m_dir;
    QString m_why;
};

void SMTPAgentTest::initTestCase()
{
    if (!MailPeer::available(&m_why))
        QSKIP(qPrintable(m_why));
    QVERIFY(m_dir.isValid());
    // The failure cases that wait for a connect to time out wait this long.
    SMTP_AGENT::setConnectTimeoutForTesting(300);
}

void SMTPAgentTest::init()
{
    SMTP_AGENT::clearTimeoutFlag();
}

void SMTPAgentTest::cleanupTestCase()
{
    SMTP_AGENT::setConnectTimeoutForTesting(SMTP_AGENT::kConnectTimeoutMs);
}

QString SMTPAgentTest::zipOf(const QString &name, qsizetype randomBytes)
{
    const QString source = m_dir.filePath(name + QStringLiteral(".bin"));
    QFile f(source);
    if (!f.open(QIODevice::WriteOnly))
        return {};
    QByteArray data(randomBytes, Qt::Uninitialized);
    QRandomGenerator random{quint32(randomBytes)};
    for (auto &b : data)
        b = char(random.bounded(256));
    f.write(data);
    f.close();
    const QString archive = m_dir.filePath(name + QStringLiteral(".zip"));
    QFile::remove(archive);
    QProcess zip;
    zip.start(QStringLiteral("zip"),
              {QStringLiteral("-q"), QStringLiteral("--junk-paths"), archive, source});
    if (!zip.waitForFinished(30000) || zip.exitCode() != 0)
        return {};
    return archive;
}

void SMTPAgentTest::deliversMessageWithAttachments()
{
    const QString store = m_dir.filePath(QStringLiteral("store-attachments"));
    QDir().mkpath(store);
    MailPeer server;
    START_MAIL_PEER(server, {QStringLiteral("smtp"), kSmtpPort, store});

    SMTPMessageRequest request = basicRequest();
    // A line holding a single "." must not end the message; a line that
    // starts with dots keeps them; non-ASCII text is sent as UTF-8.
    request.message =
        QStringLiteral("First line\r\n.\r\n..two dots\r\n.leading\r\nGr\u00fc\u00dfe\r\n");
    const QString big = zipOf(QStringLiteral("OrvexLogs"), 300000);
    QVERIFY(!big.isEmpty());
    // 54 bytes encode to exactly 72 characters: the line-break edge.
    const QString exact = m_dir.filePath(QStringLiteral("Exact.zip"));
    {
        QFile f(exact);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(QByteArray(54, '\x7f'));
    }
    const QString small = zipOf(QStringLiteral("OrvexDiskInfo"), 10);
    request.attachmentFilenames = {big, exact, small};
    PGLogFinish();
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::Success));

    const QString eml = store + QStringLiteral("/1.eml");
    QVERIFY(QFileInfo::exists(eml));
    QVERIFY(!QFileInfo::exists(store + QStringLiteral("/2.eml")));
    const QString parts = m_dir.filePath(QStringLiteral("parts"));
    QDir().mkpath(parts);
    const QByteArray json = MailPeer::run({QStringLiteral("parse"), eml, parts}, &m_why);
    QVERIFY2(!json.isEmpty(), qPrintable(m_why));
    const QJsonObject parsed = QJsonDocument::fromJson(json).object();
    const QJsonObject headers = parsed.value(QStringLiteral("headers")).toObject();
    QCOMPARE(headers.value(QStringLiteral("Subject")).toString(), request.subject);
    QCOMPARE(headers.value(QStringLiteral("From")).toString(), request.from);
    QCOMPARE(headers.value(QStringLiteral("To")).toString(), request.to.first());
    QCOMPARE(headers.value(QStringLiteral("User-Agent")).toString(), request.userAgent);
    QVERIFY(!headers.value(QStringLiteral("Date")).toString().isEmpty());
    QVERIFY(parsed.value(QStringLiteral("multipart")).toBool());
    QCOMPARE(parsed.value(QStringLiteral("defects")).toArray().size(), 0);

    const QJsonArray partList = parsed.value(QStringLiteral("parts")).toArray();
    QCOMPARE(partList.size(), 4);
    auto partBytes = [](const QJsonValue &part) {
        QFile f(part.toObject().value(QStringLiteral("file")).toString());
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    };
    // The text arrives byte for byte; the parser keeps the blank lines
    // that separate it from the first attachment.
    const QByteArray text = partBytes(partList.at(0));
    const QByteArray sent = request.message.toUtf8();
    QVERIFY2(text.startsWith(sent), text.constData());
    QVERIFY(text.mid(sent.size()).trimmed().isEmpty());
    const QStringList originals = request.attachmentFilenames;
    for (int i = 0; i < originals.size(); ++i) {
        const QJsonObject part = partList.at(i + 1).toObject();
        QCOMPARE(part.value(QStringLiteral("type")).toString(), QStringLiteral("application/zip"));
        QCOMPARE(part.value(QStringLiteral("filename")).toString(),
                 QFileInfo(originals[i]).fileName());
        QCOMPARE(part.value(QStringLiteral("defects")).toArray().size(), 0);
        QFile original(originals[i]);
        QVERIFY(original.open(QIODevice::ReadOnly));
        QCOMPARE(partBytes(part), original.readAll());
    }
    // Every attachment line on the wire holds 72 characters at most.
    QFile raw(eml);
    QVERIFY(raw.open(QIODevice::ReadOnly));
    enum { Outside, Headers, Body } state = Outside;
    int checked = 0;
    for (QByteArray line : raw.readAll().split('\n')) {
        if (line.endsWith('\r'))
            line.chop(1);
        if (line.startsWith("--"))
            state = Outside;
        else if (line.startsWith("Content-Transfer-Encoding: base64"))
            state = Headers;
        else if (state == Headers && line.isEmpty())
            state = Body;
        else if (state == Body && !line.isEmpty()) {
            QVERIFY2(line.size() <= 72, line.constData());
            ++checked;
        }
    }
    QVERIFY(checked > 0);

    const QByteArray log = PGLogContents();
    QVERIFY(log.contains("> EHLO "));
    QVERIFY(log.contains("> AUTH LOGIN"));
    QVERIFY(log.contains("Encoded Attachment file content size:"));
    QVERIFY(log.contains("> QUIT"));
}

void SMTPAgentTest::transactionPerRecipient()
{
    const QString store = m_dir.filePath(QStringLiteral("store-recipients"));
    QDir().mkpath(store);
    MailPeer server;
    START_MAIL_PEER(server, {QStringLiteral("smtp"), kSmtpPort, store});

    SMTPMessageRequest request = basicRequest();
    request.to = {QStringLiteral("first@example.org"), QString(),
                  QStringLiteral("second@example.org")};
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::Success));
    QStringList received;
    for (const QString &name :
         QDir(store).entryList({QStringLiteral("*.eml")}, QDir::Files, QDir::Name)) {
        QFile f(store + QLatin1Char('/') + name);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray bytes = f.readAll();
        const qsizetype at = bytes.indexOf("\r\nTo: ");
        QVERIFY(at >= 0);
        received << QString::fromUtf8(bytes.mid(at + 6, bytes.indexOf("\r\n", at + 2) - at - 6));
    }
    QCOMPARE(received, (QStringList{QStringLiteral("first@example.org"),
                                    QStringLiteral("second@example.org")}));

    // No recipient at all: still connects, logs in and quits.
    PGLogFinish();
    request.to.clear();
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::Success));
    const QByteArray log = PGLogContents();
    QVERIFY(log.contains("> AUTH LOGIN"));
    QVERIFY(!log.contains("MAIL FROM"));
    QVERIFY(log.contains("> QUIT"));
    QCOMPARE(QDir(store).entryList({QStringLiteral("*.eml")}, QDir::Files).size(), 2);
}

void SMTPAgentTest::longMessageInPieces()
{
    const QString store = m_dir.filePath(QStringLiteral("store-long"));
    QDir().mkpath(store);
    MailPeer server;
    START_MAIL_PEER(server, {QStringLiteral("smtp"), kSmtpPort, store});

    // Exactly two pieces long, with lines the server must take as they are.
    SMTPMessageRequest request = basicRequest();
    request.attachmentFilenames.clear();
    const qsizetype piece = SMTP_AGENT::kPieceLength;
    QString text;
    for (int i = 0; text.size() < 2 * piece; ++i)
        text += QStringLiteral("%1 ").arg(i, 6, 10, QLatin1Char('0')) +
                QString(90, QLatin1Char('x')) + QStringLiteral("\r\n");
    text.truncate(2 * piece - 2);
    text += QStringLiteral("\r\n");
    QCOMPARE(text.size(), 1048576);
    request.message = text;
    PGLogFinish();
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::Success));
    QFile f(store + QStringLiteral("/1.eml"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray bytes = f.readAll();
    const qsizetype body = bytes.indexOf("\r\n\r\n") + 4;
    QCOMPARE(bytes.mid(body, text.size()), text.toUtf8());
    // The whole text went out as two pieces of 524,288 characters and the
    // rest, each its own write in the log.
    const QByteArray log = PGLogContents();
    const QByteArray marker = "doing chunked write!!\n\n\n";
    const qsizetype at = log.indexOf(marker);
    QVERIFY(at >= 0);
    const QByteArray writes = log.mid(at + marker.size());
    QVERIFY(writes.startsWith("> "));
    QCOMPARE(writes.mid(2 + piece, 4), QByteArray("\n\n> "));
    QCOMPARE(writes.mid(2 + piece + 4 + piece, 4), QByteArray("\n\n> "));
    const qsizetype rest = writes.indexOf("\n\n< 250", 2 * piece + 10);
    QVERIFY(rest > 2 * piece + 10);
    QVERIFY(!writes.mid(2 * piece + 10, rest - 2 * piece - 10).contains("\n\n> "));
}

void SMTPAgentTest::refusalsByAiosmtpd_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QString>("username");
    QTest::addColumn<unsigned>("code");
    QTest::newRow("AUTH LOGIN not offered")
        << QStringList{QStringLiteral("--exclude-login")} << QStringLiteral("Orvex")
        << unsigned(SMTP_AGENT::AuthLoginRefused);
    // A name the in-place encoder refuses goes unencoded, which the server cannot decode.
    QTest::newRow("user name sent unencoded")
        << QStringList() << QStringLiteral("J\u00fcrgen") << unsigned(SMTP_AGENT::UsernameRefused);
    QTest::newRow("wrong password")
        << QStringList{QStringLiteral("--password"), QStringLiteral("other")}
        << QStringLiteral("Orvex") << unsigned(SMTP_AGENT::PasswordRefused);
    QTest::newRow("sender refused")
        << QStringList{QStringLiteral("--refuse"), QStringLiteral("mail")}
        << QStringLiteral("Orvex") << unsigned(SMTP_AGENT::MailFromRefused);
    QTest::newRow("recipient refused")
        << QStringList{QStringLiteral("--refuse"), QStringLiteral("rcpt")}
        << QStringLiteral("Orvex") << unsigned(SMTP_AGENT::RcptToRefused);
    QTest::newRow("message refused")
        << QStringList{QStringLiteral("--refuse"), QStringLiteral("message")}
        << QStringLiteral("Orvex") << unsigned(SMTP_AGENT::MessageFailed);
}

void SMTPAgentTest::refusalsByAiosmtpd()
{
    QFETCH(QStringList, options);
    QFETCH(QString, username);
    const QString store = m_dir.filePath(QStringLiteral("store-refusals"));
    QDir().mkpath(store);
    MailPeer server;
    START_MAIL_PEER(server, QStringList{QStringLiteral("smtp"), kSmtpPort, store} + options);
    SMTPMessageRequest request = basicRequest();
    request.username = username;
    QTEST(sendOnWorker(request), "code");
    QVERIFY(QDir(store).entryList({QStringLiteral("*.eml")}, QDir::Files).isEmpty());
}

void SMTPAgentTest::refusalsByScriptedServer_data()
{
    QTest::addColumn<QString>("failAt");
    QTest::addColumn<QString>("port");
    QTest::addColumn<unsigned>("code");
    QTest::newRow("no 220 greeting")
        << QStringLiteral("greeting") << kSmtpPort << unsigned(SMTP_AGENT::NoGreeting);
    QTest::newRow("user name refused")
        << QStringLiteral("user") << kSmtpPort << unsigned(SMTP_AGENT::UsernameRefused);
    QTest::newRow("DATA refused") << QStringLiteral("data") << kSmtpPort
                                  << unsigned(SMTP_AGENT::DataRefused);
    // A server that falls silent ends the exchange after the reply time-out.
    QTest::newRow("silent before the greeting")
        << QStringLiteral("silent") << kSmtpPort << unsigned(SMTP_AGENT::NoGreeting);
    QTest::newRow("silent after the message")
        << QStringLiteral("silent-after-data") << kSmtpPort << unsigned(SMTP_AGENT::MessageFailed);
    // A server without extensions refuses EHLO; after HELO the mail goes
    // (it refuses MAIL FROM from a client that never said either).
    QTest::newRow("EHLO refused, HELO taken")
        << QStringLiteral("ehlo") << kSmtpPort << unsigned(SMTP_AGENT::Success);
    // Nothing on 5331: the second port is tried, and everything works there.
    QTest::newRow("second port") << QStringLiteral("none") << kSecondPort
                                 << unsigned(SMTP_AGENT::Success);
}

void SMTPAgentTest::refusalsByScriptedServer()
{
    QFETCH(QString, failAt);
    QFETCH(QString, port);
    QFETCH(unsigned, code);
    if (port == kSecondPort && MailPeer::portInUse(SMTP_AGENT::kFirstPort))
        QSKIP("port 5331 on 127.0.0.1 is taken by another program");
    MailPeer server;
    START_MAIL_PEER(server, {QStringLiteral("scripted"), port, failAt});
    SMTP_AGENT::setReplyTimeoutForTesting(
        failAt.startsWith(QLatin1String("silent")) ? 300 : SMTP_AGENT::kReplyTimeoutMs);
    const unsigned result = sendOnWorker(basicRequest());
    SMTP_AGENT::setReplyTimeoutForTesting(SMTP_AGENT::kReplyTimeoutMs);
    QCOMPARE(result, code);
}

void SMTPAgentTest::quitThatCannotBeWritten()
{
    MailPeer server;
    START_MAIL_PEER(server, {QStringLiteral("scripted"), kSmtpPort, QStringLiteral("quit")});
    // The server accepts the message and resets the connection at once; the
    // agent's pause after writing lets the reset arrive before QUIT, unless
    // the machine is too busy to run the server in time, when QUIT still goes
    // out and the send succeeds. A few rounds make the reset certain.
    unsigned result = 0;
    for (int round = 0; round < 5 && result != SMTP_AGENT::QuitFailed; ++round) {
        result = sendOnWorker(basicRequest());
        QVERIFY2(result == SMTP_AGENT::QuitFailed || result == SMTP_AGENT::Success,
                 qPrintable(QString::number(result)));
    }
    QCOMPARE(result, unsigned(SMTP_AGENT::QuitFailed));
}

void SMTPAgentTest::failuresBeforeAnyServer()
{
    SMTPMessageRequest request = basicRequest();
    request.attachmentFilenames = {m_dir.filePath(QStringLiteral("missing.zip"))};
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::AttachmentUnreadable));

    request = basicRequest();
    request.mailServer = QStringLiteral("no-such-host.invalid");
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::HostNotFound));

    if (MailPeer::portInUse(SMTP_AGENT::kFirstPort) || MailPeer::portInUse(SMTP_AGENT::kSecondPort))
        QSKIP("port 5331 or 50025 on 127.0.0.1 is taken by another program");
    QCOMPARE(sendOnWorker(basicRequest()), unsigned(SMTP_AGENT::ConnectFailed));
    QVERIFY(!SMTP_AGENT::timeoutFlag());
}

void SMTPAgentTest::connectTimeoutAndStaleFlag()
{
    MailPeer blackhole;
    START_MAIL_PEER(blackhole, {QStringLiteral("blackhole"), kSmtpPort, kSecondPort});
    QCOMPARE(sendOnWorker(basicRequest()), unsigned(SMTP_AGENT::ConnectTimedOut));
    QVERIFY(SMTP_AGENT::timeoutFlag());
    // The flag outlives the send; a POP look-up that fails then reports the
    // time-out and clears it, and the next failure is a plain one.
    SMTP_AGENT agent;
    QCOMPARE(agent.loginToPOPServer(QStringLiteral("no-such-host.invalid"), QStringLiteral("u"),
                                    QStringLiteral("p"), true),
             unsigned(SMTP_AGENT::POPLookUpTimedOut));
    QVERIFY(!SMTP_AGENT::timeoutFlag());
    QCOMPARE(agent.loginToPOPServer(QStringLiteral("no-such-host.invalid"), QStringLiteral("u"),
                                    QStringLiteral("p"), true),
             unsigned(SMTP_AGENT::POPHostNotFound));
}

void SMTPAgentTest::popLoginThenSmtp()
{
    if (geteuid() != 0)
        QSKIP("the POP3 server needs port 110, which only root may open");
    const QString popLog = m_dir.filePath(QStringLiteral("pop-ok.log"));
    MailPeer pop;
    START_MAIL_PEER(pop, {QStringLiteral("pop"), kPopPort, popLog, QStringLiteral("none")});
    const QString store = m_dir.filePath(QStringLiteral("store-pop"));
    QDir().mkpath(store);
    MailPeer smtp;
    START_MAIL_PEER(smtp, {QStringLiteral("smtp"), kSmtpPort, store, QStringLiteral("--no-auth")});

    SMTPMessageRequest request = basicRequest();
    request.usePOPAuth = true;
    PGLogFinish();
    QCOMPARE(sendOnWorker(request), unsigned(SMTP_AGENT::Success));
    QFile log(popLog);
    QVERIFY(log.open(QIODevice::ReadOnly));
    QCOMPARE(log.readAll(), QByteArray("USER Orvex\nPASS secret\nQUIT\n"));
    QVERIFY(!PGLogContents().contains("> AUTH LOGIN"));
    QCOMPARE(QDir(store).entryList({QStringLiteral("*.eml")}, QDir::Files).size(), 1);
}

void SMTPAgentTest::popRefusals_data()
{
    QTest::addColumn<QString>("failAt");
    QTest::addColumn<unsigned>("code");
    QTest::newRow("no +OK greeting")
        << QStringLiteral("greeting") << unsigned(SMTP_AGENT::POPNoGreeting);
    QTest::newRow("USER refused") << QStringLiteral("user") << unsigned(SMTP_AGENT::POPUserRefused);
    QTest::newRow("PASS refused") << QStringLiteral("pass") << unsigned(SMTP_AGENT::POPPassRefused);
    QTest::newRow("nothing listening") << QString() << unsigned(SMTP_AGENT::POPConnectFailed);
}

void SMTPAgentTest::popRefusals()
{
    if (geteuid() != 0)
        QSKIP("the POP3 server needs port 110, which only root may open");
    QFETCH(QString, failAt);
    MailPeer pop;
    if (!failAt.isEmpty())
        START_MAIL_PEER(pop, {QStringLiteral("pop"), kPopPort,
                              m_dir.filePath(QStringLiteral("pop.log")), failAt});
    else if (MailPeer::portInUse(SMTP_AGENT::kPOPPort))
        QSKIP("port 110 on 127.0.0.1 is taken by another program");
    // Through a send, as the help reporter would: the POP result stands.
    SMTPMessageRequest request = basicRequest();
    request.usePOPAuth = true;
    QTEST(sendOnWorker(request), "code");
}

void SMTPAgentTest::popWithoutSocket()
{
    // No descriptor left below the limit: socket(2) fails. Only this thread
    // runs meanwhile, so nothing else is starved of descriptors.
    rlimit saved{};
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &saved), 0);
    const int lowestFree = dup(0);
    QVERIFY(lowestFree >= 0);
    close(lowestFree);
    rlimit tight = saved;
    tight.rlim_cur = rlim_t(lowestFree);
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &tight), 0);
    SMTP_AGENT agent;
    const unsigned result =
        agent.loginToPOPServer(kLocal, QStringLiteral("u"), QStringLiteral("p"), true);
    setrlimit(RLIMIT_NOFILE, &saved);
    QCOMPARE(result, unsigned(SMTP_AGENT::POPNoSocket));
}

QTEST_GUILESS_MAIN(SMTPAgentTest)
#include "tst_smtpagent.moc"
