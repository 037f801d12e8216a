#include "HXDebugController.h"

#include "HXDaemonInteraction.h"
#include "HXProductPaths.h"
#include "HXSystemLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
bool createEmptyFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate);
}
} // namespace

HXDebugController::HXDebugController(QObject *parent)
    : QObject(parent)
{
}

void HXDebugController::load()
{
    m_observing = true;
    setWorkerIsActive(QFileInfo::exists(HXProductPaths::isIdleMarker()));
    setFailuresAreForced(QFileInfo::exists(HXProductPaths::forceFailuresMarker()));
}

void HXDebugController::removeObservers()
{
    m_observing = false;
}

void HXDebugController::setWorkerIsActive(bool active)
{
    const bool changed = active != m_workerIsActive;
    m_workerIsActive = active;
    if (m_observing)
        setLabel(m_workerActiveStatusLabel, active ? QStringLiteral("Active") : QStringLiteral("Inactive"),
                 &HXDebugController::workerActiveStatusLabelChanged);
    if (changed)
        Q_EMIT workerIsActiveChanged(active);
}

void HXDebugController::setFailuresAreForced(bool forced)
{
    const bool changed = forced != m_failuresAreForced;
    m_failuresAreForced = forced;
    if (m_observing)
        setLabel(m_forcedFailuresLabel,
                 QStringLiteral("Failures: %1").arg(forced ? QStringLiteral("Forced") : QStringLiteral("Normal")),
                 &HXDebugController::forcedFailuresLabelChanged);
    if (changed)
        Q_EMIT failuresAreForcedChanged(forced);
}

void HXDebugController::setLabel(QString &label, const QString &value,
                                 void (HXDebugController::*changed)(const QString &))
{
    {
        QMutexLocker lock(&m_labelLock);
        if (label == value)
            return;
        label = value;
    }
    Q_EMIT(this->*changed)(value);
}

QString HXDebugController::workerActiveStatusLabel() const
{
    QMutexLocker lock(&m_labelLock);
    return m_workerActiveStatusLabel;
}

QString HXDebugController::forcedFailuresLabel() const
{
    QMutexLocker lock(&m_labelLock);
    return m_forcedFailuresLabel;
}

// Each action runs on the idle daemon's queue; the state it changes is read
// back when the daemon has answered (or was found missing).
void HXDebugController::forceStartWorker()
{
    HXDaemonInteraction::askIdleDaemon(
        this, [](HXIdleDaemonProxy &idle) { idle.forceStartTesting(); },
        [this] { setWorkerIsActive(QFileInfo::exists(HXProductPaths::isIdleMarker())); });
}

void HXDebugController::forceStopWorker()
{
    HXDaemonInteraction::askIdleDaemon(
        this, [](HXIdleDaemonProxy &idle) { idle.forceStopTesting(); },
        [this] { setWorkerIsActive(QFileInfo::exists(HXProductPaths::isIdleMarker())); });
}

void HXDebugController::forceTestFailures()
{
    HXDaemonInteraction::askIdleDaemon(
        this, [](HXIdleDaemonProxy &idle) { return idle.forceFailures(true); },
        [this](bool forced) { setFailuresAreForced(forced); });
}

void HXDebugController::disableForcedFailures()
{
    HXDaemonInteraction::askIdleDaemon(
        this, [](HXIdleDaemonProxy &idle) { return idle.forceFailures(false); },
        [this](bool forced) { setFailuresAreForced(forced); });
}

void HXDebugController::forcePrimaryTime()
{
    HXDaemonInteraction::tellIdleDaemon([](HXIdleDaemonProxy &idle) { idle.forcePrimaryTime(); });
}

void HXDebugController::forceSecondaryTime()
{
    HXDaemonInteraction::tellIdleDaemon([](HXIdleDaemonProxy &idle) { idle.forceSecondaryTime(); });
}

void HXDebugController::deleteDataStore()
{
    HXDaemonInteraction::tellIdleDaemon(
        [](HXIdleDaemonProxy &idle) { idle.deleteWorkerDaemonPersistentStore(); });
}

void HXDebugController::deleteStatusReport()
{
    HXDaemonInteraction::tellIdleDaemon([](HXIdleDaemonProxy &idle) { idle.deleteStatusReport(); });
}

void HXDebugController::forceStartWorkerUsingIdleFile()
{
    const QString idle = HXProductPaths::isIdleMarker();
    const QString folder = QFileInfo(idle).absolutePath();
    if (!QFileInfo(folder).isDir() && !QDir().mkpath(folder)) {
        const QString error = QStringLiteral("The folder “%1” could not be created.").arg(folder);
        if (m_presentError)
            m_presentError(error);
        else
            HXSystemLog::write(error);
    }
    createEmptyFile(HXProductPaths::isIdlePrimaryMarker());
    setWorkerIsActive(createEmptyFile(idle));
}

void HXDebugController::forceStopWorkerUsingIdleFile()
{
    const QString idle = HXProductPaths::isIdleMarker();
    if (!QFileInfo::exists(idle)) {
        setWorkerIsActive(false);
        return;
    }
    setWorkerIsActive(!QFile::remove(idle));
}
