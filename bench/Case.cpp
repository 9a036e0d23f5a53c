// Case conversion and case-insensitive replacement.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxStringUtils.h>
#include <cwctype>
#include <locale>
#include <vector>

#if BENCH_QT
#include <QString>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_ICU
#include <unicode/ustring.h>
#endif
#if BENCH_BOOST
#include <boost/algorithm/string/replace.hpp>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::State;

// Upper- and lower-case letters of three alphabets, with blanks.
std::wstring manyAlphabets(std::size_t length)
{
    std::wstring text = bench::widened(bench::letters(length));
    bench::Numbers numbers(5);
    for (wchar_t& c : text)
        if (c != L' ')
            switch (numbers.below(3)) {
            case 0:
                c = static_cast<wchar_t>(0x391 + numbers.below(17)); // Greek
                break;
            case 1:
                c = static_cast<wchar_t>(0x410 + numbers.below(64)); // Cyrillic
                break;
            default: break;
            }
    return text;
}

std::wstring lowered(std::wstring text)
{
    for (wchar_t& c : text)
        c = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(c)));
    return text;
}

// Each round copies the source first, so that there is something to lower.
template <class Lower> void lowerInPlace(State& state, const std::wstring& source, Lower lower)
{
    std::wstring text = source;
    lower(text.data(), text.size());
    bench::run(state, text == lowered(source), [&] {
        std::wmemcpy(text.data(), source.data(), source.size());
        lower(text.data(), text.size());
        keep(text.data());
    });
}

void lowerOurs(State& state, const std::wstring& source)
{
    LightweightString<wchar_t> text = bench::wide(source);
    Vx::toLower(text);
    bench::run(state, std::wstring(text.c_str()) == lowered(source), [&] {
        std::wmemcpy(text.mutableChars(), source.data(), source.size());
        Vx::toLower(text);
        keep(text.c_str());
    });
}

void addLower(const std::string& operation, double goal, const std::wstring& source)
{
    Row row("case", operation, {goal});
    row.ours([=](State& state) { lowerOurs(state, source); });
    row.peer("towlower", [=](State& state) {
        lowerInPlace(state, source, [](wchar_t* chars, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i)
                chars[i] = static_cast<wchar_t>(std::towlower(static_cast<std::wint_t>(chars[i])));
        });
    });
    row.peer("std::ctype", [=](State& state) {
        const std::locale locale("C.UTF-8");
        const auto& facet = std::use_facet<std::ctype<wchar_t>>(locale);
        lowerInPlace(state, source, [&](wchar_t* chars, std::size_t count) {
            facet.tolower(chars, chars + count);
        });
    });
#if BENCH_QT
    row.peer("QString", [=](State& state) {
        const QString text = QString::fromStdWString(source);
        bench::run(state, text.toLower() == QString::fromStdWString(lowered(source)),
                   [&] { keep(text.toLower().constData()); });
    });
#endif
#if BENCH_ICU
    row.peer("ICU", [=](State& state) {
        const std::u16string text(source.begin(), source.end());
        std::u16string out(text.size(), 0);
        const auto lower = [&] {
            UErrorCode error = U_ZERO_ERROR;
            u_strToLower(out.data(), int(out.size()), text.data(), int(text.size()), "", &error);
        };
        lower();
        const std::wstring right = lowered(source);
        bench::run(state, out == std::u16string(right.begin(), right.end()), lower);
    });
#endif
}

// 10,000 characters that contain the word 200 times in varying case.
struct Page {
    std::wstring text;
    std::wstring replaced;
};

Page makePage()
{
    Page page;
    const std::wstring filler = lowered(bench::widened(bench::letters(45, 9)));
    for (int i = 0; i < 200; ++i) {
        page.text += filler + (i % 3 == 0 ? L"Video" : i % 3 == 1 ? L"VIDEO" : L"video");
        page.replaced += filler + L"picture";
    }
    return page;
}

void addReplace()
{
    Row row("case", "replace 200 hits in 10,000 characters, case-blind", {1.0});
    row.ours([page = makePage()](State& state) {
        const auto text = bench::wide(page.text);
        const LightweightString<wchar_t> pattern(L"viDeo");
        const LightweightString<wchar_t> replacement(L"picture");
        const auto replaced = [&] {
            return Vx::substituteCaseInsensitive(text, pattern, replacement);
        };
        bench::run(state, replaced() == page.replaced.c_str(), [&] { keep(replaced().c_str()); });
    });
#if BENCH_GLIB
    row.peer("GRegex", [page = makePage()](State& state) {
        const std::string text(page.text.begin(), page.text.end());
        GRegex* const pattern =
            g_regex_new("viDeo", GRegexCompileFlags(G_REGEX_CASELESS | G_REGEX_OPTIMIZE),
                        GRegexMatchFlags(0), nullptr);
        const auto replaced = [&] {
            return g_regex_replace_literal(pattern, text.data(), gssize(text.size()), 0, "picture",
                                           GRegexMatchFlags(0), nullptr);
        };
        char* const first = replaced();
        const bool right = first == std::string(page.replaced.begin(), page.replaced.end());
        g_free(first);
        bench::run(state, right, [&] { g_free(replaced()); });
        g_regex_unref(pattern);
    });
#endif
#if BENCH_QT
    row.peer("QString", [page = makePage()](State& state) {
        const QString text = QString::fromStdWString(page.text);
        const QString replacement = QStringLiteral("picture");
        const auto replaced = [&] {
            return QString(text).replace(QStringLiteral("viDeo"), replacement, Qt::CaseInsensitive);
        };
        bench::run(state, replaced() == QString::fromStdWString(page.replaced),
                   [&] { keep(replaced().constData()); });
    });
#endif
#if BENCH_BOOST
    row.peer("boost::ireplace_all", [page = makePage()](State& state) {
        const std::wstring pattern = L"viDeo";
        const std::wstring replacement = L"picture";
        const auto replaced = [&] {
            return boost::ireplace_all_copy(page.text, pattern, replacement);
        };
        bench::run(state, replaced() == page.replaced, [&] { keep(replaced().data()); });
    });
#endif
}

} // namespace

void bench::addCase()
{
    addLower("lower 64 wide characters", 0.5, widened(letters(64)));
    addLower("lower 4096 wide characters", 0.2, widened(letters(4096)));
    addLower("lower 4096 wide characters of three alphabets", 0.2, manyAlphabets(4096));
    addReplace();
}
