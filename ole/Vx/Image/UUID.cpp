// The inline functions of the header are exported as well: this file emits them.
#define VX_UUID_API __attribute__((used, visibility("default")))
#include <Vx/Image/UUID.h>

#include <Vx/platform/OS.h>
#include <cstdio>
#include <cwchar>
#include <new>
#include <utility>

namespace {

using Vx::detail::kUuidBytes;
using Vx::detail::kUuidOffsets;

int scan(const char* text, unsigned int (&v)[16])
{
    return std::sscanf(text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                       &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9], &v[10],
                       &v[11], &v[12], &v[13], &v[14], &v[15]);
}
int scan(const wchar_t* text, unsigned int (&v)[16])
{
    return std::swscanf(text,
                        L"%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                        &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &v[9],
                        &v[10], &v[11], &v[12], &v[13], &v[14], &v[15]);
}

template <class Ch> bool read(const Ch* text, unsigned int length, unsigned char (&bytes)[16])
{
    if (text == nullptr)
        return false;
    if (length == 38) {
        if (text[0] != '{' || text[37] != '}')
            return false;
        ++text;
    } else if (length != 36) {
        return false;
    }
    if (Vx::detail::readUuid(text, bytes))
        return true;
    unsigned int values[16];
    if (scan(text, values) != 16)
        return false;
    for (int i = 0; i < 16; ++i)
        bytes[kUuidBytes[i]] = static_cast<unsigned char>(values[i]);
    return true;
}

// The two digits of every byte: half the look-ups of one digit at a time.
struct HexPairs {
    constexpr HexPairs() : digits{}
    {
        constexpr const char* kDigits = "0123456789abcdef";
        for (int byte = 0; byte < 256; ++byte) {
            digits[byte][0] = kDigits[byte >> 4];
            digits[byte][1] = kDigits[byte & 15];
        }
    }
    char digits[256][2];
};
constexpr HexPairs kHexPairs;

template <class Ch> void printByte(unsigned char byte, Ch* pair)
{
    const char high = kHexPairs.digits[byte][0], low = kHexPairs.digits[byte][1];
    pair[0] = static_cast<Ch>(high);
    pair[1] = static_cast<Ch>(low);
}

// A fold rather than a loop: compilers unroll only the fold, which doubles the speed.
template <class Ch, std::size_t... I>
int print(const unsigned char (&bytes)[16], Ch* buffer, std::index_sequence<I...>)
{
    (printByte(bytes[kUuidBytes[I]], buffer + kUuidOffsets[I]), ...);
    buffer[8] = buffer[13] = buffer[18] = buffer[23] = '-';
    buffer[36] = 0;
    return 36;
}

} // namespace

Vx::UUID::UUID(const LightweightString<char>& text) noexcept
{
    initFromString(text.c_str(), text.length());
}

Vx::UUID::UUID(const LightweightString<wchar_t>& text) noexcept
{
    initFromString(text.c_str(), text.length());
}

void Vx::UUID::initFromString(const char* text, unsigned int length) noexcept
{
    if (!read(text, length, bytes_))
        invalidate();
}

void Vx::UUID::initFromString(const wchar_t* text, unsigned int length) noexcept
{
    if (!read(text, length, bytes_))
        invalidate();
}

void Vx::UUID::generate()
{
    invalidate(); // in case the platform throws
    // In place: a copy of the result would be stored in halves and then read as a whole, which
    // stalls the processor.
    new (bytes_) SimpleUUID(OS()->systemUtils()->generateUUID());
}

int Vx::UUID::asString(char* buffer) const noexcept
{
    return print(bytes_, buffer, std::make_index_sequence<16>());
}

int Vx::UUID::asWString(wchar_t* buffer) const noexcept
{
    return print(bytes_, buffer, std::make_index_sequence<16>());
}

LightweightString<char> Vx::UUID::asString() const
{
    LightweightString<char> text;
    text.createImpl(kTextLength, /*powerOfTwo=*/true);
    asString(text.mutableChars());
    return text;
}

LightweightString<wchar_t> Vx::UUID::asWString() const
{
    LightweightString<wchar_t> text;
    text.createImpl(kTextLength, /*powerOfTwo=*/true);
    asWString(text.mutableChars());
    return text;
}
