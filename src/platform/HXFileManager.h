#pragma once

#include <QObject>
#include <QString>
#include <functional>

// The desktop's file manager. Showing a file asks the session bus's
// org.freedesktop.FileManager1 to show it selected in its folder; when no
// file manager answers, the file's folder is opened instead. Never waits:
// `done(shown)` comes later on the calling thread, unless `context` is gone.
namespace HXFileManager {

constexpr int kCallTimeoutMs = 5000;

void showItem(const QString &path, QObject *context, std::function<void(bool shown)> done);

} // namespace HXFileManager
