#include <Vx/detail/IniWriter.h>

#include <Vx/VxStringUtils.h>
#include <string_view>

namespace Vx::detail {

namespace {

using Text = LightweightString<char>;
using VxIniFile_Private::Sections;

constexpr std::string_view kLineEnd = "\r\n";

// Appends pair.asString('='), which in form 2 may be longer than a string can be.
void appendText(std::string& bytes, const AttribValuePair& pair)
{
    if (pair.form != 2) {
        bytes += std::string_view(pair.text);
        return;
    }
    bytes += std::string_view(pair.name);
    bytes += '=';
    // As strings are appended: from the first NUL on, only NULs.
    const std::size_t size = bytes.size() + pair.value.length();
    bytes += pair.value.c_str();
    bytes.resize(size, '\0');
}

void appendHeader(std::string& bytes, const Text& name)
{
    bytes += '[';
    bytes += std::string_view(name);
    bytes += ']';
    bytes += kLineEnd;
}

// The size of what the sections become, at most, unless save() repeats an anonymous pair. Reserving
// it saves copying a buffer that grows. One large block goes back to the system when it is freed,
// but a series of growing ones makes malloc keep more.
struct Bound {
    explicit Bound(const Sections& sections)
    {
        for (const auto& [name, pairs] : sections) {
            bytes += name.length() + std::string_view("\r\n[]\r\n").size();
            pieces += 2 + pairs.size();
            for (const AttribValuePair& pair : pairs) {
                bytes += pair.form != 2 ? pair.text.length()
                                        : std::size_t{pair.name.length()} + pair.value.length();
                bytes += std::string_view(" = \r\n").size();
            }
        }
    }
    std::size_t bytes = 0;
    std::size_t pieces = 0;
};

class PieceWriter {
public:
    explicit PieceWriter(const Bound& bound)
    {
        pieces.bytes.reserve(bound.bytes);
        pieces.ends.reserve(bound.pieces);
    }
    void blankLine() { end(kLineEnd); }
    void header(const Text& name)
    {
        appendHeader(pieces.bytes, name);
        end({});
    }
    void pair(const AttribValuePair& pair)
    {
        appendText(pieces.bytes, pair);
        end(kLineEnd);
    }
    void pairWithoutLineEnd(const AttribValuePair& pair)
    {
        appendText(pieces.bytes, pair);
        end({});
    }

    IniPieces pieces;

private:
    void end(std::string_view last)
    {
        pieces.bytes += last;
        pieces.ends.push_back(pieces.bytes.size());
    }
};

// Loading strips unprintable bytes from the ends of lines, so a text that has any there gets a
// blank. Which bytes are printable depends on the locale of the program that loads; printable
// ASCII is in all of them.
class TextWriter {
public:
    explicit TextWriter(const Bound& bound) { bytes.reserve(bound.bytes); }
    void blankLine() { bytes += kLineEnd; }
    void header(const Text& name) { appendHeader(bytes, name); }
    void pair(const AttribValuePair& pair)
    {
        const auto isSafe = [](char byte) { return byte >= 0x20 && byte < 0x7F; };
        const std::size_t start = bytes.size();
        appendText(bytes, pair);
        if (bytes.size() != start) {
            // Not before the first line: loading keeps its beginning, and a byte-order mark
            // there must stay the first thing in the file.
            if (start != 0 && !isSafe(bytes[start]))
                bytes.insert(start, 1, ' ');
            if (!isSafe(bytes.back()))
                bytes += ' ';
        }
        bytes += kLineEnd;
    }

    std::string bytes;
};

// Writes a section, separated by a blank line from the previous one unless that has a blank name.
template <class Writer>
void writeSection(const Sections::value_type& section, const Text*& previousName, Writer& writer)
{
    const auto& [name, pairs] = section;
    if (previousName != nullptr && !isEssentiallyEmpty(*previousName))
        writer.blankLine();
    previousName = &name;
    writer.header(name);
    for (const AttribValuePair& pair : pairs)
        writer.pair(pair);
}

} // namespace

IniPieces iniPiecesOfSave(const Sections& sections, const Text& anonymousName)
{
    PieceWriter writer{Bound(sections)};
    const auto anonymous = sections.find(anonymousName);
    if (anonymous != sections.end() && !anonymous->second.empty()) {
        // Deliberate: the loop advances to the next section instead of the next pair, so it
        // writes the same text for all of them. No section ends at that pair: the sections
        // run out first.
        for (auto section = anonymous; section != sections.end(); ++section)
            writer.pairWithoutLineEnd(anonymous->second.front());
    }
    const Text* previousName = nullptr;
    // Deliberate: the anonymous entry is never passed.
    for (auto section = sections.begin(); section != anonymous; ++section)
        writeSection(*section, previousName, writer);
    return std::move(writer.pieces);
}

std::string iniTextOfSaveAll(const Sections& sections, const Text& anonymousName)
{
    TextWriter writer{Bound(sections)};
    const auto anonymous = sections.find(anonymousName);
    const Text* previousName = nullptr;
    if (anonymous != sections.end() && !anonymous->second.empty()) {
        for (const AttribValuePair& pair : anonymous->second)
            writer.pair(pair);
        previousName = &anonymous->first;
    }
    for (auto section = sections.begin(); section != sections.end(); ++section)
        if (section != anonymous)
            writeSection(*section, previousName, writer);
    return std::move(writer.bytes);
}

} // namespace Vx::detail
