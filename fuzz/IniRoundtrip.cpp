// A loaded document is equal after saveAll() and load(), and a second saveAll() writes equal bytes.
#include "Fuzz.h"

#include <Vx/VxIniFile.h>
#include <Vx/testing/ScriptedPlatform.h>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    const bool caseSensitive = (input.take<char>() & 1) != 0;

    ScriptedPlatform platform;
    platform.addFile(L"a", input.rest());
    VxIniFile first(caseSensitive);
    first.load(L"a", '\n');
    FUZZ_CLAIM(first.saveAll(L"b"));

    VxIniFile second(caseSensitive);
    FUZZ_CLAIM(second.load(L"b", '\n') == !first.sections.empty());
    FUZZ_CLAIM(second.sections.size() == first.sections.size());
    // The anonymous section may have another spelling, which has the same place in the order.
    auto other = second.sections.begin();
    for (const auto& [name, pairs] : first.sections) {
        FUZZ_CLAIM(!first.sections.key_comp()(name, other->first));
        FUZZ_CLAIM(!first.sections.key_comp()(other->first, name));
        FUZZ_CLAIM(pairs.size() == other->second.size());
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            FUZZ_CLAIM(plain(pairs[i].text) == plain(other->second[i].text));
            FUZZ_CLAIM(plain(pairs[i].name) == plain(other->second[i].name));
            FUZZ_CLAIM(plain(pairs[i].value) == plain(other->second[i].value));
        }
        ++other;
    }
    FUZZ_CLAIM(second.saveAll(L"c"));
    FUZZ_CLAIM(platform.file(L"b") == platform.file(L"c"));
    return 0;
}
