#include "MachineTestingPass.h"

#include "HXBlockDevices.h"
#include "HXConstants.h"
#include "HXExclusionsSource.h"
#include "HXProductPaths.h"
#include "HXStatusReporter.h"
#include "HXSystemLog.h"
#include "HXWorkerLogFile.h"

#include <QFile>
#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

qint32 liveStatus(const QList<HXTestFinding> &findings)
{
    if (findings.isEmpty())
        return HXLiveTestStatusNotApplicable;
    for (const HXTestFinding &finding : findings) {
        if (finding.type != HXDTestResultSuccessType)
            return HXLiveTestStatusFailed;
    }
    return HXLiveTestStatusPassed;
}

} // namespace

MachineTestingPass::MachineTestingPass(const Settings &settings, HXStatusReporter *reporter,
                                       QObject *parent)
    : HXTestingPass(parent)
    , m_settings(settings)
    , m_reporter(reporter)
{
}

MachineTestingPass::~MachineTestingPass()
{
    m_cancelled = true;
    join();
}

void MachineTestingPass::join()
{
    if (m_thread.joinable())
        m_thread.join();
}

bool MachineTestingPass::resolveDisks(const QStringList &paths, QList<HXBlockDisk> *disks,
                                      QString *why)
{
    disks->clear();
    for (const QString &path : paths) {
        const auto disk = HXBlockDevices::diskAt(path, why);
        if (!disk)
            return false;
        // A disk the user names is to be tested now: one this process cannot
        // read (not root, say) fails the pass instead of going untested.
        const int fd =
            ::open(QFile::encodeName(disk->devicePath).constData(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            *why = QStringLiteral("%1 cannot be opened: %2")
                       .arg(path, QString::fromLocal8Bit(strerror(errno)));
            return false;
        }
        ::close(fd);
        disks->append(*disk);
    }
    return true;
}

bool MachineTestingPass::start()
{
    if (m_running)
        return false;
    // The thread of the pass before has reported its end already; only its
    // last instructions may still be running.
    join();
    m_running = true;
    m_cancelled = false;
    m_thread = std::thread([this] { runOnThread(); });
    return true;
}

void MachineTestingPass::stop()
{
    // The running test sees the flag within a second or so and reports what
    // it found so far (an interrupted surface scan keeps its place); the
    // pass then ends as stopped.
    m_cancelled = true;
}

void MachineTestingPass::runOnThread()
{
    HXEngineContext context;
    context.cancelled = &m_cancelled;
    context.memoryTestBytes = m_settings.memoryTestBytes;
    context.stateFolder = HXProductPaths::libraryFolder();
    context.note = [](const QString &line) {
        HXWorkerLogFile::note(line);
    };

    QString why;
    bool ready = true;
    if (!m_settings.diskPaths.isEmpty()) {
        context.disksNamed = true;
        ready = resolveDisks(m_settings.diskPaths, &context.disks, &why);
    } else {
        context.disks = HXBlockDevices::machineDisks();
    }
    if (ready)
        describeMachine(&context);
    else
        sayWhyNot(why);

    bool completed = false;
    if (ready) {
        HXMachinePass pass(HXMachinePass::machineTests(m_settings.only));
        HXMachinePass::Observer observer;
        observer.testStarted = [this](HXTest test) {
            QMetaObject::invokeMethod(
                this, [this, test] { Q_EMIT testStarted(test); }, Qt::QueuedConnection);
        };
        observer.testFinished = [this](HXTest test, const QList<HXTestFinding> &findings) {
            QMetaObject::invokeMethod(
                this, [this, test, findings] { record(test, findings, false); },
                Qt::QueuedConnection);
        };
        observer.testStopped = [this](HXTest test, const QList<HXTestFinding> &findings) {
            QMetaObject::invokeMethod(
                this, [this, test, findings] { record(test, findings, true); },
                Qt::QueuedConnection);
        };
        completed = pass.run(context, observer);
    }
    QMetaObject::invokeMethod(
        this,
        [this, ready, why, completed] {
            m_running = false;
            if (!ready)
                Q_EMIT failed(why);
            Q_EMIT finished(completed);
        },
        Qt::QueuedConnection);
}

void MachineTestingPass::describeMachine(HXEngineContext *context) const
{
    for (const HXBlockDisk &disk : std::as_const(context->disks))
        context->volumes += HXBlockDevices::volumesOf(disk);
    if (!context->disksNamed) {
        // File systems on device-mapper or md devices (LVM, encryption, a
        // software mirror) belong to no disk of /sys/block, yet their
        // records and superblocks are the user's files all the same.
        for (const HXVolume &mounted : HXBlockDevices::mountedVolumes()) {
            const bool known =
                std::any_of(context->volumes.cbegin(), context->volumes.cend(),
                            [&](const HXVolume &v) { return v.devicePath == mounted.devicePath; });
            if (!known)
                context->volumes.append(mounted);
        }
    }
    QStringList mountPoints;
    for (const HXVolume &volume : std::as_const(context->volumes)) {
        if (!volume.mountPoint.isEmpty())
            mountPoints.append(volume.mountPoint);
    }
    QString from;
    context->exclusions = HXExclusions::fromEntries(
        HXExclusionsSource::fetch(m_settings.exclusionsTimeoutMs, &from), mountPoints);
    QStringList names;
    for (const HXBlockDisk &disk : std::as_const(context->disks))
        names.append(disk.kernelName);
    HXWorkerLogFile::note(names.isEmpty()
                              ? QStringLiteral("No disk to test; exclusions from %1").arg(from)
                              : QStringLiteral("Testing %1; exclusions from %2")
                                    .arg(names.join(QStringLiteral(", ")), from));
}

void MachineTestingPass::sayWhyNot(const QString &why)
{
    const QString line = QStringLiteral("The testing pass could not run: %1").arg(why);
    HXWorkerLogFile::note(line);
    HXSystemLog::write(line);
}

void MachineTestingPass::record(HXTest test, QList<HXTestFinding> findings, bool stopped)
{
    if (failuresForced()) {
        for (HXTestFinding &finding : findings) {
            finding.type = HXDTestResultErrorType;
            finding.log = QStringLiteral("(failure forced by the debug marker) ") + finding.log;
        }
    }
    for (const HXTestFinding &finding : std::as_const(findings))
        recordResult(m_reporter, HXMakeTestResult(test, finding), m_settings.announceErrors);
    Q_EMIT testRecorded(test, findings, stopped);
    // A stopped test did not end: what it found is recorded, and its live
    // status stays running until the pass ends, then goes back to pending.
    if (!stopped)
        Q_EMIT testFinished(test, liveStatus(findings));
}
