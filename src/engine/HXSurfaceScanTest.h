#pragma once

#include "HXBlockSource.h"
#include "HXMachineTest.h"
#include "HXSurfaceScan.h"

#include <functional>
#include <memory>

// The Surface Scan test: every block of every disk of the pass read once, at
// the idle I/O priority. One finding per disk: Passed, or an Error naming the
// unreadable blocks; "isCompleted" false when the pass was cancelled, and the
// next pass resumes where this one stopped.
class HXSurfaceScanTest : public HXMachineTest
{
public:
    // Opens a disk for reading; nothing, with the sentence why, when it cannot.
    using SourceOpener =
        std::function<std::unique_ptr<HXBlockSource>(const HXBlockDisk &, QString *why)>;
    using Progress = std::function<void(const HXBlockDisk &, qint64 doneBytes, qint64 totalBytes)>;

    HXSurfaceScanTest();

    HXTest test() const override { return HXTest::SurfaceScan; }
    QList<HXTestFinding> run(const HXEngineContext &context) override;

    void setSourceOpener(SourceOpener opener) { m_open = std::move(opener); }
    void setProgress(Progress progress) { m_progress = std::move(progress); }
    void setChunkBytes(qint64 bytes) { m_chunkBytes = bytes; }

private:
    std::optional<HXTestFinding> scanDisk(const HXEngineContext &context, const HXBlockDisk &disk);
    QList<HXByteRange> excludedRanges(const HXEngineContext &context,
                                      const HXBlockDisk &disk) const;
    // Sets the plan to go on where an interrupted scan of the disk stopped,
    // unless the disk changed since.
    void resumeFromPoint(const HXEngineContext &context, const HXBlockDisk &disk,
                         const QString &diskId, const HXBlockSource &source,
                         HXSurfaceScan::Plan &plan) const;
    static HXTestFinding makeFinding(const HXBlockDisk &disk, const HXSurfaceScan::Outcome &outcome,
                                     const HXBlockSource &source);

    SourceOpener m_open;
    Progress m_progress;
    qint64 m_chunkBytes = qint64(1) << 20;
};
