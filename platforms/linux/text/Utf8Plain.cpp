#include "text/Utf8Plain.h"

#include <cstdint>

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

using Byte = unsigned char;

const Byte* toBytes(const char* chars) noexcept { return reinterpret_cast<const Byte*>(chars); }

// What a lead byte says about its sequence. The range of the second byte alone excludes
// overlong forms, surrogates and values above U+10FFFF.
struct Lead {
    unsigned int size;    // 0 if no sequence begins with this byte
    Byte lowest, highest; // of the second byte
};

Lead leadOf(Byte byte) noexcept
{
    if (byte < 0xC2 || byte > 0xF4)
        return {0, 0, 0};
    if (byte < 0xE0)
        return {2, 0x80, 0xBF};
    if (byte < 0xF0)
        return {3, Byte(byte == 0xE0 ? 0xA0 : 0x80), Byte(byte == 0xED ? 0x9F : 0xBF)};
    return {4, Byte(byte == 0xF0 ? 0x90 : 0x80), Byte(byte == 0xF4 ? 0x8F : 0xBF)};
}

// One character of the input, or one maximal ill-formed subpart.
struct Unit {
    wchar_t codePoint;
    unsigned int size;
};

// Reads a unit that does not begin with ASCII.
Unit readUnit(const Byte* at, const Byte* end) noexcept
{
    Lead lead = leadOf(*at);
    if (lead.size == 0)
        return {kReplacement, 1};
    wchar_t codePoint = *at & (0x7F >> lead.size);
    for (unsigned int i = 1; i < lead.size; ++i) {
        if (at + i == end || at[i] < lead.lowest || at[i] > lead.highest)
            return {kReplacement, i};
        codePoint = codePoint << 6 | (at[i] & 0x3F);
        lead.lowest = 0x80;
        lead.highest = 0xBF;
    }
    return {codePoint, lead.size};
}

std::uint32_t scalarValue(wchar_t character) noexcept
{
    const std::uint32_t value = static_cast<std::uint32_t>(character);
    const bool surrogate = (value & 0xFFFFF800u) == 0xD800u;
    return surrogate || value > 0x10FFFFu ? kReplacement : value;
}

} // namespace

std::size_t Utf8::Plain::decodedLength(const char* bytes, std::size_t count) noexcept
{
    std::size_t length = 0;
    const Byte* const end = toBytes(bytes) + count;
    for (const Byte* at = toBytes(bytes); at != end; ++length)
        at += *at < 0x80 ? 1 : readUnit(at, end).size;
    return length;
}

void Utf8::Plain::decode(const char* bytes, std::size_t count, wchar_t* out) noexcept
{
    const Byte* const end = toBytes(bytes) + count;
    for (const Byte* at = toBytes(bytes); at != end;) {
        if (*at < 0x80) {
            *out++ = *at++;
            continue;
        }
        const Unit unit = readUnit(at, end);
        *out++ = unit.codePoint;
        at += unit.size;
    }
}

std::size_t Utf8::Plain::encodedLength(const wchar_t* chars, std::size_t count) noexcept
{
    std::size_t length = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t value = scalarValue(chars[i]);
        length += 1u + (value > 0x7F) + (value > 0x7FF) + (value > 0xFFFF);
    }
    return length;
}

char* Utf8::Plain::encode(const wchar_t* chars, std::size_t count, char* out) noexcept
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t value = scalarValue(chars[i]);
        const auto trail = [value](unsigned int shift) {
            return static_cast<char>(0x80 | (value >> shift & 0x3F));
        };
        if (value < 0x80) {
            *out++ = static_cast<char>(value);
        } else if (value < 0x800) {
            *out++ = static_cast<char>(0xC0 | value >> 6);
            *out++ = trail(0);
        } else if (value < 0x10000) {
            *out++ = static_cast<char>(0xE0 | value >> 12);
            *out++ = trail(6);
            *out++ = trail(0);
        } else {
            *out++ = static_cast<char>(0xF0 | value >> 18);
            *out++ = trail(12);
            *out++ = trail(6);
            *out++ = trail(0);
        }
    }
    return out;
}
