#pragma once

#include "HXBlockSource.h"

#include <QList>
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>

// A real block source with faults laid over it: reads that touch a failing
// block answer its errno instead of data, as a disk with bad sectors does.
// Every read asked of it is kept, so a test sees which bytes the scan read.
class FaultyBlockSource : public HXBlockSource
{
public:
    struct Request
    {
        qint64 offset = 0;
        qint64 length = 0;
        qint64 end() const { return offset + length; }
    };

    explicit FaultyBlockSource(std::unique_ptr<HXBlockSource> inner)
        : m_inner(std::move(inner))
    {
    }

    // Logical blocks [first, first + count) fail with `error`.
    void failBlocks(qint64 first, qint64 count, int error = EIO)
    {
        m_faults.append({first, count, error});
    }
    // Sets `flag` once this many bytes have been read, as a user who cancels
    // the pass while the scan runs.
    void cancelAfter(qint64 bytes, std::atomic_bool *flag)
    {
        m_cancelAfter = bytes;
        m_cancel = flag;
    }

    qint64 sizeBytes() const override { return m_inner->sizeBytes(); }
    int logicalBlockSize() const override { return m_inner->logicalBlockSize(); }
    std::size_t bufferAlignment() const override { return m_inner->bufferAlignment(); }
    qint64 read(qint64 offset, void *buffer, qint64 length) override
    {
        requests.append({offset, length});
        if (readHook)
            readHook();
        const qint64 block = logicalBlockSize();
        for (const Fault &f : m_faults) {
            if (offset < (f.first + f.count) * block && f.first * block < offset + length)
                return -f.error;
        }
        const qint64 n = m_inner->read(offset, buffer, length);
        if (n > 0)
            m_served += n;
        if (m_cancel && m_served >= m_cancelAfter)
            m_cancel->store(true);
        return n;
    }

    QList<Request> requests;
    std::function<void()> readHook;

private:
    struct Fault
    {
        qint64 first;
        qint64 count;
        int error;
    };
    std::unique_ptr<HXBlockSource> m_inner;
    QList<Fault> m_faults;
    qint64 m_served = 0;
    qint64 m_cancelAfter = 0;
    std::atomic_bool *m_cancel = nullptr;
};

// Lends a source the test keeps to code that takes ownership of its source,
// so that the test reads the requests after the scan is done with it.
class BorrowedBlockSource : public HXBlockSource
{
public:
    explicit BorrowedBlockSource(HXBlockSource &source)
        : m_source(source)
    {
    }
    qint64 sizeBytes() const override { return m_source.sizeBytes(); }
    int logicalBlockSize() const override { return m_source.logicalBlockSize(); }
    std::size_t bufferAlignment() const override { return m_source.bufferAlignment(); }
    qint64 read(qint64 offset, void *buffer, qint64 length) override
    {
        return m_source.read(offset, buffer, length);
    }

private:
    HXBlockSource &m_source;
};
