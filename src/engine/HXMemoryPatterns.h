#pragma once

#include <QString>
#include <QtGlobal>
#include <cstddef>

// The patterns the memory test writes and reads back. Each is a number of
// passes over the tested words; every pass is written in full before it is
// verified, so that what is read comes from the memory and not the caches.
enum class HXMemoryPattern {
    // Pass p puts a single one bit in every word, at bit (word index + p) mod
    // 64: over the 64 passes every bit of every word holds the lone one once,
    // beside neighbours that hold it elsewhere.
    WalkingOnes,
    // Every word holds its own virtual address (and on the second pass its
    // complement, words alternating): a fault in the address lines shows as
    // a word holding another word's address.
    AddressInAddress,
    // Words from a xorshift generator, verified by running it again from the
    // same seed.
    RandomData,
};

namespace HXMemoryPatterns {

inline constexpr HXMemoryPattern all[] = {
    HXMemoryPattern::WalkingOnes, HXMemoryPattern::AddressInAddress, HXMemoryPattern::RandomData};

int passes(HXMemoryPattern pattern);
QString name(HXMemoryPattern pattern); // "walking ones", for log lines

// Writes one pass of the pattern into words[0, count). `index` is words[0]'s
// index in the whole tested region, a multiple of 64; write and verify of a
// pass must be given the same pieces.
void write(HXMemoryPattern pattern, int pass, quint64 *words, std::size_t count, std::size_t index,
           quint64 seed);
// The index (from `words`) of the first word that does not hold what write()
// put there, with that value in `expected` and what the word held in `found`;
// `count` when all of them do.
std::size_t verify(HXMemoryPattern pattern, int pass, const quint64 *words, std::size_t count,
                   std::size_t index, quint64 seed, quint64 *expected, quint64 *found = nullptr);

} // namespace HXMemoryPatterns
