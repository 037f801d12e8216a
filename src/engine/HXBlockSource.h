#pragma once

#include <QString>
#include <QtGlobal>
#include <cstddef>
#include <memory>

// Where the surface scan reads a disk from. Reads never write anything.
class HXBlockSource
{
public:
    virtual ~HXBlockSource() = default;

    virtual qint64 sizeBytes() const = 0;
    // The smallest unit the device reads: offsets and lengths of reads are
    // multiples of it, and bad blocks are counted in it.
    virtual int logicalBlockSize() const = 0;
    // What a read's buffer must be aligned to.
    virtual std::size_t bufferAlignment() const = 0;
    // Reads `length` bytes at `offset` into `buffer` (aligned to
    // bufferAlignment()). Answers the bytes read, fewer only at the end of
    // the device, or -errno when any part of the range could not be read.
    virtual qint64 read(qint64 offset, void *buffer, qint64 length) = 0;
};

// A block of memory aligned for direct I/O; freed with the object.
class HXAlignedBuffer
{
public:
    HXAlignedBuffer() = default;
    // Empty (data() null) when the memory is not there.
    HXAlignedBuffer(std::size_t alignment, std::size_t size);

    void *data() const { return m_data.get(); }
    std::size_t size() const { return m_size; }

private:
    struct Free
    {
        void operator()(void *p) const;
    };
    std::unique_ptr<void, Free> m_data;
    std::size_t m_size = 0;
};

// A whole disk read from its device node: read-only, with O_DIRECT so that a
// scan neither fills the page cache nor reads the cache instead of the disk.
class HXDeviceBlockSource : public HXBlockSource
{
public:
    ~HXDeviceBlockSource() override;

    // Nothing, with the sentence why, when the node cannot be opened or is
    // not a block device.
    static std::unique_ptr<HXDeviceBlockSource> open(const QString &devicePath, QString *why);

    qint64 sizeBytes() const override { return m_size; }
    int logicalBlockSize() const override { return m_blockSize; }
    std::size_t bufferAlignment() const override;
    qint64 read(qint64 offset, void *buffer, qint64 length) override;

    // False when the kernel refused O_DIRECT for this device and reads go
    // through the page cache.
    bool isDirect() const { return m_direct; }

private:
    HXDeviceBlockSource() = default;

    int m_fd = -1;
    qint64 m_size = 0;
    int m_blockSize = 512;
    bool m_direct = true;
};
