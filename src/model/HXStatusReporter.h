#pragma once

#include "HXKeyValueObserving.h"
#include "HXStatusReport.h"

#include <QObject>
#include <QRecursiveMutex>
#include <QString>
#include <QThreadPool>

class HXDirectoryWatcher;
class HXDistributedNotificationCenter;
class HXNotificationCenter;

// The one holder of the current report. It loads the report file, reloads it
// on every change in the file's folder, writes it back when the application
// changes it, and announces every replacement of the report with
// "HXStatusDidChangeNotification" (and reportChanged()).
//
// A file that does not decode leaves the last good report in place (an empty
// one if there was none), writes one line to the system log and posts
// "HXStatusReportLoadDidFailNotification" with a sentence under
// "HXStatusReportLoadErrorKey".
//
// Loading always happens on the reporter's own thread: a load asked for from
// another thread waits for it. The reporter's lock is taken before the
// report's, never the other way.
class HXStatusReporter : public QObject, public HXKeyValueObservable
{
    Q_OBJECT

public:
    // Files larger than this are not reports; reading them would only cost memory.
    static constexpr qint64 kMaxReportFileSize = 256 * 1024 * 1024;

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
    // False when the file could not be written; the report stays as it is.
    bool writeStatusFile();

    void startWatchingReportFile();
    void stopWatchingReportFile();

    void recordTestResult(const HXTestResultRef &result);
    void clearReportLog();
    void clearReport();

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
    void reportLoadFailed(const QString &sentence);

protected:
    bool describesOneKeyPerLine() const override { return false; }

private:
    bool loadInPlace();
    void failLoad(const QString &reason);
    void setLastLoadError(const QString &sentence);
    void releaseElsewhere(HXStatusReportRef report);

    Options m_options;
    // The reporter's monitor, held around loads and recordings; the report
    // pointer itself has a lock of its own so that a load running on the
    // reporter's thread never needs the monitor its caller may hold.
    mutable QRecursiveMutex m_lock;
    mutable QMutex m_reportMutex;
    HXStatusReportRef m_report;
    HXDirectoryWatcher *m_watcher = nullptr;
    QString m_lastLoadError;
    QThreadPool m_releasePool;
};
