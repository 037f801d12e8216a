#include "PGLog.h"

#include <mutex>

namespace {

std::mutex &lock()
{
    static std::mutex m;
    return m;
}

QByteArray &buffer()
{
    static QByteArray log;
    return log;
}

} // namespace

void PGLog(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::lock_guard guard(lock());
    QByteArray &log = buffer();
    log.append(bytes);
    log.append("\n\n", 2);
}

void PGLogFinish()
{
    std::lock_guard guard(lock());
    buffer() = QByteArray();
}

QByteArray PGLogContents()
{
    std::lock_guard guard(lock());
    return buffer();
}
