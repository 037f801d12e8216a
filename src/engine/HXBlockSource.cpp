#include "HXBlockSource.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

HXAlignedBuffer::HXAlignedBuffer(std::size_t alignment, std::size_t size)
{
    void *p = nullptr;
    if (posix_memalign(&p, alignment, size) == 0) {
        m_data.reset(p);
        m_size = size;
    }
}

void HXAlignedBuffer::Free::operator()(void *p) const
{
    std::free(p);
}

HXDeviceBlockSource::~HXDeviceBlockSource()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

std::unique_ptr<HXDeviceBlockSource> HXDeviceBlockSource::open(const QString &devicePath,
                                                               QString *why)
{
    const QByteArray path = QFile::encodeName(devicePath);
    bool direct = true;
    int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC | O_DIRECT);
    // A device whose driver has no direct I/O answers EINVAL; anything else
    // (no such node, no permission) is not cured by asking without O_DIRECT.
    if (fd < 0 && errno == EINVAL) {
        direct = false;
        fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    }
    if (fd < 0) {
        if (why)
            *why = QStringLiteral("%1 could not be opened for reading: %2")
                       .arg(devicePath, qt_error_string(errno));
        return nullptr;
    }
    std::unique_ptr<HXDeviceBlockSource> source(new HXDeviceBlockSource);
    source->m_fd = fd;
    source->m_direct = direct;

    struct stat st
    {
    };
    if (fstat(fd, &st) != 0 || !S_ISBLK(st.st_mode)) {
        if (why)
            *why = QStringLiteral("%1 is not a block device").arg(devicePath);
        return nullptr;
    }
    quint64 size = 0;
    if (ioctl(fd, BLKGETSIZE64, &size) != 0) {
        if (why)
            *why = QStringLiteral("the size of %1 could not be read: %2")
                       .arg(devicePath, qt_error_string(errno));
        return nullptr;
    }
    int blockSize = 0;
    if (ioctl(fd, BLKSSZGET, &blockSize) != 0 || blockSize <= 0)
        blockSize = 512;
    source->m_size = qint64(size);
    source->m_blockSize = blockSize;
    if (!direct)
        posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    return source;
}

std::size_t HXDeviceBlockSource::bufferAlignment() const
{
    // Page alignment satisfies every device's DMA alignment; a 4Kn disk asks
    // no more than that, a larger logical block asks its own size.
    return std::max<std::size_t>(4096, std::size_t(m_blockSize));
}

qint64 HXDeviceBlockSource::read(qint64 offset, void *buffer, qint64 length)
{
    qint64 done = 0;
    while (done < length) {
        const ssize_t n = ::pread(m_fd, static_cast<char *>(buffer) + done,
                                  std::size_t(length - done), off_t(offset + done));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return -qint64(errno);
        }
        if (n == 0)
            break; // the end of the device
        done += n;
    }
    // Without O_DIRECT, what was read would stay in the page cache and push
    // out what the machine's programs use.
    if (!m_direct && done > 0)
        posix_fadvise(m_fd, off_t(offset), off_t(done), POSIX_FADV_DONTNEED);
    return done;
}
