#include "HXFileManager.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QPointer>
#include <QUrl>

namespace HXFileManager {

namespace {
bool openFolderOf(const QString &path)
{
    const QString folder = QFileInfo(path).absolutePath();
    return QFileInfo(folder).isDir() && QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
}
} // namespace

void showItem(const QString &path, QObject *context, std::function<void(bool)> done)
{
    QPointer<QObject> guard(context);
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        const bool shown = openFolderOf(path);
        QMetaObject::invokeMethod(
            context,
            [guard, done, shown] {
                if (guard && done)
                    done(shown);
            },
            Qt::QueuedConnection);
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"),
        QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, kCallTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, path, guard, done](QDBusPendingCallWatcher *) {
                         watcher->deleteLater();
                         const bool shown = !watcher->isError() || openFolderOf(path);
                         if (guard && done)
                             done(shown);
                     });
}

} // namespace HXFileManager
