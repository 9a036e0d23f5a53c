// Parsing and formatting numbers.
#include "Floors.h"
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxStringNumbers.h>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <vector>

#if BENCH_QT
#include <QByteArray>
#endif
#if BENCH_ABSL
#include <absl/strings/numbers.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::State;

constexpr std::size_t kInputs = 64; // a power of two, for a cheap round robin

// Strings and the numbers they represent.
template <class Number> struct Inputs {
    std::vector<std::string> texts;
    std::vector<Number> numbers;
};

Inputs<int> integers(const char* before, const char* after)
{
    Inputs<int> inputs;
    bench::Numbers random(11);
    for (std::size_t i = 0; i < kInputs; ++i) {
        const int number = 100000000 + static_cast<int>(random.below(900000000));
        inputs.numbers.push_back(*before != 0 ? -number : number);
        inputs.texts.push_back(before + std::to_string(number) + after);
    }
    return inputs;
}

Inputs<double> doubles()
{
    Inputs<double> inputs;
    bench::Numbers random(12);
    for (std::size_t i = 0; i < kInputs; ++i) {
        const double number = random.below(1000000000) / 1e6 + random.below(100);
        char text[64];
        std::snprintf(text, sizeof text, "%.6f", number);
        inputs.numbers.push_back(std::strtod(text, nullptr));
        inputs.texts.push_back(text);
    }
    return inputs;
}

// Parses the inputs in turn, each as a String.
template <class String, class Number, class Read>
void readInTurn(State& state, const Inputs<Number>& inputs, Read read)
{
    std::vector<String> texts;
    for (const std::string& text : inputs.texts)
        texts.push_back(String(text.c_str()));
    bool right = true;
    for (std::size_t i = 0; i < kInputs; ++i)
        right = right && read(texts[i]) == inputs.numbers[i];
    std::size_t i = 0;
    bench::run(state, right, [&] { keep(read(texts[i++ % kInputs])); });
}

template <class Number> Number byFromChars(const std::string& text)
{
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end && *at == ' ')
        ++at;
    Number number{};
    std::from_chars(at, end, number);
    return number;
}

template <class Number> void addIntegerRow(const char* operation, const Inputs<Number>& inputs)
{
    Row row("numbers", operation, {1.5, "from_chars"});
    row.ours([=](State& state) {
        readInTurn<LightweightString<char>>(state, inputs, [](const LightweightString<char>& text) {
            return Vx::IntFromString(text, 0);
        });
    });
    row.peer("from_chars",
             [=](State& state) { readInTurn<std::string>(state, inputs, byFromChars<int>); });
    row.peer("strtol", [=](State& state) {
        readInTurn<std::string>(state, inputs, [](const std::string& text) {
            return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
        });
    });
    row.peer("sscanf", [=](State& state) {
        readInTurn<std::string>(state, inputs, [](const std::string& text) {
            int number = 0;
            return std::sscanf(text.c_str(), "%d", &number) == 1 ? number : 0;
        });
    });
}

// Formats the inputs in turn.
template <class Number, class Write>
void writeInTurn(State& state, const Inputs<Number>& inputs, Write write)
{
    bool right = true;
    for (std::size_t i = 0; i < kInputs; ++i)
        right = right && write(inputs.numbers[i]) == std::string_view(inputs.texts[i]);
    std::size_t i = 0;
    bench::run(state, right, [&] { keep(write(inputs.numbers[i++ % kInputs]).size()); });
}

// Appends to one character in a string with enough capacity; returns what was appended.
template <class Number> class Appender {
public:
    std::string_view operator()(Number number)
    {
        text_.resizeFor(1);
        text_ += number;
        return std::string_view(text_).substr(1);
    }

private:
    LightweightString<char> text_ = "a string with enough capacity for any formatted number";
};

template <class Number> std::string_view byToChars(Number number)
{
    static char buffer[64];
    const auto end = [&] {
        if constexpr (std::is_integral_v<Number>)
            return std::to_chars(std::begin(buffer), std::end(buffer), number).ptr;
        else
            return std::to_chars(std::begin(buffer), std::end(buffer), number,
                                 std::chars_format::fixed, 6)
                .ptr;
    }();
    return {buffer, static_cast<std::size_t>(end - buffer)};
}

template <class Number> std::string_view bySnprintf(Number number)
{
    static char buffer[64];
    const int length =
        std::snprintf(buffer, sizeof buffer, std::is_integral_v<Number> ? "%d" : "%f", number);
    return {buffer, static_cast<std::size_t>(length)};
}

// As Appender, for a std::string and what \p format returns.
template <class Format> auto appended(Format format)
{
    return [format, text = std::string(64, ' ')](auto number) mutable {
        text.resize(1);
        return std::string_view(text.append(format(number))).substr(1);
    };
}

void addFormatting(const Inputs<int>& ints, const Inputs<double>& reals)
{
    // Nine digits fit into a std::string itself; the peer in the goal allocates a block, as Vx must.
    Row intNew("numbers", "format int, a new string", {1.25, "to_chars, std::string with a block"});
    intNew.ours([=](State& state) { writeInTurn(state, ints, Vx::StringFromInteger); });
    intNew.floor("one block", bench::blocks(1, bench::blockSize(Vx::StringFromInteger(123456789))));
    intNew.peer("to_string", [=](State& state) {
        writeInTurn(state, ints, [](int n) { return std::to_string(n); });
    });
    intNew.peer("to_chars, std::string", [=](State& state) {
        writeInTurn(state, ints, [](int n) { return std::string(byToChars(n)); });
    });
    intNew.peer("to_chars, std::string with a block", [=](State& state) {
        writeInTurn(state, ints, [](int n) {
            std::string text;
            text.reserve(16);
            text.append(byToChars(n));
            return text;
        });
    });

    Row intAppend("numbers", "format int, appended", {1.25});
    intAppend.ours([=](State& state) { writeInTurn(state, ints, Appender<int>()); });
    intAppend.peer("to_chars", [=](State& state) {
        writeInTurn(state, ints, appended([](int n) { return byToChars(n); }));
    });
    intAppend.peer("to_string", [=](State& state) {
        writeInTurn(state, ints, appended([](int n) { return std::to_string(n); }));
    });
    intAppend.peer("snprintf", [=](State& state) {
        writeInTurn(state, ints, appended([](int n) { return bySnprintf(n); }));
    });

    Row realNew("numbers", "format double, 6 decimals, a new string", {1.25});
    realNew.ours([=](State& state) { writeInTurn(state, reals, Vx::StringFromFloat); });
    realNew.peer("to_string", [=](State& state) {
        writeInTurn(state, reals, [](double n) { return std::to_string(n); });
    });
    realNew.peer("to_chars, std::string", [=](State& state) {
        writeInTurn(state, reals, [](double n) { return std::string(byToChars(n)); });
    });

    Row realAppend("numbers", "format double, 6 decimals, appended", {1.25});
    realAppend.ours([=](State& state) { writeInTurn(state, reals, Appender<double>()); });
    realAppend.peer("to_chars", [=](State& state) {
        writeInTurn(state, reals, appended([](double n) { return byToChars(n); }));
    });
    realAppend.peer("snprintf", [=](State& state) {
        writeInTurn(state, reals, appended([](double n) { return bySnprintf(n); }));
    });
#if BENCH_QT
    realNew.peer("QByteArray", [=](State& state) {
        writeInTurn(state, reals,
                    [](double n) { return QByteArray::number(n, 'f', 6).toStdString(); });
    });
#endif
}

} // namespace

void bench::addNumbers()
{
    const Inputs<int> plain = integers("", "");
    const Inputs<int> dressed = integers("  -", "xyz");
    const Inputs<double> reals = doubles();
    addIntegerRow("parse int, 9 digits", plain);
    addIntegerRow("parse int, blanks, sign, 9 digits, tail", dressed);

    Row real("numbers", "parse double", {1.5, "from_chars"});
    real.ours([=](State& state) {
        readInTurn<LightweightString<char>>(state, reals, [](const LightweightString<char>& text) {
            return Vx::FloatFromString(text, 0);
        });
    });
    real.peer("from_chars",
              [=](State& state) { readInTurn<std::string>(state, reals, byFromChars<double>); });
    real.peer("strtod", [=](State& state) {
        readInTurn<std::string>(state, reals, [](const std::string& text) {
            return std::strtod(text.c_str(), nullptr);
        });
    });
    real.peer("sscanf", [=](State& state) {
        readInTurn<std::string>(state, reals, [](const std::string& text) {
            double number = 0;
            return std::sscanf(text.c_str(), "%lf", &number) == 1 ? number : 0;
        });
    });
#if BENCH_QT
    real.peer("QByteArray", [=](State& state) {
        readInTurn<QByteArray>(state, reals,
                               [](const QByteArray& text) { return text.toDouble(); });
    });
#endif
#if BENCH_ABSL
    real.peer("absl::SimpleAtod", [=](State& state) {
        readInTurn<std::string>(state, reals, [](const std::string& text) {
            double number = 0;
            return absl::SimpleAtod(text, &number) ? number : 0;
        });
    });
#endif
    addFormatting(plain, reals);
}
