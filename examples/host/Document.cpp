#include "Document.h"

#include <Vx/VxStringUtils.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <algorithm>
#include <iostream>
#include <string>

using Text = LightweightString<char>;
using Vx::AttribValuePair;

namespace {

// Finds the first pair of that name. A list of pairs is an ordinary std::vector.
template <class Pairs> auto find(Pairs& pairs, const Text& name)
{
    return std::find_if(pairs.begin(), pairs.end(),
                        [&](const AttribValuePair& pair) { return pair.name == name; });
}

// A line without '=' has a text, but neither a name nor a value.
bool isComment(const AttribValuePair& pair) { return pair.name.empty() && pair.value.empty(); }

} // namespace

LightweightString<char> whyNotLoaded(const LightweightString<wchar_t>& path)
{
    // load() does not say why it failed. The platform's file service, which load() uses, tells
    // more.
    const Vx::Ptr<iFile> file =
        OS()->fileSystem()->openFile(path, /*access=*/1, /*disposition=*/0, /*flags=*/1, 0);
    if (!file)
        return "it is not there, is not a file, or may not be read";
    return file->size() == 0 ? "it is empty" : "reading it failed";
}

void print(const VxIniFile& ini)
{
    for (auto section = ini.getSectionIterator(); section.valid(); ++section) {
        // Lines before the first header belong to a section with a reserved name.
        if (section.name() == VxIniFile::kAnonymousSection())
            std::cout << "  (before the first section)\n";
        else
            std::cout << "  [" << section.name() << "]\n";

        // The width of a column is in characters, not in bytes of UTF-8.
        std::size_t width = 0;
        for (const AttribValuePair& pair : *section)
            width = std::max<std::size_t>(width, fromUTF8(pair.name).length());

        for (const AttribValuePair& pair : *section) {
            if (isComment(pair)) {
                std::cout << "    " << pair.text << '\n';
                continue;
            }
            const std::string padding(width - fromUTF8(pair.name).length(), ' ');
            std::cout << "    " << pair.name << padding << "  "
                      << (pair.value.empty() ? Text("(empty)") : pair.value) << '\n';
        }
    }
}

Text valueOf(const VxIniFile& ini, const Text& section, const Text& name)
{
    const auto& pairs = ini[section]; // does not create the section: the document is const
    const auto found = find(pairs, name);
    return found != pairs.end() ? found->value : Text();
}

void setValue(VxIniFile& ini, const Text& section, const Text& name, const Text& value)
{
    auto& pairs = ini[section]; // creates the section if it is missing
    const auto found = find(pairs, name);
    const AttribValuePair changed(name, value, '=');
    if (found != pairs.end())
        *found = changed;
    else
        pairs.push_back(changed);
}

unsigned int countComments(const VxIniFile& ini)
{
    std::ptrdiff_t count = 0;
    for (auto section = ini.getSectionIterator(); section.valid(); ++section)
        count += std::count_if((*section).begin(), (*section).end(), isComment);
    return static_cast<unsigned int>(count);
}
