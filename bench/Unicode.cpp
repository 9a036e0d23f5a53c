// UTF-8 to UTF-32 and back, 64 KiB of UTF-8 each. Conversions between UTF-8 and UTF-16 are shown but
// do not count as peers, since UTF-16 takes half the bytes. Peers that fill a buffer get one that is
// large enough and allocated before the measurement.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxStringUtils.h>
#include <codecvt>
#include <cwchar>
#include <iconv.h>
#include <locale.h>
#include <locale>

#if BENCH_QT
#include <QList>
#include <QString>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_ICU
#include <unicode/ustring.h>
#endif
#if BENCH_UTFCPP
#include <utf8.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::State;

struct Text {
    std::string utf8;
    std::wstring utf32;
};

void append(Text& text, unsigned int c)
{
    text.utf32 += static_cast<wchar_t>(c);
    const auto byte = [&](unsigned int value) { text.utf8 += static_cast<char>(value); };
    if (c < 0x80) {
        byte(c);
    } else if (c < 0x800) {
        byte(0xC0 | c >> 6);
        byte(0x80 | (c & 0x3F));
    } else {
        byte(0xE0 | c >> 12);
        byte(0x80 | (c >> 6 & 0x3F));
        byte(0x80 | (c & 0x3F));
    }
}

Text ascii()
{
    Text text;
    for (const char c : bench::letters(65536))
        append(text, static_cast<unsigned char>(c));
    return text;
}

// One letter in eight is accented, at random positions.
Text european()
{
    Text text;
    bench::Numbers numbers(21);
    for (const char c : bench::letters(65536 * 8 / 9))
        append(text,
               numbers.below(8) == 0 ? 0xC0 + numbers.below(0x3F) : static_cast<unsigned char>(c));
    return text;
}

// Ideographs, with a one-byte blank for one in twenty.
Text cjk()
{
    Text text;
    bench::Numbers numbers(22);
    while (text.utf8.size() < 65536)
        append(text, numbers.below(20) == 0 ? ' ' : 0x4E00 + numbers.below(0x5000));
    return text;
}

// Measures convert(), which fills \p out and returns the number of characters.
template <class String, class Convert>
void intoBuffer(State& state, const Text& text, const String& expected, String& out,
                Convert convert)
{
    const std::size_t count = convert();
    const bool right = count == expected.size() && out.compare(0, count, expected) == 0;
    bench::runBytes(state, text.utf8.size(), right, [&] { keep(convert()); });
}

// libc's conversions, in a locale whose characters are encoded in UTF-8.
class Utf8Locale {
public:
    Utf8Locale() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)), old_(uselocale(locale_))
    {}
    ~Utf8Locale()
    {
        uselocale(old_);
        freelocale(locale_);
    }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    locale_t locale_;
    locale_t old_;
};

void decodeByLibc(State& state, const Text& text)
{
    const Utf8Locale locale;
    std::wstring out(text.utf32.size() + 1, 0);
    intoBuffer(state, text, text.utf32, out, [&] {
        const char* at = text.utf8.c_str();
        std::mbstate_t shift{};
        return std::mbsrtowcs(out.data(), &at, out.size(), &shift);
    });
}

void encodeByLibc(State& state, const Text& text)
{
    const Utf8Locale locale;
    std::string out(text.utf8.size() + 1, 0);
    intoBuffer(state, text, text.utf8, out, [&] {
        const wchar_t* at = text.utf32.c_str();
        std::mbstate_t shift{};
        return std::wcsrtombs(out.data(), &at, out.size(), &shift);
    });
}

template <class From, class To>
void convertByIconv(State& state, const Text& text, const char* from, const char* to,
                    const From& source, const To& expected)
{
    const iconv_t converter = iconv_open(to, from);
    To out(expected.size(), 0);
    intoBuffer(state, text, expected, out, [&] {
        char* in = reinterpret_cast<char*>(const_cast<typename From::value_type*>(source.data()));
        char* at = reinterpret_cast<char*>(out.data());
        std::size_t left = source.size() * sizeof source[0];
        const std::size_t room = out.size() * sizeof out[0];
        std::size_t unused = room;
        iconv(converter, &in, &left, &at, &unused);
        return (room - unused) / sizeof out[0];
    });
    iconv_close(converter);
}

// Those that produce UTF-32 or read it, all of which except the unchecked one reject bad input.
constexpr const char* kPeers = "codecvt|mbsrtowcs|wcsrtombs|iconv|QString and toUcs4|"
                               "QString from UCS-4|g_utf8_to_ucs4|g_ucs4_to_utf8|ICU|utfcpp|"
                               "utfcpp, unchecked";

#if BENCH_ICU
void decodeByIcu(State& state, const Text& text)
{
    std::wstring out(text.utf8.size(), 0);
    std::u16string middle(text.utf8.size(), 0);
    intoBuffer(state, text, text.utf32, out, [&] {
        UErrorCode error = U_ZERO_ERROR;
        int32_t units = 0;
        int32_t count = 0;
        u_strFromUTF8(middle.data(), int32_t(middle.size()), &units, text.utf8.data(),
                      int32_t(text.utf8.size()), &error);
        u_strToUTF32(reinterpret_cast<UChar32*>(out.data()), int32_t(out.size()), &count,
                     middle.data(), units, &error);
        return static_cast<std::size_t>(count);
    });
}
#endif

// Peers that fill a buffer.
void addDecodersToBuffer(Row& row, const Text& text)
{
    row.peer("mbsrtowcs", [=](State& state) { decodeByLibc(state, text); });
    row.peer("iconv", [=](State& state) {
        convertByIconv(state, text, "UTF-8", "WCHAR_T", text.utf8, text.utf32);
    });
#if BENCH_ICU
    row.peer("ICU", [=](State& state) { decodeByIcu(state, text); });
#endif
#if BENCH_UTFCPP
    row.peer("utfcpp, unchecked", [=](State& state) {
        std::wstring out(text.utf32.size(), 0);
        intoBuffer(state, text, text.utf32, out, [&] {
            return std::size_t(utf8::unchecked::utf8to32(text.utf8.data(),
                                                         text.utf8.data() + text.utf8.size(),
                                                         out.data()) -
                               out.data());
        });
    });
#endif
}

void addDecode(const char* operation, const Text& text)
{
    Row row("unicode", operation, {1.0, kPeers});
    row.ours([=](State& state) {
        const auto source = bench::narrow(text.utf8);
        bench::runBytes(state, text.utf8.size(), fromUTF8(source) == text.utf32.c_str(),
                        [&] { keep(fromUTF8(source).c_str()); });
    });
    addDecodersToBuffer(row, text);
    row.peer("codecvt", [=](State& state) {
        std::wstring_convert<std::codecvt_utf8<wchar_t>> convert;
        bench::runBytes(state, text.utf8.size(), convert.from_bytes(text.utf8) == text.utf32,
                        [&] { keep(convert.from_bytes(text.utf8).data()); });
    });
#if BENCH_QT
    row.peer("QString and toUcs4", [=](State& state) {
        const auto decoded = [&] {
            return QString::fromUtf8(text.utf8.data(), qsizetype(text.utf8.size())).toUcs4();
        };
        const auto first = decoded();
        bench::runBytes(state, text.utf8.size(),
                        std::equal(first.begin(), first.end(), text.utf32.begin(), text.utf32.end(),
                                   [](auto a, wchar_t b) { return wchar_t(a) == b; }),
                        [&] { keep(decoded().constData()); });
    });
    row.peer("QString, to UTF-16", [=](State& state) {
        const auto decoded = [&] {
            return QString::fromUtf8(text.utf8.data(), qsizetype(text.utf8.size()));
        };
        bench::runBytes(state, text.utf8.size(), decoded() == QString::fromStdWString(text.utf32),
                        [&] { keep(decoded().constData()); });
    });
#endif
#if BENCH_GLIB
    row.peer("g_utf8_to_ucs4", [=](State& state) {
        const auto decoded = [&] {
            return g_utf8_to_ucs4(text.utf8.data(), glong(text.utf8.size()), nullptr, nullptr,
                                  nullptr);
        };
        gunichar* const first = decoded();
        const bool right = std::equal(text.utf32.begin(), text.utf32.end(), first,
                                      [](wchar_t a, gunichar b) { return gunichar(a) == b; });
        g_free(first);
        bench::runBytes(state, text.utf8.size(), right, [&] { g_free(decoded()); });
    });
#endif
#if BENCH_UTFCPP
    row.peer("utfcpp", [=](State& state) {
        const auto decoded = [&] {
            std::wstring out;
            utf8::utf8to32(text.utf8.begin(), text.utf8.end(), std::back_inserter(out));
            return out;
        };
        bench::runBytes(state, text.utf8.size(), decoded() == text.utf32,
                        [&] { keep(decoded().data()); });
    });
#endif
}

void addEncodersToBuffer(Row& row, const Text& text)
{
    row.peer("wcsrtombs", [=](State& state) { encodeByLibc(state, text); });
    row.peer("iconv", [=](State& state) {
        convertByIconv(state, text, "WCHAR_T", "UTF-8", text.utf32, text.utf8);
    });
#if BENCH_UTFCPP
    row.peer("utfcpp, unchecked", [=](State& state) {
        std::string out(text.utf8.size(), 0);
        intoBuffer(state, text, text.utf8, out, [&] {
            return std::size_t(utf8::unchecked::utf32to8(text.utf32.data(),
                                                         text.utf32.data() + text.utf32.size(),
                                                         out.data()) -
                               out.data());
        });
    });
#endif
}

void addEncode(const char* operation, const Text& text)
{
    Row row("unicode", operation, {1.0, kPeers});
    row.ours([=](State& state) {
        const auto source = bench::wide(text.utf32);
        bench::runBytes(state, text.utf8.size(), toUTF8(source) == text.utf8.c_str(),
                        [&] { keep(toUTF8(source).c_str()); });
    });
    addEncodersToBuffer(row, text);
    row.peer("codecvt", [=](State& state) {
        std::wstring_convert<std::codecvt_utf8<wchar_t>> convert;
        bench::runBytes(state, text.utf8.size(), convert.to_bytes(text.utf32) == text.utf8,
                        [&] { keep(convert.to_bytes(text.utf32).data()); });
    });
#if BENCH_QT
    row.peer("QString from UCS-4", [=](State& state) {
        const auto encoded = [&] {
            return QString::fromUcs4(reinterpret_cast<const char32_t*>(text.utf32.data()),
                                     qsizetype(text.utf32.size()))
                .toUtf8();
        };
        bench::runBytes(state, text.utf8.size(), encoded() == text.utf8.c_str(),
                        [&] { keep(encoded().constData()); });
    });
    row.peer("QString, from UTF-16", [=](State& state) {
        const QString source = QString::fromStdWString(text.utf32);
        bench::runBytes(state, text.utf8.size(), source.toUtf8() == text.utf8.c_str(),
                        [&] { keep(source.toUtf8().constData()); });
    });
#endif
#if BENCH_GLIB
    row.peer("g_ucs4_to_utf8", [=](State& state) {
        const auto encoded = [&] {
            return g_ucs4_to_utf8(reinterpret_cast<const gunichar*>(text.utf32.data()),
                                  glong(text.utf32.size()), nullptr, nullptr, nullptr);
        };
        char* const first = encoded();
        const bool right = text.utf8 == first;
        g_free(first);
        bench::runBytes(state, text.utf8.size(), right, [&] { g_free(encoded()); });
    });
#endif
#if BENCH_UTFCPP
    row.peer("utfcpp", [=](State& state) {
        const auto encoded = [&] {
            std::string out;
            utf8::utf32to8(text.utf32.begin(), text.utf32.end(), std::back_inserter(out));
            return out;
        };
        bench::runBytes(state, text.utf8.size(), encoded() == text.utf8,
                        [&] { keep(encoded().data()); });
    });
#endif
}

} // namespace

void bench::addUnicode()
{
    addDecode("UTF-8 to UTF-32, ascii", ascii());
    addDecode("UTF-8 to UTF-32, European", european());
    addDecode("UTF-8 to UTF-32, ideographs", cjk());
    addEncode("UTF-32 to UTF-8, ascii", ascii());
    addEncode("UTF-32 to UTF-8, European", european());
    addEncode("UTF-32 to UTF-8, ideographs", cjk());
}
