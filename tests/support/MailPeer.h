#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <memory>

// One of tests/peers/mail_peer.py's servers, started with the given mode and
// arguments and stopped with the object.
class MailPeer
{
public:
    enum class Start { Ready, PortTaken, Failed };

    MailPeer() = default;
    ~MailPeer();
    MailPeer(const MailPeer &) = delete;
    MailPeer &operator=(const MailPeer &) = delete;

    // Waits until it listens; `why` says what went wrong otherwise.
    Start start(const QStringList &arguments, QString *why);
    void stop();

    // Runs a one-shot mode (parse, b64); its standard output, or nothing
    // with the error in *why.
    static QByteArray run(const QStringList &arguments, QString *why);
    static bool available(QString *why);
    // Whether something outside the test listens on 127.0.0.1:port.
    static bool portInUse(quint16 port);

private:
    std::unique_ptr<QProcess> m_process;
};

// Start a peer or leave the test: a taken port skips, anything else fails.
#define START_MAIL_PEER(peer, ...)                                                                 \
    do {                                                                                           \
        QString why_;                                                                              \
        const MailPeer::Start started_ = (peer).start(__VA_ARGS__, &why_);                         \
        if (started_ == MailPeer::Start::PortTaken)                                                \
            QSKIP(qPrintable(why_));                                                               \
        QVERIFY2(started_ == MailPeer::Start::Ready, qPrintable(why_));                            \
    } while (false)
