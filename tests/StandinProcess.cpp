#include "StandinProcess.h"

#include <QDeadlineTimer>
#include <QProcessEnvironment>
#include <QThread>
#include <signal.h>

StandinProcess::StandinProcess(QString root)
    : m_root(std::move(root))
{
}

StandinProcess::~StandinProcess()
{
    if (isRunning())
        stop();
}

void StandinProcess::setProgram(const QString &path, const QString &servingLine)
{
    m_program = path;
    m_servingLine = servingLine;
}

bool StandinProcess::start(const QStringList &arguments)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(m_extra);
    env.insert(QStringLiteral("ORVEX_ROOT"), m_root);
    env.insert(QStringLiteral("ORVEX_DAEMON_BUS"), QStringLiteral("session"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_root + QStringLiteral("/config"));
    m_process.setProcessEnvironment(env);
    m_process.setProcessChannelMode(QProcess::SeparateChannels);
    m_process.setStandardOutputFile(QProcess::nullDevice());
    m_errors.clear();
    m_process.start(m_program, arguments);
    if (!m_process.waitForStarted(5000))
        return false;
    const QDeadlineTimer deadline(10000);
    while (!deadline.hasExpired()) {
        if (standardError().contains(m_servingLine))
            return true;
        if (!isRunning())
            return false;
        m_process.waitForReadyRead(50);
    }
    return false;
}

int StandinProcess::stop()
{
    signal(SIGTERM);
    if (!waitForExit(10000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
        return -1;
    }
    return m_process.exitCode();
}

void StandinProcess::signal(int signalNumber)
{
    if (isRunning())
        ::kill(pid_t(m_process.processId()), signalNumber);
}

bool StandinProcess::waitForExit(int milliseconds)
{
    return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(milliseconds);
}

QString StandinProcess::standardError()
{
    m_errors += QString::fromUtf8(m_process.readAllStandardError());
    return m_errors;
}
