#pragma once

#include "HXBlockSource.h"

#include <QList>
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
        : m_owned(std::move(inner))
        , m_inner(*m_owned)
    {
    }
    // Lends a source the test keeps to code that takes ownership of its
    // source, so that the test reads its requests after the scan.
    explicit FaultyBlockSource(HXBlockSource &inner)
        : m_inner(inner)
    {
    }

    // Logical blocks [first, first + count) fail with `error`.
    void failBlocks(qint64 first, qint64 count, int error = EIO)
    {
        m_faults.append({first, count, error});
    }
    qint64 sizeBytes() const override { return m_inner.sizeBytes(); }
    int logicalBlockSize() const override { return m_inner.logicalBlockSize(); }
    std::size_t bufferAlignment() const override { return m_inner.bufferAlignment(); }
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
        return m_inner.read(offset, buffer, length);
    }

    QList<Request> requests;
    std::function<void()> readHook; // called before each read is served

private:
    struct Fault
    {
        qint64 first;
        qint64 count;
        int error;
    };
    std::unique_ptr<HXBlockSource> m_owned;
    HXBlockSource &m_inner;
    QList<Fault> m_faults;
};
