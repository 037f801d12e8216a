// The MBR half of HXPartitionMapReader: four slots in the first block, and
// the chain of extended boot records that holds the logical partitions.

#include "HXPartitionMapParts.h"

#include <QSet>

namespace HXPartitionMapParts {

namespace {

constexpr int SlotsOffset = 446;
constexpr int SignatureOffset = 440;
constexpr quint8 ProtectiveType = 0xee;
// An extended partition's logical partitions never number in the hundreds;
// the limit stops a chain that has been damaged into a long or endless one.
constexpr int MaxLogicalPartitions = 128;

bool hasBootSignature(const QByteArray &block)
{
    return block.size() >= 512 && u8(block, 510) == 0x55 && u8(block, 511) == 0xaa;
}

MbrEntry slotAt(const QByteArray &block, int slot)
{
    const int at = SlotsOffset + 16 * slot;
    MbrEntry entry;
    entry.slot = slot + 1;
    entry.status = u8(block, at);
    entry.type = u8(block, at + 4);
    entry.start = u32(block, at + 8);
    entry.count = u32(block, at + 12);
    return entry;
}

bool isExtended(quint8 type)
{
    return type == 0x05 || type == 0x0f || type == 0x85;
}

bool isUsed(const MbrEntry &entry)
{
    return entry.type != 0 && entry.count != 0;
}

HXPartitionEntry partitionOf(int number, qint64 first, const MbrEntry &slot)
{
    HXPartitionEntry partition;
    partition.number = number;
    partition.firstBlock = first;
    partition.blockCount = slot.count;
    partition.mbrType = slot.type;
    return partition;
}

// The logical partitions inside an extended one: each extended boot record
// holds one partition (its start relative to the record) and the link to the
// next record (relative to the extended partition's start).
QList<HXPartitionEntry> readLogicalPartitions(HXPartitionMapReader::Source &source,
                                              const HXPartitionEntry &extended, HXPartitionMap &map)
{
    QList<HXPartitionEntry> logical;
    QSet<qint64> visited;
    qint64 record = extended.firstBlock;
    int number = 5;
    while (record != 0) {
        if (visited.contains(record) || visited.size() >= MaxLogicalPartitions) {
            addProblem(map, HXPartitionMapProblem::Where::Primary,
                       QStringLiteral(
                           "the chain of logical partitions in partition %1 loops back on itself")
                           .arg(extended.number));
            break;
        }
        visited.insert(record);
        if (record < extended.firstBlock || record > extended.lastBlock() ||
            record >= map.blockCount) {
            addProblem(
                map, HXPartitionMapProblem::Where::Primary,
                QStringLiteral(
                    "the chain of logical partitions leads outside partition %1, to block %2")
                    .arg(extended.number)
                    .arg(record));
            break;
        }
        QByteArray block;
        QString why;
        if (!source.read(record * map.blockSize, map.blockSize, &block, &why)) {
            addProblem(
                map, HXPartitionMapProblem::Where::Primary,
                QStringLiteral("the logical partition table at block %1 could not be read (%2)")
                    .arg(record)
                    .arg(why));
            break;
        }
        if (!hasBootSignature(block)) {
            addProblem(
                map, HXPartitionMapProblem::Where::Primary,
                QStringLiteral("the logical partition table at block %1 is damaged (it has no "
                               "boot signature)")
                    .arg(record));
            break;
        }
        const MbrEntry own = slotAt(block, 0);
        const MbrEntry link = slotAt(block, 1);
        if (isUsed(own)) {
            const HXPartitionEntry partition = partitionOf(number++, record + own.start, own);
            if (partition.firstBlock <= record || partition.lastBlock() > extended.lastBlock()) {
                addProblem(map, HXPartitionMapProblem::Where::Primary,
                           QStringLiteral("logical partition %1 (%2) does not lie inside extended "
                                          "partition %3 (%4)")
                               .arg(partition.number)
                               .arg(blockRange(partition.firstBlock, partition.lastBlock()))
                               .arg(extended.number)
                               .arg(blockRange(extended.firstBlock, extended.lastBlock())));
            }
            logical.append(partition);
        }
        record = isUsed(link) && isExtended(link.type) ? extended.firstBlock + link.start : 0;
    }
    return logical;
}

} // namespace

bool Mbr::hasProtectiveEntry() const
{
    for (const MbrEntry &entry : entries) {
        if (entry.type == ProtectiveType)
            return true;
    }
    return false;
}

bool looksLikeBootSector(const QByteArray &block)
{
    if (block.size() < 512)
        return false;
    if (block.mid(3, 8) == "NTFS    " || block.mid(3, 8) == "EXFAT   ")
        return true;
    if (!block.mid(54, 3).startsWith("FAT") && block.mid(82, 8) != "FAT32   ")
        return false;
    // The text alone could be boot code; a FAT boot sector's geometry also
    // has to make sense.
    const quint16 bytesPerSector = u16(block, 11);
    const quint8 sectorsPerCluster = u8(block, 13);
    const bool sectorSize = bytesPerSector >= 512 && bytesPerSector <= 4096 &&
                            (bytesPerSector & (bytesPerSector - 1)) == 0;
    return sectorSize && sectorsPerCluster != 0 &&
           (sectorsPerCluster & (sectorsPerCluster - 1)) == 0;
}

std::optional<Mbr> parseMbr(const QByteArray &block)
{
    if (!hasBootSignature(block) || looksLikeBootSector(block))
        return std::nullopt;
    Mbr mbr;
    mbr.signature = u32(block, SignatureOffset);
    for (int slot = 0; slot < 4; ++slot) {
        const MbrEntry entry = slotAt(block, slot);
        if (entry.status != 0x00 && entry.status != 0x80)
            return std::nullopt;
        mbr.entries.append(entry);
    }
    return mbr;
}

void readMbrPartitions(HXPartitionMapReader::Source &source, const Mbr &mbr, HXPartitionMap &map)
{
    map.scheme = HXPartitionMap::Scheme::MBR;
    map.mbrSignature = mbr.signature;
    QList<HXPartitionEntry> primaries;
    QList<HXPartitionEntry> logical;
    for (const MbrEntry &slot : mbr.entries) {
        if (!isUsed(slot))
            continue;
        const HXPartitionEntry partition = partitionOf(slot.slot, slot.start, slot);
        primaries.append(partition);
        if (partition.firstBlock == 0) {
            addProblem(
                map, HXPartitionMapProblem::Where::Primary,
                QStringLiteral("partition %1 starts at block 0, over the partition map itself")
                    .arg(partition.number));
        }
        if (partition.lastBlock() >= map.blockCount) {
            addProblem(map, HXPartitionMapProblem::Where::Primary,
                       QStringLiteral(
                           "partition %1 (%2) runs past the disk's end (the disk has %3 blocks)")
                           .arg(partition.number)
                           .arg(blockRange(partition.firstBlock, partition.lastBlock()))
                           .arg(map.blockCount));
        }
        if (isExtended(slot.type) && partition.firstBlock > 0 &&
            partition.firstBlock < map.blockCount)
            logical += readLogicalPartitions(source, partition, map);
    }
    checkOverlaps(primaries, map);
    checkOverlaps(logical, map);
    map.partitions = primaries + logical;
}

} // namespace HXPartitionMapParts
