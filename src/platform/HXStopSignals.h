#pragma once

#include <QObject>

class QSocketNotifier;

// SIGINT and SIGTERM taken through a descriptor (signalfd), so that nothing
// runs inside a signal handler and the program can end in order: a session
// that logs out, systemd, or a test sends SIGTERM.
class HXStopSignals : public QObject
{
    Q_OBJECT

public:
    // Blocks both signals for the calling thread and every thread it starts
    // afterwards; call it first thing in main(), before any thread exists.
    static void block();

    // Reports the signals that block() held back, from the event loop.
    explicit HXStopSignals(QObject *parent = nullptr);
    ~HXStopSignals() override;

Q_SIGNALS:
    void received(int signalNumber);

private:
    int m_fd = -1;
    QSocketNotifier *m_notifier = nullptr;
};
