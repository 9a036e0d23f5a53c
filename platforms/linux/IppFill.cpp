#include <Vx/platform/ipps.h>

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

void fillElements(void* destination, std::uint64_t element, std::size_t count)
{
#if defined(__x86_64__) && !defined(VX_PLAIN)
    // As fast as memset(), but starting it takes as long as a kilobyte of the loop, and where the
    // elements are not aligned it takes twice as long as the loop.
    constexpr std::size_t kMany = 1024 / sizeof element;
    if (count >= kMany && reinterpret_cast<std::uintptr_t>(destination) % sizeof element == 0) {
        asm volatile("rep stosq" : "+D"(destination), "+c"(count) : "a"(element) : "memory");
        return;
    }
#endif
    constexpr std::size_t kGroup = 8; // compilers make wide stores of a whole group
    auto* to = static_cast<unsigned char*>(destination);
    for (; count >= kGroup; count -= kGroup)
        for (std::size_t i = 0; i < kGroup; ++i, to += sizeof element)
            std::memcpy(to, &element, sizeof element);
    for (; count != 0; --count, to += sizeof element)
        std::memcpy(to, &element, sizeof element);
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
    const auto elements = static_cast<std::size_t>(count);
    const auto element = static_cast<std::uint64_t>(value);
    const auto half = static_cast<std::uint32_t>(element);
    if (element >> 32 == half)
        fillWords(destination, half, elements * sizeof value);
    else
        fillElements(destination, element, elements);
    return 0;
}
