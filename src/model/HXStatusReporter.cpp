#include "HXStatusReporter.h"

#include "AtomicFileWriter.h"
#include "HXConstants.h"
#include "HXDBusNotificationCenter.h"
#include "HXDirectoryWatcher.h"
#include "HXDistributedNotificationCenter.h"
#include "HXNotificationCenter.h"
#include "HXProductPaths.h"
#include "HXReportArchive.h"
#include "HXSystemLog.h"
#include "KeyedArchiver.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QThread>

namespace {
// Every user, and the worker, may rewrite the report.
constexpr mode_t kReportMode = 0777;
const QString kReportGroup = QStringLiteral("users");
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
    QMutexLocker lock(&m_lock);
    if (QThread::currentThread() == thread())
        return loadInPlace();
    // The main thread must never wait for this lock while we wait for it.
    bool ok = false;
    QMetaObject::invokeMethod(this, [&] { ok = loadInPlace(); }, Qt::BlockingQueuedConnection);
    return ok;
}

// Runs on the reporter's thread, possibly while another thread holds m_lock
// and waits for it: so no m_lock here.
bool HXStatusReporter::loadInPlace()
{
    const QString path = m_options.reportPath;
    QFile file(path);
    if (!file.exists()) {
        // No report yet: observers see the report go, then an empty one.
        setReport(nullptr);
        setReport(HXStatusReport::report());
        setLastLoadError(QString());
        return true;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        failLoad(file.errorString());
        return false;
    }
    if (file.size() > kMaxReportFileSize) {
        failLoad(QStringLiteral("the file is %1 MB, far larger than any report")
                     .arg(file.size() / (1024 * 1024)));
        return false;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    QString why;
    HXStatusReportRef decoded = HXReportArchive::decodeReport(bytes, &why);
    if (!decoded) {
        failLoad(why);
        return false;
    }
    setLastLoadError(QString());
    setReport(decoded);
    return true;
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

bool HXStatusReporter::writeStatusFile()
{
    const HXStatusReportRef current = report();
    if (!current)
        return false;
    const QByteArray bytes = HXReportArchive::encodeReport(*current);
    const QString path = m_options.reportPath;
    const AtomicFileWriter::Result r = AtomicFileWriter::write(path, bytes, kReportMode, kReportGroup);
    if (!r.written) {
        HXSystemLog::write(
            QStringLiteral("There was an error writing the report file to the path: '%1'").arg(path));
        HXSystemLog::write(r.writeError);
        return false;
    }
    if (!r.attributeError.isEmpty())
        HXSystemLog::write(r.attributeError);
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

void HXStatusReporter::recordTestResult(const HXTestResultRef &result)
{
    QMutexLocker lock(&m_lock);
    const HXStatusReportRef current = report();
    current->recordTestResult(result);
    current->logTestResult(result);
}

void HXStatusReporter::clearReportLog()
{
    report()->setLog({});
    writeStatusFile();
}

void HXStatusReporter::clearReport()
{
    const HXStatusReportRef current = report();
    current->setTestResults({});
    current->setLog({});
    writeStatusFile();
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
