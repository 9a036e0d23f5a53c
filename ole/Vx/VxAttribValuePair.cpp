#include <Vx/VxAttribValuePair.h>

#include <Vx/VxStringSplit.h>
#include <Vx/VxStringUtils.h>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <utility>

template LightweightVector<Vx::AttribValuePair>::~LightweightVector();
template void LightweightVector<Vx::AttribValuePair>::push_back(const Vx::AttribValuePair&);

namespace Vx {

namespace {

using Text = LightweightString<char>;

// What the member `form` means.
constexpr int kAllAgree = 0;
constexpr int kTextOnly = 1;
constexpr int kNameAndValue = 2;

bool same(const Text& a, const Text& b) { return std::strcmp(a.c_str(), b.c_str()) == 0; }

// Appends separator and value to the name, in a single allocation.
Text join(const Text& name, char separator, const Text& value)
{
    const unsigned int separatorLength = separator != 0 ? 1 : 0;
    const std::size_t total = std::size_t(name.length()) + separatorLength + value.length();
    Text joined;
    joined.createImpl(detail::checkedLength(total), true);
    if (total != 0) {
        char* chars = joined.mutableChars();
        std::memcpy(chars, name.c_str(), name.length());
        chars[name.length()] = separator; // 0 is overwritten, or is the terminator
        detail::copyUpToZero(chars + name.length() + separatorLength, value.c_str(),
                             value.length());
    }
    return joined;
}

} // namespace

AttribValuePair::AttribValuePair(const Text& text, char separator) : form(kAllAgree), text(text)
{
    if (text.empty())
        return;
    if (separator == 0) {
        // strchr would find the terminator, after which nothing may be read.
        name = text;
        return;
    }
    const char* const begin = text.c_str();
    const char* const found = std::strchr(begin, separator);
    if (found == nullptr)
        return;
    name = Text(begin, static_cast<unsigned int>(found - begin));
    value = Text(found + 1, static_cast<unsigned int>(text.end() - (found + 1)));
}

AttribValuePair::AttribValuePair(const Text& name, const Text& value, char separator)
    : form(kAllAgree), text(join(name, separator, value)), name(name), value(value)
{}

AttribValuePair::AttribValuePair(const LightweightString<wchar_t>& name,
                                 const LightweightString<wchar_t>& value, char separator)
    : AttribValuePair(toUTF8(name), toUTF8(value), separator)
{}

AttribValuePair::~AttribValuePair() {}

AttribValuePair& AttribValuePair::operator=(const AttribValuePair& other)
{
    if (other.form == kTextOnly)
        // Deliberate: always '=', also in self-assignment.
        return *this = AttribValuePair(other.text, '=');
    // Deliberate: an outdated text is not copied; this pair keeps its own.
    if (other.form != kNameAndValue)
        text = other.text;
    name = other.name;
    value = other.value;
    form = other.form;
    return *this;
}

bool AttribValuePair::valid() const { return form != kTextOnly && !name.empty() && !value.empty(); }

bool AttribValuePair::operator==(const AttribValuePair& other) const
{
    const auto namesAndValues = [&] { return same(name, other.name) && same(value, other.value); };
    if (form == other.form) {
        if (form == kTextOnly)
            return same(text, other.text);
        if (form == kNameAndValue)
            return namesAndValues();
        return namesAndValues() || same(text, other.text);
    }
    if (form != kAllAgree && other.form != kAllAgree)
        return namesAndValues() && same(text, other.text);
    if (form == kTextOnly || other.form == kTextOnly)
        return same(text, other.text);
    return namesAndValues();
}

Text AttribValuePair::asString(char separator) const
{
    // Deliberate: the stored text takes precedence over the separator.
    return form == kNameAndValue ? join(name, separator, value) : text;
}

LightweightString<wchar_t> AttribValuePair::asWString(char) const
{
    // Deliberate: always '=', and widened byte by byte.
    return WStringFromAscii(asString('=').c_str());
}

Text AttribValuePair::asString(const LightweightVector<AttribValuePair>& pairs, char pairSeparator,
                               char itemSeparator)
{
    Text joined;
    for (const AttribValuePair& pair : pairs) {
        if (!joined.empty())
            joined += itemSeparator;
        joined += pair.asString(pairSeparator);
    }
    return joined;
}

LightweightString<wchar_t>
AttribValuePair::asWString(const LightweightVector<AttribValuePair>& pairs, char pairSeparator,
                           char itemSeparator)
{
    return fromUTF8(asString(pairs, pairSeparator, itemSeparator));
}

LightweightVector<AttribValuePair>
AttribValuePair::vecFromString(const Text& text, char pairSeparator, char itemSeparator)
{
    StringToVec<Text>::VecT items;
    splitIf(text, IsMatchingChar<char>(itemSeparator), items, SkipEmpty);

    LightweightVector<AttribValuePair> pairs;
    for (const Text& item : items) {
        const AttribValuePair pair(item, pairSeparator);
        if (pair.valid())
            pairs.push_back(pair);
    }
    return pairs;
}

Text AttribValuePair::getValue(const Text& name, const LightweightVector<AttribValuePair>& pairs)
{
    const char* const wanted = name.c_str();
    const unsigned int count = pairs.size();
    // Deliberate: the counter has 16 bits. Hosts rely on items after number 65,535 never being
    // found.
    for (std::uint16_t i = 0; i < count;) {
        const char* const candidate = pairs[i].name.c_str();
        if (*candidate == *wanted && std::strcmp(candidate, wanted) == 0)
            return pairs[i].value;
        if (++i == 0) {
            // The search now never ends unless it finds the name. Without this fence the
            // compiler might assume that it ends.
            std::atomic_signal_fence(std::memory_order_seq_cst);
        }
    }
    return {};
}

LightweightString<wchar_t>
AttribValuePair::getValue(const LightweightString<wchar_t>& name,
                          const LightweightVector<AttribValuePair>& pairs)
{
    return fromUTF8(getValue(toUTF8(name), pairs));
}

} // namespace Vx
