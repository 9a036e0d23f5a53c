#include <Vx/VxEmail.h>

#include <Vx/LightweightString.h>
#include <Vx/VxAttribValuePair.h>
#include <Vx/VxStringUtils.h>
#include <string_view>

bool Vx::isAcceptableEmailAddress(const LightweightString<wchar_t>& address)
{
    constexpr std::wstring_view kForbidden = L"\"():;,\\";

    const std::wstring_view text(address);
    if (text.empty())
        return false;
    const std::size_t at = text.find(L'@');
    if (at == text.npos || at != text.rfind(L'@') || at == 0 || at == text.size() - 1)
        return false;
    if (text.find_first_of(kForbidden) != text.npos)
        return false;

    const AttribValuePair parts(toUTF8(address), '@');
    const std::string_view domain(parts.value);
    const std::size_t dot = domain.rfind('.');
    return dot != domain.npos && domain.size() - dot > 2;
}
