#include <Vx/VxStringNumbers.h>

#include <Vx/VxStringUtils.h>
#include <Vx/detail/FixedDecimals.h>
#include <Vx/detail/NumberReader.h>
#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <mutex>
#include <string_view>

using Vx::detail::readDouble;
using Vx::detail::readInteger;

namespace {

int scan(const char* chars, const char* format, void* to) { return std::sscanf(chars, format, to); }
int scan(const wchar_t* chars, const wchar_t* format, void* to)
{
    return std::swscanf(chars, format, to);
}

// The scanning functions take a hundred nanoseconds, so they only see unusual numbers.
template <class Number, class Ch>
Number integerOr(Number def, const LightweightString<Ch>& text, const Ch* format)
{
    if (const auto number = readInteger(text.c_str()))
        return static_cast<Number>(*number);
    Number scanned = def;
    return !text.empty() && scan(text.c_str(), format, &scanned) == 1 ? scanned : def;
}

template <class Ch> double doubleOr(double def, const LightweightString<Ch>& text, const Ch* format)
{
    if (const auto number = readDouble(std::basic_string_view<Ch>(text)))
        return *number;
    double scanned = def;
    return !text.empty() && scan(text.c_str(), format, &scanned) == 1 ? scanned : def;
}

} // namespace

int Vx::IntFromString(const LightweightString<char>& text, int def)
{
    return integerOr(def, text, "%d");
}

int Vx::IntFromWString(const LightweightString<wchar_t>& text, int def)
{
    return integerOr(def, text, L"%d");
}

unsigned int Vx::UIntFromString(const LightweightString<char>& text, unsigned int def)
{
    return integerOr(def, text, "%u");
}

unsigned int Vx::UIntFromWString(const LightweightString<wchar_t>& text, unsigned int def)
{
    return integerOr(def, text, L"%u");
}

long Vx::Int64FromString(const LightweightString<char>& text, long def)
{
    if (const auto number = readInteger(text.c_str()))
        return *number;
    return text.empty() ? def : std::strtoll(text.c_str(), nullptr, 10);
}

long Vx::Int64FromWString(const LightweightString<wchar_t>& text, long def)
{
    if (const auto number = readInteger(text.c_str()))
        return *number;
    return text.empty() ? def : std::wcstoll(text.c_str(), nullptr, 10);
}

double Vx::FloatFromString(const LightweightString<char>& text, double def)
{
    return doubleOr(def, text, "%lf");
}

double Vx::FloatFromWString(const LightweightString<wchar_t>& text, double def)
{
    return doubleOr(def, text, L"%lf");
}

double Vx::asDouble(const LightweightString<char>& text)
{
    if (const auto number = readDouble(std::string_view(text)))
        return *number;
    return std::strtod(text.c_str(), nullptr);
}

namespace {

constexpr std::size_t kIntegerSize = 20; // "-9223372036854775808"

template <class Number> unsigned int writeInteger(char (&buffer)[kIntegerSize], Number value)
{
    return static_cast<unsigned int>(std::to_chars(buffer, std::end(buffer), value).ptr - buffer);
}

unsigned int countDigits(unsigned int number)
{
    for (unsigned int count = 1;; count += 4, number /= 10'000) {
        if (number < 10)
            return count;
        if (number < 100)
            return count + 1;
        if (number < 1'000)
            return count + 2;
        if (number < 10'000)
            return count + 3;
    }
}

// Counted beforehand, the characters are written into the block, not copied there.
template <class Number>
LightweightString<char>& appendInteger(LightweightString<char>& to, unsigned int count,
                                       Number value)
{
    char* const chars = to.extendFor(count);
    std::to_chars(chars, chars + count, value);
    return to;
}

// Deliberate: room for 126 characters and a terminator. Longer numbers lose their tail.
constexpr std::size_t kSixDecimalsSize = 127;

// Writes what snprintf() writes with "%.*f", after repairing a locale with a decimal comma.
// \returns the number of characters, without a terminator
unsigned int printFixed(char* buffer, std::size_t size, int decimals, double value)
{
    if (std::fabs(value) < 0x1p64 && Vx::detail::decimalPointIsDot() &&
        Vx::detail::roundsToNearest())
        return Vx::detail::writeFixed(buffer, value, decimals);
    std::snprintf(buffer, size, "%.*f", decimals, value);
    if (std::strchr(buffer, ',') != nullptr) {
        setNumericLocale();
        std::snprintf(buffer, size, "%.*f", decimals, value);
    }
    return static_cast<unsigned int>(std::strlen(buffer));
}

} // namespace

LightweightString<char>& operator+=(LightweightString<char>& to, int value)
{
    const unsigned int magnitude = value < 0 ? 0u - unsigned(value) : unsigned(value);
    return appendInteger(to, countDigits(magnitude) + (value < 0), value);
}

LightweightString<char>& operator+=(LightweightString<char>& to, unsigned int value)
{
    return appendInteger(to, countDigits(value), value);
}

LightweightString<char>& operator+=(LightweightString<char>& to, double value)
{
    char buffer[kSixDecimalsSize];
    const unsigned int count = printFixed(buffer, sizeof buffer, 6, value);
    // append() would look for a zero first.
    std::memcpy(to.extendFor(count), buffer, count);
    return to;
}

LightweightString<char> Vx::StringFromInteger(int value)
{
    char digits[kIntegerSize];
    return LightweightString<char>(digits, writeInteger(digits, value));
}

LightweightString<char> Vx::StringFromFloat(double value)
{
    char buffer[kSixDecimalsSize];
    return LightweightString<char>(buffer, printFixed(buffer, sizeof buffer, 6, value));
}

LightweightString<wchar_t> Vx::WStringFromInteger(long value)
{
    char digits[kIntegerSize];
    const unsigned int length = writeInteger(digits, value);
    LightweightString<wchar_t> text;
    text.createImpl(length, /*powerOfTwo=*/true);
    std::copy_n(static_cast<const char*>(digits), length, text.mutableChars());
    return text;
}

LightweightString<wchar_t> Vx::WStringFromFloat(double value, char precision, bool trimZeros)
{
    char buffer[256];
    const int decimals = std::clamp<int>(precision, 0, 9);
    buffer[printFixed(buffer, sizeof buffer, decimals, value)] = 0;
    LightweightString<wchar_t> text = WStringFromAscii(buffer);

    const std::wstring_view digits(text);
    std::size_t kept = digits.size();
    // Deliberate: trims without looking for a decimal point, so "100" becomes "1". Only zeros stay.
    if (trimZeros && digits.find_last_not_of(L'0') != digits.npos)
        kept = digits.find_last_not_of(L'0') + 1;
    if (kept != 0 && digits[kept - 1] == L'.')
        --kept;
    if (kept == digits.size())
        return text;
    // A platform may keep the string that it returns.
    if (text.useCount() != 1)
        return LightweightString<wchar_t>(digits.substr(0, kept));
    text.resizeFor(static_cast<unsigned int>(kept));
    return text;
}

void setNumericLocale()
{
    static std::mutex mutex;
    char before[256]; // longer than the name of any locale
    {
        // Another thread's call would free the name while we read it.
        const std::lock_guard<std::mutex> lock(mutex);
        const char* const name = std::setlocale(LC_NUMERIC, nullptr);
        if (std::strcmp(name, "C") == 0)
            return;
        std::snprintf(before, sizeof before, "%s", name);
        std::setlocale(LC_NUMERIC, "C");
    }
    // Without the lock: a thread that holds the stream's may be formatting.
    std::printf("Fixing numeric locale (%s)\n", before);
}
