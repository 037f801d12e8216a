#pragma once

#include "HXBlockSource.h"

#include <QList>
#include <QString>
#include <atomic>
#include <functional>

// A run of unreadable logical blocks: first block's index and how many.
struct HXBadBlockRange
{
    qint64 first = 0;
    qint64 count = 0;
    qint64 last() const { return first + count - 1; }
    bool operator==(const HXBadBlockRange &) const = default;
};

// A byte range of a disk.
struct HXByteRange
{
    qint64 start = 0;
    qint64 length = 0;
    qint64 end() const { return start + length; }
};

// Bad blocks as disjoint runs in ascending order; adding a block already
// known (a resumed scan reading a range again) changes nothing.
class HXBadBlockList
{
public:
    void add(qint64 first, qint64 count = 1);
    const QList<HXBadBlockRange> &ranges() const { return m_ranges; }
    qint64 blockCount() const;
    bool isEmpty() const { return m_ranges.isEmpty(); }
    // "2048-2050, 9000", at most `maxRanges` runs, then "and N more".
    QString text(int maxRanges = 20) const;

private:
    QList<HXBadBlockRange> m_ranges;
};

// The sequential read of a disk, in large chunks; a chunk that cannot be read
// is read again in ever smaller pieces down to single logical blocks, so that
// exactly the unreadable blocks are found.
class HXSurfaceScan
{
public:
    struct Plan
    {
        QList<HXByteRange> skipped;    // not read (volumes the user excluded)
        qint64 resumeOffset = 0;       // where an interrupted scan stopped
        HXBadBlockList knownBadBlocks; // what the interrupted scan had found
        qint64 chunkBytes = qint64(1) << 20;
        const std::atomic_bool *cancelled = nullptr;
        // A chunk that took longer than this means other programs use the
        // disk: the scan pauses as long again (at most slowReadPauseMs).
        int slowReadMs = 250;
        int slowReadPauseMs = 100;
        std::function<void(qint64 doneBytes, qint64 totalBytes)> progress;
    };

    struct Outcome
    {
        bool completed = false;
        qint64 stopOffset = 0;  // where the next scan resumes, when not completed
        qint64 bytesToRead = 0; // the disk less the skipped ranges
        qint64 bytesRead = 0;   // in this run
        HXBadBlockList badBlocks;
        // Why the scan stopped other than being cancelled: the disk stopped
        // answering, or ended before its size.
        QString failure;
    };

    explicit HXSurfaceScan(HXBlockSource &source)
        : m_source(source)
    {
    }

    Outcome run(const Plan &plan);

    // The disk's byte ranges that a plan reads: the whole disk less the
    // skipped ranges, each grown to whole logical blocks.
    static QList<HXByteRange> rangesToRead(qint64 sizeBytes, int blockSize,
                                           QList<HXByteRange> skipped);

    // Media errors: the block cannot be read but the disk answers.
    static bool isMediaError(int error);

private:
    enum class Located { Done, Cancelled, Failed };
    Located locate(qint64 offset, qint64 length, void *buffer, const Plan &plan, Outcome &outcome);
    bool isCancelled(const Plan &plan) const;

    HXBlockSource &m_source;
};
