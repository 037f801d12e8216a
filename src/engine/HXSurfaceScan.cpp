#include "HXSurfaceScan.h"

#include "HXEngineTypes.h"

#include <QElapsedTimer>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

void HXBadBlockList::add(qint64 first, qint64 count)
{
    if (count <= 0)
        return;
    qint64 last = first + count - 1;
    // Absorb every run that overlaps or touches the new one.
    auto it = std::lower_bound(m_ranges.begin(), m_ranges.end(), first,
                               [](const HXBadBlockRange &r, qint64 v) { return r.last() + 1 < v; });
    auto stop = it;
    while (stop != m_ranges.end() && stop->first <= last + 1) {
        first = std::min(first, stop->first);
        last = std::max(last, stop->last());
        ++stop;
    }
    const qsizetype index = it - m_ranges.begin();
    m_ranges.erase(it, stop);
    m_ranges.insert(index, HXBadBlockRange{first, last - first + 1});
}

qint64 HXBadBlockList::blockCount() const
{
    qint64 n = 0;
    for (const HXBadBlockRange &r : m_ranges)
        n += r.count;
    return n;
}

QString HXBadBlockList::text(int maxRanges) const
{
    QStringList parts;
    for (const HXBadBlockRange &r : m_ranges) {
        if (parts.size() == maxRanges) {
            parts.append(QStringLiteral("and %1 more ranges").arg(m_ranges.size() - maxRanges));
            break;
        }
        parts.append(r.count == 1 ? QString::number(r.first)
                                  : QStringLiteral("%1-%2").arg(r.first).arg(r.last()));
    }
    return parts.join(QLatin1String(", "));
}

QList<HXByteRange> HXSurfaceScan::rangesToRead(qint64 sizeBytes, int blockSize,
                                               QList<HXByteRange> skipped)
{
    const qint64 block = std::max(blockSize, 1);
    const qint64 end = sizeBytes / block * block; // the kernel's size is in whole blocks
    for (HXByteRange &r : skipped) {
        const qint64 s = std::clamp<qint64>(r.start, 0, end) / block * block;
        const qint64 e = std::clamp<qint64>(r.end(), 0, end);
        r = {s, std::min(end, (e + block - 1) / block * block) - s};
    }
    std::sort(skipped.begin(), skipped.end(),
              [](const HXByteRange &a, const HXByteRange &b) { return a.start < b.start; });
    QList<HXByteRange> ranges;
    qint64 pos = 0;
    for (const HXByteRange &r : skipped) {
        if (r.length <= 0)
            continue;
        if (r.start > pos)
            ranges.append({pos, r.start - pos});
        pos = std::max(pos, r.end());
    }
    if (pos < end)
        ranges.append({pos, end - pos});
    return ranges;
}

bool HXSurfaceScan::isMediaError(int error)
{
    // The block layer answers EIO for a failed read, ENODATA for a medium
    // error, EILSEQ for a failed integrity check, EBADMSG on some drivers.
    return error == EIO || error == ENODATA || error == EILSEQ || error == EBADMSG;
}

bool HXSurfaceScan::isCancelled(const Plan &plan) const
{
    return plan.cancelled && plan.cancelled->load(std::memory_order_relaxed);
}

HXSurfaceScan::Outcome HXSurfaceScan::run(const Plan &plan)
{
    Outcome outcome;
    outcome.badBlocks = plan.knownBadBlocks;
    const int block = m_source.logicalBlockSize();
    const QList<HXByteRange> ranges = rangesToRead(m_source.sizeBytes(), block, plan.skipped);
    for (const HXByteRange &r : ranges)
        outcome.bytesToRead += r.length;

    const qint64 chunk = std::max<qint64>(plan.chunkBytes / block * block, block);
    HXAlignedBuffer buffer(m_source.bufferAlignment(), std::size_t(chunk));
    if (!buffer.data()) {
        outcome.failure =
            QStringLiteral("no memory for a read buffer of %1").arg(HXSizeText(chunk));
        return outcome;
    }

    // Bytes already read before the resume point count as done.
    qint64 done = 0;
    for (const HXByteRange &r : ranges)
        done += std::clamp<qint64>(plan.resumeOffset - r.start, 0, r.length);

    for (const HXByteRange &range : ranges) {
        qint64 pos = std::max(range.start, plan.resumeOffset / block * block);
        while (pos < range.end()) {
            if (isCancelled(plan)) {
                outcome.stopOffset = pos;
                return outcome;
            }
            const qint64 length = std::min(chunk, range.end() - pos);
            QElapsedTimer clock;
            clock.start();
            const qint64 n = m_source.read(pos, buffer.data(), length);
            if (n < 0 && isMediaError(int(-n))) {
                const Located found = locate(pos, length, buffer.data(), plan, outcome);
                if (found != Located::Done) {
                    outcome.stopOffset = pos;
                    return outcome;
                }
            } else if (n < 0) {
                outcome.failure = qt_error_string(int(-n));
                outcome.stopOffset = pos;
                return outcome;
            } else if (n < length) {
                outcome.failure =
                    QStringLiteral("the disk ended at byte %1, before its size of %2 bytes")
                        .arg(pos + n)
                        .arg(m_source.sizeBytes());
                outcome.stopOffset = pos;
                return outcome;
            }
            pos += length;
            done += length;
            outcome.bytesRead += length;
            if (plan.progress)
                plan.progress(done, outcome.bytesToRead);
            // The idle I/O class yields to other programs only under schedulers
            // that honour it; a slow read says the disk is busy all the same.
            if (clock.elapsed() > plan.slowReadMs) {
                const auto pause = std::chrono::milliseconds(
                    std::min<qint64>(clock.elapsed(), plan.slowReadPauseMs));
                std::this_thread::sleep_for(pause);
            }
        }
    }
    outcome.completed = true;
    return outcome;
}

HXSurfaceScan::Located HXSurfaceScan::locate(qint64 offset, qint64 length, void *buffer,
                                             const Plan &plan, Outcome &outcome)
{
    const int block = m_source.logicalBlockSize();
    if (length <= block) {
        outcome.badBlocks.add(offset / block);
        return Located::Done;
    }
    // Sixteen pieces a round: a chunk with one bad block costs a few dozen
    // reads instead of one per block.
    const qint64 piece = std::max<qint64>((length / 16 + block - 1) / block * block, block);
    for (qint64 pos = offset; pos < offset + length; pos += piece) {
        if (isCancelled(plan))
            return Located::Cancelled;
        const qint64 n = std::min(piece, offset + length - pos);
        const qint64 r = m_source.read(pos, buffer, n);
        if (r == n)
            continue;
        if (r < 0 && isMediaError(int(-r))) {
            const Located found = locate(pos, n, buffer, plan, outcome);
            if (found != Located::Done)
                return found;
            continue;
        }
        outcome.failure = r < 0 ? qt_error_string(int(-r))
                                : QStringLiteral("the disk ended at byte %1").arg(pos + r);
        return Located::Failed;
    }
    return Located::Done;
}
