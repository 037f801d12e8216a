#include "FileStamp.h"

#include <QFile>
#include <sys/stat.h>

namespace {

FileStamp fromStat(const struct stat &st)
{
    FileStamp s;
    s.exists = true;
    s.device = st.st_dev;
    s.inode = st.st_ino;
    s.size = qint64(st.st_size);
    s.modifiedNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return s;
}

} // namespace

FileStamp FileStamp::ofPath(const QString &path)
{
    struct stat st;
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return {};
    return fromStat(st);
}

FileStamp FileStamp::ofDescriptor(int fd)
{
    struct stat st;
    if (::fstat(fd, &st) != 0)
        return {};
    return fromStat(st);
}
