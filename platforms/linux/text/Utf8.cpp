#include "text/Utf8.h"

#include "text/Utf8Vector.h"

#include <cstdint>

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

using Byte = unsigned char;

bool isContinuation(Byte byte) noexcept { return (byte & 0xC0) == 0x80; }

// One character of the input, or the maximal subpart that one replacement stands for.
struct Unit {
    wchar_t codePoint;
    unsigned int size;
};

// The second byte decides about overlong forms, surrogates and values past U+10FFFF, so a
// sequence that goes wrong there ends before it: the bytes behind count for themselves.
Unit readUnit(const Byte* at, const Byte* end) noexcept
{
    const Byte lead = at[0];
    if (lead < 0x80)
        return {lead, 1};
    if (lead < 0xC2 || lead > 0xF4)
        return {kReplacement, 1};
    const std::ptrdiff_t left = end - at;
    if (lead < 0xE0) {
        if (left < 2 || !isContinuation(at[1]))
            return {kReplacement, 1};
        return {(lead & 0x1F) << 6 | (at[1] & 0x3F), 2};
    }
    const Byte lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const Byte highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (left < 2 || at[1] < lowest || at[1] > highest)
        return {kReplacement, 1};
    if (left < 3 || !isContinuation(at[2]))
        return {kReplacement, 2};
    if (lead < 0xF0)
        return {(lead & 0x0F) << 12 | (at[1] & 0x3F) << 6 | (at[2] & 0x3F), 3};
    if (left < 4 || !isContinuation(at[3]))
        return {kReplacement, 3};
    return {(lead & 0x07) << 18 | (at[1] & 0x3F) << 12 | (at[2] & 0x3F) << 6 | (at[3] & 0x3F), 4};
}

std::uint32_t scalarValue(wchar_t character) noexcept
{
    const std::uint32_t value = static_cast<std::uint32_t>(character);
    const bool surrogate = (value & 0xFFFFF800u) == 0xD800u;
    return surrogate || value > 0x10FFFFu ? kReplacement : value;
}

const Byte* toBytes(const char* chars) noexcept { return reinterpret_cast<const Byte*>(chars); }

// An empty string for 0: the result of a conversion that yields nothing has no block.
template <class Ch> LightweightString<Ch> blockFor(std::size_t length)
{
    if (length > 0xFFFFFFFFu)
        Vx::StringDetail::throwTooLong();
    LightweightString<Ch> text;
    text.createImpl(static_cast<unsigned int>(length), true);
    return text;
}

} // namespace

std::size_t Utf8::Plain::decodedLength(const char* bytes, std::size_t count) noexcept
{
    std::size_t length = 0;
    const Byte* end = toBytes(bytes) + count;
    for (const Byte* at = toBytes(bytes); at != end; ++length)
        at += *at < 0x80 ? 1 : readUnit(at, end).size;
    return length;
}

void Utf8::Plain::decode(const char* bytes, std::size_t count, wchar_t* out) noexcept
{
    const Byte* end = toBytes(bytes) + count;
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

void Utf8::Plain::encode(const wchar_t* chars, std::size_t count, char* out) noexcept
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
}

LightweightString<wchar_t> Utf8::decode(const char* bytes, std::size_t count)
{
#if VX_UTF8_VECTOR
    const Vector::Scan found = Vector::scan(bytes, count);
    if (found.wellFormed) {
        LightweightString<wchar_t> wide = blockFor<wchar_t>(found.codePoints);
        Vector::decodeWellFormed(bytes, count, wide.mutableChars());
        return wide;
    }
#endif
    LightweightString<wchar_t> wide = blockFor<wchar_t>(Plain::decodedLength(bytes, count));
    Plain::decode(bytes, count, wide.mutableChars());
    return wide;
}

LightweightString<char> Utf8::encode(const wchar_t* chars, std::size_t count)
{
#if VX_UTF8_VECTOR
    const std::size_t length = Vector::encodedLength(chars, count);
    LightweightString<char> narrow = blockFor<char>(length);
    char* out = narrow.mutableChars();
    Vector::encode(chars, count, out, out + length);
#else
    LightweightString<char> narrow = blockFor<char>(Plain::encodedLength(chars, count));
    Plain::encode(chars, count, narrow.mutableChars());
#endif
    return narrow;
}

LightweightString<wchar_t> Utf8::widen(const char* bytes, std::size_t count)
{
    LightweightString<wchar_t> wide = blockFor<wchar_t>(count);
    wchar_t* out = wide.mutableChars();
#if VX_UTF8_VECTOR
    Vector::widen(bytes, count, out);
#else
    for (std::size_t i = 0; i < count; ++i)
        out[i] = toBytes(bytes)[i];
#endif
    return wide;
}
