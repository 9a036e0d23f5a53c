#include "text/Utf8.h"

#include "text/Utf8Decode.h"
#include "text/Utf8Encode.h"
#include "text/Utf8Plain.h"

namespace {

template <class Ch> LightweightString<Ch> stringOf(std::size_t length)
{
    LightweightString<Ch> string;
    string.createImpl(Vx::detail::checkedLength(length), true);
    return string;
}

} // namespace

LightweightString<wchar_t> Utf8::decode(const char* bytes, std::size_t count)
{
#if VX_UTF8_SSE
    if (const std::size_t codePoints = Sse::countWellFormed(bytes, count);
        codePoints != Sse::kMalformed) {
        LightweightString<wchar_t> wide = stringOf<wchar_t>(codePoints);
        Sse::decodeWellFormed(bytes, count, wide.mutableChars());
        return wide;
    }
#endif
    LightweightString<wchar_t> wide = stringOf<wchar_t>(Plain::decodedLength(bytes, count));
    Plain::decode(bytes, count, wide.mutableChars());
    return wide;
}

LightweightString<char> Utf8::encode(const wchar_t* chars, std::size_t count)
{
#if VX_UTF8_SSE
    const std::size_t length = Sse::encodedLength(chars, count);
    LightweightString<char> narrow = stringOf<char>(length);
    Sse::encode(chars, count, narrow.mutableChars(), length);
#else
    LightweightString<char> narrow = stringOf<char>(Plain::encodedLength(chars, count));
    Plain::encode(chars, count, narrow.mutableChars());
#endif
    return narrow;
}

LightweightString<wchar_t> Utf8::widen(const char* bytes, std::size_t count)
{
    LightweightString<wchar_t> wide = stringOf<wchar_t>(count);
    wchar_t* const out = wide.mutableChars();
    for (std::size_t i = 0; i < count; ++i)
        out[i] = static_cast<unsigned char>(bytes[i]);
    return wide;
}
