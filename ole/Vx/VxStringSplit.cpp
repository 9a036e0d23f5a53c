#include <Vx/VxStringSplit.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>

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

StringToVec<WideString>::VecT unpack(const WideString& packed, wchar_t separator)
{
    StringToVec<WideString>::VecT items;
    splitIf(packed, IsMatchingChar<wchar_t>(separator), items, SkipEmpty);
    return items;
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
