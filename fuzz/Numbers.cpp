// Numbers from strings and strings from numbers in both widths, compared with libc.
#include "Fuzz.h"

#include <Reference.h>
#include <Rounding.h>
#include <Vx/VxStringNumbers.h>
#include <cstring>

namespace {

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

void parse(const std::string& text, long def)
{
    const LightweightString<char> string = ours(text);
    const int i = static_cast<int>(def);
    FUZZ_CLAIM(Vx::IntFromString(string, i) == reference::number(text, i));
    const unsigned int u = static_cast<unsigned int>(def);
    FUZZ_CLAIM(Vx::UIntFromString(string, u) == reference::number(text, u));
    FUZZ_CLAIM(Vx::Int64FromString(string, def) == reference::number(text, def));
    const double d = static_cast<double>(def);
    FUZZ_CLAIM(sameBits(Vx::FloatFromString(string, d), reference::number(text, d)));
    FUZZ_CLAIM(sameBits(Vx::asDouble(string), std::strtod(text.c_str(), nullptr)));
}

void parse(const std::wstring& text, long def)
{
    const LightweightString<wchar_t> string = ours(text);
    const int i = static_cast<int>(def);
    FUZZ_CLAIM(Vx::IntFromWString(string, i) == reference::number(text, i));
    const unsigned int u = static_cast<unsigned int>(def);
    FUZZ_CLAIM(Vx::UIntFromWString(string, u) == reference::number(text, u));
    FUZZ_CLAIM(Vx::Int64FromWString(string, def) == reference::number(text, def));
    const double d = static_cast<double>(def);
    FUZZ_CLAIM(sameBits(Vx::FloatFromWString(string, d), reference::number(text, d)));
}

void print(double value, char precision, bool trim)
{
    const std::string expected = reference::fromFloat(value);
    FUZZ_CLAIM(plain(Vx::StringFromFloat(value)) == expected);
    LightweightString<char> text("x=");
    text += value;
    FUZZ_CLAIM(plain(text) == "x=" + expected);
    FUZZ_CLAIM(plain(Vx::WStringFromFloat(value, precision, trim)) ==
               reference::wideFromFloat(value, precision, trim));
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
    Input input(data, size);
    const unsigned int choice = input.take<std::uint8_t>();
    const char precision = input.take<char>();
    const long number = input.take<long>();
    setRounding(kRoundingModes[choice & 3], kRoundingModes[choice >> 4 & 3]);
    double anyBits;
    std::memcpy(&anyBits, &number, sizeof anyBits);
    print(anyBits, precision, (choice & 4) != 0);
    print(static_cast<double>(number) / 1024, precision, (choice & 4) != 0);
    print(number);
    Input same = input;
    parse(same.rest(), number);
    parse(input.wideRest((choice & 8) != 0), number);
    setRounding(FE_TONEAREST, FE_TONEAREST);
    return 0;
}
