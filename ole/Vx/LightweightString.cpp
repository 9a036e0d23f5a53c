#include <Vx/LightweightString.h>

#include <Vx/platform/iSystemUtils.h>
#include <cctype>
#include <istream>

template void LightweightString<char>::createImpl(unsigned int, bool);
template void LightweightString<wchar_t>::createImpl(unsigned int, bool);
template LightweightString<char>& LightweightString<char>::resizeFor(unsigned int);
template LightweightString<wchar_t>& LightweightString<wchar_t>::resizeFor(unsigned int);
template LightweightString<char>& LightweightString<char>::append(const char*, unsigned int);
template LightweightString<char>::~LightweightString();
template LightweightString<wchar_t>::~LightweightString();

LightweightString<wchar_t>& operator+=(LightweightString<wchar_t>& to,
                                       const LightweightString<char>& text)
{
    // Deliberate: up to the terminator, so what stands behind an embedded 0 is not
    // converted.
    return to += OS()->systemUtils()->fromUTF8(text.c_str(), iSystemUtils::kUpToTerminator);
}

LightweightString<char>& operator+=(LightweightString<char>& to,
                                    const LightweightString<wchar_t>& text)
{
    return to += OS()->systemUtils()->toUTF8(text);
}

namespace {

// One block for both parts, or none when there is nothing to hold.
template <class Ch> LightweightString<Ch> join(const Ch* left, const LightweightString<Ch>& right)
{
    const std::size_t total = std::basic_string_view<Ch>(left).size() + right.length();
    if (total > 0xFFFFFFFFu)
        Vx::StringDetail::throwTooLong();
    const unsigned int leftLength = static_cast<unsigned int>(total) - right.length();
    LightweightString<Ch> joined;
    joined.createImpl(static_cast<unsigned int>(total), true);
    if (total != 0) {
        Ch* const chars = Vx::StringDetail::Access::blockOf(joined)->data;
        std::memcpy(chars, left, sizeof(Ch) * std::size_t(leftLength));
        Vx::StringDetail::copyTextUpToZero(chars + leftLength, right.c_str(), right.length());
    }
    return joined;
}

} // namespace

LightweightString<char> operator+(const char* left, const LightweightString<char>& right)
{
    return join(left != nullptr ? left : "", right);
}

LightweightString<wchar_t> operator+(const wchar_t* left, const LightweightString<wchar_t>& right)
{
    return join(left, right);
}

std::istream& operator>>(std::istream& stream, LightweightString<char>& word)
{
    constexpr int kEndOfStream = std::char_traits<char>::eof();
    for (int c = stream.get(); c != kEndOfStream && !std::isspace(c); c = stream.get())
        word += static_cast<char>(c); // a 0 appends nothing
    return stream;
}
