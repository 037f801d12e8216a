#include "HXMemoryPatternCheck.h"

#include <QFile>
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <random>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr qint64 smallestLockedTest = qint64(16) << 20;

// The memory the kernel says it can give without swapping; 0 when unknown.
qint64 availableBytes()
{
    // The machine's own, never a fixture's: this is the memory about to be taken.
    QFile file(QStringLiteral("/proc/meminfo"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("MemAvailable:"))
            return line.mid(13).trimmed().split(' ').value(0).toLongLong() * 1024;
    }
    return 0;
}

// The physical address behind a virtual one, from the kernel's page map; the
// kernel tells page frames only to a process with CAP_SYS_ADMIN.
std::optional<quint64> physicalAddress(quintptr address)
{
    const long page = sysconf(_SC_PAGESIZE);
    const int fd = ::open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    quint64 entry = 0;
    const ssize_t n = pread(fd, &entry, sizeof entry, off_t(address / quintptr(page) * 8));
    ::close(fd);
    const quint64 frame = entry & ((quint64(1) << 55) - 1);
    if (n != sizeof entry || !(entry >> 63) || frame == 0)
        return std::nullopt;
    return frame * quint64(page) + address % quintptr(page);
}

// The tested region: unmapped (and so unlocked) when the test ends.
class Region
{
public:
    explicit Region(qint64 bytes)
        : m_bytes(bytes)
    {
        void *p = mmap(nullptr, std::size_t(bytes), PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        m_data = p == MAP_FAILED ? nullptr : p;
    }
    ~Region()
    {
        if (m_data)
            munmap(m_data, std::size_t(m_bytes));
    }
    Region(const Region &) = delete;
    Region &operator=(const Region &) = delete;

    quint64 *words() const { return static_cast<quint64 *>(m_data); }
    bool lock(qint64 bytes) const { return mlock(m_data, std::size_t(bytes)) == 0; }

private:
    void *m_data = nullptr;
    qint64 m_bytes = 0;
};

} // namespace

HXMemoryPatternCheck::Outcome HXMemoryPatternCheck::run(qint64 bytes,
                                                        const HXEngineContext &context)
{
    Outcome outcome;
    const qint64 page = sysconf(_SC_PAGESIZE);
    const qint64 available = availableBytes();
    // Half of what is free: the test must never push the machine's own
    // programs out of memory.
    if (available > 0 && bytes > available / 2) {
        context.say(QStringLiteral("Memory test tests %1 instead of %2: only %3 of memory is free")
                        .arg(HXSizeText(available / 2 / page * page), HXSizeText(bytes),
                             HXSizeText(available)));
        bytes = available / 2;
    }
    bytes = bytes / page * page;
    if (bytes <= 0) {
        outcome.failure = QStringLiteral("there is no free memory to test");
        return outcome;
    }
    Region region(bytes);
    if (!region.words()) {
        outcome.failure = QStringLiteral("%1 of memory could not be had: %2")
                              .arg(HXSizeText(bytes), qt_error_string(errno));
        return outcome;
    }
    // Locked pages stay on the same physical memory from write to verify; a
    // page the kernel moved or swapped out in between would test nothing.
    if (region.lock(bytes)) {
        outcome.locked = true;
    } else {
        const int error = errno;
        rlimit limit{};
        getrlimit(RLIMIT_MEMLOCK, &limit);
        const qint64 lockable =
            limit.rlim_cur == RLIM_INFINITY ? 0 : qint64(limit.rlim_cur) / page * page;
        if (lockable >= smallestLockedTest && lockable < bytes && region.lock(lockable)) {
            context.say(QStringLiteral("Memory test tests %1 instead of %2: the process may lock "
                                       "no more (RLIMIT_MEMLOCK) and has no CAP_IPC_LOCK")
                            .arg(HXSizeText(lockable), HXSizeText(bytes)));
            bytes = lockable;
            outcome.locked = true;
        } else {
            context.say(QStringLiteral("Memory test tests %1 without locking it (%2): the kernel "
                                       "may move those pages while they are tested")
                            .arg(HXSizeText(bytes), qt_error_string(error)));
        }
    }
    outcome.bytesTested = bytes;

    const quint64 seed =
        m_seed ? m_seed : (quint64(std::random_device()()) << 32 | std::random_device()());
    quint64 *words = region.words();
    const std::size_t count = std::size_t(bytes) / sizeof(quint64);
    for (HXMemoryPattern pattern : HXMemoryPatterns::all) {
        for (int pass = 0; pass < HXMemoryPatterns::passes(pattern); ++pass) {
            if (!runPass(words, count, pattern, pass, seed, context, outcome))
                return outcome;
            if (outcome.fault) {
                outcome.completed = true;
                return outcome;
            }
        }
    }
    outcome.completed = true;
    return outcome;
}

bool HXMemoryPatternCheck::runPass(quint64 *words, std::size_t count, HXMemoryPattern pattern,
                                   int pass, quint64 seed, const HXEngineContext &context,
                                   Outcome &outcome)
{
    const std::size_t chunk =
        std::max<std::size_t>(std::size_t(m_chunkBytes) / sizeof(quint64) / 64 * 64, 64);
    for (std::size_t i = 0; i < count; i += chunk) {
        if (context.isCancelled())
            return false;
        HXMemoryPatterns::write(pattern, pass, words + i, std::min(chunk, count - i), i, seed);
    }
    if (m_afterWrite)
        m_afterWrite(words, count, pattern, pass);
    for (std::size_t i = 0; i < count; i += chunk) {
        if (context.isCancelled())
            return false;
        const std::size_t n = std::min(chunk, count - i);
        quint64 expected = 0;
        quint64 found = 0;
        const std::size_t bad =
            HXMemoryPatterns::verify(pattern, pass, words + i, n, i, seed, &expected, &found);
        if (bad == n)
            continue;
        Fault fault;
        fault.pattern = pattern;
        fault.pass = pass;
        fault.address = reinterpret_cast<quintptr>(words + i + bad);
        fault.physicalAddress = physicalAddress(fault.address);
        fault.offset = qint64(i + bad) * qint64(sizeof(quint64));
        fault.expected = expected;
        fault.found = found;
        outcome.fault = fault;
        return true;
    }
    return true;
}
