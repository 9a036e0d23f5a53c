// The string type: copies, appends, comparisons.
#include "Floors.h"
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxStringNumbers.h>
#include <charconv>
#include <map>
#include <utility>
#include <vector>

#if BENCH_QT
#include <QByteArray>
#include <QString>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_ABSL
#include <absl/strings/str_cat.h>
#endif

namespace {

using Ours = LightweightString<char>;
using bench::keep;
using bench::Row;
using bench::run;
using bench::State;

const std::string text64 = bench::letters(64);
constexpr const char* kLeast = "the least string that shares its block";
constexpr const char* kText16 = "sixteen letters.";

template <class String> String make(std::string_view text)
{
    return String(text.data(), static_cast<unsigned int>(text.size()));
}
template <class String> const void* chars(const String& text) { return text.c_str(); }
template <class String> bool isText(const String& text, std::string_view expected)
{
    return std::string_view(text.data(), text.size()) == expected;
}
#if BENCH_QT
template <> QString make<QString>(std::string_view text)
{
    return QString::fromLatin1(text.data(), qsizetype(text.size()));
}
template <> const void* chars(const QString& text) { return text.constData(); }
template <> const void* chars(const QByteArray& text) { return text.constData(); }
template <> bool isText(const QString& text, std::string_view expected)
{
    return text == make<QString>(expected);
}
template <> bool isText(const QByteArray& text, std::string_view expected)
{
    return std::string_view(text.constData(), std::size_t(text.size())) == expected;
}
#endif

template <class String> void copyAndDrop(State& state)
{
    const String source = make<String>(text64);
    run(state, isText(String(source), text64), [&] {
        const String copy(source);
        keep(chars(copy));
    });
}

template <class String> void makeAndDrop(State& state)
{
    run(state, isText(make<String>(text64), text64), [] {
        const String made = make<String>(text64);
        keep(chars(made));
    });
}

template <class String> String appendOnes()
{
    String text;
    for (int i = 0; i < 1000; ++i)
        text += static_cast<char>('a' + (i & 15));
    return text;
}
#if BENCH_QT
template <> QString appendOnes<QString>()
{
    QString text;
    for (int i = 0; i < 1000; ++i)
        text += QLatin1Char(static_cast<char>('a' + (i & 15)));
    return text;
}
#endif

std::string thousandOnes() { return appendOnes<std::string>(); }

template <class String> void appendOne1000(State& state)
{
    run(state, isText(appendOnes<String>(), thousandOnes()),
        [] { keep(chars(appendOnes<String>())); });
}

template <class String> String appendSixteens()
{
    String text;
    for (int i = 0; i < 1000; ++i)
        text.append(kText16, 16);
    return text;
}
#if BENCH_QT
template <> QString appendSixteens<QString>()
{
    QString text;
    for (int i = 0; i < 1000; ++i)
        text.append(QLatin1StringView(kText16, 16));
    return text;
}
#endif

template <class String> void append16x1000(State& state)
{
    run(state, isText(appendSixteens<String>(), appendSixteens<std::string>()),
        [] { keep(chars(appendSixteens<String>())); });
}

constexpr const char* kLiteral = "/project/media/";

template <class String> void literalPlusString(State& state)
{
    const String name = make<String>("clip-0001.mov in the bin");
    run(state, isText(String(kLiteral + name), "/project/media/clip-0001.mov in the bin"), [&] {
        const String joined(kLiteral + name);
        keep(chars(joined));
    });
}
#if BENCH_QT
template <> void literalPlusString<QString>(State& state)
{
    const QString name = make<QString>("clip-0001.mov in the bin");
    run(state,
        isText(QLatin1StringView(kLiteral) + name, "/project/media/clip-0001.mov in the bin"), [&] {
            const QString joined(QLatin1StringView(kLiteral) + name);
            keep(chars(joined));
        });
}
#endif

template <class String> void equalApart(State& state)
{
    const String a = make<String>(text64);
    const String b = make<String>(text64);
    run(state, a == b && !(a == make<String>(bench::letters(64, 2))), [&] {
        benchmark::ClobberMemory();
        keep(a == b);
    });
}

template <class String> void equalShared(State& state)
{
    const String a = make<String>(bench::letters(4096));
    const String b = a;
    run(state, a == b, [&] {
        benchmark::ClobberMemory();
        keep(a == b);
    });
}

template <class String> void copyThenAppend(State& state)
{
    const String source = make<String>("a clip of 29 characters, here");
    String expected(source);
    expected += 'x';
    run(state, isText(expected, "a clip of 29 characters, herex"), [&] {
        String copy(source);
        copy += 'x';
        keep(chars(copy));
    });
}
#if BENCH_QT
template <> void copyThenAppend<QString>(State& state)
{
    const QString source = make<QString>("a clip of 29 characters, here");
    run(state, isText(source + QLatin1Char('x'), "a clip of 29 characters, herex"), [&] {
        QString copy(source);
        copy += QLatin1Char('x');
        keep(chars(copy));
    });
}
#endif

// Two strings that differ in the last character.
template <class String> void lessWide(State& state, std::size_t length)
{
    std::wstring text = bench::widened(bench::letters(length));
    text.back() = L'a';
    const String a(text.c_str());
    text.back() = L'b';
    const String b(text.c_str());
    run(state, a < b && !(b < a), [&] {
        benchmark::ClobberMemory();
        keep(a < b);
    });
}

// 1,000 paths of clips in a project, looked up in random order.
template <class String> void findPath(State& state)
{
    constexpr std::uint32_t kPaths = 1000;
    std::map<String, int> map;
    std::vector<String> paths;
    for (std::uint32_t i = 0; i < kPaths; ++i) {
        const std::wstring path = L"/projects/documentary/media/reel " + std::to_wstring(i % 20) +
                                  L"/clip " + std::to_wstring(10000 + i) + L".mov";
        paths.push_back(String(path.c_str()));
        map.emplace(paths.back(), int(i));
    }
    bench::Numbers numbers(8);
    std::vector<std::uint32_t> order(4096);
    for (std::uint32_t& index : order)
        index = numbers.below(kPaths);
    bool right = map.size() == kPaths;
    for (std::uint32_t i = 0; right && i < kPaths; ++i)
        right = map.find(paths[i])->second == int(i);
    std::size_t at = 0;
    run(state, right, [&] { keep(map.find(paths[order[at++ & 4095]])->second); });
}

void addNumber(std::string& line, int number)
{
    char digits[16];
    line.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}
void addNumber(bench::LeastString<char>& line, int number)
{
    char digits[16];
    char* const end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    line.append(digits, static_cast<unsigned int>(end - digits));
}
void addNumber(Ours& line, int number) { line += number; }
#if BENCH_QT
void addNumber(QByteArray& line, int number) { line += QByteArray::number(number); }
#endif

constexpr unsigned int kKept = 6; // the characters of "frame "
void shorten(std::string& line) { line.resize(kKept); }
void shorten(Ours& line) { line.resizeFor(kKept); }
#if BENCH_QT
void shorten(QByteArray& line) { line.resize(kKept); }
#endif

// Appends to "frame ".
template <class String> void finishLine(String& line, int frame)
{
    addNumber(line, frame);
    line += " of reel ";
    addNumber(line, frame % 24);
    line += ": decoded in ";
    addNumber(line, frame * 7 % 1000);
    line += " us";
}

template <class String> String logLine(int frame)
{
    String line;
    line += "frame ";
    finishLine(line, frame);
    return line;
}

template <class String> void logLines(State& state)
{
    run(state, isText(logLine<String>(9999), "frame 9999 of reel 15: decoded in 993 us"), [] {
        for (int frame = 0; frame < 10000; ++frame)
            keep(chars(logLine<String>(frame)));
    });
}

// A host that writes many lines keeps one string and its block.
template <class String> void logLinesInOneString(State& state)
{
    String line = logLine<String>(0);
    const auto rewrite = [&](int frame) -> const String& {
        shorten(line);
        finishLine(line, frame);
        return line;
    };
    run(state, isText(rewrite(9999), "frame 9999 of reel 15: decoded in 993 us"), [&] {
        for (int frame = 0; frame < 10000; ++frame)
            keep(chars(rewrite(frame)));
    });
}

#if BENCH_GLIB
void gstringOnes(State& state)
{
    const auto build = [] {
        GString* const text = g_string_new(nullptr);
        for (int i = 0; i < 1000; ++i)
            g_string_append_c(text, static_cast<char>('a' + (i & 15)));
        return text;
    };
    GString* const first = build();
    const bool right = first->str == thousandOnes();
    g_string_free(first, TRUE);
    run(state, right, [&] { g_string_free(build(), TRUE); });
}
#endif

// Work that hosts do often.
void addWork()
{
    for (const std::size_t length : {std::size_t{64}, std::size_t{256}}) {
        Row less("strings", "wide <, " + std::to_string(length) + " characters", {1.2});
        less.ours([=](State& state) { lessWide<LightweightString<wchar_t>>(state, length); });
        less.peer("std::wstring", [=](State& state) { lessWide<std::wstring>(state, length); });
    }

    Row paths("strings", "find in a std::map of 1,000 wide paths", {1.2});
    paths.ours(findPath<LightweightString<wchar_t>>).peer("std::wstring", findPath<std::wstring>);

    Row log("strings", "10,000 log lines built with +=", {1.5, "std::string, to_chars"});
    log.ours(logLines<Ours>).peer("std::string, to_chars", logLines<std::string>);
    log.floor(kLeast, logLines<bench::LeastString<char>>);

    Row one("strings", "10,000 log lines in one string", {1.25, "std::string, to_chars"});
    one.ours(logLinesInOneString<Ours>);
    one.peer("std::string, to_chars", logLinesInOneString<std::string>);

#if BENCH_QT
    log.peer("QByteArray", logLines<QByteArray>);
    one.peer("QByteArray", logLinesInOneString<QByteArray>);
#endif

    Row own("strings", "make and drop 64 characters in each of 16 threads");
    own.onThreads(16).ours(makeAndDrop<Ours>).peer("std::string", makeAndDrop<std::string>);
    own.peer("std::string, malloc", makeAndDrop<bench::MallocString>);
}

} // namespace

void bench::addStrings()
{
    Row copy("strings", "copy and drop, 64 characters", {1.0});
    copy.ours(copyAndDrop<Ours>).peer("std::string", copyAndDrop<std::string>);
    copy.peer("std::string, malloc", copyAndDrop<MallocString>);

    Row made("strings", "make and drop, 64 characters", {0.75, "QByteArray|QString"});
    made.ours(makeAndDrop<Ours>).peer("std::string", makeAndDrop<std::string>);
    made.peer("std::string, malloc", makeAndDrop<MallocString>);
    made.floor("one block", bench::blocks(1, bench::blockSize(make<Ours>(text64))));

    Row ones("strings", "append 1 character x 1000", {1.5, "std::string"});
    ones.ours(appendOne1000<Ours>).peer("std::string", appendOne1000<std::string>);
    ones.floor(kLeast, appendOne1000<bench::LeastString<char>>);

    Row sixteens("strings", "append 16 characters x 1000", {1.25, "std::string"});
    sixteens.ours(append16x1000<Ours>).peer("std::string", append16x1000<std::string>);

    Row literal("strings", "literal + string", {1.0});
    literal.ours(literalPlusString<Ours>).peer("std::string", literalPlusString<std::string>);
    literal.peer("std::string, malloc", literalPlusString<MallocString>);
    literal.floor(kLeast, literalPlusString<bench::LeastString<char>>);

    Row equal("strings", "equal, 64 characters", {1.0});
    equal.ours(equalApart<Ours>).peer("std::string", equalApart<std::string>);

    Row shared("strings", "equal, a shared block of 4096", {1.0});
    shared.ours(equalShared<Ours>).peer("std::string", equalShared<std::string>);

    Row cow("strings", "copy, then append to the shared copy", {1.1});
    cow.ours(copyThenAppend<Ours>).peer("std::string", copyThenAppend<std::string>);
    cow.peer("std::string, malloc", copyThenAppend<MallocString>);
    cow.floor(kLeast, copyThenAppend<bench::LeastString<char>>);

#if BENCH_QT
    copy.peer("QString", copyAndDrop<QString>).peer("QByteArray", copyAndDrop<QByteArray>);
    made.peer("QString", makeAndDrop<QString>).peer("QByteArray", makeAndDrop<QByteArray>);
    ones.peer("QString", appendOne1000<QString>).peer("QByteArray", appendOne1000<QByteArray>);
    sixteens.peer("QString", append16x1000<QString>);
    sixteens.peer("QByteArray", append16x1000<QByteArray>);
    literal.peer("QString", literalPlusString<QString>);
    equal.peer("QString", equalApart<QString>).peer("QByteArray", equalApart<QByteArray>);
    shared.peer("QString", equalShared<QString>);
    cow.peer("QString", copyThenAppend<QString>);
#endif
#if BENCH_GLIB
    ones.peer("GString", gstringOnes);
#endif
#if BENCH_ABSL
    literal.peer("absl::StrCat", [](State& state) {
        const std::string name = "clip-0001.mov in the bin";
        run(state, absl::StrCat(kLiteral, name) == kLiteral + name, [&] {
            const std::string joined = absl::StrCat(kLiteral, name);
            keep(joined.c_str());
        });
    });
#endif
    addWork();
}
