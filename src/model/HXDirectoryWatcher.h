#pragma once

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>

class InotifyQueue;

// Tells its owner when something happens to a file or folder, on the thread
// that made the watcher. A file that does not exist yet is watched through
// its parent folder until it appears, then watched itself; the parent stays
// watched too, so its events keep arriving (extra events only cost the owner
// an extra look). Registrations are never removed one by one; destroying the
// watcher ends them all. Failures go to the system log and the watcher
// carries on.
//
// A path given to watchFile() that goes away later (deleted, or moved aside)
// is not given up: the watcher goes back to the nearest folder above it that
// still exists, follows the path down again as it is made anew, and then
// calls the block once, since what was written into the new path before the
// watch reached it raised no event.
class HXDirectoryWatcher : public QObject
{
    Q_OBJECT

public:
    using EventBlock = std::function<void(const QString &path)>;

    explicit HXDirectoryWatcher(QObject *parent = nullptr);
    ~HXDirectoryWatcher() override;

    void watchFile(const QString &path, EventBlock block);
    void watchPath(const QString &path, EventBlock block);
    void watchDirectory(const QString &path);
    // Checks the path and nothing more: the registration stays.
    void stopWatchingDirectory(const QString &path);

    void setEventBlock(EventBlock block) { m_eventBlock = std::move(block); }
    QString watchPath() const { return m_watchPath; }
    void setWatchPath(const QString &path) { m_watchPath = path; }

private:
    void arm(const QString &path, const EventBlock &block, bool isBridge);
    void deliver(const QList<int> &watchDescriptors);
    void forget(const QList<int> &watchDescriptors);

    InotifyQueue *m_queue;
    QHash<int, QString> m_paths; // watch descriptor -> the path handed to the block
    EventBlock m_eventBlock;
    QString m_watchPath;
    // What watchFile() was asked for, to come back to when it goes away.
    QString m_filePath;
    EventBlock m_fileBlock;
    bool m_recovering = false;
};
