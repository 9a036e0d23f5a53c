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
    // Deliberate: up to the terminator, so nothing after an embedded zero is converted.
    return to += OS()->systemUtils()->fromUTF8(text.c_str(), iSystemUtils::kUpToTerminator);
}

LightweightString<char>& operator+=(LightweightString<char>& to,
                                    const LightweightString<wchar_t>& text)
{
    return to += OS()->systemUtils()->toUTF8(text);
}

namespace {

// Both parts in one block, or none if both are empty.
// Flattened, since a call for each step takes a tenth of the time of joining two names.
template <class Ch>
[[gnu::flatten]] LightweightString<Ch> join(const Ch* left, const LightweightString<Ch>& right)
{
    const std::basic_string_view<Ch> start(left);
    LightweightString<Ch> joined;
    joined.createImpl(Vx::detail::checkedLength(start.size() + right.length()), true);
    if (!joined.empty()) {
        Ch* const chars = const_cast<Ch*>(joined.c_str()); // nothing shares the new block
        std::memcpy(chars, left, sizeof(Ch) * start.size());
        Vx::detail::copyUpToZero(chars + start.size(), right.c_str(), right.length());
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
        word += static_cast<char>(c); // drops zeros
    return stream;
}
