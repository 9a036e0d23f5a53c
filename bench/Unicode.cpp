// UTF-8 to UTF-32 and back, 64 KiB of UTF-8 each. QString is shown but does not count as a peer,
// since its UTF-16 takes half the bytes.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxStringUtils.h>
#include <codecvt>
#include <locale>

#if BENCH_QT
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

#if BENCH_ICU
void decodeByIcu(State& state, const Text& text)
{
    std::wstring out(text.utf8.size(), 0);
    std::u16string middle(text.utf8.size(), 0);
    const auto decode = [&] {
        UErrorCode error = U_ZERO_ERROR;
        int32_t units = 0;
        int32_t count = 0;
        u_strFromUTF8(middle.data(), int32_t(middle.size()), &units, text.utf8.data(),
                      int32_t(text.utf8.size()), &error);
        u_strToUTF32(reinterpret_cast<UChar32*>(out.data()), int32_t(out.size()), &count,
                     middle.data(), units, &error);
        return static_cast<std::size_t>(count);
    };
    const bool right = out.substr(0, decode()).size() == text.utf32.size() &&
                       out.compare(0, text.utf32.size(), text.utf32) == 0;
    bench::runBytes(state, text.utf8.size(), right, [&] { keep(decode()); });
}
#endif

void addDecode(const char* operation, double goal, const Text& text)
{
    Row row("unicode", operation, {goal, "codecvt|g_utf8_to_ucs4|g_ucs4_to_utf8|ICU|utfcpp"});
    row.ours([=](State& state) {
        const auto source = bench::narrow(text.utf8);
        bench::runBytes(state, text.utf8.size(), fromUTF8(source) == text.utf32.c_str(),
                        [&] { keep(fromUTF8(source).c_str()); });
    });
    row.peer("codecvt", [=](State& state) {
        std::wstring_convert<std::codecvt_utf8<wchar_t>> convert;
        bench::runBytes(state, text.utf8.size(), convert.from_bytes(text.utf8) == text.utf32,
                        [&] { keep(convert.from_bytes(text.utf8).data()); });
    });
#if BENCH_QT
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
#if BENCH_ICU
    row.peer("ICU", [=](State& state) { decodeByIcu(state, text); });
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

void addEncode(const char* operation, double goal, const Text& text)
{
    Row row("unicode", operation, {goal, "codecvt|g_utf8_to_ucs4|g_ucs4_to_utf8|ICU|utfcpp"});
    row.ours([=](State& state) {
        const auto source = bench::wide(text.utf32);
        bench::runBytes(state, text.utf8.size(), toUTF8(source) == text.utf8.c_str(),
                        [&] { keep(toUTF8(source).c_str()); });
    });
    row.peer("codecvt", [=](State& state) {
        std::wstring_convert<std::codecvt_utf8<wchar_t>> convert;
        bench::runBytes(state, text.utf8.size(), convert.to_bytes(text.utf32) == text.utf8,
                        [&] { keep(convert.to_bytes(text.utf32).data()); });
    });
#if BENCH_QT
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
    addDecode("UTF-8 to UTF-32, ascii", 0.38, ascii());
    addDecode("UTF-8 to UTF-32, European", 0.8, european());
    addDecode("UTF-8 to UTF-32, ideographs", 0.8, cjk());
    addEncode("UTF-32 to UTF-8, ascii", 0.21, ascii());
    addEncode("UTF-32 to UTF-8, European", 0.6, european());
    addEncode("UTF-32 to UTF-8, ideographs", 0.73, cjk());
}
