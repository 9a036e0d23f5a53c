#include <Vx/VxCRC.h>

#include <cstdint>
#include <cstring>

// The register is the remainder of the message, read as a polynomial over two elements,
// divided by P = x^32 + x^5 + x^3 + x^2 + 1. P has so few terms that its powers need neither
// tables nor carry-less multiplication: modulo P, and by squaring,
//
//     x^32   = x^5   + x^3   + x^2   + 1
//     x^64   = x^10  + x^6   + x^4   + 1
//     x^4096 = x^640 + x^384 + x^256 + 1
//
// The bits of a byte enter lowest first, so a little-endian 64-bit word holds 64 coefficients
// in reverse: bit j is that of x^(63-j), and multiplying by x is a shift to the right. What
// falls off the low end are the coefficients of x^64 and above. The last line has whole words
// for exponents, so that there is nothing to shift: a word of the message is worth as much as
// the same word in four places, 64 words further on and 10, 6 and 4 before that.

namespace {

using Word = std::uint64_t;

Word load(const unsigned char* bytes)
{
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// a * x^64 modulo P for a polynomial of degree below 54: nothing falls off.
Word shift64Low(Word a) { return a ^ (a >> 4) ^ (a >> 6) ^ (a >> 10); }

// a * x^64 modulo P.
Word shift64(Word a)
{
    const Word fallen = (a << 60) ^ (a << 58) ^ (a << 54);
    return shift64Low(a) ^ shift64Low(fallen);
}

unsigned int reversed(unsigned int bits)
{
    bits = (bits & 0x55555555) << 1 | (bits >> 1 & 0x55555555);
    bits = (bits & 0x33333333) << 2 | (bits >> 2 & 0x33333333);
    bits = (bits & 0x0F0F0F0F) << 4 | (bits >> 4 & 0x0F0F0F0F);
    return __builtin_bswap32(bits);
}

// The register that the 64 coefficients of `a` leave, in its usual order of bits.
unsigned int remainder(Word a)
{
    const unsigned int high = static_cast<unsigned int>(a); // x^63 to x^32
    const unsigned int low = static_cast<unsigned int>(a >> 32);
    const auto times = [](unsigned int b) { return b ^ (b >> 2) ^ (b >> 3) ^ (b >> 5); };
    const unsigned int fallen = (high << 30) ^ (high << 29) ^ (high << 27);
    return reversed(low ^ times(high) ^ times(fallen));
}

constexpr int kReach = 64;              // words from one to the last place where it comes in
constexpr int kNearer[] = {60, 58, 54}; // to the other places
constexpr int kStep = 48;               // words of which none reaches another
constexpr int kSteps = 8;               // between two moves of the window
constexpr unsigned long kBytes = sizeof(Word);

// Two words: the compiler has instructions for them.
typedef Word Pair __attribute__((vector_size(16)));

// Gives words at the start of the last kReach to those at the end; a second time takes it back.
void passOn(Word* words)
{
    for (const int distance : kNearer)
        for (int i = 0; i + distance < kReach; ++i)
            words[i + distance] ^= words[i];
}

// The 64 coefficients that a long message leaves, but for its last bytes, less than a step: for
// these \p bytes and \p length stand afterwards.
Word fold(const unsigned char*& bytes, unsigned long& length)
{
    alignas(Pair) Word window[kReach + kSteps * kStep];
    const auto pairAt = [](const void* words) {
        Pair pair;
        std::memcpy(&pair, words, sizeof pair);
        return pair;
    };
    std::memcpy(window, bytes, kReach * kBytes);
    bytes += kReach * kBytes;
    length -= kReach * kBytes;
    passOn(window);
    while (length >= kStep * kBytes) {
        int end = kReach; // of what is done of the window
        for (; end < kReach + kSteps * kStep && length >= kStep * kBytes; end += kStep) {
            for (int i = 0; i < kStep; i += 2) {
                Word* const at = window + end + i;
                const Pair pair = pairAt(bytes + static_cast<unsigned long>(i) * kBytes) ^
                                  pairAt(at - kReach) ^ pairAt(at - kNearer[0]) ^
                                  pairAt(at - kNearer[1]) ^ pairAt(at - kNearer[2]);
                std::memcpy(at, &pair, sizeof pair);
            }
            bytes += kStep * kBytes;
            length -= kStep * kBytes;
        }
        std::memmove(window, window + end - kReach, kReach * kBytes);
    }
    passOn(window); // the words that are left go nowhere any more
    Word sum = 0;
    for (int i = 0; i < kReach; ++i)
        sum = shift64(sum) ^ window[i];
    return sum;
}

} // namespace

unsigned int Vx::CRC::IterateCRC32(char byte, unsigned int crc)
{
    // Eight steps of the register at once: the byte enters in reverse, the eight bits that
    // leave at the top come back as their product with x^5 + x^3 + x^2 + 1.
    const unsigned int out = crc >> 24;
    const unsigned int in = reversed(static_cast<unsigned char>(byte)) >> 24;
    return (crc << 8) ^ in ^ out ^ (out << 2) ^ (out << 3) ^ (out << 5);
}

unsigned int Vx::CRC::CalculateCRC32ForBlock(const void* data, unsigned long length)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    Word sum = 0;
    if (length >= (kReach + 2 * kStep) * kBytes)
        sum = fold(bytes, length);
    for (; length >= 8; bytes += 8, length -= 8)
        sum = shift64(sum) ^ load(bytes);
    unsigned int crc = remainder(sum);
    for (; length != 0; ++bytes, --length)
        crc = IterateCRC32(static_cast<char>(*bytes), crc);
    return crc;
}
