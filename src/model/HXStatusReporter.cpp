#include "HXStatusReporter.h"

#include "AdvisoryFileLock.h"
#include "AtomicFileWriter.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXDirectoryWatcher.h"
#include "HXDistributedNotificationCenter.h"
#include "HXNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXReportArchive.h"
#include "HXReportLog.h"
#include "HXSystemLog.h"
#include "KeyedArchiver.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QScopedValueRollback>
#include <QThread>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {
// Every user, and the worker, may rewrite the report.
constexpr mode_t kReportMode = 0777;
const QString kReportGroup = QStringLiteral("users");

QString writeErrorLine(const QString &path)
{
    return QStringLiteral("There was an error writing the report file to the path: '%1'").arg(path);
}
} // namespace

HXStatusReporter *HXStatusReporter::sharedReporter()
{
    static HXStatusReporter *shared = [] {
        auto make = [] {
            return new HXStatusReporter(Options{HXProductPaths::reportFile(),
                                                &HXNotificationCenter::defaultCenter(),
                                                HXDBusNotificationCenter::defaultCenter(), true});
        };
        QCoreApplication *app = QCoreApplication::instance();
        if (!app || QThread::currentThread() == app->thread())
            return make();
        HXStatusReporter *made = nullptr;
        QMetaObject::invokeMethod(app, [&] { made = make(); }, Qt::BlockingQueuedConnection);
        return made;
    }();
    return shared;
}

HXStatusReporter::HXStatusReporter(const Options &options, QObject *parent)
    : QObject(parent)
    , m_options(options)
{
    // One thread is plenty: releases are rare and must not pile up.
    m_releasePool.setMaxThreadCount(1);
    m_retryTimer.setSingleShot(true);
    connect(&m_retryTimer, &QTimer::timeout, this, [this] {
        if (m_unwritten.isEmpty())
            return;
        ++m_retries;
        commit({});
    });
    loadStatusFile();
    if (m_options.watch)
        startWatchingReportFile();
}

HXStatusReporter::~HXStatusReporter()
{
    stopWatchingReportFile();
    m_releasePool.waitForDone();
}

HXStatusReportRef HXStatusReporter::report() const
{
    QMutexLocker lock(&m_reportMutex);
    return m_report;
}

void HXStatusReporter::setReport(const HXStatusReportRef &report)
{
    HXStatusReportRef replaced;
    willChangeValueForKey(QStringLiteral("report"));
    {
        QMutexLocker lock(&m_reportMutex);
        replaced = std::exchange(m_report, report);
    }
    didChangeValueForKey(QStringLiteral("report"));
    if (m_options.notificationCenter)
        m_options.notificationCenter->post(HXStatusReportDidChangeNotification, this);
    Q_EMIT reportChanged();
    releaseElsewhere(std::move(replaced));
}

// Freeing a report of ten thousand results takes longer than decoding half
// of one. Nobody here needs the replaced report any more (observers that
// still do hold their own reference), so its last reference is dropped on a
// worker thread, off the interface thread.
void HXStatusReporter::releaseElsewhere(HXStatusReportRef report)
{
    if (!report || report.use_count() > 1)
        return;
    m_releasePool.start([doomed = std::move(report)]() mutable { doomed.reset(); });
}

QString HXStatusReporter::lastLoadError() const
{
    QMutexLocker lock(&m_reportMutex);
    return m_lastLoadError;
}

bool HXStatusReporter::loadStatusFile()
{
    if (QThread::currentThread() == thread())
        return loadInPlace();
    // The reporter's thread never takes this lock, so it cannot be waiting
    // for it while we wait for that thread.
    QMutexLocker lock(&m_lock);
    bool ok = false;
    QMetaObject::invokeMethod(this, [&] { ok = loadInPlace(); }, Qt::BlockingQueuedConnection);
    return ok;
}

HXStatusReporter::FileRead HXStatusReporter::readReportFile() const
{
    FileRead read{FileRead::Missing, nullptr, {}, {}};
    QFile file(m_options.reportPath);
    if (!file.exists())
        return read;
    if (!file.open(QIODevice::ReadOnly)) {
        read.kind = FileRead::Unreadable;
        read.reason = file.errorString();
        return read;
    }
    // The stamp of what is read, not of whatever the path names a moment later.
    read.stamp = FileStamp::ofDescriptor(file.handle());
    read.kind = FileRead::Undecodable;
    if (file.size() > kMaxReportFileSize) {
        read.reason = QStringLiteral("the file is %1 MB, far larger than any report")
                          .arg(file.size() / (1024 * 1024));
        return read;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    read.report = HXReportArchive::decodeReport(bytes, &read.reason);
    if (read.report)
        read.kind = FileRead::Decoded;
    return read;
}

HXStatusReportRef HXStatusReporter::withUnwrittenChanges(HXStatusReportRef report) const
{
    for (const Change &change : m_unwritten)
        change(*report);
    return report;
}

// Runs on the reporter's thread, possibly while another thread holds m_lock
// and waits for it: so no m_lock here.
bool HXStatusReporter::loadInPlace()
{
    FileRead read = readReportFile();
    switch (read.kind) {
    case FileRead::Missing:
        // No report yet: observers see the report go, then an empty one.
        m_loadedStamp = {};
        setReport(nullptr);
        setReport(withUnwrittenChanges(HXStatusReport::report()));
        setLastLoadError(QString());
        return true;
    case FileRead::Unreadable:
    case FileRead::Undecodable:
        failLoad(read.reason);
        return false;
    case FileRead::Decoded:
        break;
    }
    adoptRead(std::move(read));
    return true;
}

void HXStatusReporter::adoptRead(FileRead read)
{
    m_loadedStamp = read.stamp;
    setLastLoadError(QString());
    setReport(withUnwrittenChanges(std::move(read.report)));
}

void HXStatusReporter::setLastLoadError(const QString &sentence)
{
    QMutexLocker lock(&m_reportMutex);
    m_lastLoadError = sentence;
}

void HXStatusReporter::failLoad(const QString &reason)
{
    const QString sentence =
        QStringLiteral("The status report %1 could not be read: %2. The last report that could "
                       "be read is still shown.")
            .arg(m_options.reportPath, reason);
    setLastLoadError(sentence);
    HXSystemLog::write(sentence);
    if (!report())
        setReport(HXStatusReport::report());
    if (m_options.notificationCenter)
        m_options.notificationCenter->post(HXStatusReportLoadDidFailNotification, this,
                                           {{HXStatusReportLoadErrorKey, sentence}});
    Q_EMIT reportLoadFailed(sentence);
}

QString HXStatusReporter::lockFileFor(const QString &reportPath)
{
    const QFileInfo info(reportPath);
    return info.absolutePath() + QLatin1String("/.") + info.fileName() + QLatin1String(".lock");
}

bool HXStatusReporter::updateStatusFile(const Change &change)
{
    if (QThread::currentThread() == thread())
        return commit(change);
    QMutexLocker lock(&m_lock);
    bool ok = false;
    QMetaObject::invokeMethod(
        this, [&] { ok = commit(change); }, Qt::BlockingQueuedConnection);
    return ok;
}

bool HXStatusReporter::writeStatusFile()
{
    return updateStatusFile({});
}

bool HXStatusReporter::commit(const Change &change)
{
    if (m_inCommit) {
        // An observer of a catch-up reload writing in turn: the lock is
        // ours already, and the write under way takes this change along.
        if (change) {
            applyChange(change);
            m_unwritten.append(change);
        }
        return false;
    }

    const QScopedValueRollback inCommit(m_inCommit, true);
    const QString path = m_options.reportPath;
    AdvisoryFileLock fileLock(lockFileFor(path));
    // While kept changes wait for their retry, nobody waits for the lock
    // again: one wait per spell of trouble, not one per line.
    switch (fileLock.lock(m_unwritten.isEmpty() ? m_lockWaitMs : 0)) {
    case AdvisoryFileLock::Outcome::Locked:
        break;
    case AdvisoryFileLock::Outcome::Busy:
        keepForLater(change, false,
                     {QStringLiteral("The report file %1 is being written by another process; "
                                     "the change is kept and written when it is done")
                          .arg(path)});
        return false;
    case AdvisoryFileLock::Outcome::Failed:
        keepForLater(change, false,
                     {writeErrorLine(path), QStringLiteral("the lock file %1 cannot be opened: %2")
                                                .arg(fileLock.path(), fileLock.error())});
        return false;
    }
    QStringList why;
    if (!catchUpWithFile(&why)) {
        keepForLater(change, false, why);
        return false;
    }
    if (change)
        applyChange(change);
    const QByteArray bytes = HXReportArchive::encodeReport(*report());
    const AtomicFileWriter::Result r = AtomicFileWriter::write(path, bytes, kReportMode, kReportGroup);
    if (!r.written) {
        keepForLater(change, true, {writeErrorLine(path), r.writeError});
        return false;
    }
    if (!r.attributeError.isEmpty())
        HXSystemLog::write(r.attributeError);
    m_loadedStamp = r.stamp;
    m_unwritten.clear();
    m_retryTimer.stop();
    m_retryDelayMs = kRetryMs;
    return true;
}

void HXStatusReporter::applyChange(const Change &change)
{
    change(*report());
    Q_EMIT reportEdited();
}

// A change that is not in the file yet stays in the report held here, and
// the next attempt comes by itself, later each time while the trouble lasts
// (a full disk need not cost a whole encoding twice a second). `why` goes to
// the system log once per spell of trouble, not at every retry.
void HXStatusReporter::keepForLater(const Change &change, bool applied, const QStringList &why)
{
    const bool newSpell = m_unwritten.isEmpty();
    if (change) {
        if (!applied)
            applyChange(change);
        m_unwritten.append(change);
    }
    if (newSpell) {
        for (const QString &line : why)
            HXSystemLog::write(line);
    }
    if (m_unwritten.isEmpty())
        return;
    if (!m_retryTimer.isActive()) {
        m_retryTimer.start(m_retryDelayMs);
        m_retryDelayMs = std::min(m_retryDelayMs * 2, kMaxRetryMs);
    }
}

// Under the file lock: makes the report held here the file's, plus the
// changes not written yet. False when the file must not be written over.
bool HXStatusReporter::catchUpWithFile(QStringList *why)
{
    if (FileStamp::ofPath(m_options.reportPath) == m_loadedStamp)
        return true;
    FileRead read = readReportFile();
    switch (read.kind) {
    case FileRead::Missing:
        m_loadedStamp = {};
        setReport(withUnwrittenChanges(HXStatusReport::report()));
        return true;
    case FileRead::Unreadable:
        // Whatever it holds, we cannot see it: writing over it could lose it.
        *why = QStringList{writeErrorLine(m_options.reportPath),
                           QStringLiteral("it cannot be read first: %1").arg(read.reason)};
        return false;
    case FileRead::Undecodable:
        // What we hold is the last report that could be read, with our
        // changes; the file goes where a person can still look at it.
        return moveAside(read.reason, why);
    case FileRead::Decoded:
        break;
    }
    adoptRead(std::move(read));
    return true;
}

bool HXStatusReporter::moveAside(const QString &reason, QStringList *why)
{
    const QString path = m_options.reportPath;
    const QString base = path + QStringLiteral(".damaged-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    QString aside = base;
    for (int n = 2; QFileInfo::exists(aside); ++n)
        aside = base + QStringLiteral("-%1").arg(n);
    if (::rename(QFile::encodeName(path).constData(), QFile::encodeName(aside).constData()) != 0) {
        *why =
            QStringList{QStringLiteral("The report file %1 could not be read (%2) and could not be "
                                       "moved aside to %3: %4; it was left as it is")
                            .arg(path, reason, aside, QString::fromLocal8Bit(strerror(errno)))};
        return false;
    }
    HXSystemLog::write(
        QStringLiteral("The report file %1 could not be read (%2); it was moved to %3 and a "
                       "new report was written from the last one that could be read")
            .arg(path, reason, aside));
    m_loadedStamp = {};
    return true;
}

bool HXStatusReporter::removeStatusFile()
{
    if (QThread::currentThread() != thread()) {
        QMutexLocker lock(&m_lock);
        bool ok = false;
        QMetaObject::invokeMethod(
            this, [&] { ok = removeStatusFile(); }, Qt::BlockingQueuedConnection);
        return ok;
    }
    AdvisoryFileLock fileLock(lockFileFor(m_options.reportPath));
    if (fileLock.lock(m_lockWaitMs) != AdvisoryFileLock::Outcome::Locked) {
        HXSystemLog::write(
            QStringLiteral("The report file %1 was not deleted: %2")
                .arg(m_options.reportPath, fileLock.error().isEmpty()
                                               ? QStringLiteral("another process is writing it")
                                               : fileLock.error()));
        return false;
    }
    if (!QFile::remove(m_options.reportPath) && QFile::exists(m_options.reportPath)) {
        HXSystemLog::write(
            QStringLiteral("The report file %1 could not be deleted").arg(m_options.reportPath));
        return false;
    }
    m_unwritten.clear();
    m_retryTimer.stop();
    m_retryDelayMs = kRetryMs;
    loadInPlace();
    return true;
}

void HXStatusReporter::startWatchingReportFile()
{
    stopWatchingReportFile();
    m_watcher = new HXDirectoryWatcher(this);
    const QString folder = QFileInfo(m_options.reportPath).absolutePath();
    m_watcher->watchFile(folder, [this](const QString &) { loadStatusFile(); });
}

void HXStatusReporter::stopWatchingReportFile()
{
    delete m_watcher;
    m_watcher = nullptr;
}

bool HXStatusReporter::addLogEntry(const HXLogEntryRef &entry)
{
    if (!entry)
        return false;
    return updateStatusFile([entry](HXStatusReport &r) { r.addToLog(entry); });
}

bool HXStatusReporter::recordTestResult(const HXTestResultRef &result)
{
    if (!result)
        return false;
    // Of the result types only these three are written to the log.
    HXLogEntryRef entry;
    const QString type = result->type();
    if (type == HXDTestResultErrorType || type == HXDTestResultWarningType ||
        type == HXDTestResultSuccessType)
        entry = HXLogEntry::entryWithTypeCompoundString(type,
                                                        HXReportLogPrintLine(type, result->log()));
    return updateStatusFile([result, entry](HXStatusReport &r) {
        r.recordTestResult(result);
        if (entry)
            r.addToLog(entry);
    });
}

bool HXStatusReporter::clearReportLog()
{
    return updateStatusFile([](HXStatusReport &r) { r.setLog({}); });
}

bool HXStatusReporter::clearReport()
{
    return updateStatusFile([](HXStatusReport &r) {
        r.setTestResults({});
        r.setLog({});
    });
}

void HXStatusReporter::postErrorNotificationWithTestResult(const HXTestResultRef &result)
{
    if (!result)
        return;
    // The result's values for its key paths; a missing value travels as the
    // null object, as a dictionary cannot hold nothing.
    QVariantMap values;
    const QStringList keys = result->keyPaths();
    for (const QString &key : keys) {
        const QVariant v = result->valueForKey(key);
        values.insert(key, v.isValid() ? v : QVariant::fromValue(nullptr));
    }
    KeyedArchiver archiver;
    postErrorNotificationWithUserInfo(
        {{HXDistributedNotificationUserInfoArchivedDataKey, archiver.archiveRootValue(values)}});
}

void HXStatusReporter::postErrorNotificationWithUserInfo(const QVariantMap &userInfo)
{
    if (!m_options.distributedCenter) {
        HXSystemLog::write(QStringLiteral("No distributed notification centre: \"%1\" was not "
                                          "broadcast")
                               .arg(HXDTestFoundErrorNotification));
        return;
    }
    m_options.distributedCenter->postNotification(HXDTestFoundErrorNotification,
                                                  QStringLiteral("HXStatusReporter"), userInfo,
                                                  true);
}

void HXStatusReporter::setDistributedNotificationCenter(HXDistributedNotificationCenter *center)
{
    m_options.distributedCenter = center;
}

QVariant HXStatusReporter::valueForKey(const QString &key) const
{
    if (key != QLatin1String("report"))
        return {};
    const HXStatusReportRef r = report();
    if (!r)
        return {};
    return QVariant::fromValue(HXObjectRef(r));
}
