#include <Vx/VxStringUtils.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemUtils.h>
#include <atomic>
#include <cctype>
#include <cwctype>
#include <locale.h>
#include <vector>

namespace {

using NarrowString = LightweightString<char>;
using WideString = LightweightString<wchar_t>;

template <class Convert> NarrowString& convertBytes(NarrowString& text, Convert convert)
{
    char* const chars = text.mutableChars();
    for (unsigned int i = 0; i < text.length(); ++i)
        // Deliberate: as a signed char, the way the C library's tables allow.
        chars[i] = static_cast<char>(convert(static_cast<signed char>(chars[i])));
    return text;
}

struct Lowering {
    static constexpr const char* kMapping = "tolower";
    static constexpr wchar_t kFirst = L'A', kLast = L'Z', kDistance = L'a' - L'A';
    static std::wint_t map(std::wint_t c) { return std::towlower(c); }
};

struct Raising {
    static constexpr const char* kMapping = "toupper";
    static constexpr wchar_t kFirst = L'a', kLast = L'z', kDistance = L'A' - L'a';
    static std::wint_t map(std::wint_t c) { return std::towupper(c); }
};

template <class Case> constexpr wchar_t convertAscii(wchar_t c)
{
    return static_cast<wchar_t>(c + (c >= Case::kFirst && c <= Case::kLast ? Case::kDistance : 0));
}

template <class Case> wchar_t convertAny(wchar_t c)
{
    return static_cast<wchar_t>(Case::map(static_cast<std::wint_t>(c)));
}

// Whether the current locale maps all of ASCII in the plain way; Turkish ones do not.
template <class Case> bool asciiIsPlain()
{
    for (wchar_t c = 0; c < 128; ++c)
        if (convertAny<Case>(c) != convertAscii<Case>(c))
            return false;
    return true;
}

// What a locale's mapping says of the alphabets from Latin to Arabic, asked once.
struct CaseTable {
    static constexpr wchar_t kSize = 0x800;

    std::atomic<std::wctrans_t> mapping{nullptr};
    std::atomic<bool> complete{false};
    bool asciiIsPlain = false;
    wchar_t converted[kSize] = {};
};

// The table of the current locale, or null: then each character is asked for.
template <class Case> const CaseTable* currentTable()
{
#ifdef __GLIBC__
    // The answers are kept with the address of the mapping that gave them. That is safe for the
    // global locale only: its mappings are never unloaded, since other threads may be in the
    // middle of them, while another one may come to stand where that of a freed locale object
    // stood. A process has one locale, seldom two; further ones go without.
    static constinit CaseTable tables[3];
    const auto currentMapping = [] {
        return uselocale(nullptr) == LC_GLOBAL_LOCALE ? std::wctrans(Case::kMapping) : nullptr;
    };
    const std::wctrans_t mapping = currentMapping();
    if (mapping == nullptr)
        return nullptr;
    for (CaseTable& table : tables) {
        std::wctrans_t known = table.mapping.load(std::memory_order_relaxed);
        if (known == nullptr && table.mapping.compare_exchange_strong(known, mapping)) {
            for (wchar_t c = 0; c < CaseTable::kSize; ++c)
                table.converted[c] = convertAny<Case>(c);
            table.asciiIsPlain = asciiIsPlain<Case>();
            // Unless the locale has been changed in the meantime, which spoils it for good.
            table.complete.store(currentMapping() == mapping, std::memory_order_release);
            known = mapping;
        }
        if (known == mapping)
            return table.complete.load(std::memory_order_acquire) ? &table : nullptr;
    }
#endif
    return nullptr;
}

bool within(wchar_t c, wchar_t limit) { return c >= 0 && c < limit; }

// How to convert by what is known of the current locale's mapping.
template <class Case> struct Conversion {
    const CaseTable* table = currentTable<Case>();
    bool plain = table != nullptr ? table->asciiIsPlain : asciiIsPlain<Case>();

    wchar_t one(wchar_t c) const
    {
        return table != nullptr && within(c, CaseTable::kSize) ? table->converted[c]
               : plain && within(c, 128)                       ? convertAscii<Case>(c)
                                                               : convertAny<Case>(c);
    }

    // So many at a time that looking at them all first costs little; the compiler turns that
    // and the conversion of ASCII into vector instructions.
    static constexpr unsigned int kStep = 32;
    static_assert(kStep % 4 == 0);

    void step(wchar_t* chars) const
    {
        wchar_t bits = 0;
        for (unsigned int i = 0; i < kStep; ++i)
            bits |= chars[i];
        if (plain && within(bits, 128)) {
            for (unsigned int i = 0; i < kStep; ++i)
                chars[i] = convertAscii<Case>(chars[i]);
        } else if (table != nullptr && within(bits, CaseTable::kSize)) {
            // Four are read before any is written: for all that the compiler knows, the text
            // may be the table.
            for (unsigned int i = 0; i < kStep; i += 4) {
                const wchar_t* const converted = table->converted;
                const wchar_t a = converted[chars[i]], b = converted[chars[i + 1]];
                const wchar_t c = converted[chars[i + 2]], d = converted[chars[i + 3]];
                chars[i] = a;
                chars[i + 1] = b;
                chars[i + 2] = c;
                chars[i + 3] = d;
            }
        } else {
            for (unsigned int i = 0; i < kStep; ++i)
                chars[i] = one(chars[i]);
        }
    }
};

template <class Case> WideString& convertCodePoints(WideString& text)
{
    constexpr unsigned int kWorthAsking = 24;

    wchar_t* chars = text.mutableChars();
    wchar_t* const end = chars + text.length();
    if (text.length() < kWorthAsking) {
        for (; chars != end; ++chars)
            *chars = convertAny<Case>(*chars);
        return text;
    }
    const Conversion<Case> conversion;
    for (; end - chars >= conversion.kStep; chars += conversion.kStep)
        conversion.step(chars);
    for (; chars != end; ++chars)
        *chars = conversion.one(*chars);
    return text;
}

} // namespace

namespace Vx {

NarrowString& toLower(NarrowString& text)
{
    return convertBytes(text, [](int c) { return std::tolower(c); });
}

NarrowString& toUpper(NarrowString& text)
{
    return convertBytes(text, [](int c) { return std::toupper(c); });
}

WideString& toLower(WideString& text) { return convertCodePoints<Lowering>(text); }

WideString& toUpper(WideString& text) { return convertCodePoints<Raising>(text); }

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
    // Deliberate: a text of nothing else stays; callers count on not losing it.
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
    // Deliberate: a text of nothing else stays; callers count on not losing it.
    if (kept != 0 && kept != length)
        StringDetail::truncate(text, kept);
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

namespace {

// Where `pattern` stands in `text`, from the right and without overlaps: the rightmost first.
// Knuth, Morris and Pratt, from right to left: linear whatever the texts.
std::vector<unsigned int> findFromTheRight(const WideString& text, const WideString& pattern)
{
    const unsigned int n = pattern.length();
    // Read from their ends, both texts are searched in the usual direction.
    const wchar_t* const lastOfPattern = pattern.c_str() + n - 1;
    const auto patternAt = [&](unsigned int i) { return lastOfPattern[-std::ptrdiff_t(i)]; };

    // borders[k]: how much of a match of k characters is also the start of the next one.
    std::vector<unsigned int> borders(n, 0);
    for (unsigned int i = 1, border = 0; i + 1 < n; ++i) {
        while (border != 0 && patternAt(i) != patternAt(border))
            border = borders[border];
        if (patternAt(i) == patternAt(border))
            ++border;
        borders[i + 1] = border;
    }

    std::vector<unsigned int> hits;
    const wchar_t* const chars = text.c_str();
    // The last two characters together are rare; a pattern of one is compared with it twice.
    const unsigned int second = n > 1 ? 1 : 0;
    const wchar_t p0 = patternAt(0), p1 = patternAt(second);
    unsigned int matched = 0;
    for (unsigned int i = text.length(); i >= n - matched;) {
        if (matched == 0) {
            // Most of a text is skipped here, eight characters at a time.
            while (i >= 8 + second) {
                const wchar_t* const at = chars + i - 8;
                const wchar_t* const before = at - second;
                unsigned int found = 0;
                for (unsigned int k = 0; k < 8; ++k)
                    found |= ((at[k] ^ p0) | (before[k] ^ p1)) == 0;
                if (found != 0)
                    break;
                i -= 8;
            }
            while (i >= n && (chars[i - 1] != p0 || chars[i - 1 - second] != p1))
                --i;
            if (i < n)
                break;
        }
        --i;
        while (matched != 0 && chars[i] != patternAt(matched))
            matched = borders[matched];
        if (chars[i] == patternAt(matched) && ++matched == n) {
            hits.push_back(i);
            matched = 0;
        }
    }
    return hits;
}

} // namespace

WideString substituteCaseInsensitive(const WideString& text, const WideString& pattern,
                                     const WideString& replacement)
{
    if (pattern.empty() || pattern.length() > text.length())
        return text;
    const std::vector<unsigned int> hits = findFromTheRight(toLower(text), toLower(pattern));
    if (hits.empty())
        return text;

    const std::size_t length = text.length() - hits.size() * pattern.length() +
                               hits.size() * std::size_t(replacement.length());
    if (length > 0xFFFFFFFFu)
        StringDetail::throwTooLong();
    WideString result;
    result.resizeFor(static_cast<unsigned int>(length));
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
