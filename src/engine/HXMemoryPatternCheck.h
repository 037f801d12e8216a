#pragma once

#include "HXMachineTest.h"
#include "HXMemoryPatterns.h"

#include <functional>
#include <optional>

// The pattern test of free memory: a region taken from the kernel, locked in
// RAM so that it stays on the same pages, and every pattern written over all
// of it and read back.
class HXMemoryPatternCheck
{
public:
    struct Fault
    {
        HXMemoryPattern pattern = HXMemoryPattern::WalkingOnes;
        int pass = 0;
        quintptr address = 0;                   // the word's virtual address
        std::optional<quint64> physicalAddress; // where the kernel says (needs root)
        qint64 offset = 0;                      // into the tested region, in bytes
        quint64 expected = 0;
        quint64 found = 0;
    };
    struct Outcome
    {
        qint64 bytesTested = 0;
        bool locked = false;
        bool completed = false; // every pattern ran (or a fault ended the test)
        std::optional<Fault> fault;
        QString failure; // the memory could not be had at all
    };
    // Runs between the write and the verify of each pass, over the whole
    // region; a test flips a bit with it.
    using AfterWrite =
        std::function<void(quint64 *words, std::size_t count, HXMemoryPattern pattern, int pass)>;

    void setAfterWrite(AfterWrite hook) { m_afterWrite = std::move(hook); }
    // Cancel is looked at between chunks of this size.
    void setChunkBytes(qint64 bytes) { m_chunkBytes = bytes; }
    void setSeed(quint64 seed) { m_seed = seed; }

    Outcome run(qint64 bytes, const HXEngineContext &context);

private:
    // Runs one pass; false when cancelled.
    bool runPass(quint64 *words, std::size_t count, HXMemoryPattern pattern, int pass, quint64 seed,
                 const HXEngineContext &context, Outcome &outcome);

    AfterWrite m_afterWrite;
    qint64 m_chunkBytes = qint64(16) << 20;
    quint64 m_seed = 0;
};
