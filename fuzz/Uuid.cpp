// UUID texts in both widths, against the scan that they stand for.
#include "Fuzz.h"

#include <Vx/Image/UUID.h>
#include <cwchar>
#include <memory>

namespace {

constexpr int kPlaces[16] = {3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10, 11, 12, 13, 14, 15};

int scan(const char* text, unsigned int (&v)[16])
{
    return std::sscanf(text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                       v, v + 1, v + 2, v + 3, v + 4, v + 5, v + 6, v + 7, v + 8, v + 9, v + 10,
                       v + 11, v + 12, v + 13, v + 14, v + 15);
}

int scan(const wchar_t* text, unsigned int (&v)[16])
{
    return std::swscanf(text,
                        L"%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", v,
                        v + 1, v + 2, v + 3, v + 4, v + 5, v + 6, v + 7, v + 8, v + 9, v + 10,
                        v + 11, v + 12, v + 13, v + 14, v + 15);
}

template <class Ch> void check(const std::basic_string<Ch>& text, unsigned int length)
{
    const auto exact = std::make_unique<Ch[]>(text.size() + 1); // watched by the sanitizer
    std::copy(text.begin(), text.end(), exact.get());
    exact[text.size()] = 0;

    unsigned char expected[16] = {};
    const bool braces = length == 38 && exact[0] == Ch('{') && exact[37] == Ch('}');
    unsigned int values[16];
    if ((braces || length == 36) && scan(exact.get() + (braces ? 1 : 0), values) == 16)
        for (int i = 0; i < 16; ++i)
            expected[kPlaces[i]] = static_cast<unsigned char>(values[i]);

    Vx::UUID id(SimpleUUID{{1, 2, 3}});
    id.initFromString(exact.get(), length);
    FUZZ_CLAIM(std::memcmp(id.data(), expected, 16) == 0);
    if (length == text.size())
        FUZZ_CLAIM(Vx::UUID(ours(text)) == id);
    FUZZ_CLAIM(Vx::UUID(id.asString()) == id && Vx::UUID(id.asWString()) == id);
}

// As long as a text with or without braces where the input has that many characters.
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
    Input same = input;
    const std::string text = same.rest();
    check(text, lengthOf(text.size(), choice & 3));
    const std::wstring wide = input.wideRest((choice & 4) != 0);
    check(wide, lengthOf(wide.size(), choice & 3));
    return 0;
}
