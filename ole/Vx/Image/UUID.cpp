// The constant expressions of the header are exported functions as well: emit them here.
#define VX_UUID_API __attribute__((used, visibility("default")))
#include <Vx/Image/UUID.h>

#include <Vx/platform/OS.h>
#include <array>
#include <cstdio>
#include <cwchar>
#include <utility>

namespace {

using Vx::UUIDDetail::kOffsets;
using Vx::UUIDDetail::kPlaces;

constexpr std::array<std::array<char, 2>, 256> kDigitPairs = [] {
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t i = 0; i < 256; ++i)
        pairs[i] = {"0123456789abcdef"[i >> 4], "0123456789abcdef"[i & 15]};
    return pairs;
}();

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
    if (Vx::UUIDDetail::readPlain(text, bytes))
        return true;
    unsigned int values[16];
    if (scan(text, values) != 16)
        return false;
    for (int i = 0; i < 16; ++i)
        bytes[kPlaces[i]] = static_cast<unsigned char>(values[i]);
    return true;
}

template <class Ch, std::size_t... I>
void printPairs(const unsigned char (&bytes)[16], Ch* buffer, std::index_sequence<I...>)
{
    const auto printPair = [buffer](int offset, const std::array<char, 2>& pair) {
        buffer[offset] = static_cast<Ch>(pair[0]);
        buffer[offset + 1] = static_cast<Ch>(pair[1]);
    };
    (printPair(kOffsets[I], kDigitPairs[bytes[kPlaces[I]]]), ...);
}

template <class Ch> int print(const unsigned char (&bytes)[16], Ch* buffer)
{
    printPairs(bytes, buffer, std::make_index_sequence<16>());
    for (int hyphen : {8, 13, 18, 23})
        buffer[hyphen] = '-';
    buffer[36] = 0;
    return 36;
}

} // namespace

Vx::UUID::UUID(const LightweightString<char>& text) noexcept : bytes_{}
{
    initFromString(text.c_str(), text.length());
}

Vx::UUID::UUID(const LightweightString<wchar_t>& text) noexcept : bytes_{}
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
    invalidate();
    *this = OS()->systemUtils()->generateUUID();
}

int Vx::UUID::asString(char* buffer) const noexcept { return print(bytes_, buffer); }

int Vx::UUID::asWString(wchar_t* buffer) const noexcept { return print(bytes_, buffer); }

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
