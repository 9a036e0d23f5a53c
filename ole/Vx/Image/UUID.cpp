// The constant expressions of the header are exported functions as well: emit them here.
#define VX_UUID_API __attribute__((used, visibility("default")))
#include <Vx/Image/UUID.h>

#include <Vx/platform/OS.h>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace {

using Vx::UUIDDetail::kPlaces;

// Sixteen bytes, for the compiler's vector instructions.
typedef unsigned char Bytes __attribute__((vector_size(16)));

Bytes asDigits(Bytes values) { return values + '0' + (Bytes(values > 9) & ('a' - '0' - 10)); }

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

int print(const unsigned char (&bytes)[16], char* buffer)
{
    Bytes stored;
    std::memcpy(&stored, bytes, sizeof stored);
    const Bytes printed = __builtin_shufflevector(stored, stored, 3, 2, 1, 0, 5, 4, 7, 6, 8, 9, 10,
                                                  11, 12, 13, 14, 15);
    const Bytes high = asDigits(printed >> 4);
    const Bytes low = asDigits(printed & 15);
    const Bytes digits[] = {
        __builtin_shufflevector(high, low, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23),
        __builtin_shufflevector(high, low, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15,
                                31)};
    char chars[32];
    std::memcpy(chars, digits, sizeof chars);
    std::memcpy(buffer, chars, 8);
    std::memcpy(buffer + 9, chars + 8, 4);
    std::memcpy(buffer + 14, chars + 12, 4);
    std::memcpy(buffer + 19, chars + 16, 4);
    std::memcpy(buffer + 24, chars + 20, 12);
    for (const int hyphen : {8, 13, 18, 23})
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
    // It comes in two registers and leaves in two: put together on the way, it would wait for
    // its own way through memory. The empty instruction keeps the compiler from that.
    const SimpleUUID made = OS()->systemUtils()->generateUUID();
    std::uint64_t halves[2];
    std::memcpy(halves, made.bytes, sizeof halves);
    asm("" : "+r"(halves[0]), "+r"(halves[1]));
    std::memcpy(bytes_, halves, sizeof halves);
}

int Vx::UUID::asString(char* buffer) const noexcept { return print(bytes_, buffer); }

int Vx::UUID::asWString(wchar_t* buffer) const noexcept
{
    char text[kTextLength + 1];
    const int length = print(bytes_, text);
    std::copy(std::begin(text), std::end(text), buffer);
    return length;
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
