#include "SMTPBase64.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Indexed by character - '+': the 6-bit value, or 127 for a character that
// lies between '+' and 'z' but is not in the alphabet.
constexpr unsigned char kLookup[] = {
    62,  127, 127, 127, 63, 52, 53, 54, 55,  56,  57,  58,  59,  60,  61, 127, 127, 127, 127, 127,
    127, 127, 0,   1,   2,  3,  4,  5,  6,   7,   8,   9,   10,  11,  12, 13,  14,  15,  16,  17,
    18,  19,  20,  21,  22, 23, 24, 25, 127, 127, 127, 127, 127, 127, 26, 27,  28,  29,  30,  31,
    32,  33,  34,  35,  36, 37, 38, 39, 40,  41,  42,  43,  44,  45,  46, 47,  48,  49,  50,  51,
};
static_assert(sizeof(kLookup) == 'z' - '+' + 1);

} // namespace

bool base64(int sw, char *text)
{
    switch (sw) {
    case EDSwitchEncode:
        return b64encode(text);
    case EDSwitchDecode:
        return b64decode(text);
    default:
        return true;
    }
}

char *b64buffer(const char *text, bool encoding)
{
    const size_t n = strlen(text);
    if (n == 0)
        return nullptr;
    const size_t size = (encoding ? 4 * ((n + 2) / 3) : 3 * (n / 4)) + 1;
    auto *buffer = static_cast<char *>(calloc(size, 1));
    if (!buffer)
        // Never the text itself: it may be the password.
        printf("Insufficient real memory to %s %zu characters.\n", encoding ? "encode" : "decode",
               n);
    return buffer;
}

bool b64valid(char *c)
{
    const auto u = static_cast<unsigned char>(*c);
    if (u < '+' || u > 'z')
        return false;
    const unsigned char value = kLookup[u - '+'];
    if (value == 127)
        return false;
    *c = static_cast<char>(value);
    return true;
}

bool b64isnot(const char *, char *buffer)
{
    free(buffer);
    return false;
}

bool b64encode(char *text)
{
    const size_t n = strlen(text);
    for (size_t i = 0; i < n; ++i) {
        if (static_cast<unsigned char>(text[i]) >= 128)
            return false;
    }
    char *buffer = b64buffer(text, true);
    if (!buffer)
        return false;
    const size_t encodedLength = 4 * ((n + 2) / 3);
    memset(buffer, '=', encodedLength);
    const auto *in = reinterpret_cast<const unsigned char *>(text);
    char *out = buffer;
    for (size_t i = 0; i < n; i += 3, out += 4) {
        const unsigned b0 = in[i];
        const unsigned b1 = i + 1 < n ? in[i + 1] : 0;
        const unsigned b2 = i + 2 < n ? in[i + 2] : 0;
        out[0] = kAlphabet[b0 >> 2];
        out[1] = kAlphabet[((b0 & 0x03) << 4) | (b1 >> 4)];
        if (i + 1 < n)
            out[2] = kAlphabet[((b1 & 0x0f) << 2) | (b2 >> 6)];
        if (i + 2 < n)
            out[3] = kAlphabet[b2 & 0x3f];
    }
    memcpy(text, buffer, encodedLength + 1);
    free(buffer);
    return true;
}

bool b64decode(char *text)
{
    const size_t n = strlen(text);
    if (n % 4 != 0)
        return false;
    char *buffer = b64buffer(text, false);
    if (!buffer)
        return false;
    // Check everything before changing anything: a refused text stays as it was.
    size_t padding = 0;
    for (size_t i = 0; i < n; ++i) {
        if (text[i] == '=') {
            if (i < n - 2)
                return b64isnot(text, buffer);
            for (size_t j = i; j < n; ++j) {
                if (text[j] != '=')
                    return b64isnot(text, buffer);
            }
            padding = n - i;
            break;
        }
        char probe = text[i];
        if (!b64valid(&probe))
            return b64isnot(text, buffer);
    }
    const size_t significant = n - padding;
    auto *out = reinterpret_cast<unsigned char *>(buffer);
    size_t written = 0;
    unsigned accumulator = 0;
    int bits = 0;
    for (size_t i = 0; i < significant; ++i) {
        char value = text[i];
        b64valid(&value);
        accumulator = (accumulator << 6) | static_cast<unsigned char>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out[written++] = static_cast<unsigned char>((accumulator >> bits) & 0xff);
        }
    }
    buffer[written] = '\0';
    memcpy(text, buffer, written + 1);
    free(buffer);
    return true;
}
