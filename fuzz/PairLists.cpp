// Parsing and joining pair lists, and look-ups in them, against a simple model.
#include "Fuzz.h"
#include "Pieces.h"

#include <Reference.h>
#include <Vx/VxAttribValuePair.h>

namespace {

struct PlainPair {
    std::string text, name, value;
};

std::vector<PlainPair> plainPairs(const std::string& text, char pairSeparator, char itemSeparator)
{
    std::vector<PlainPair> pairs;
    for (const std::string& item : reference::pieces(text, itemSeparator, Vx::SkipEmpty)) {
        if (pairSeparator == 0)
            continue; // only a name, so not valid
        const std::size_t at = std::string(item.c_str()).find(pairSeparator);
        if (at != std::string::npos && at != 0 && at + 1 != item.size())
            pairs.push_back({item, item.substr(0, at), item.substr(at + 1)});
    }
    return pairs;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const char pairSeparator = input.take<char>();
    const char itemSeparator = input.take<char>();
    const std::string wanted = input.line();
    const std::string text = input.rest();
    if (text.size() > 20'000)
        return 0; // a miss among more than 65,535 pairs never returns

    const auto pairs = Vx::AttribValuePair::vecFromString(ours(text), pairSeparator, itemSeparator);
    const std::vector<PlainPair> expected = plainPairs(text, pairSeparator, itemSeparator);
    FUZZ_CLAIM(pairs.size() == expected.size());
    std::string joined, value;
    bool found = false;
    for (unsigned int i = 0; i < pairs.size(); ++i) {
        FUZZ_CLAIM(plain(pairs[i].text) == expected[i].text);
        FUZZ_CLAIM(plain(pairs[i].name) == expected[i].name);
        FUZZ_CLAIM(plain(pairs[i].value) == expected[i].value);
        FUZZ_CLAIM(pairs[i].valid() && pairs[i] == Vx::AttribValuePair(pairs[i]));
        if (i != 0 && itemSeparator != 0)
            joined += itemSeparator;
        joined += reference::appended(expected[i].text);
        if (!found && std::strcmp(expected[i].name.c_str(), wanted.c_str()) == 0) {
            value = expected[i].value;
            found = true;
        }
    }
    FUZZ_CLAIM(plain(Vx::AttribValuePair::getValue(ours(wanted), pairs)) == value);
    const auto printed = Vx::AttribValuePair::asString(pairs, pairSeparator, itemSeparator);
    FUZZ_CLAIM(plain(printed) == joined);

    // Joining and parsing again gives equal pairs, unless appending lost characters after a NUL or
    // the separators are ambiguous.
    if (text.find('\0') == std::string::npos && itemSeparator != 0 &&
        pairSeparator != itemSeparator) {
        const auto again =
            Vx::AttribValuePair::vecFromString(printed, pairSeparator, itemSeparator);
        FUZZ_CLAIM(again.size() == pairs.size());
        for (unsigned int i = 0; i < pairs.size(); ++i)
            FUZZ_CLAIM(again[i] == pairs[i]);
    }
    Vx::AttribValuePair::asWString(pairs, pairSeparator, itemSeparator);
    return 0;
}
