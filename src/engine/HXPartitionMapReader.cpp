#include "HXPartitionMapReader.h"

#include "HXPartitionMapParts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace HXPartitionMapParts;

bool HXPartitionMap::primaryIsSound() const
{
    for (const HXPartitionMapProblem &problem : problems) {
        if (problem.where == HXPartitionMapProblem::Where::Primary)
            return false;
    }
    return true;
}

bool HXPartitionMap::backupIsSound() const
{
    for (const HXPartitionMapProblem &problem : problems) {
        if (problem.where == HXPartitionMapProblem::Where::Backup)
            return false;
    }
    return true;
}

QString HXPartitionMap::schemeName() const
{
    switch (scheme) {
    case Scheme::GPT:
        return QStringLiteral("GPT");
    case Scheme::MBR:
        return QStringLiteral("MBR");
    case Scheme::None:
        break;
    }
    return QStringLiteral("no partition map");
}

QString HXPartitionMap::identifier() const
{
    if (scheme == Scheme::GPT)
        return diskGuid;
    if (scheme == Scheme::MBR && mbrSignature != 0)
        return QStringLiteral("%1").arg(mbrSignature, 8, 16, QLatin1Char('0'));
    return {};
}

void HXPartitionMapParts::addProblem(HXPartitionMap &map, HXPartitionMapProblem::Where where,
                                     const QString &text)
{
    map.problems.append({where, text});
}

QString HXPartitionMapParts::blockRange(qint64 first, qint64 last)
{
    return QStringLiteral("blocks %1 to %2").arg(first).arg(last);
}

void HXPartitionMapParts::checkOverlaps(QList<HXPartitionEntry> entries, HXPartitionMap &map)
{
    std::sort(entries.begin(), entries.end(), [](const auto &a, const auto &b) {
        return a.firstBlock < b.firstBlock || (a.firstBlock == b.firstBlock && a.number < b.number);
    });
    // The partition reaching furthest so far is the one a later start can
    // fall inside.
    const HXPartitionEntry *furthest = nullptr;
    for (const HXPartitionEntry &entry : std::as_const(entries)) {
        if (furthest && entry.firstBlock <= furthest->lastBlock()) {
            addProblem(map, HXPartitionMapProblem::Where::Primary,
                       QStringLiteral("partition %1 (%2) overlaps partition %3 (%4)")
                           .arg(entry.number)
                           .arg(blockRange(entry.firstBlock, entry.lastBlock()))
                           .arg(furthest->number)
                           .arg(blockRange(furthest->firstBlock, furthest->lastBlock())));
        }
        if (!furthest || entry.lastBlock() > furthest->lastBlock())
            furthest = &entry;
    }
}

namespace {

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// A block device or image file, opened read-only for the life of the source.
class FileSource final : public HXPartitionMapReader::Source
{
public:
    FileSource(int fd, qint64 size, int blockSize)
        : m_fd(fd)
        , m_size(size)
        , m_blockSize(blockSize)
    {
    }
    ~FileSource() override { ::close(m_fd); }
    FileSource(const FileSource &) = delete;
    FileSource &operator=(const FileSource &) = delete;

    qint64 sizeBytes() const override { return m_size; }
    int logicalBlockSize() const override { return m_blockSize; }

    bool read(qint64 offset, qint64 length, QByteArray *into, QString *why) override
    {
        if (offset < 0 || length < 0 || offset > m_size || length > m_size - offset) {
            *why = QStringLiteral("it lies past the end of the disk");
            return false;
        }
        into->resize(length);
        qint64 done = 0;
        while (done < length) {
            const ssize_t n =
                ::pread(m_fd, into->data() + done, size_t(length - done), off_t(offset + done));
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0) {
                *why = errnoText(errno);
                return false;
            }
            if (n == 0) {
                *why = QStringLiteral("the disk ended early");
                return false;
            }
            done += n;
        }
        return true;
    }

private:
    int m_fd;
    qint64 m_size;
    int m_blockSize;
};

} // namespace

std::unique_ptr<HXPartitionMapReader::Source> HXPartitionMapReader::openPath(const QString &path,
                                                                             QString *why)
{
    QString ignored;
    QString &reason = why ? *why : ignored;
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        reason = QStringLiteral("%1 could not be opened (%2)").arg(path, errnoText(errno));
        return nullptr;
    }
    struct stat status = {};
    if (::fstat(fd, &status) != 0) {
        reason = QStringLiteral("%1 could not be examined (%2)").arg(path, errnoText(errno));
        ::close(fd);
        return nullptr;
    }
    if (S_ISREG(status.st_mode))
        return std::make_unique<FileSource>(fd, qint64(status.st_size), 0);
    if (!S_ISBLK(status.st_mode)) {
        reason = QStringLiteral("%1 is neither a disk nor an image file").arg(path);
        ::close(fd);
        return nullptr;
    }
    quint64 size = 0;
    int blockSize = 0;
    if (::ioctl(fd, BLKGETSIZE64, &size) != 0 || ::ioctl(fd, BLKSSZGET, &blockSize) != 0) {
        reason =
            QStringLiteral("the size of %1 could not be read (%2)").arg(path, errnoText(errno));
        ::close(fd);
        return nullptr;
    }
    return std::make_unique<FileSource>(fd, qint64(size), blockSize > 0 ? blockSize : 512);
}

namespace {

// An image file does not say its block size: GPT tells it by where its
// header lies; anything else is taken as 512-byte blocks.
int guessBlockSize(HXPartitionMapReader::Source &source)
{
    for (const int size : {512, 4096}) {
        QByteArray block;
        QString why;
        if (source.sizeBytes() >= 3 * qint64(size) && source.read(size, 8, &block, &why) &&
            block == GptSignature)
            return size;
    }
    return 512;
}

} // namespace

HXPartitionMap HXPartitionMapReader::read(Source &source)
{
    HXPartitionMap map;
    map.blockSize =
        source.logicalBlockSize() > 0 ? source.logicalBlockSize() : guessBlockSize(source);
    map.blockCount = source.sizeBytes() / map.blockSize;
    if (map.blockCount < 3)
        return map; // too small to hold any map

    QByteArray first;
    QString why;
    if (!source.read(0, map.blockSize, &first, &why)) {
        addProblem(map, HXPartitionMapProblem::Where::Primary,
                   QStringLiteral("the disk's first block could not be read (%1)").arg(why));
        return map;
    }
    const std::optional<Mbr> mbr = parseMbr(first);
    if (mbr && !mbr->hasProtectiveEntry()) {
        readMbrPartitions(source, *mbr, map);
        return map;
    }
    if (!mbr && looksLikeBootSector(first))
        return map; // a file system on the whole disk
    const GptHeader primary = readGptHeader(source, map, 1, true);
    if (!mbr && !primary.hasSignature)
        return map;
    if (mbr)
        map.mbrSignature = mbr->signature;
    else
        addProblem(map, HXPartitionMapProblem::Where::Primary,
                   QStringLiteral("the first block holds no protective MBR, so systems that go by "
                                  "the MBR see no partitions"));
    readGpt(source, primary, map);
    return map;
}

std::optional<HXPartitionMap> HXPartitionMapReader::readPath(const QString &path, QString *why)
{
    const std::unique_ptr<Source> source = openPath(path, why);
    if (!source)
        return std::nullopt;
    return read(*source);
}

QString HXPartitionMapReader::diskIdentifier(const QString &path)
{
    const std::optional<HXPartitionMap> map = readPath(path, nullptr);
    return map ? map->identifier() : QString();
}
