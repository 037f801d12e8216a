// The GPT half of HXPartitionMapReader. A GPT is kept twice: the primary
// header at block 1 with its entry array after it, and a backup at the
// disk's last block with its array before it. Each header carries a CRC32 of
// itself and of its array, and names where the other copy lies.

#include "HXPartitionMapParts.h"

#include <cstring>
#include <limits>
#include <zlib.h>

namespace HXPartitionMapParts {

namespace {

constexpr int MinimumHeaderSize = 92;
constexpr int EntryMinimumSize = 128;
// Real maps hold 128 entries of 128 bytes; a header claiming more than this
// is damaged, and reading what it claims would only waste memory.
constexpr qint64 MaxEntryArrayBytes = qint64(4) << 20;

quint32 crcOf(const QByteArray &bytes)
{
    return quint32(crc32(crc32(0L, Z_NULL, 0), reinterpret_cast<const Bytef *>(bytes.constData()),
                         uInt(bytes.size())));
}

// GUIDs are stored with their first three fields little-endian.
QString guidText(const QByteArray &bytes, int at)
{
    return QStringLiteral("%1-%2-%3-%4-%5")
        .arg(u32(bytes, at), 8, 16, QLatin1Char('0'))
        .arg(u16(bytes, at + 4), 4, 16, QLatin1Char('0'))
        .arg(u16(bytes, at + 6), 4, 16, QLatin1Char('0'))
        .arg(QString::fromLatin1(bytes.mid(at + 8, 2).toHex()))
        .arg(QString::fromLatin1(bytes.mid(at + 10, 6).toHex()));
}

bool isZero(const QByteArray &bytes, int at, int length)
{
    for (int i = 0; i < length; ++i) {
        if (bytes.at(at + i) != 0)
            return false;
    }
    return true;
}

QString nameOf(const QByteArray &entry)
{
    // 36 UTF-16LE code units, ended by a zero when shorter.
    QString name;
    for (int at = 56; at + 1 < entry.size() && at < 56 + 72; at += 2) {
        const char16_t unit = u16(entry, at);
        if (unit == 0)
            break;
        name.append(QChar(unit));
    }
    return name;
}

// Reads the header's entry array and checks its place and checksum.
void readEntries(HXPartitionMapReader::Source &source, const HXPartitionMap &map, bool primary,
                 GptHeader &header)
{
    const qint64 bytes = qint64(header.entryCount) * header.entrySize;
    const qint64 blocks = (bytes + map.blockSize - 1) / map.blockSize;
    // A header may claim any place; one past the disk is misplaced without
    // the sum below overflowing.
    const qint64 last = header.entriesLba >= 0 && header.entriesLba < map.blockCount
                            ? header.entriesLba + blocks - 1
                            : map.blockCount;
    // The primary's array lies between its header and the partitions, the
    // backup's between the partitions and its header.
    const bool placed = primary ? header.entriesLba > header.lba && last < header.firstUsable
                                : header.entriesLba > header.lastUsable && last < header.lba;
    if (!placed) {
        header.damage =
            QStringLiteral("places its partition entries at %1, where they clash with the "
                           "header or the partitions")
                .arg(blockRange(header.entriesLba, last));
        return;
    }
    QString why;
    if (!source.read(header.entriesLba * map.blockSize, bytes, &header.entries, &why)) {
        header.damage =
            QStringLiteral("has partition entries that could not be read (%1)").arg(why);
        return;
    }
    if (crcOf(header.entries) != header.entriesCrc)
        header.damage = QStringLiteral("has damaged partition entries (their checksum is wrong)");
}

// What differs between two sound copies of the map, in words.
QStringList differences(const GptHeader &primary, const GptHeader &backup)
{
    QStringList differ;
    if (primary.diskGuid != backup.diskGuid)
        differ << QStringLiteral("disk GUID");
    if (primary.firstUsable != backup.firstUsable || primary.lastUsable != backup.lastUsable)
        differ << QStringLiteral("usable area");
    if (primary.entryCount != backup.entryCount || primary.entrySize != backup.entrySize ||
        primary.entriesCrc != backup.entriesCrc)
        differ << QStringLiteral("partition entries");
    return differ;
}

void readPartitions(const GptHeader &header, HXPartitionMap &map)
{
    map.diskGuid = guidText(header.diskGuid, 0);
    QList<HXPartitionEntry> partitions;
    for (quint32 index = 0; index < header.entryCount; ++index) {
        const QByteArray entry =
            header.entries.mid(qsizetype(index) * header.entrySize, header.entrySize);
        if (isZero(entry, 0, 16))
            continue; // an unused entry
        HXPartitionEntry partition;
        partition.number = int(index) + 1;
        partition.typeGuid = guidText(entry, 0);
        partition.guid = guidText(entry, 16);
        partition.name = nameOf(entry);
        const quint64 first = u64(entry, 32);
        const quint64 last = u64(entry, 40);
        const bool ordered = first <= last;
        if (!ordered) {
            addProblem(map, HXPartitionMapProblem::Where::Primary,
                       QStringLiteral("partition %1 ends (block %2) before it starts (block %3)")
                           .arg(partition.number)
                           .arg(last)
                           .arg(first));
        } else if (first < quint64(header.firstUsable) || last > quint64(header.lastUsable)) {
            addProblem(map, HXPartitionMapProblem::Where::Primary,
                       QStringLiteral("partition %1 (%2) lies outside the disk's usable area (%3)")
                           .arg(partition.number)
                           .arg(blockRange(qint64(first), qint64(last)))
                           .arg(blockRange(header.firstUsable, header.lastUsable)));
        }
        // Beyond any disk: nothing to compare with the others.
        if (!ordered || last > quint64(std::numeric_limits<qint64>::max() / 2))
            continue;
        partition.firstBlock = qint64(first);
        partition.blockCount = qint64(last - first + 1);
        partitions.append(partition);
    }
    checkOverlaps(partitions, map);
    map.partitions = partitions;
}

} // namespace

GptHeader readGptHeader(HXPartitionMapReader::Source &source, const HXPartitionMap &map, qint64 lba,
                        bool primary)
{
    GptHeader header;
    header.lba = lba;
    QByteArray block;
    QString why;
    if (!source.read(lba * map.blockSize, map.blockSize, &block, &why)) {
        header.damage = QStringLiteral("could not be read (%1)").arg(why);
        return header;
    }
    if (!block.startsWith(GptSignature)) {
        header.damage = QStringLiteral("is missing (block %1 holds no GPT header)").arg(lba);
        return header;
    }
    header.hasSignature = true;
    const quint32 size = u32(block, 12);
    if (size < MinimumHeaderSize || size > quint32(map.blockSize)) {
        header.damage = QStringLiteral("is damaged (it claims to be %1 bytes long)").arg(size);
        return header;
    }
    QByteArray checked = block.left(int(size));
    std::memset(checked.data() + 16, 0, 4);
    if (crcOf(checked) != u32(block, 16)) {
        header.damage = QStringLiteral("is damaged (its checksum is wrong)");
        return header;
    }
    const qint64 myLba = qint64(u64(block, 24));
    header.alternateLba = qint64(u64(block, 32));
    header.firstUsable = qint64(u64(block, 40));
    header.lastUsable = qint64(u64(block, 48));
    header.diskGuid = block.mid(56, 16);
    header.entriesLba = qint64(u64(block, 72));
    header.entryCount = u32(block, 80);
    header.entrySize = u32(block, 84);
    header.entriesCrc = u32(block, 88);
    if (myLba != lba) {
        header.damage =
            QStringLiteral("is out of place (it says it lies at block %1, but lies at block %2)")
                .arg(myLba)
                .arg(lba);
        return header;
    }
    const bool entrySizeValid =
        header.entrySize >= EntryMinimumSize && header.entrySize % EntryMinimumSize == 0 &&
        ((header.entrySize / EntryMinimumSize) & (header.entrySize / EntryMinimumSize - 1)) == 0;
    if (!entrySizeValid ||
        quint64(header.entryCount) * header.entrySize > quint64(MaxEntryArrayBytes)) {
        header.damage = QStringLiteral("is damaged (it claims %1 partition entries of %2 bytes)")
                            .arg(header.entryCount)
                            .arg(header.entrySize);
        return header;
    }
    if (header.firstUsable < 2 || header.lastUsable < header.firstUsable - 1 ||
        header.lastUsable >= map.blockCount - 1) {
        header.damage =
            QStringLiteral("describes a usable area (%1) that does not fit a disk of %2 blocks")
                .arg(blockRange(header.firstUsable, header.lastUsable))
                .arg(map.blockCount);
        return header;
    }
    readEntries(source, map, primary, header);
    return header;
}

void readGpt(HXPartitionMapReader::Source &source, const GptHeader &primary, HXPartitionMap &map)
{
    using Where = HXPartitionMapProblem::Where;
    map.scheme = HXPartitionMap::Scheme::GPT;
    const qint64 lastBlock = map.blockCount - 1;
    if (!primary.usable()) {
        addProblem(map, Where::Primary,
                   QStringLiteral("the primary GPT header %1").arg(primary.damage));
        const GptHeader backup = readGptHeader(source, map, lastBlock, false);
        if (!backup.usable()) {
            addProblem(map, Where::Backup,
                       QStringLiteral("the backup GPT header %1").arg(backup.damage));
            return;
        }
        if (backup.alternateLba != 1)
            addProblem(map, Where::Backup,
                       QStringLiteral(
                           "the backup GPT header does not point back to the primary at block 1"));
        readPartitions(backup, map); // what a repair would restore the primary from
        return;
    }

    // A grown disk keeps its backup where the old end was, which the primary
    // still names; a shrunk one has lost it.
    const qint64 named = primary.alternateLba;
    const bool namedInside = named > primary.lastUsable && named <= lastBlock;
    const GptHeader backup = readGptHeader(source, map, namedInside ? named : lastBlock, false);
    if (named > lastBlock) {
        addProblem(
            map, Where::Backup,
            QStringLiteral("the primary GPT header places the backup at block %1, past the disk's "
                           "last block %2 (the disk was probably made smaller)")
                .arg(named)
                .arg(lastBlock));
    } else if (!namedInside) {
        addProblem(
            map, Where::Backup,
            QStringLiteral("the primary GPT header places the backup at block %1, which is not "
                           "after the partitions' area")
                .arg(named));
    } else if (!backup.usable()) {
        addProblem(map, Where::Backup,
                   QStringLiteral("the backup GPT header %1").arg(backup.damage));
    } else if (named != lastBlock) {
        addProblem(
            map, Where::Backup,
            QStringLiteral("the backup GPT header is not at the disk's last block (the disk was "
                           "probably enlarged)"));
    }
    if (backup.usable()) {
        const QStringList differ = differences(primary, backup);
        if (!differ.isEmpty())
            addProblem(map, Where::Backup,
                       QStringLiteral("the backup GPT does not match the primary (its %1 differ)")
                           .arg(differ.join(QLatin1String(", "))));
        if (backup.alternateLba != 1)
            addProblem(map, Where::Backup,
                       QStringLiteral(
                           "the backup GPT header does not point back to the primary at block 1"));
    }
    readPartitions(primary, map);
}

} // namespace HXPartitionMapParts
