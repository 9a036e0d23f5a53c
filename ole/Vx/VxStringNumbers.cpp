#include <Vx/VxStringNumbers.h>

#include <Vx/VxStringUtils.h>
#include <algorithm>
#include <bit>
#include <cfenv>
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <langinfo.h>
#include <limits>
#include <type_traits>

// What each function answers is what the scanning and printing functions of libc answer.
// They take a hundred nanoseconds, so ordinary inputs are answered here, and only those
// whose answer is certain: everything else still goes to libc.

namespace {

template <class Ch> constexpr bool isDigit(Ch c) { return c >= '0' && c <= '9'; }

// White space in every locale. A locale may know more of it, none of it printable ASCII.
template <class Ch> constexpr bool isBlank(Ch c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

template <class Ch> const Ch* skipBlanks(const Ch* chars)
{
    while (isBlank(*chars))
        ++chars;
    return chars;
}

// The value of eight digits at once; false, with \p value untouched, when one is none.
bool readEightDigits(const char* chars, std::uint64_t& value)
{
    static_assert(std::endian::native == std::endian::little,
                  "the first character is taken for the lowest byte");
    std::uint64_t word;
    std::memcpy(&word, chars, sizeof word);
    const std::uint64_t high = 0xF0F0F0F0F0F0F0F0;
    const std::uint64_t zeros = 0x3030303030303030;
    if ((word & high) != zeros || ((word + 0x0606060606060606) & high) != zeros)
        return false;
    // Neighbours are joined to numbers of two, four and eight digits.
    word = ((word & 0x0F0F0F0F0F0F0F0F) * (10 * 256 + 1)) >> 8;
    word = ((word & 0x00FF00FF00FF00FF) * (100 * 65536 + 1)) >> 16;
    word = ((word & 0x0000FFFF0000FFFF) * (10'000 * (std::uint64_t(1) << 32) + 1)) >> 32;
    value = 100'000'000 * value + word;
    return true;
}

// Appends the digits from \p chars on to \p value, which wraps. The text ends at \p last
// with its terminator.
template <class Ch> const Ch* readDigits(const Ch* chars, const Ch* last, std::uint64_t& value)
{
    if constexpr (std::is_same_v<Ch, char>)
        while (last - chars >= 8 && readEightDigits(chars, value))
            chars += 8;
    for (; isDigit(*chars); ++chars)
        value = 10 * value + static_cast<std::uint64_t>(*chars - '0');
    return chars;
}

enum class Outcome { Number, NoNumber, AskLibc };

struct Integer {
    Outcome outcome;
    long value;
};

// Up to 18 digits fit a long, so no rule of overflow comes into play.
template <class Ch> Integer readInteger(const LightweightString<Ch>& text)
{
    const Ch* chars = skipBlanks(text.begin());
    const bool negative = *chars == '-';
    if (negative || *chars == '+')
        ++chars;
    const Ch* const digits = chars;
    std::uint64_t value = 0;
    chars = readDigits(chars, text.end(), value);
    const std::ptrdiff_t count = chars - digits;
    if (count == 0)
        return {*chars == 0 || (*chars > ' ' && *chars <= '~') ? Outcome::NoNumber
                                                               : Outcome::AskLibc,
                0};
    if (count > 18)
        return {Outcome::AskLibc, 0};
    const long magnitude = static_cast<long>(value);
    return {Outcome::Number, negative ? -magnitude : magnitude};
}

template <class Scanned, class Ch, class Scan>
Scanned scanInteger(const LightweightString<Ch>& text, Scanned def, Scan scan)
{
    const Integer number = readInteger(text);
    if (number.outcome == Outcome::Number)
        return static_cast<Scanned>(number.value);
    Scanned scanned = def;
    if (number.outcome == Outcome::AskLibc && scan(text.c_str(), &scanned) != 1)
        scanned = def;
    return scanned;
}

template <class Ch, class Convert>
long convertInteger(const LightweightString<Ch>& text, long def, Convert convert)
{
    if (text.empty())
        return def;
    const Integer number = readInteger(text);
    return number.outcome == Outcome::AskLibc ? convert(text.c_str()) : number.value;
}

// The locale may change at any time, and a thread may have one of its own, so the answer
// is not kept.
bool decimalPointIsDot()
{
    const char* const point = nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == 0;
}

// Rounds mantissa * 10^exponent by way of an extended number, to nearest; false, with
// \p value untouched, when its precision does not settle the matter.
bool readByExtended(std::uint64_t mantissa, int exponent, double& value)
{
    static_assert(std::numeric_limits<long double>::digits == 64,
                  "the tie is looked for in the eleven bits that a double lacks");
    static constexpr long double kPowers[] = {1e0L,  1e1L,  1e2L,  1e3L,  1e4L,  1e5L,  1e6L,
                                              1e7L,  1e8L,  1e9L,  1e10L, 1e11L, 1e12L, 1e13L,
                                              1e14L, 1e15L, 1e16L, 1e17L, 1e18L, 1e19L, 1e20L,
                                              1e21L, 1e22L, 1e23L, 1e24L, 1e25L, 1e26L, 1e27L};
    if (mantissa == 0 || exponent < -27 || exponent > 27)
        return false;
    // Both operands are exact, so the result is off by half a unit of its last bit at most.
    // That changes the double only when the result lies on a tie between two doubles. Where
    // extended numbers have no more bits than doubles, as in some emulators, the surplus
    // ones are all 0, and nothing is settled.
    const long double exact = static_cast<long double>(mantissa);
    const long double number =
        exponent < 0 ? exact / kPowers[-exponent] : exact * kPowers[exponent];
    std::uint64_t bits;
    std::memcpy(&bits, &number, sizeof bits);
    const std::uint64_t surplus = bits & 0x7FF;
    if (surplus == 0x400 || surplus == 0)
        return false;
    value = static_cast<double>(number);
    return true;
}

// Reads [blanks][sign]digits[.digits][e[sign]digits] with at most 19 significant
// digits; false, with \p value untouched, when libc has to be asked. Hexadecimal
// numbers, infinities, not-a-numbers, decimal points other than '.' and whatever could
// overflow or lose precision at the lower end are libc's.
template <class Ch> bool readPlainDouble(const LightweightString<Ch>& text, double& value)
{
    const Ch* chars = skipBlanks(text.begin());
    const bool negative = *chars == '-';
    if (negative || *chars == '+')
        ++chars;
    const Ch* const start = chars;
    if (*chars == '0' && (chars[1] == 'x' || chars[1] == 'X'))
        return false;
    std::uint64_t mantissa = 0;
    chars = readDigits(chars, text.end(), mantissa);
    std::ptrdiff_t digits = chars - start;
    std::ptrdiff_t exponent = 0;
    const bool hasPoint = *chars == '.';
    if (hasPoint) {
        const Ch* const decimals = ++chars;
        chars = readDigits(chars, text.end(), mantissa);
        exponent = decimals - chars;
        digits -= exponent;
    }
    if (digits == 0)
        return false;
    if (digits > 19) { // zeros in front do not count
        for (const Ch* zero = start; *zero == '0' || *zero == '.'; ++zero)
            digits -= *zero == '0' ? 1 : 0;
        if (digits > 19)
            return false;
    }
    if (*chars == 'e' || *chars == 'E') {
        ++chars;
        const bool exponentIsNegative = *chars == '-';
        if (exponentIsNegative || *chars == '+')
            ++chars;
        const Ch* const exponentDigits = chars;
        int given = 0;
        for (; isDigit(*chars) && chars - exponentDigits < 4; ++chars)
            given = 10 * given + static_cast<int>(*chars - '0');
        if (chars == exponentDigits || chars - exponentDigits == 4)
            return false;
        exponent += exponentIsNegative ? -given : given;
    }
    // Any character that follows might be this locale's decimal point.
    if ((hasPoint || *chars != 0) && !decimalPointIsDot())
        return false;

    // With a mantissa and a power of ten that are both exact, one operation rounds once,
    // and as the current rounding mode says: exactly what libc promises.
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (mantissa <= std::uint64_t(1) << 53 && exponent >= -22 && exponent <= 22) {
        // From a signed number: compilers may compose the unsigned conversion of a difference,
        // which makes -0.0 of 0 when rounding goes downward.
        const double exact = static_cast<double>(static_cast<std::int64_t>(mantissa));
        const double number = negative ? -exact : exact;
        value = exponent < 0 ? number / kPowers[-exponent] : number * kPowers[exponent];
        return true;
    }

    // The ways below know one rounding mode only.
    if (std::fegetround() != FE_TONEAREST)
        return false;
    if (readByExtended(mantissa, static_cast<int>(exponent), value)) {
        value = negative ? -value : value;
        return true;
    }

    // Within these exponents the number is finite and has its full precision.
    if (exponent < -300 || exponent > 285 || chars - start > 32)
        return false;
    char copy[32];
    const char* first = copy;
    if constexpr (std::is_same_v<Ch, char>)
        first = start;
    else
        std::transform(start, chars, copy, [](Ch c) { return static_cast<char>(c); });
    const char* const last = first + (chars - start);
    double number = 0.0;
    const std::from_chars_result read = std::from_chars(first, last, number);
    if (read.ec != std::errc() || read.ptr != last)
        return false;
    value = negative ? -number : number;
    return true;
}

constexpr std::uint64_t kTenTo[] = {1,       10,        100,        1'000,       10'000,
                                    100'000, 1'000'000, 10'000'000, 100'000'000, 1'000'000'000};

// Room for a sign, 20 digits, a point and 9 decimals.
constexpr unsigned int kPlainSize = 32;

// Writes \p value as printf does with \p decimals decimals, at most 9, unterminated.
// \returns the number of characters, 0 when libc has to be asked: infinities,
//   not-a-numbers, magnitudes from 2^64 on, a locale or a rounding mode out of the
//   ordinary; then nothing has been written
unsigned int formatPlain(char* buffer, double value, int decimals)
{
    if (!decimalPointIsDot() || std::fegetround() != FE_TONEAREST)
        return 0;
    // value = mantissa / 2^shift
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(value);
    const int biased = static_cast<int>(bits >> 52 & 0x7FF);
    const std::uint64_t stored = bits & ((std::uint64_t(1) << 52) - 1);
    const std::uint64_t mantissa = biased != 0 ? stored | std::uint64_t(1) << 52 : stored;
    const int shift = biased != 0 ? 1075 - biased : 1074;
    if (shift < -11)
        return 0;

    __extension__ using Wide = unsigned __int128;
    std::uint64_t whole = 0;
    std::uint64_t decimal = 0; // in units of the last decimal
    if (shift <= 0) {
        whole = mantissa << -shift;
    } else if (shift < 98) { // below 2^-45 there is nothing to see in nine decimals
        whole = shift < 64 ? mantissa >> shift : 0;
        const std::uint64_t rest = shift < 64 ? mantissa - (whole << shift) : mantissa;
        const Wide scaled = Wide(rest) * kTenTo[decimals];
        decimal = static_cast<std::uint64_t>(scaled >> shift);
        // The exact remainder decides; a tie goes to the even digit.
        const Wide remainder = scaled & ((Wide(1) << shift) - 1);
        const Wide half = Wide(1) << (shift - 1);
        const bool odd = ((decimals != 0 ? decimal : whole) & 1) != 0;
        if (remainder > half || (remainder == half && odd))
            ++decimal;
        if (decimal == kTenTo[decimals]) {
            decimal = 0;
            ++whole;
        }
    }

    char* const end = buffer + kPlainSize;
    char* out = buffer;
    if (bits >> 63 != 0)
        *out++ = '-';
    out = std::to_chars(out, end, whole).ptr;
    if (decimals != 0) {
        // A leading 1 keeps the zeros behind it, then makes room for the point.
        char* const point = out;
        out = std::to_chars(out, end, decimal + kTenTo[decimals]).ptr;
        *point = '.';
    }
    return static_cast<unsigned int>(out - buffer);
}

// Prints into \p buffer; when a ',' shows up, sets the locale right and prints again.
template <class... Arguments>
void printRepaired(char* buffer, std::size_t size, const char* format, Arguments... arguments)
{
    std::snprintf(buffer, size, format, arguments...);
    if (std::strchr(buffer, ',') == nullptr)
        return;
    setNumericLocale();
    std::snprintf(buffer, size, format, arguments...);
}

// The eight digits of \p value, which has no more, as numbers in bytes; the first is lowest.
std::uint64_t eightDigits(std::uint32_t value)
{
    // Split into numbers of four, two and one digits, neighbours at a time.
    std::uint64_t word = value / 10'000 | std::uint64_t(value % 10'000) << 32;
    const std::uint64_t hundreds = ((word * 10'486) >> 20) & 0x0000'007F'0000'007F;
    word = hundreds | (word - 100 * hundreds) << 16;
    const std::uint64_t tens = ((word * 103) >> 10) & 0x000F'000F'000F'000F;
    return tens | (word - 10 * tens) << 8;
}

// Room for writeInteger(): "-2147483648", or a sign and a word.
constexpr unsigned int kMostOfInteger = 11;

// Writes \p value as printf does, unterminated, and perhaps more behind it.
// \returns the number of characters
template <class Number> unsigned int writeInteger(char* buffer, Number value)
{
    static_assert(sizeof(Number) == 4);
    char* out = buffer;
    auto magnitude = static_cast<std::uint32_t>(value);
    if (value < 0) {
        *out++ = '-';
        magnitude = 0 - magnitude;
    }
    constexpr std::uint32_t kWord = 100'000'000;
    constexpr std::uint64_t kZeros = 0x3030'3030'3030'3030;
    std::uint64_t digits;
    int skipped = 0; // bits: the zeros in front
    if (magnitude < kWord) {
        digits = eightDigits(magnitude);
        skipped = std::countr_zero(digits | std::uint64_t(1) << 56) / 8 * 8;
    } else {
        const std::uint32_t front = magnitude / kWord;
        if (front >= 10)
            *out++ = static_cast<char>('0' + front / 10);
        *out++ = static_cast<char>('0' + front % 10);
        digits = eightDigits(magnitude % kWord);
    }
    digits = (digits | kZeros) >> skipped;
    std::memcpy(out, &digits, sizeof digits);
    return static_cast<unsigned int>(out - buffer + 8 - skipped / 8);
}

template <class Number>
LightweightString<char>& appendInteger(LightweightString<char>& to, Number value)
{
    if (char* const room = Vx::StringDetail::Access::roomFor(to, kMostOfInteger); room != nullptr) {
        Vx::StringDetail::Access::take(to, writeInteger(room, value));
        return to;
    }
    char digits[kMostOfInteger];
    return to.append(digits, writeInteger(digits, value));
}

// Room for a "%f", or for as much of it as is kept.
constexpr std::size_t kSixDecimalsSize = 128;

// The "%f" of a value that is not for formatPlain().
unsigned int printSixDecimals(char* buffer, double value)
{
    // Deliberate: one less than there is room for, so 126 characters and a terminator.
    printRepaired(buffer, kSixDecimalsSize - 1, "%f", value);
    return static_cast<unsigned int>(std::strlen(buffer));
}

} // namespace

int Vx::IntFromString(const LightweightString<char>& text, int def)
{
    return scanInteger(text, def,
                       [](const char* chars, int* to) { return std::sscanf(chars, "%d", to); });
}

int Vx::IntFromWString(const LightweightString<wchar_t>& text, int def)
{
    return scanInteger(
        text, def, [](const wchar_t* chars, int* to) { return std::swscanf(chars, L"%d", to); });
}

unsigned int Vx::UIntFromString(const LightweightString<char>& text, unsigned int def)
{
    return scanInteger(text, def, [](const char* chars, unsigned int* to) {
        return std::sscanf(chars, "%u", to);
    });
}

unsigned int Vx::UIntFromWString(const LightweightString<wchar_t>& text, unsigned int def)
{
    return scanInteger(text, def, [](const wchar_t* chars, unsigned int* to) {
        return std::swscanf(chars, L"%u", to);
    });
}

long Vx::Int64FromString(const LightweightString<char>& text, long def)
{
    return convertInteger(
        text, def, [](const char* chars) -> long { return std::strtoll(chars, nullptr, 10); });
}

long Vx::Int64FromWString(const LightweightString<wchar_t>& text, long def)
{
    return convertInteger(
        text, def, [](const wchar_t* chars) -> long { return std::wcstoll(chars, nullptr, 10); });
}

double Vx::FloatFromString(const LightweightString<char>& text, double def)
{
    double number = def;
    if (text.empty() || readPlainDouble(text, number))
        return number;
    return std::sscanf(text.c_str(), "%lf", &number) == 1 ? number : def;
}

double Vx::FloatFromWString(const LightweightString<wchar_t>& text, double def)
{
    double number = def;
    if (text.empty() || readPlainDouble(text, number))
        return number;
    return std::swscanf(text.c_str(), L"%lf", &number) == 1 ? number : def;
}

double Vx::asDouble(const LightweightString<char>& text)
{
    double number = 0.0;
    if (text.empty() || readPlainDouble(text, number))
        return number;
    return std::strtod(text.c_str(), nullptr);
}

LightweightString<char>& operator+=(LightweightString<char>& to, int value)
{
    return appendInteger(to, value);
}

LightweightString<char>& operator+=(LightweightString<char>& to, unsigned int value)
{
    return appendInteger(to, value);
}

LightweightString<char>& operator+=(LightweightString<char>& to, double value)
{
    char* const room = Vx::StringDetail::Access::roomFor(to, kPlainSize);
    char buffer[kSixDecimalsSize];
    unsigned int length = formatPlain(room != nullptr ? room : buffer, value, 6);
    if (room != nullptr && length != 0) {
        Vx::StringDetail::Access::take(to, length);
        return to;
    }
    if (length == 0)
        length = printSixDecimals(buffer, value);
    return to.append(buffer, length);
}

LightweightString<char> Vx::StringFromInteger(int value)
{
    char digits[kMostOfInteger];
    const unsigned int length = writeInteger(digits, value);
    return LightweightString<char>(digits, length);
}

LightweightString<char> Vx::StringFromFloat(double value)
{
    char buffer[kSixDecimalsSize];
    unsigned int length = formatPlain(buffer, value, 6);
    if (length == 0)
        length = printSixDecimals(buffer, value);
    return LightweightString<char>(buffer, length);
}

LightweightString<wchar_t> Vx::WStringFromInteger(long value)
{
    char digits[20]; // "-9223372036854775808"
    const char* const end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
    LightweightString<wchar_t> text;
    text.createImpl(static_cast<unsigned int>(end - digits), /*powerOfTwo=*/true);
    std::copy(static_cast<const char*>(digits), end, text.mutableChars());
    return text;
}

LightweightString<wchar_t> Vx::WStringFromFloat(double value, char precision, bool trimZeros)
{
    const int decimals = precision > 9 ? 9 : precision < 0 ? 0 : precision;
    char buffer[256];
    const unsigned int plain = formatPlain(buffer, value, decimals);
    if (plain != 0)
        buffer[plain] = 0;
    else
        printRepaired(buffer, sizeof buffer, "%.*lf", decimals, value);
    LightweightString<wchar_t> text = WStringFromAscii(buffer);

    const wchar_t* const chars = text.c_str();
    unsigned int kept = text.length();
    if (trimZeros) {
        // Deliberate: whether there is a decimal point does not matter, so "100" becomes
        // "1". Zeros alone stay.
        while (kept != 0 && chars[kept - 1] == L'0')
            --kept;
        if (kept == 0)
            kept = text.length();
    }
    if (kept != 0 && chars[kept - 1] == L'.')
        --kept;
    if (kept == text.length())
        return text;
    if (text.useCount() == 1)
        text.resizeFor(kept); // in place: the characters stay
    else
        text = LightweightString<wchar_t>(chars, kept);
    return text;
}

void setNumericLocale()
{
    const char* const name = std::setlocale(LC_NUMERIC, nullptr);
    if (std::strcmp(name, "C") == 0)
        return;
    std::printf("Fixing numeric locale (%s)\n", name);
    std::setlocale(LC_NUMERIC, "C");
}
