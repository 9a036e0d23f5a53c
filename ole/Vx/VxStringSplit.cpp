#include <Vx/VxStringSplit.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <bit>
#include <cstdint>
#include <cstring>

namespace {

static_assert(std::endian::native == std::endian::little,
              "the first character is taken for the lowest byte");

// A byte of ones for each of eight characters that is the wanted one, the first in the lowest.
std::uint64_t marksOf8(const char* chars, char wanted)
{
    using Bytes = signed char __attribute__((vector_size(8)));
    Bytes bytes;
    std::memcpy(&bytes, chars, sizeof bytes);
    return std::bit_cast<std::uint64_t>(bytes == static_cast<signed char>(wanted));
}
std::uint64_t marksOf8(const wchar_t* chars, wchar_t wanted)
{
    using Words = wchar_t __attribute__((vector_size(16)));
    using Halves = short __attribute__((vector_size(16)));
    using Bytes = signed char __attribute__((vector_size(16)));
    Words words[2];
    std::memcpy(words, chars, sizeof words);
    const Halves marks = __builtin_shufflevector(
        (Halves)(words[0] == wanted), (Halves)(words[1] == wanted), 0, 2, 4, 6, 8, 10, 12, 14);
    const Bytes bytes = __builtin_shufflevector((Bytes)marks, (Bytes)marks, 0, 2, 4, 6, 8, 10, 12,
                                                14, 0, 2, 4, 6, 8, 10, 12, 14);
    std::uint64_t first;
    std::memcpy(&first, &bytes, sizeof first);
    return first;
}

template <class Ch>
void findCharacter(const Ch* chars, unsigned int length, Ch wanted,
                   std::vector<unsigned int>& positions)
{
    unsigned int at = 0;
    for (; length - at >= 8; at += 8)
        for (std::uint64_t marks = marksOf8(chars + at, wanted); marks != 0;) {
            const int byte = std::countr_zero(marks) / 8;
            positions.push_back(at + static_cast<unsigned int>(byte));
            marks &= ~(std::uint64_t{0xFF} << 8 * byte);
        }
    for (; at < length; ++at)
        if (chars[at] == wanted)
            positions.push_back(at);
}

} // namespace

namespace Vx {

using WideString = LightweightString<wchar_t>;

void StringDetail::findMatches(const char* chars, unsigned int length, IsMatchingChar<char> matches,
                               std::vector<unsigned int>& positions)
{
    findCharacter(chars, length, matches.character(), positions);
}

void StringDetail::findMatches(const wchar_t* chars, unsigned int length,
                               IsMatchingChar<wchar_t> matches,
                               std::vector<unsigned int>& positions)
{
    findCharacter(chars, length, matches.character(), positions);
}

template void findSeparators(const LightweightString<char>&, IsMatchingChar<char>,
                             std::vector<unsigned int>&, unsigned int);
template void findSeparators(const WideString&, IsMatchingChar<wchar_t>, std::vector<unsigned int>&,
                             unsigned int);
template void convertIndicesToSubStrings(const LightweightString<char>&,
                                         const std::vector<unsigned int>&,
                                         SplitOutputBuilder<LightweightString<char>>&,
                                         unsigned int);
template void convertIndicesToSubStrings(const WideString&, const std::vector<unsigned int>&,
                                         SplitOutputBuilder<WideString>&, unsigned int);
template unsigned int splitIf(const WideString&, IsMatchingChar<wchar_t>,
                              StringToVec<WideString>::VecT&, unsigned int);

WideString pack(const StringToVec<WideString>::VecT& items, wchar_t separator)
{
    // The whole length first: the result is what appending piece by piece would give, its
    // capacity included, but in one allocation.
    std::size_t total = 0;
    for (const WideString& item : items)
        total += item.length();
    if (separator != 0 && !items.empty())
        total += items.size() - 1;
    if (total > 0xFFFFFFFFu)
        StringDetail::throwTooLong();
    WideString packed;
    packed.resizeFor(static_cast<unsigned int>(total));
    if (total == 0)
        return packed;
    wchar_t* end = packed.mutableChars();
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i != 0 && separator != 0)
            *end++ = separator;
        StringDetail::copyTextUpToZero(end, items[i].c_str(), items[i].length());
        end += items[i].length();
    }
    return packed;
}

StringToVec<WideString>::VecT unpack(const WideString& packed, wchar_t separator)
{
    StringToVec<WideString>::VecT items;
    splitIf(packed, IsMatchingChar<wchar_t>(separator), items, SkipEmpty);
    return items;
}

WideString splitFilename(const WideString& path)
{
    // The last piece that splitIf() with SkipEmpty would give, found from the end.
    const wchar_t separator = OS()->fileSystem()->pathSeparator();
    unsigned int end = path.length();
    while (end != 0 && path[end - 1] == separator)
        --end;
    unsigned int start = end;
    while (start != 0 && path[start - 1] != separator)
        --start;
    if (start == 0 && end == path.length())
        return path;
    return WideString(path.c_str() + start, end - start);
}

} // namespace Vx
