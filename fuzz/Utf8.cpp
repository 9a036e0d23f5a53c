// Converts in both directions and compares with a decoder made from the Unicode standard's table
// of well-formed sequences.
#include "Fuzz.h"

#include "text/Utf8.h"
#include "text/Utf8Plain.h"

#include <memory>

namespace {

// The range of each byte.
constexpr struct Row {
    int size;
    unsigned char ranges[4][2];
} kWellFormed[] = {
    {1, {{0x00, 0x7F}}},
    {2, {{0xC2, 0xDF}, {0x80, 0xBF}}},
    {3, {{0xE0, 0xE0}, {0xA0, 0xBF}, {0x80, 0xBF}}},
    {3, {{0xE1, 0xEC}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {3, {{0xED, 0xED}, {0x80, 0x9F}, {0x80, 0xBF}}},
    {3, {{0xEE, 0xEF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF0, 0xF0}, {0x90, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF1, 0xF3}, {0x80, 0xBF}, {0x80, 0xBF}, {0x80, 0xBF}}},
    {4, {{0xF4, 0xF4}, {0x80, 0x8F}, {0x80, 0xBF}, {0x80, 0xBF}}},
};

std::wstring plainDecode(const std::string& bytes)
{
    std::wstring text;
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t longest = 1; // a byte that begins no sequence is replaced alone
        wchar_t character = 0xFFFD;
        for (const Row& row : kWellFormed) {
            std::size_t fit = 0;
            long value = 0;
            for (; fit < std::size_t(row.size) && at + fit < bytes.size(); ++fit) {
                const int byte = static_cast<unsigned char>(bytes[at + fit]);
                if (byte < row.ranges[fit][0] || byte > row.ranges[fit][1])
                    break;
                value = fit == 0 ? byte & (row.size == 1 ? 0x7F : 0x7F >> row.size)
                                 : value << 6 | (byte & 0x3F);
            }
            longest = std::max(longest, fit);
            if (fit == std::size_t(row.size))
                character = static_cast<wchar_t>(value);
        }
        text += character;
        at += longest;
    }
    return text;
}

std::string plainEncode(const std::wstring& text)
{
    std::string bytes;
    for (const wchar_t c : text) {
        const bool scalar = c >= 0 && c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF);
        const long value = scalar ? c : 0xFFFD;
        int trail = value < 0x80 ? 0 : value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
        bytes += static_cast<char>(trail == 0 ? value
                                              : (0xF00 >> (trail + 1) & 0xFF) | value >> 6 * trail);
        while (trail-- > 0)
            bytes += static_cast<char>(0x80 | (value >> 6 * trail & 0x3F));
    }
    return bytes;
}

// A block of exactly this size, so that the sanitizer sees an access beyond it.
template <class Ch> std::unique_ptr<Ch[]> exactly(const std::basic_string<Ch>& text)
{
    std::unique_ptr<Ch[]> copy(new Ch[text.size()]);
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    Input same = input;
    const std::string bytes = same.rest();
    const std::wstring decoded = plainDecode(bytes);
    const auto exact = exactly(bytes);
    FUZZ_CLAIM(plain(Utf8::decode(exact.get(), bytes.size())) == decoded);
    FUZZ_CLAIM(Utf8::Plain::decodedLength(exact.get(), bytes.size()) == decoded.size());
    const auto widened = Utf8::widen(exact.get(), bytes.size());
    for (unsigned int i = 0; i < bytes.size(); ++i)
        FUZZ_CLAIM(widened[i] == static_cast<unsigned char>(bytes[i]));

    for (const std::wstring& text : {decoded, input.wideRest(true)}) {
        const std::string encoded = plainEncode(text);
        const auto exactText = exactly(text);
        FUZZ_CLAIM(plain(Utf8::encode(exactText.get(), text.size())) == encoded);
        FUZZ_CLAIM(Utf8::Plain::encodedLength(exactText.get(), text.size()) == encoded.size());
        std::string byPlain(encoded.size(), '?');
        Utf8::Plain::encode(exactText.get(), text.size(), byPlain.data());
        FUZZ_CLAIM(byPlain == encoded);
        const auto exactBytes = exactly(encoded);
        FUZZ_CLAIM(plain(Utf8::decode(exactBytes.get(), encoded.size())) == plainDecode(encoded));
    }
    return 0;
}
