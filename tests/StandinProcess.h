#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

// The stand-in daemons as a child process on the test's session bus, with
// its files (and its QSettings) under `root`.
class StandinProcess
{
public:
    explicit StandinProcess(QString root);
    ~StandinProcess();

    // Another daemon of ours in place of the stand-in (the real worker), and
    // the start of the line on standard error with which it says it serves.
    void setProgram(const QString &path, const QString &servingLine);
    // Further variables for the child (ORVEX_SYSROOT, PATH...).
    void setEnvironment(const QString &name, const QString &value) { m_extra.insert(name, value); }

    // Starts and waits until it serves; false (with its output in
    // standardError()) when it did not.
    bool start(const QStringList &arguments = {});
    // SIGTERM, then waits; the exit code, or -1 when it did not stop.
    int stop();
    void signal(int signalNumber);
    bool waitForExit(int milliseconds);
    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }

    QString standardError();
    QString root() const { return m_root; }

private:
    QString m_root;
    QString m_program = QStringLiteral(ORVEX_STANDIN_PATH);
    QString m_servingLine = QStringLiteral("orvex-standin: serving ");
    QProcessEnvironment m_extra;
    QProcess m_process;
    QString m_errors;
};
