// Finding separators, splitting, packing and unpacking, in both widths.
#include "Fuzz.h"
#include "Pieces.h"

#include <Reference.h>

namespace {

template <class Ch>
void compare(const std::vector<std::basic_string<Ch>>& expected,
             const typename Vx::StringToVec<LightweightString<Ch>>::VecT& pieces, std::size_t from)
{
    FUZZ_CLAIM(pieces.size() == from + expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        FUZZ_CLAIM(plain(pieces[from + i]) == expected[i]);
}

template <class Ch> void split(const std::basic_string<Ch>& text, Ch separator, unsigned int flags)
{
    using String = LightweightString<Ch>;
    const String string = ours(text);
    const Vx::IsMatchingChar<Ch> matches(separator);

    std::vector<unsigned int> positions{7};
    Vx::findSeparators(string, matches, positions, flags);
    positions.erase(positions.begin());
    FUZZ_CLAIM(positions == reference::separators(text, separator, flags));

    const auto expected = reference::pieces(text, separator, flags);
    typename Vx::StringToVec<String>::VecT pieces{String(), string};
    FUZZ_CLAIM(Vx::splitIf(string, matches, pieces, flags) == pieces.size());
    compare(expected, pieces, 2);
    if (!positions.empty()) {
        pieces.clear();
        Vx::SplitOutputBuilder<String> builder(pieces, string);
        Vx::convertIndicesToSubStrings(string, positions, builder, flags);
        compare(expected, pieces, 0);
    }
}

void packAndUnpack(const std::wstring& text, wchar_t separator)
{
    const auto items = Vx::unpack(ours(text), separator);
    const std::vector<std::wstring> expected = reference::pieces(text, separator, Vx::SkipEmpty);
    compare(expected, items, 0);
    std::wstring joined;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (i != 0 && separator != 0)
            joined += separator;
        joined += reference::appended(expected[i]);
    }
    const LightweightString<wchar_t> packed = Vx::pack(items, separator);
    FUZZ_CLAIM(plain(packed) == joined);
    // Items survive a round trip, except for an empty list, which packs like one empty item.
    if (separator != 0 && text.find(L'\0') == std::wstring::npos && !items.empty())
        FUZZ_CLAIM(Vx::unpack(packed, separator) == items);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned int flags = input.take<std::uint8_t>();
    const char separator = input.take<char>();
    Input same = input;
    split(same.rest(), separator, flags & 7);
    const wchar_t wideSeparator = static_cast<unsigned char>(separator);
    const std::wstring wide = input.wideRest((flags & 8) != 0);
    split(wide, wideSeparator, flags & 7);
    packAndUnpack(wide, wideSeparator);
    return 0;
}
