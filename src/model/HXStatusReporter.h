#pragma once

#include "FileStamp.h"
#include "HXKeyValueObserving.h"
#include "HXStatusReport.h"

#include <QObject>
#include <QRecursiveMutex>
#include <QString>
#include <QThreadPool>
#include <QTimer>

#include <functional>

class HXDirectoryWatcher;
class HXDistributedNotificationCenter;
class HXNotificationCenter;

// The one holder of the current report. It loads the report file, reloads it
// on every change in the file's folder (also a folder removed and made again),
// writes it back when the application
// changes it, and announces every replacement of the report with
// "HXStatusDidChangeNotification" (and reportChanged()).
//
// The worker, the stand-in and every user's application write the same file,
// each from a copy it holds. So every write is a read-modify-write under an
// exclusive advisory lock on a lock file beside the report: take the lock;
// if the file is not the one last loaded (inode, size, modification time),
// load it first; make the change; write atomically; let go. A file that does
// not decode at that point is moved aside under a timestamped name (the
// system log says where) rather than overwritten. A change that cannot be
// written yet (the lock held too long by another process, a full disk) stays
// in the report held here, is made again on every reload, and is written at
// the next chance: it is never dropped.
//
// A file that does not decode when loaded leaves the last good report in
// place (an empty one if there was none), writes one line to the system log
// and posts "HXStatusReportLoadDidFailNotification" with a sentence under
// "HXStatusReportLoadErrorKey".
//
// Loading and writing always happen on the reporter's own thread: a call from
// another thread waits for it. The reporter's lock is taken before the
// report's, never the other way.
class HXStatusReporter : public QObject, public HXKeyValueObservable
{
    Q_OBJECT

public:
    // Files larger than this are not reports; reading them would only cost memory.
    static constexpr qint64 kMaxReportFileSize = 256 * 1024 * 1024;
    // How long a write waits for another writer's turn before it keeps its
    // change for later; and how soon a kept change is tried again.
    static constexpr int kDefaultLockWaitMs = 1000;
    static constexpr int kRetryMs = 500;
    static constexpr int kMaxRetryMs = 30000;

    // One change of the report, made to the report as the file holds it at
    // the time of writing; it may be made more than once (see above).
    using Change = std::function<void(HXStatusReport &)>;

    struct Options
    {
        QString reportPath;                       // the live report file
        HXNotificationCenter *notificationCenter; // where the changes are posted
        HXDistributedNotificationCenter *distributedCenter = nullptr;
        bool watch = true;                        // reload on changes in the folder
    };

    // The shared reporter for the product's report file, made on first use on
    // the main thread and never destroyed.
    static HXStatusReporter *sharedReporter();

    // A reporter of its own, for tools and tests: loads at once and, if
    // asked, starts watching.
    explicit HXStatusReporter(const Options &options, QObject *parent = nullptr);
    ~HXStatusReporter() override;

    HXStatusReportRef report() const;
    void setReport(const HXStatusReportRef &report);
    QString reportPath() const { return m_options.reportPath; }

    // True when the file was read (or there was none); false when it did not
    // decode, with the sentence in lastLoadError().
    bool loadStatusFile();
    QString lastLoadError() const;

    // The writing path every writer shares. True when the file now holds the
    // change; false when it is kept for later (the reason in the system log),
    // or when an observer of a reload during a write asks: then the write
    // under way takes it along.
    bool updateStatusFile(const Change &change);
    // Writes the report as held, once caught up with the file.
    bool writeStatusFile();
    bool addLogEntry(const HXLogEntryRef &entry);
    // Records the result and its log line (printed as the log writers print
    // it) in one write.
    bool recordTestResult(const HXTestResultRef &result);
    bool clearReportLog();
    bool clearReport();
    // Deletes the report file, in turn with the writers.
    bool removeStatusFile();

    // The lock file every writer of `reportPath` locks.
    static QString lockFileFor(const QString &reportPath);
    // 0 only tries; negative waits as long as it takes (tools, not windows).
    void setLockWait(int milliseconds) { m_lockWaitMs = milliseconds; }
    bool hasUnwrittenChanges() const { return !m_unwritten.isEmpty(); } // reporter's thread
    // How many times kept changes were tried again, since the reporter was made.
    int retries() const { return m_retries; } // reporter's thread

    void startWatchingReportFile();
    void stopWatchingReportFile();

    void postErrorNotificationWithTestResult(const HXTestResultRef &result);
    void postErrorNotificationWithUserInfo(const QVariantMap &userInfo);
    void setDistributedNotificationCenter(HXDistributedNotificationCenter *center);
    // Waits until replaced reports handed to the worker thread are freed.
    void waitForPendingReleases() { m_releasePool.waitForDone(); }

    // HXKeyValueObservable
    QString className() const override { return QStringLiteral("HXStatusReporter"); }
    QStringList keyPaths() const override { return {QStringLiteral("report")}; }
    QVariant valueForKey(const QString &key) const override;

Q_SIGNALS:
    void reportChanged();
    // The report held here was changed where it is (a log line added, the
    // log cleared by this process) rather than replaced.
    void reportEdited();
    void reportLoadFailed(const QString &sentence);

protected:
    bool describesOneKeyPerLine() const override { return false; }

private:
    struct FileRead
    {
        enum Kind { Missing, Unreadable, Undecodable, Decoded } kind;
        HXStatusReportRef report;
        FileStamp stamp;
        QString reason;
    };
    FileRead readReportFile() const;
    // Makes a decoded file the report, with the changes not yet written.
    void adoptRead(FileRead read);
    bool loadInPlace();
    bool commit(const Change &change);
    void applyChange(const Change &change);
    bool catchUpWithFile(QStringList *why);
    bool moveAside(const QString &reason, QStringList *why);
    // `applied`: the change is in the report held here already.
    void keepForLater(const Change &change, bool applied, const QStringList &why);
    HXStatusReportRef withUnwrittenChanges(HXStatusReportRef report) const;
    void failLoad(const QString &reason);
    void setLastLoadError(const QString &sentence);
    void releaseElsewhere(HXStatusReportRef report);

    Options m_options;
    // The reporter's monitor, held by callers on other threads while the
    // reporter's thread does their work; that thread never takes it, as its
    // holder may be waiting for that very thread. The report pointer has a
    // lock of its own.
    mutable QRecursiveMutex m_lock;
    mutable QMutex m_reportMutex;
    HXStatusReportRef m_report;
    HXDirectoryWatcher *m_watcher = nullptr;
    QString m_lastLoadError;
    QThreadPool m_releasePool;
    // The file the report held here was loaded from or written as, and the
    // changes made to it since that are not in the file yet (reporter's
    // thread only).
    FileStamp m_loadedStamp;
    QList<Change> m_unwritten;
    QTimer m_retryTimer;
    int m_retryDelayMs = kRetryMs;
    int m_retries = 0;
    int m_lockWaitMs = kDefaultLockWaitMs;
    bool m_inCommit = false;
};
