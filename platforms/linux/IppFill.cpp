#include <Vx/platform/ipps.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

// Every fill repeats 8 bytes. Vectors come from the compiler's own vector types, so that one
// text serves 16 and 32 bytes and any processor.

namespace {

using Byte = unsigned char;
typedef std::uint64_t Vector16 __attribute__((vector_size(16)));
typedef std::uint64_t Vector32 __attribute__((vector_size(32)));

// The pattern as it stands \p offset bytes further on.
inline std::uint64_t turned(std::uint64_t pattern, std::size_t offset)
{
    const unsigned int shift = 8 * static_cast<unsigned int>(offset & 7);
    return pattern >> shift | pattern << (-shift & 63);
}

template <class Word> inline void put(Byte* to, std::uint64_t pattern)
{
    const Word word = static_cast<Word>(pattern);
    std::memcpy(to, &word, sizeof word);
}

// From one word to two: the second store ends where the fill ends, and overlaps the first.
template <class Word> inline void fillByTwo(Byte* to, std::size_t count, std::uint64_t pattern)
{
    const std::size_t second = count - sizeof(Word);
    put<Word>(to, pattern);
    put<Word>(to + second, turned(pattern, second));
}

// At least one vector. The first and the last one stand wherever they must, those between
// are aligned.
template <class Vector>
[[gnu::always_inline]] inline void fillByVectors(Byte* to, std::size_t count, std::uint64_t pattern)
{
    const auto put = [](Byte * at, const Vector& vector) __attribute__((always_inline))
    {
        std::memcpy(at, &vector, sizeof vector);
    };
    constexpr std::size_t kSize = sizeof(Vector);
    Byte* const last = to + count - kSize;
    put(to, Vector{} + pattern);
    const std::size_t toAligned = kSize - (reinterpret_cast<std::uintptr_t>(to) & (kSize - 1));
    const Vector shifted = Vector{} + turned(pattern, toAligned);
    Byte* at = to + toAligned;
    for (; last - at >= static_cast<std::ptrdiff_t>(3 * kSize); at += 4 * kSize) {
        put(at, shifted);
        put(at + kSize, shifted);
        put(at + 2 * kSize, shifted);
        put(at + 3 * kSize, shifted);
    }
    for (; at < last; at += kSize)
        put(at, shifted);
    put(last, Vector{} + turned(pattern, static_cast<std::size_t>(last - to)));
}

#ifdef __x86_64__
[[gnu::target("avx2")]] void fillByAvx2(Byte* to, std::size_t count, std::uint64_t pattern)
{
    fillByVectors<Vector32>(to, count, pattern);
}
#endif

void fillLong(Byte* to, std::size_t count, std::uint64_t pattern)
{
#ifdef __x86_64__
    if (count >= 256 && __builtin_cpu_supports("avx2"))
        return fillByAvx2(to, count, pattern);
#endif
    fillByVectors<Vector16>(to, count, pattern);
}

int fill(void* destination, int elements, std::size_t elementSize, std::uint64_t pattern)
{
    if (elements < 1)
        return 0;
    Byte* const to = static_cast<Byte*>(destination);
    const std::size_t count = static_cast<std::size_t>(elements) * elementSize;
    if (count >= 16)
        fillLong(to, count, pattern);
    else if (count >= 8)
        fillByTwo<std::uint64_t>(to, count, pattern);
    else if (count >= 4)
        fillByTwo<std::uint32_t>(to, count, pattern);
    else
        put<std::uint16_t>(to, pattern); // one 16-bit element: all that is left
    return 0;
}

} // namespace

int ippsSet_8u(unsigned char value, unsigned char* destination, int count)
{
    if (count >= 1)
        std::memset(destination, value, static_cast<std::size_t>(count));
    return 0;
}

int ippsSet_16s(short value, short* destination, int count)
{
    const std::uint64_t pattern = static_cast<std::uint16_t>(value);
    return fill(destination, count, sizeof value, pattern * 0x0001000100010001u);
}

int ippsSet_32s(int value, int* destination, int count)
{
    const std::uint64_t pattern = static_cast<std::uint32_t>(value);
    return fill(destination, count, sizeof value, pattern * 0x0000000100000001u);
}

int ippsSet_64s(long value, long* destination, int count)
{
    return fill(destination, count, sizeof value, static_cast<std::uint64_t>(value));
}
