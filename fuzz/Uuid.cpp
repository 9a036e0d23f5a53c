// Parsing and printing UUIDs in both widths, compared with the functions of the C library.
#include "Fuzz.h"

#include <Vx/Image/UUID.h>
#include <cwchar>
#include <memory>
#include <type_traits>
#include <utility>

namespace {

/// Where the printed bytes of a UUID are stored.
constexpr std::size_t kUuidPlaces[] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};
#define VX_UUID_FORMAT "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x"

/// What initFromString() stores, by the scanning functions alone: they accept blanks and signs
/// before a digit, and anything after the last byte.
template <class Ch> SimpleUUID scanned(const Ch* text, unsigned int length)
{
    const bool braces = length == 38 && text[0] == Ch('{') && text[37] == Ch('}');
    if (!braces && length != 36)
        return {};
    unsigned int v[16];
    const int found = [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        if constexpr (std::is_same_v<Ch, char>)
            return std::sscanf(text + braces, VX_UUID_FORMAT, &v[I]...);
        else
            return std::swscanf(text + braces, L"" VX_UUID_FORMAT, &v[I]...);
    }
    (std::make_index_sequence<16>());
    SimpleUUID id = {};
    for (std::size_t i = 0; found == 16 && i < 16; ++i)
        id.bytes[kUuidPlaces[i]] = static_cast<unsigned char>(v[i]);
    return id;
}

std::string printed(const SimpleUUID& id)
{
    char text[37];
    [&]<std::size_t... I>(std::index_sequence<I...>)
    {
        std::snprintf(text, sizeof text, VX_UUID_FORMAT, id.bytes[kUuidPlaces[I]]...);
    }
    (std::make_index_sequence<16>());
    return text;
}
#undef VX_UUID_FORMAT

template <class Ch> void check(const std::basic_string<Ch>& text, unsigned int length)
{
    const auto exact =
        std::make_unique<Ch[]>(text.size() + 1); // so that the sanitizer sees its end
    std::copy(text.begin(), text.end(), exact.get());
    exact[text.size()] = 0;

    const SimpleUUID expected = scanned(exact.get(), length);
    Vx::UUID id(SimpleUUID{{1, 2, 3}});
    id.initFromString(exact.get(), length);
    FUZZ_CLAIM(std::memcmp(id.data(), expected.bytes, 16) == 0);
    if (length == text.size())
        FUZZ_CLAIM(Vx::UUID(ours(text)) == id);
    const std::string form = printed(expected);
    FUZZ_CLAIM(plain(id.asString()) == form);
    FUZZ_CLAIM(plain(id.asWString()) == std::wstring(form.begin(), form.end()));
}

// 36 or 38 characters, without or with braces, if the input has that many.
unsigned int lengthOf(std::size_t size, unsigned int choice)
{
    const unsigned int wanted = choice == 1 ? 36 : 38;
    return choice != 0 && size >= wanted ? wanted : static_cast<unsigned int>(size);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const unsigned int choice = input.take<std::uint8_t>();
    if ((choice & 8) != 0) {
        const std::string valid = printed(input.take<SimpleUUID>());
        check(valid, 36);
        check(std::wstring(valid.begin(), valid.end()), 36);
        return 0;
    }
    Input same = input;
    const std::string text = same.rest();
    check(text, lengthOf(text.size(), choice & 3));
    const std::wstring wide = input.wideRest((choice & 4) != 0);
    check(wide, lengthOf(wide.size(), choice & 3));
    return 0;
}
