#pragma once

#include "HXMachinePass.h"
#include "HXTestingPass.h"

#include <QStringList>
#include <atomic>
#include <memory>
#include <thread>

class HXStatusReporter;

// The real worker's testing pass: the engine's tests on this machine. The
// tests block on disks and programs, so the pass runs on a thread of its own;
// everything it reports comes back to the service's thread as queued calls,
// in order, and only there is the report written.
class MachineTestingPass : public HXTestingPass
{
    Q_OBJECT

public:
    struct Settings
    {
        QList<HXTest> only;    // empty: all ten
        QStringList diskPaths; // empty: every disk of the machine
        qint64 memoryTestBytes = qint64(256) << 20;
        int exclusionsTimeoutMs = 3000;
        // "HXDTestFoundErrorNotification" for each error; a pass on the
        // command line has no bus to announce it on.
        bool announceErrors = true;
    };

    MachineTestingPass(const Settings &settings, HXStatusReporter *reporter,
                       QObject *parent = nullptr);
    ~MachineTestingPass() override;

    bool start() override;
    void stop() override;
    bool isRunning() const override { return m_running; }

    // The disks the settings name, or the sentence why one cannot be tested.
    static bool resolveDisks(const QStringList &paths, QList<HXBlockDisk> *disks, QString *why);

Q_SIGNALS:
    // What a test found, once recorded: for a caller that prints the pass.
    // `stopped`: the pass was stopped while the test ran.
    void testRecorded(HXTest test, const QList<HXTestFinding> &findings, bool stopped);
    // The pass could not run at all (a named disk vanished); finished(false) follows.
    void failed(const QString &sentence);

private:
    void runOnThread();
    void describeMachine(HXEngineContext *context) const;
    static void sayWhyNot(const QString &why);
    void record(HXTest test, QList<HXTestFinding> findings, bool stopped);
    void join();

    Settings m_settings;
    HXStatusReporter *m_reporter;
    std::thread m_thread;
    std::atomic_bool m_cancelled = false;
    bool m_running = false;
};
