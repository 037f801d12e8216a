#include "MailPeer.h"

#include <QTcpSocket>

namespace {
const QString kPython = QStringLiteral("/usr/bin/python3");
const QString kScript = QStringLiteral(ORVEX_PEERS_DIR "/mail_peer.py");
} // namespace

MailPeer::~MailPeer()
{
    stop();
}

bool MailPeer::available(QString *why)
{
    QProcess p;
    p.start(kPython, {QStringLiteral("-c"), QStringLiteral("import aiosmtpd.controller, email")});
    if (p.waitForFinished(20000) && p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0)
        return true;
    *why = QStringLiteral("Debian's python3-aiosmtpd is not installed (scripts/install-deps.sh)");
    return false;
}

bool MailPeer::portInUse(quint16 port)
{
    QTcpSocket probe;
    probe.connectToHost(QStringLiteral("127.0.0.1"), port);
    const bool connected = probe.waitForConnected(2000);
    probe.abort();
    return connected;
}

MailPeer::Start MailPeer::start(const QStringList &arguments, QString *why)
{
    stop();
    m_process = std::make_unique<QProcess>();
    m_process->setProcessChannelMode(QProcess::SeparateChannels);
    m_process->start(kPython, QStringList{kScript} + arguments);
    QByteArray said;
    while (!said.contains('\n')) {
        if (!m_process->waitForReadyRead(30000))
            break;
        said += m_process->readAllStandardOutput();
    }
    if (said.startsWith("ready"))
        return Start::Ready;
    m_process->waitForFinished(5000);
    if (said.startsWith("port-taken")) {
        *why = QStringLiteral("port %1 on 127.0.0.1 is taken by another program")
                   .arg(arguments.value(1));
        m_process.reset();
        return Start::PortTaken;
    }
    *why = QStringLiteral("mail peer %1 did not start: %2")
               .arg(arguments.join(QLatin1Char(' ')),
                    QString::fromUtf8(said + m_process->readAllStandardError()));
    m_process.reset();
    return Start::Failed;
}

void MailPeer::stop()
{
    if (!m_process)
        return;
    m_process->kill();
    m_process->waitForFinished(5000);
    m_process.reset();
}

QByteArray MailPeer::run(const QStringList &arguments, QString *why)
{
    QProcess p;
    p.start(kPython, QStringList{kScript} + arguments);
    if (!p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        *why = QString::fromUtf8(p.readAllStandardError());
        return {};
    }
    return p.readAllStandardOutput();
}
