// detail/ReportText.h - Text that is handed on piece by piece and allocates nothing.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <type_traits>

namespace Vx {
namespace detail {

/// A number in hexadecimal, with 0x.
struct Hex {
    std::uint64_t value;
};

/// Blanks, at least one, up to a column.
struct Column {
    unsigned int number;
};

/// A number that is not negative, with two decimals.
struct Amount {
    double value;
};

/// Seconds since 1970, as date and time. Without time zones, whose rules allocate.
struct UtcTime {
    std::int64_t seconds;
};

/// A character of a name: control characters are escaped.
template <class Ch> struct Escaped {
    Ch c;
};

class ReportText {
public:
    using Sink = void (*)(void* context, const char* bytes, std::size_t count);

    ReportText(Sink sink, void* context) : sink_(sink), context_(context) {}
    ~ReportText() { flush(); }
    ReportText(const ReportText&) = delete;
    ReportText& operator=(const ReportText&) = delete;

    void flush()
    {
        if (length_ != 0)
            sink_(context_, buffer_, length_);
        length_ = 0;
    }
    ReportText& operator<<(std::string_view text)
    {
        for (const char c : text)
            put(static_cast<unsigned char>(c));
        return *this;
    }
    template <class N, class = std::enable_if_t<std::is_integral_v<N>>>
    ReportText& operator<<(N number)
    {
        return digits(number, 10);
    }
    /// A number that could not be read is a question mark.
    template <class N> ReportText& operator<<(std::optional<N> number)
    {
        return number ? *this << *number : *this << "?";
    }
    ReportText& operator<<(Hex hex) { return *this << "0x", digits(hex.value, 16); }
    ReportText& operator<<(Column column)
    {
        do
            put(' ');
        while (column_ < column.number);
        return *this;
    }
    ReportText& operator<<(Amount amount)
    {
        if (!(amount.value >= 0 && amount.value < 1e15)) // not a number included
            return *this << "?";
        const auto hundredths = static_cast<std::uint64_t>(std::lround(amount.value * 100));
        return *this << hundredths / 100 << "." << twoDigits(hundredths % 100);
    }
    ReportText& operator<<(UtcTime time);
    ReportText& operator<<(Escaped<char> escaped)
    {
        const auto byte = static_cast<unsigned char>(escaped.c);
        return isControl(byte) ? escape(byte) : put(byte); // bytes of UTF-8 pass
    }
    ReportText& operator<<(Escaped<wchar_t> escaped);

private:
    struct TwoDigits {
        char text[3];
        operator std::string_view() const { return {text, 2}; }
    };
    static TwoDigits twoDigits(std::uint64_t number)
    {
        return {{static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10), 0}};
    }
    static bool isControl(unsigned int code) { return code < 0x20 || code == 0x7F; }

    ReportText& put(unsigned int byte)
    {
        if (length_ == sizeof buffer_)
            flush();
        buffer_[length_++] = static_cast<char>(byte);
        if (byte == '\n')
            column_ = 0;
        else if ((byte & 0xC0) != 0x80) // the first byte of a character
            ++column_;
        return *this;
    }
    ReportText& escape(unsigned int code)
    {
        return *this << (code < 16 ? "\\x0" : "\\x"), digits(code, 16);
    }
    template <class N> ReportText& digits(N number, int base)
    {
        char text[24];
        const auto end = std::to_chars(text, text + sizeof text, number, base).ptr;
        return *this << std::string_view(text, static_cast<std::size_t>(end - text));
    }

    Sink sink_;
    void* context_;
    std::size_t length_ = 0;
    unsigned int column_ = 0;
    char buffer_[512];
};

inline ReportText& ReportText::operator<<(Escaped<wchar_t> escaped)
{
    auto code = static_cast<unsigned int>(escaped.c);
    if (code > 0x10FFFF || (code >= 0xD800 && code < 0xE000))
        code = 0xFFFD;
    if (isControl(code) || (code >= 0x80 && code < 0xA0))
        return escape(code);
    if (code < 0x80)
        return put(code);
    const unsigned int more = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    put((0xF00u >> (more + 1) & 0xF0) | code >> 6 * more);
    for (unsigned int left = more; left-- > 0;)
        put(0x80 | (code >> 6 * left & 0x3F));
    return *this;
}

inline ReportText& ReportText::operator<<(UtcTime time)
{
    constexpr std::int64_t kDay = 86400;
    constexpr std::int64_t kYear10000 = 253402300800;
    if (time.seconds <= 0 || time.seconds >= kYear10000)
        return *this << "-";
    const auto second = static_cast<std::uint64_t>(time.seconds % kDay);
    // Days since March 1 of the year 0, so that a leap day is the last day of its year. 400 years
    // have 146097 days.
    const auto days = static_cast<std::uint64_t>(time.seconds / kDay) + 719468;
    const std::uint64_t cycle = days % 146097;
    const std::uint64_t year = (cycle - cycle / 1460 + cycle / 36524 - cycle / 146096) / 365;
    const std::uint64_t day = cycle - (365 * year + year / 4 - year / 100);
    const std::uint64_t month = (5 * day + 2) / 153; // 0 is March
    const bool nextYear = month > 9;
    return *this << days / 146097 * 400 + year + nextYear << "-"
                 << twoDigits(nextYear ? month - 9 : month + 3) << "-"
                 << twoDigits(day - (153 * month + 2) / 5 + 1) << " " << twoDigits(second / 3600)
                 << ":" << twoDigits(second / 60 % 60) << ":" << twoDigits(second % 60) << " UTC";
}

} // namespace detail
} // namespace Vx
