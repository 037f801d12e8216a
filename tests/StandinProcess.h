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
    QProcess m_process;
    QString m_errors;
};
