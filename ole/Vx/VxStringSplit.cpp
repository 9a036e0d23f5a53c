#include <Vx/VxStringSplit.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <cstddef>
#include <cwchar>

namespace Vx {

using WideString = LightweightString<wchar_t>;

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
    // One allocation, of the capacity that appending item by item would end with.
    std::size_t total = 0;
    for (const WideString& item : items)
        total += item.length();
    if (separator != 0 && !items.empty())
        total += items.size() - 1;
    WideString packed;
    packed.resizeFor(detail::checkedLength(total));
    if (total == 0)
        return packed;
    wchar_t* end = packed.mutableChars();
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i != 0 && separator != 0)
            *end++ = separator;
        detail::copyUpToZero(end, items[i].c_str(), items[i].length());
        end += items[i].length();
    }
    return packed;
}

// Splits as splitIf() with SkipEmpty does, but in one pass, which copies each piece while it is in
// the cache. Flattened, since calls for each piece take a twentieth of the time.
[[gnu::flatten]] StringToVec<WideString>::VecT unpack(const WideString& packed, wchar_t separator)
{
    const wchar_t* start = packed.begin();
    const wchar_t* const end = packed.end();
    const auto nextSeparator = [&] {
        const std::size_t count = static_cast<std::size_t>(end - start);
        const wchar_t* const found = std::wmemchr(start, separator, count);
        return found != nullptr ? found : end;
    };
    const wchar_t* at = nextSeparator();
    if (at == end) // shares the block
        return StringToVec<WideString>::VecT(1, packed);
    StringToVec<WideString>::VecT items;
    items.reserve(16);
    // A single separator yields one empty item; more of them yield none.
    if (packed.length() == 1)
        items.emplace_back();
    for (;; at = nextSeparator()) {
        if (at != start)
            items.emplace_back(start, static_cast<unsigned int>(at - start));
        if (at == end)
            return items;
        start = at + 1;
    }
}

WideString splitFilename(const WideString& path)
{
    // The last piece that splitIf() with SkipEmpty would yield, found from the end.
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
