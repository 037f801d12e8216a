#pragma once

// The pieces of HXPartitionMapReader: the MBR and the GPT readers and what
// both use. Not for use outside the reader.

#include "HXPartitionMapReader.h"

#include <QFile>
#include <QtEndian>
#include <optional>

namespace HXPartitionMapParts {

inline const QByteArray GptSignature = QByteArrayLiteral("EFI PART");

inline quint8 u8(const QByteArray &bytes, int at)
{
    return quint8(bytes.at(at));
}
inline quint16 u16(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint16>(bytes.constData() + at);
}
inline quint32 u32(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint32>(bytes.constData() + at);
}
inline quint64 u64(const QByteArray &bytes, int at)
{
    return qFromLittleEndian<quint64>(bytes.constData() + at);
}

void addProblem(HXPartitionMap &map, HXPartitionMapProblem::Where where, const QString &text);
// "blocks 2048 to 4095"
QString blockRange(qint64 first, qint64 last);
// Adds a problem for every partition that overlaps one before it.
void checkOverlaps(QList<HXPartitionEntry> entries, HXPartitionMap &map);

struct MbrEntry
{
    int slot = 0;
    quint8 status = 0;
    quint8 type = 0;
    quint32 start = 0;
    quint32 count = 0;
};

struct Mbr
{
    quint32 signature = 0;
    QList<MbrEntry> entries; // the four slots, empty ones included
    bool hasProtectiveEntry() const;
};

// The first block as an MBR: nothing when it has no boot signature, when a
// slot's status byte is neither 0x00 nor 0x80, or when it is a file system's
// boot sector (FAT, NTFS, exFAT also end in 0x55AA).
std::optional<Mbr> parseMbr(const QByteArray &block);
bool looksLikeBootSector(const QByteArray &block);
// Fills the map from an MBR: its partitions, the logical ones of an extended
// partition, and what is wrong with them.
void readMbrPartitions(HXPartitionMapReader::Source &source, const Mbr &mbr, HXPartitionMap &map);

struct GptHeader
{
    qint64 lba = 0;
    bool hasSignature = false;
    QString damage; // completes "the primary GPT header ..."; empty when usable
    qint64 alternateLba = 0;
    qint64 firstUsable = 0;
    qint64 lastUsable = 0;
    qint64 entriesLba = 0;
    quint32 entryCount = 0;
    quint32 entrySize = 0;
    quint32 entriesCrc = 0;
    QByteArray diskGuid; // 16 bytes as stored
    QByteArray entries;

    bool usable() const { return hasSignature && damage.isEmpty(); }
};

GptHeader readGptHeader(HXPartitionMapReader::Source &source, const HXPartitionMap &map, qint64 lba,
                        bool primary);
// Fills the map from the GPT whose primary header has been read: finds and
// checks the backup, compares the two, and reads the partitions of the copy
// in force.
void readGpt(HXPartitionMapReader::Source &source, const GptHeader &primary, HXPartitionMap &map);

} // namespace HXPartitionMapParts
