// Every way from text to numbers and back, against libc.
#include "Fuzz.h"

#include <Vx/VxStringNumbers.h>
#include <bit>
#include <cfenv>
#include <cstdlib>
#include <cwchar>

namespace {

bool sameBits(double a, double b)
{
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

void parse(const std::string& text, long def)
{
    const LightweightString<char> string = ours(text);
    const bool empty = text.empty();
    int i = static_cast<int>(def);
    if (empty || std::sscanf(text.c_str(), "%d", &i) != 1)
        i = static_cast<int>(def);
    FUZZ_CLAIM(Vx::IntFromString(string, static_cast<int>(def)) == i);
    unsigned int u = static_cast<unsigned int>(def);
    if (empty || std::sscanf(text.c_str(), "%u", &u) != 1)
        u = static_cast<unsigned int>(def);
    FUZZ_CLAIM(Vx::UIntFromString(string, static_cast<unsigned int>(def)) == u);
    const long l = empty ? def : std::strtoll(text.c_str(), nullptr, 10);
    FUZZ_CLAIM(Vx::Int64FromString(string, def) == l);
    const double otherwise = static_cast<double>(def);
    double d = otherwise;
    if (empty || std::sscanf(text.c_str(), "%lf", &d) != 1)
        d = otherwise;
    FUZZ_CLAIM(sameBits(Vx::FloatFromString(string, otherwise), d));
    FUZZ_CLAIM(sameBits(Vx::asDouble(string), empty ? 0.0 : std::strtod(text.c_str(), nullptr)));
}

void parse(const std::wstring& text, long def)
{
    const LightweightString<wchar_t> string = ours(text);
    const bool empty = text.empty();
    int i = static_cast<int>(def);
    if (empty || std::swscanf(text.c_str(), L"%d", &i) != 1)
        i = static_cast<int>(def);
    FUZZ_CLAIM(Vx::IntFromWString(string, static_cast<int>(def)) == i);
    unsigned int u = static_cast<unsigned int>(def);
    if (empty || std::swscanf(text.c_str(), L"%u", &u) != 1)
        u = static_cast<unsigned int>(def);
    FUZZ_CLAIM(Vx::UIntFromWString(string, static_cast<unsigned int>(def)) == u);
    const long l = empty ? def : std::wcstoll(text.c_str(), nullptr, 10);
    FUZZ_CLAIM(Vx::Int64FromWString(string, def) == l);
    const double otherwise = static_cast<double>(def);
    double d = otherwise;
    if (empty || std::swscanf(text.c_str(), L"%lf", &d) != 1)
        d = otherwise;
    FUZZ_CLAIM(sameBits(Vx::FloatFromWString(string, otherwise), d));
}

void print(double value, char precision, bool trim)
{
    char buffer[512];
    std::snprintf(buffer, 127, "%f", value);
    FUZZ_CLAIM(plain(Vx::StringFromFloat(value)) == buffer);
    LightweightString<char> text("x=");
    text += value;
    FUZZ_CLAIM(plain(text) == std::string("x=") + buffer);

    std::snprintf(buffer, 256, "%.*lf", precision > 9 ? 9 : precision < 0 ? 0 : precision, value);
    std::string expected = buffer;
    if (trim && expected.find_last_not_of('0') != std::string::npos)
        expected.resize(expected.find_last_not_of('0') + 1);
    if (!expected.empty() && expected.back() == '.')
        expected.pop_back();
    FUZZ_CLAIM(plain(Vx::WStringFromFloat(value, precision, trim)) ==
               std::wstring(expected.begin(), expected.end()));
}

void print(long value)
{
    LightweightString<char> text("x=");
    text += static_cast<int>(value);
    text += static_cast<unsigned int>(value);
    FUZZ_CLAIM(plain(text) == "x=" + std::to_string(static_cast<int>(value)) +
                                  std::to_string(static_cast<unsigned int>(value)));
    FUZZ_CLAIM(plain(Vx::StringFromInteger(static_cast<int>(value))) ==
               std::to_string(static_cast<int>(value)));
    FUZZ_CLAIM(plain(Vx::WStringFromInteger(value)) == std::to_wstring(value));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr int kRounding[] = {FE_TONEAREST, FE_DOWNWARD, FE_UPWARD, FE_TOWARDZERO};
    Input input(data, size);
    const unsigned int choice = input.take<std::uint8_t>();
    const char precision = input.take<char>();
    const long number = input.take<long>();
    std::fesetround(kRounding[choice & 3]);
    print(std::bit_cast<double>(number), precision, (choice & 4) != 0);
    print(static_cast<double>(number) / 1024, precision, (choice & 4) != 0);
    print(number);
    Input same = input;
    parse(same.rest(), number);
    parse(input.wideRest((choice & 8) != 0), number);
    std::fesetround(FE_TONEAREST);
    return 0;
}
