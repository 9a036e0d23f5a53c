// Settings files: any bytes are read, without the lines that are not settings text. What was read,
// and what is set afterwards, comes back from the bytes that would be written.
#include "Fuzz.h"

#include "settings/SettingsText.h"
#include <vector>

namespace {

void sameValue(const SettingsText& a, const SettingsText& b, const SettingsKey& key)
{
    const std::string* const left = a.find(key);
    const std::string* const right = b.find(key);
    FUZZ_CLAIM((left == nullptr) == (right == nullptr));
    FUZZ_CLAIM(left == nullptr || *left == *right);
}

// The strings before every '=', with the section of the line. Finds the keys without escapes.
std::vector<SettingsKey> likelyKeys(const std::string& bytes)
{
    std::vector<SettingsKey> keys;
    std::string section;
    Input input(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    while (!input.empty()) {
        const std::string line = input.line();
        if (!line.empty() && line.front() == '[' && line.back() == ']')
            section = line.substr(1, line.size() - 2);
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos)
            keys.push_back({section, line.substr(0, equals)});
    }
    return keys;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    std::vector<std::pair<SettingsKey, std::string>> changes;
    const unsigned int count = input.take<std::uint8_t>() % 4;
    for (unsigned int i = 0; i < count; ++i) {
        SettingsKey key;
        // Three lines; a record separator stands for a line end in them.
        std::string value;
        for (std::string* text : {&key.first, &key.second, &value}) {
            *text = input.line();
            for (char& c : *text)
                if (c == '\x1E')
                    c = '\n';
        }
        changes.push_back({key, value});
    }
    const std::string bytes = input.rest();

    SettingsText text;
    const SettingsText::Unreadable unreadable = text.parse(bytes);
    FUZZ_CLAIM((unreadable.count == 0) == (unreadable.first == 0));
    SettingsText again;
    const std::string written = text.bytes();
    FUZZ_CLAIM(again.parse(written).count == 0);
    FUZZ_CLAIM(again.bytes() == written);
    const std::vector<SettingsKey> keys = likelyKeys(bytes);
    for (const SettingsKey& key : keys)
        sameValue(text, again, key);

    for (std::size_t i = 0; i < changes.size(); ++i) {
        text.set(changes[i].first, changes[i].second);
        SettingsText reread;
        FUZZ_CLAIM(reread.parse(text.bytes()).count == 0);
        for (const SettingsKey& key : keys) {
            sameValue(text, reread, key);
            bool changed = false;
            for (std::size_t j = 0; j <= i; ++j)
                changed = changed || changes[j].first == key;
            if (!changed)
                sameValue(reread, again, key);
        }
        const std::string* const value = reread.find(changes[i].first);
        FUZZ_CLAIM(value != nullptr && *value == changes[i].second);
    }
    return 0;
}
