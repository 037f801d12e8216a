#include "HXExtSuperblock.h"

#include <QDateTime>
#include <QFile>
#include <QtEndian>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The superblock's layout, as the kernel's ext4 documentation gives it.
constexpr int MagicOffset = 0x38;
constexpr quint16 Magic = 0xef53;
constexpr int StateOffset = 0x3a;
constexpr int ErrorCountOffset = 0x194;
constexpr int LastErrorTimeOffset = 0x1cc;
constexpr int LastErrorInodeOffset = 0x1d0;
constexpr int LastErrorLineOffset = 0x1d4;
constexpr int LastErrorBlockOffset = 0x1d8;
constexpr int LastErrorFunctionOffset = 0x1e0;
constexpr int FunctionLength = 32;

template<typename T> T field(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<T>(bytes.constData() + at);
}

} // namespace

QString HXExtSuperblock::stateText() const
{
    if (!hasErrors())
        return QStringLiteral("clean");
    QStringList details;
    if (errorCount > 0)
        details << (errorCount == 1 ? QStringLiteral("1 error recorded")
                                    : QStringLiteral("%1 errors recorded").arg(errorCount));
    if (!lastErrorFunction.isEmpty()) {
        QString last = QStringLiteral("the last in %1").arg(lastErrorFunction);
        if (lastErrorInode != 0)
            last += QStringLiteral(", inode %1").arg(lastErrorInode);
        if (lastErrorBlock != 0)
            last += QStringLiteral(", block %1").arg(lastErrorBlock);
        if (lastErrorTime > 0)
            last += QStringLiteral(", on %1").arg(
                QDateTime::fromSecsSinceEpoch(lastErrorTime, Qt::UTC).toString(Qt::ISODate));
        details << last;
    }
    if (details.isEmpty())
        return QStringLiteral("with errors");
    return QStringLiteral("with errors (%1)").arg(details.join(QLatin1String("; ")));
}

std::optional<HXExtSuperblock> HXExtSuperblock::parse(const QByteArray &bytes, QString *why)
{
    if (bytes.size() < Size || field<quint16>(bytes, MagicOffset) != Magic) {
        if (why)
            *why = QStringLiteral("it holds no ext2/3/4 superblock");
        return std::nullopt;
    }
    HXExtSuperblock superblock;
    superblock.state = field<quint16>(bytes, StateOffset);
    superblock.errorCount = field<quint32>(bytes, ErrorCountOffset);
    superblock.lastErrorTime = field<quint32>(bytes, LastErrorTimeOffset);
    superblock.lastErrorInode = field<quint32>(bytes, LastErrorInodeOffset);
    superblock.lastErrorLine = field<quint32>(bytes, LastErrorLineOffset);
    superblock.lastErrorBlock = field<quint64>(bytes, LastErrorBlockOffset);
    const QByteArray function = bytes.mid(LastErrorFunctionOffset, FunctionLength);
    const qsizetype end = function.indexOf('\0');
    superblock.lastErrorFunction = QString::fromLatin1(end < 0 ? function : function.left(end));
    return superblock;
}

std::optional<HXExtSuperblock> HXExtSuperblock::read(const QString &devicePath, QString *why)
{
    const int fd = ::open(QFile::encodeName(devicePath).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (why)
            *why = QStringLiteral("%1 could not be opened (%2)")
                       .arg(devicePath, QString::fromLocal8Bit(std::strerror(errno)));
        return std::nullopt;
    }
    QByteArray bytes(Size, '\0');
    qint64 done = 0;
    int error = 0;
    while (done < Size) {
        const ssize_t n =
            ::pread(fd, bytes.data() + done, size_t(Size - done), off_t(Offset + done));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            error = errno;
        if (n <= 0)
            break;
        done += n;
    }
    ::close(fd);
    if (done < Size) {
        if (why)
            *why = error == 0 ? QStringLiteral("it is too short to hold a superblock")
                              : QStringLiteral("its superblock could not be read (%1)")
                                    .arg(QString::fromLocal8Bit(std::strerror(error)));
        return std::nullopt;
    }
    return parse(bytes, why);
}
