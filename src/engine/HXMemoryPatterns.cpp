#include "HXMemoryPatterns.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Patterns are made and compared 64 words at a time: the loops stay simple
// enough for the compiler to vectorise, and a mismatch is looked for word by
// word only in the block that has one.
constexpr std::size_t blockWords = 64;

quint64 splitmix64(quint64 z)
{
    z += 0x9e3779b97f4a7c15ULL;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

struct WalkingOnes
{
    alignas(64) quint64 block[blockWords];
    explicit WalkingOnes(int pass)
    {
        for (std::size_t k = 0; k < blockWords; ++k)
            block[k] = quint64(1) << ((k + std::size_t(pass)) % 64);
    }
    // `index` is a multiple of 64, so each block starts at bit `pass`.
    const quint64 *values(quint64 *, const quint64 *, std::size_t) const { return block; }
};

struct AddressInAddress
{
    int pass;
    const quint64 *values(quint64 *out, const quint64 *where, std::size_t index) const
    {
        const quint64 base = quint64(reinterpret_cast<std::uintptr_t>(where));
        // Words alternate between address and complement; a block starts on
        // an even index, so its first word's parity is the pass's.
        const quint64 even = quint64(0) - quint64((index + std::size_t(pass)) & 1);
        const quint64 odd = ~even;
#if defined(__SSE2__)
        __m128i address = _mm_set_epi64x(qint64(base + 8), qint64(base));
        const __m128i step = _mm_set1_epi64x(16);
        const __m128i mask = _mm_set_epi64x(qint64(odd), qint64(even));
        for (std::size_t k = 0; k < blockWords; k += 2) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(out + k), _mm_xor_si128(address, mask));
            address = _mm_add_epi64(address, step);
        }
#else
        for (std::size_t k = 0; k < blockWords; k += 2) {
            out[k] = (base + 8 * k) ^ even;
            out[k + 1] = (base + 8 * k + 8) ^ odd;
        }
#endif
        return out;
    }
#if defined(__SSE2__)
    // The write without the block in between: the values go from registers
    // straight to memory, which keeps this pattern as fast as the others.
    void stream(quint64 *words, std::size_t count, std::size_t index) const
    {
        const quint64 even = quint64(0) - quint64((index + std::size_t(pass)) & 1);
        const quint64 base = quint64(reinterpret_cast<std::uintptr_t>(words));
        __m128i address = _mm_set_epi64x(qint64(base + 8), qint64(base));
        const __m128i step = _mm_set1_epi64x(16);
        const __m128i mask = _mm_set_epi64x(qint64(~even), qint64(even));
        std::size_t k = 0;
        for (; k + 2 <= count; k += 2) {
            _mm_stream_si128(reinterpret_cast<__m128i *>(words + k), _mm_xor_si128(address, mask));
            address = _mm_add_epi64(address, step);
        }
        if (k < count)
            words[k] = (base + 8 * k) ^ even;
    }
#endif
};

// Eight independent xorshift64 streams, interleaved: one stream's next value
// waits on its previous one, eight keep the processor's vector units busy.
struct RandomData
{
    quint64 s[8];
    RandomData(quint64 seed, std::size_t index)
    {
        for (int l = 0; l < 8; ++l) {
            s[l] = splitmix64(seed ^ splitmix64(quint64(index) * 8 + quint64(l)));
            if (s[l] == 0)
                s[l] = 0x9e3779b97f4a7c15ULL;
        }
    }
    const quint64 *values(quint64 *out, const quint64 *, std::size_t)
    {
        for (std::size_t k = 0; k < blockWords; k += 8) {
            for (int l = 0; l < 8; ++l) {
                quint64 x = s[l];
                x ^= x << 13;
                x ^= x >> 7;
                x ^= x << 17;
                s[l] = x;
                out[k + std::size_t(l)] = x;
            }
        }
        return out;
    }
};

// Patterns are stored past the caches: a write does not first read the line
// it replaces, which halves the memory traffic of the write half of a pass,
// and the verify that follows reads the words back from the memory itself.
void store(quint64 *to, const quint64 *from, std::size_t count)
{
#if defined(__SSE2__)
    if ((reinterpret_cast<std::uintptr_t>(to) & 15) == 0) {
        std::size_t k = 0;
        for (; k + 2 <= count; k += 2)
            _mm_stream_si128(reinterpret_cast<__m128i *>(to + k),
                             _mm_loadu_si128(reinterpret_cast<const __m128i *>(from + k)));
        if (k < count)
            to[k] = from[k];
        return;
    }
#endif
    std::memcpy(to, from, count * sizeof(quint64));
}

void storeFence()
{
#if defined(__SSE2__)
    _mm_sfence(); // streamed stores are ordered before the verify's loads
#endif
}

template<class Pattern>
void writeWith(Pattern &&pattern, quint64 *words, std::size_t count, std::size_t index)
{
#if defined(__SSE2__)
    if constexpr (requires { pattern.stream(words, count, index); }) {
        if ((reinterpret_cast<std::uintptr_t>(words) & 15) == 0) {
            pattern.stream(words, count, index);
            storeFence();
            return;
        }
    }
#endif
    alignas(64) quint64 block[blockWords];
    for (std::size_t i = 0; i < count; i += blockWords) {
        const std::size_t n = std::min(blockWords, count - i);
        store(words + i, pattern.values(block, words + i, index + i), n);
    }
    storeFence();
}

template<class Pattern>
std::size_t verifyWith(Pattern &&pattern, const quint64 *words, std::size_t count,
                       std::size_t index, quint64 *expected, quint64 *found)
{
    // What was written is not known to the compiler here: every word is read
    // from memory, never taken from what the write loop left in registers.
    asm volatile("" : : "r"(words) : "memory");
    alignas(64) quint64 scratch[blockWords];
    for (std::size_t i = 0; i < count; i += blockWords) {
        const std::size_t n = std::min(blockWords, count - i);
        const quint64 *want = pattern.values(scratch, words + i, index + i);
        quint64 diff = 0;
        if (n == blockWords) {
            // A fixed trip count, so that the compiler vectorises it.
            for (std::size_t k = 0; k < blockWords; ++k)
                diff |= words[i + k] ^ want[k];
        } else {
            for (std::size_t k = 0; k < n; ++k)
                diff |= words[i + k] ^ want[k];
        }
        if (diff == 0)
            continue;
        for (std::size_t k = 0; k < n; ++k) {
            // Read once: a fault that comes and goes must be told as it was seen.
            const quint64 value = static_cast<const volatile quint64 *>(words)[i + k];
            if (value != want[k]) {
                if (expected)
                    *expected = want[k];
                if (found)
                    *found = value;
                return i + k;
            }
        }
    }
    return count;
}

} // namespace

int HXMemoryPatterns::passes(HXMemoryPattern pattern)
{
    switch (pattern) {
    case HXMemoryPattern::WalkingOnes:
        return 64;
    case HXMemoryPattern::AddressInAddress:
        return 2;
    case HXMemoryPattern::RandomData:
        return 1;
    }
    return 0;
}

QString HXMemoryPatterns::name(HXMemoryPattern pattern)
{
    switch (pattern) {
    case HXMemoryPattern::WalkingOnes:
        return QStringLiteral("walking ones");
    case HXMemoryPattern::AddressInAddress:
        return QStringLiteral("address in address");
    case HXMemoryPattern::RandomData:
        return QStringLiteral("random data");
    }
    return QString();
}

void HXMemoryPatterns::write(HXMemoryPattern pattern, int pass, quint64 *words, std::size_t count,
                             std::size_t index, quint64 seed)
{
    switch (pattern) {
    case HXMemoryPattern::WalkingOnes:
        writeWith(WalkingOnes(pass), words, count, index);
        break;
    case HXMemoryPattern::AddressInAddress:
        writeWith(AddressInAddress{pass}, words, count, index);
        break;
    case HXMemoryPattern::RandomData:
        writeWith(RandomData(seed + quint64(pass), index), words, count, index);
        break;
    }
}

std::size_t HXMemoryPatterns::verify(HXMemoryPattern pattern, int pass, const quint64 *words,
                                     std::size_t count, std::size_t index, quint64 seed,
                                     quint64 *expected, quint64 *found)
{
    switch (pattern) {
    case HXMemoryPattern::WalkingOnes:
        return verifyWith(WalkingOnes(pass), words, count, index, expected, found);
    case HXMemoryPattern::AddressInAddress:
        return verifyWith(AddressInAddress{pass}, words, count, index, expected, found);
    case HXMemoryPattern::RandomData:
        return verifyWith(RandomData(seed + quint64(pass), index), words, count, index, expected,
                          found);
    }
    return count;
}
