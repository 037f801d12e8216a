#pragma once

#include <QMutex>
#include <QObject>
#include <QString>

#include <functional>

// The state and actions behind the debug window: drive the idle and worker
// daemons by hand, and follow the marker files they keep. Main thread.
//
// While it observes itself (from load() to removeObservers()), every
// assignment of workerIsActive or failuresAreForced refreshes its label, even
// one that does not change the value.
class HXDebugController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool workerIsActive READ workerIsActive WRITE setWorkerIsActive NOTIFY workerIsActiveChanged)
    Q_PROPERTY(bool failuresAreForced READ failuresAreForced WRITE setFailuresAreForced NOTIFY failuresAreForcedChanged)
    Q_PROPERTY(QString workerActiveStatusLabel READ workerActiveStatusLabel NOTIFY workerActiveStatusLabelChanged)
    Q_PROPERTY(QString forcedFailuresLabel READ forcedFailuresLabel NOTIFY forcedFailuresLabelChanged)

public:
    explicit HXDebugController(QObject *parent = nullptr);

    // Starts observing and reads both states from the marker files.
    void load();
    void removeObservers();

    bool workerIsActive() const { return m_workerIsActive; }
    void setWorkerIsActive(bool active);
    bool failuresAreForced() const { return m_failuresAreForced; }
    void setFailuresAreForced(bool forced);
    QString workerActiveStatusLabel() const;
    QString forcedFailuresLabel() const;

    // The application's way of showing an error to the user; without one the
    // error goes to the system log.
    using ErrorPresenter = std::function<void(const QString &)>;
    void setErrorPresenter(ErrorPresenter presenter) { m_presentError = std::move(presenter); }

public Q_SLOTS:
    void forceStartWorker();
    void forceStopWorker();
    void forceTestFailures();
    void disableForcedFailures();
    void forcePrimaryTime();
    void forceSecondaryTime();
    void deleteDataStore();
    void deleteStatusReport();
    // The same without the daemon, through the marker files alone.
    void forceStartWorkerUsingIdleFile();
    void forceStopWorkerUsingIdleFile();

Q_SIGNALS:
    void workerIsActiveChanged(bool active);
    void failuresAreForcedChanged(bool forced);
    void workerActiveStatusLabelChanged(const QString &label);
    void forcedFailuresLabelChanged(const QString &label);

private:
    void setLabel(QString &label, const QString &value, void (HXDebugController::*changed)(const QString &));

    bool m_observing = false;
    bool m_workerIsActive = false;
    bool m_failuresAreForced = false;
    mutable QMutex m_labelLock;
    QString m_workerActiveStatusLabel;
    QString m_forcedFailuresLabel;
    ErrorPresenter m_presentError;
};
