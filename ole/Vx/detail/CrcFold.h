// detail/CrcFold.h - Computes the CRC of a block by folding its words forward, 48 at a time.
//
// The register is the remainder of the message, as a polynomial over GF(2), modulo
// P = x^32 + x^5 + x^3 + x^2 + 1. P has so few terms that its powers need neither tables nor
// carry-less multiplication. Modulo P, and by squaring:
//
//     x^32   = x^5   + x^3   + x^2   + 1
//     x^64   = x^10  + x^6   + x^4   + 1
//     x^4096 = x^640 + x^384 + x^256 + 1
//
// The bits of a byte enter lowest first, so a little-endian 64-bit word holds 64 coefficients in
// reverse: bit j belongs to x^(63-j), and multiplying by x is a shift to the right. The exponents
// of the last line are whole words. So a word counts as much as the same word in four places: 64
// words further on, and 10, 6 and 4 words before that.
#pragma once

#include <cstdint>
#include <cstring>

namespace Vx::detail {

/// Reverses the order of 32 bits.
constexpr std::uint32_t reversedBits(std::uint32_t bits)
{
    bits = (bits & 0x55555555) << 1 | (bits >> 1 & 0x55555555);
    bits = (bits & 0x33333333) << 2 | (bits >> 2 & 0x33333333);
    bits = (bits & 0x0F0F0F0F) << 4 | (bits >> 4 & 0x0F0F0F0F);
    bits = (bits & 0x00FF00FF) << 8 | (bits >> 8 & 0x00FF00FF);
    return bits << 16 | bits >> 16;
}

/// Feeds a byte into the register: its bits enter in reverse, and the bits that leave at the top
/// come back times x^5 + x^3 + x^2 + 1.
constexpr std::uint32_t crcOfByte(unsigned char byte, std::uint32_t crc)
{
    const std::uint32_t in = reversedBits(byte) >> 24;
    const std::uint32_t out = crc >> 24;
    return (crc << 8) ^ in ^ out ^ (out << 2) ^ (out << 3) ^ (out << 5);
}

/// Feeds \p length bytes into the register \p crc.
inline std::uint32_t crcOfBlockPlain(const unsigned char* bytes, unsigned long length,
                                     std::uint32_t crc = 0)
{
    for (; length != 0; ++bytes, --length)
        crc = crcOfByte(*bytes, crc);
    return crc;
}

#ifdef VX_PLAIN
inline std::uint32_t crcOfBlock(const unsigned char* bytes, unsigned long length)
{
    return crcOfBlockPlain(bytes, length);
}
#else
inline constexpr int kCrcReach = 64;              // words to the farthest word that one feeds
inline constexpr int kCrcNearer[] = {60, 58, 54}; // words to the other three
inline constexpr int kCrcStep = 48;               // words of which none feeds another
inline constexpr int kCrcSteps = 8;               // between two moves of the window
inline constexpr unsigned long kCrcStepBytes = kCrcStep * sizeof(std::uint64_t);

/// a * x^64 modulo P, for a polynomial \p a of degree below 54.
constexpr std::uint64_t timesX64Low(std::uint64_t a) { return a ^ (a >> 4) ^ (a >> 6) ^ (a >> 10); }

/// a * x^64 modulo P. What the shifts push out belongs to x^64 and above.
constexpr std::uint64_t timesX64(std::uint64_t a)
{
    return timesX64Low(a) ^ timesX64Low((a << 60) ^ (a << 58) ^ (a << 54));
}

/// The register that 64 coefficients leave, in its usual order of bits.
constexpr std::uint32_t crcOfWord(std::uint64_t a)
{
    const auto high = static_cast<std::uint32_t>(a); // x^63 to x^32
    const auto low = static_cast<std::uint32_t>(a >> 32);
    const auto times = [](std::uint32_t b) { return b ^ (b >> 2) ^ (b >> 3) ^ (b >> 5); };
    return reversedBits(low ^ times(high) ^ times((high << 30) ^ (high << 29) ^ (high << 27)));
}

/// XORs each of 64 words into the three of them that it feeds; self-inverse.
inline void foldForward(std::uint64_t* words)
{
    for (const int distance : kCrcNearer)
        for (int i = 0; i + distance < kCrcReach; ++i)
            words[i + distance] ^= words[i];
}

/// Folds a step of the message into the window, two words at a time. \p end is the end of the
/// words that the window has already.
inline void foldStep(std::uint64_t* end, const unsigned char* bytes)
{
    typedef std::uint64_t Pair __attribute__((vector_size(16)));
    const auto load = [](const void* words) {
        Pair pair;
        std::memcpy(&pair, words, sizeof pair);
        return pair;
    };
    for (int i = 0; i < kCrcStep; i += 2, bytes += sizeof(Pair)) {
        std::uint64_t* const to = end + i;
        const Pair pair = load(bytes) ^ load(to - kCrcReach) ^ load(to - kCrcNearer[0]) ^
                          load(to - kCrcNearer[1]) ^ load(to - kCrcNearer[2]);
        std::memcpy(to, &pair, sizeof pair);
    }
}

/// Takes whole steps from the front of a block of at least 64 words. \returns their 64 coefficients
inline std::uint64_t foldBlock(const unsigned char*& bytes, unsigned long& length)
{
    constexpr int kWindow = kCrcReach + kCrcSteps * kCrcStep;
    constexpr unsigned long kReachBytes = kCrcReach * sizeof(std::uint64_t);
    alignas(16) std::uint64_t window[kWindow];
    std::memcpy(window, bytes, kReachBytes);
    bytes += kReachBytes;
    length -= kReachBytes;
    foldForward(window);
    while (length >= kCrcStepBytes) {
        int end = kCrcReach;
        for (; end < kWindow && length >= kCrcStepBytes; end += kCrcStep) {
            foldStep(window + end, bytes);
            bytes += kCrcStepBytes;
            length -= kCrcStepBytes;
        }
        std::memmove(window, window + end - kCrcReach, kReachBytes);
    }
    foldForward(window); // undone for the last words, which feed nothing any more
    std::uint64_t sum = 0;
    for (int i = 0; i < kCrcReach; ++i)
        sum = timesX64(sum) ^ window[i];
    return sum;
}

inline std::uint32_t crcOfBlock(const unsigned char* bytes, unsigned long length)
{
    std::uint64_t sum = 0;
    if (length >= kCrcReach * sizeof sum + 2 * kCrcStepBytes)
        sum = foldBlock(bytes, length);
    for (; length >= sizeof sum; bytes += sizeof sum, length -= sizeof sum) {
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        sum = timesX64(sum) ^ word;
    }
    return crcOfBlockPlain(bytes, length, crcOfWord(sum));
}
#endif

} // namespace Vx::detail
