#include "AtomicFileWriter.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

QString errnoText(int e)
{
    return QString::fromLocal8Bit(strerror(e));
}

bool lookUpGroup(const QString &name, gid_t *gid)
{
    struct group grp;
    struct group *found = nullptr;
    std::vector<char> buffer(16384);
    const QByteArray n = name.toLocal8Bit();
    if (getgrnam_r(n.constData(), &grp, buffer.data(), buffer.size(), &found) != 0 || !found)
        return false;
    *gid = found->gr_gid;
    return true;
}

} // namespace

AtomicFileWriter::Result AtomicFileWriter::write(const QString &path, const QByteArray &data,
                                                 mode_t mode, const QString &groupName)
{
    Result result;
    const QFileInfo info(path);
    QByteArray tmpl =
        QFile::encodeName(info.absolutePath() + QLatin1String("/.") + info.fileName()) + ".XXXXXX";
    const int fd = mkostemp(tmpl.data(), O_CLOEXEC);
    if (fd < 0) {
        result.writeError = errnoText(errno);
        return result;
    }
    auto abandon = [&](int e) {
        ::close(fd);
        ::unlink(tmpl.constData());
        result.writeError = errnoText(e);
        return result;
    };

    const char *p = data.constData();
    qsizetype left = data.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return abandon(errno);
        }
        p += n;
        left -= n;
    }

    // The attributes go on before the rename, so the file never appears
    // with the wrong ones; failing to set them does not stop the write.
    QStringList attributeProblems;
    if (fchmod(fd, mode) != 0)
        attributeProblems.append(QStringLiteral("could not set the permissions: %1")
                                     .arg(errnoText(errno)));
    if (!groupName.isEmpty()) {
        gid_t gid = 0;
        struct stat st;
        if (!lookUpGroup(groupName, &gid)) {
            attributeProblems.append(
                QStringLiteral("the group \u201c%1\u201d does not exist").arg(groupName));
        } else if (fstat(fd, &st) == 0 && st.st_gid != gid && fchown(fd, uid_t(-1), gid) != 0) {
            attributeProblems.append(QStringLiteral("could not give the file to the group "
                                                    "\u201c%1\u201d: %2")
                                         .arg(groupName, errnoText(errno)));
        }
    }
    // Neither the rename nor the close changes what the stamp holds.
    const FileStamp stamp = FileStamp::ofDescriptor(fd);
    if (::close(fd) != 0) {
        const int e = errno;
        ::unlink(tmpl.constData());
        result.writeError = errnoText(e);
        return result;
    }
    if (::rename(tmpl.constData(), QFile::encodeName(path).constData()) != 0) {
        const int e = errno;
        ::unlink(tmpl.constData());
        result.writeError = errnoText(e);
        return result;
    }
    result.written = true;
    result.stamp = stamp;
    result.attributeError = attributeProblems.join(QLatin1String("; "));
    return result;
}
