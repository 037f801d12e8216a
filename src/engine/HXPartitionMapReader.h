#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <memory>
#include <optional>

// One partition as the map describes it, in the disk's logical blocks.
struct HXPartitionEntry
{
    int number = 0; // GPT: the entry's index + 1; MBR: slot 1-4, logical ones from 5
    qint64 firstBlock = 0;
    qint64 blockCount = 0;
    QString typeGuid; // GPT, lower case as lsblk shows it
    int mbrType = 0;  // MBR type code (0x83, 0x07, 0xee...)
    QString guid;     // GPT partition GUID
    QString name;     // GPT partition name

    qint64 lastBlock() const { return firstBlock + blockCount - 1; }
};

// Something wrong with the map, in words that complete "Partition Map test
// error on sdb: ...". Problems of the map in force (the primary GPT, the MBR,
// the partitions themselves) are Primary; those of the GPT's backup copy only
// are Backup.
struct HXPartitionMapProblem
{
    enum class Where { Primary, Backup };
    Where where = Where::Primary;
    QString text;
};

struct HXPartitionMap
{
    enum class Scheme { None, MBR, GPT };
    Scheme scheme = Scheme::None;
    int blockSize = 512;
    qint64 blockCount = 0;
    QList<HXPartitionEntry> partitions;
    QString diskGuid;         // GPT, lower case
    quint32 mbrSignature = 0; // MBR (and a GPT's protective MBR)
    QList<HXPartitionMapProblem> problems;

    bool primaryIsSound() const;
    bool backupIsSound() const;
    QString schemeName() const; // "GPT", "MBR", "no partition map"
    // The disk GUID of a GPT, or the signature of an MBR as 8 hex digits
    // (the forms blkid gives as PTUUID); empty when the map has neither.
    QString identifier() const;
};

// Reads MBR and GPT partition maps itself, checking what a firmware or a
// kernel relies on: the protective MBR, both GPT headers with their CRC32s,
// their agreement and places, and partitions that stay inside the disk and
// apart from each other. Only ever reads.
class HXPartitionMapReader
{
public:
    // Where the bytes come from: a block device or an image file, or memory
    // in tests.
    class Source
    {
    public:
        virtual ~Source() = default;
        virtual qint64 sizeBytes() const = 0;
        // The device's logical block size; 0 for an image file, whose block
        // size is then taken from where its GPT header is found.
        virtual int logicalBlockSize() const = 0;
        // Exactly `length` bytes at `offset`; false with the reason otherwise.
        virtual bool read(qint64 offset, qint64 length, QByteArray *into, QString *why) = 0;
    };

    // A read-only source on a block device or an image file; nothing, with
    // the sentence why, when it cannot be opened.
    static std::unique_ptr<Source> openPath(const QString &path, QString *why);

    static HXPartitionMap read(Source &source);
    static std::optional<HXPartitionMap> readPath(const QString &path, QString *why);

    // What disk identity needs: the GPT disk GUID or the MBR signature of the
    // device or image, as HXPartitionMap::identifier(); empty when there is
    // none or it cannot be read.
    static QString diskIdentifier(const QString &path);
};
