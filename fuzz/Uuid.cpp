// Parsing and printing UUIDs in both widths, compared with the functions of the C library.
#include "Fuzz.h"

#include <Reference.h>
#include <Vx/Image/UUID.h>
#include <memory>

namespace {

template <class Ch> void check(const std::basic_string<Ch>& text, unsigned int length)
{
    const auto exact =
        std::make_unique<Ch[]>(text.size() + 1); // so that the sanitizer sees its end
    std::copy(text.begin(), text.end(), exact.get());
    exact[text.size()] = 0;

    const SimpleUUID expected = reference::uuid(exact.get(), length);
    Vx::UUID id(SimpleUUID{{1, 2, 3}});
    id.initFromString(exact.get(), length);
    FUZZ_CLAIM(std::memcmp(id.data(), expected.bytes, 16) == 0);
    if (length == text.size())
        FUZZ_CLAIM(Vx::UUID(ours(text)) == id);
    const std::string printed = reference::printedUuid(expected);
    FUZZ_CLAIM(plain(id.asString()) == printed);
    FUZZ_CLAIM(plain(id.asWString()) == std::wstring(printed.begin(), printed.end()));
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
        const std::string valid = reference::printedUuid(input.take<SimpleUUID>());
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
