#include <Vx/platform/ipps.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>

// libc fills with patterns of one byte and of four. No plain code comes near its speed.

namespace {

void fillWords(void* destination, std::uint32_t word, std::size_t size)
{
    static_assert(sizeof(wchar_t) == sizeof word);
    // wmemset() needs an aligned address. Filling up to one rotates the pattern.
    auto* to = static_cast<unsigned char*>(destination);
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(to) % sizeof word;
    if (before != 0 && before <= size) {
        std::memcpy(to, &word, before);
        word = std::rotr(word, static_cast<int>(8 * before));
        to += before;
        size -= before;
    }
    const std::size_t words = size / sizeof word;
    std::wmemset(static_cast<wchar_t*>(static_cast<void*>(to)), static_cast<wchar_t>(word), words);
    if (size % sizeof word != 0)
        std::memcpy(to + words * sizeof word, &word, size % sizeof word);
}

// Writes the first elements, then copies what is already there, at most as much at once as stays in
// the processor's first cache.
void fillByCopies(void* destination, std::uint64_t element, std::size_t size)
{
    constexpr std::size_t kGroup = 8; // elements; compilers make wide stores of a whole group
    constexpr std::size_t kFirst = 512;
    constexpr std::size_t kMostAtOnce = 16 * 1024;
    unsigned char* const to = static_cast<unsigned char*>(destination);
    const std::size_t first = std::min(size, kFirst);
    std::size_t done = 0;
    for (; done + kGroup * sizeof element <= first; done += kGroup * sizeof element)
        for (std::size_t i = 0; i < kGroup; ++i)
            std::memcpy(to + done + i * sizeof element, &element, sizeof element);
    for (; done < first; done += sizeof element)
        std::memcpy(to + done, &element, sizeof element);
    while (done < size) {
        const std::size_t next = std::min({done, kMostAtOnce, size - done});
        std::memcpy(to + done, to, next);
        done += next;
    }
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
    const std::uint32_t word = static_cast<std::uint16_t>(value) * 0x00010001u;
    if (count >= 1)
        fillWords(destination, word, static_cast<std::size_t>(count) * sizeof value);
    return 0;
}

int ippsSet_32s(int value, int* destination, int count)
{
    const auto word = static_cast<std::uint32_t>(value);
    if (count >= 1)
        fillWords(destination, word, static_cast<std::size_t>(count) * sizeof value);
    return 0;
}

int ippsSet_64s(long value, long* destination, int count)
{
    if (count < 1)
        return 0;
    const std::size_t size = static_cast<std::size_t>(count) * sizeof value;
    const auto element = static_cast<std::uint64_t>(value);
    const auto half = static_cast<std::uint32_t>(element);
    if (element >> 32 == half)
        fillWords(destination, half, size);
    else
        fillByCopies(destination, element, size);
    return 0;
}
