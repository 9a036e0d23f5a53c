#include <Vx/VxStringUtils.h>

#include <Vx/detail/ReverseSearch.h>
#include <Vx/detail/WideCase.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemUtils.h>
#include <cctype>
#include <cwctype>
#include <vector>

namespace {

using NarrowString = LightweightString<char>;
using WideString = LightweightString<wchar_t>;

} // namespace

namespace Vx {

// Deliberate: both pass bytes as signed chars, which the tables of the C library allow.
NarrowString& toLower(NarrowString& text)
{
    char* const chars = text.mutableChars();
    for (unsigned int i = 0; i < text.length(); ++i)
        chars[i] = static_cast<char>(std::tolower(static_cast<signed char>(chars[i])));
    return text;
}

NarrowString& toUpper(NarrowString& text)
{
    char* const chars = text.mutableChars();
    for (unsigned int i = 0; i < text.length(); ++i)
        chars[i] = static_cast<char>(std::toupper(static_cast<signed char>(chars[i])));
    return text;
}

WideString& toLower(WideString& text)
{
    detail::lower(text.mutableChars(), text.length());
    return text;
}

WideString& toUpper(WideString& text)
{
    detail::raise(text.mutableChars(), text.length());
    return text;
}

NarrowString toLower(const NarrowString& text)
{
    NarrowString copy(text);
    toLower(copy);
    return copy;
}

NarrowString toUpper(const NarrowString& text)
{
    NarrowString copy(text);
    toUpper(copy);
    return copy;
}

WideString toLower(const WideString& text)
{
    WideString copy(text);
    toLower(copy);
    return copy;
}

WideString toUpper(const WideString& text)
{
    WideString copy(text);
    toUpper(copy);
    return copy;
}

WideString& stripLeadingChars(WideString& text, wchar_t c)
{
    const unsigned int length = text.length();
    unsigned int run = 0;
    while (run < length && text[run] == c)
        ++run;
    // Deliberate: a string of nothing else is kept; callers rely on not losing it.
    if (run != 0 && run != length)
        text = WideString(text.c_str() + run, length - run);
    return text;
}

WideString& stripTrailingChars(WideString& text, wchar_t c)
{
    const unsigned int length = text.length();
    unsigned int kept = length;
    while (kept != 0 && text[kept - 1] == c)
        --kept;
    // Deliberate: a string of nothing else is kept; callers rely on not losing it.
    if (kept != 0 && kept != length)
        detail::truncate(text, kept);
    return text;
}

bool endsWith(const WideString& text, wchar_t c, bool caseSensitive)
{
    if (text.empty())
        return false;
    const wchar_t last = text.back();
    if (caseSensitive)
        return last == c;
    return std::towupper(static_cast<std::wint_t>(last)) ==
           std::towupper(static_cast<std::wint_t>(c));
}

WideString substituteCaseInsensitive(const WideString& text, const WideString& pattern,
                                     const WideString& replacement)
{
    if (pattern.empty() || pattern.length() > text.length())
        return text;
    const std::vector<unsigned int> hits = detail::findFromRight(toLower(text), toLower(pattern));
    if (hits.empty())
        return text;

    const std::size_t length = text.length() - hits.size() * pattern.length() +
                               hits.size() * std::size_t(replacement.length());
    WideString result;
    result.resizeFor(detail::checkedLength(length));
    if (length == 0)
        return result;
    wchar_t* to = result.mutableChars();
    const wchar_t* from = text.c_str();
    for (std::size_t i = hits.size(); i-- != 0;) {
        const wchar_t* const hit = text.c_str() + hits[i];
        to = wmempcpy(to, from, static_cast<std::size_t>(hit - from));
        to = wmempcpy(to, replacement.c_str(), replacement.length());
        from = hit + pattern.length();
    }
    std::wmemcpy(to, from, static_cast<std::size_t>(text.end() - from));
    return result;
}

WideString WStringFromAscii(const char* text) { return OS()->systemUtils()->wideFromAscii(text); }

} // namespace Vx

bool isEssentiallyEmpty(const NarrowString& text)
{
    for (char c : text)
        if (c != ' ')
            return false;
    return true;
}

template NarrowString& trimTrailingSpaces(NarrowString& text);

NarrowString toUTF8(const WideString& text) { return OS()->systemUtils()->toUTF8(text); }

WideString fromUTF8(const NarrowString& text)
{
    return OS()->systemUtils()->fromUTF8(text.c_str(), text.length());
}

WideString fromUTF8(const char* bytes, int length)
{
    return OS()->systemUtils()->fromUTF8(bytes, static_cast<unsigned int>(length));
}
