// Any first blocks of a disk through the partition map reader: a map that
// lies about its sizes, counts and places must give problems in words, never
// a crash, an over-read, a hang or a huge allocation. The first eight bytes
// say how large the disk claims to be; what lies past the input reads as
// zeros, as a blank disk would.
#include "HXPartitionMapReader.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

class FuzzedDisk : public HXPartitionMapReader::Source
{
public:
    FuzzedDisk(const uint8_t *data, size_t size)
    {
        quint64 header = 0;
        if (size >= 8)
            std::memcpy(&header, data, 8);
        m_blockSize = (header & 1) ? 4096 : 512;
        // Up to 16 TiB, whole blocks, at least the input.
        m_size = qint64((header >> 1) % (quint64(1) << 44)) / m_blockSize * m_blockSize;
        m_data = QByteArray(reinterpret_cast<const char *>(data) + std::min<size_t>(size, 8),
                            qsizetype(size > 8 ? size - 8 : 0));
        m_size = std::max(m_size, qint64(m_data.size()));
    }
    qint64 sizeBytes() const override { return m_size; }
    int logicalBlockSize() const override { return m_blockSize; }
    bool read(qint64 offset, qint64 length, QByteArray *into, QString *why) override
    {
        if (offset < 0 || length < 0 || offset > m_size || length > m_size - offset ||
            length > (qint64(64) << 20)) {
            *why = QStringLiteral("outside the disk");
            return false;
        }
        *into = QByteArray(qsizetype(length), '\0');
        if (offset < m_data.size())
            std::memcpy(into->data(), m_data.constData() + offset,
                        size_t(std::min(length, m_data.size() - offset)));
        return true;
    }

private:
    QByteArray m_data;
    qint64 m_size = 0;
    int m_blockSize = 512;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDisk disk(data, size);
    const HXPartitionMap map = HXPartitionMapReader::read(disk);
    // Whatever it accepted lies on the disk it was given.
    for (const HXPartitionEntry &entry : map.partitions) {
        if (map.problems.isEmpty() && (entry.firstBlock < 0 || entry.blockCount < 0 ||
                                       entry.lastBlock() >= disk.sizeBytes() / map.blockSize))
            std::abort();
    }
    return 0;
}
