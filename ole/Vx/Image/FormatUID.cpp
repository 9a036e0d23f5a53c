#include <Vx/Image/FormatUID.h>

#include <Vx/VxStringNumbers.h>
#include <cstdlib>

namespace {

// Negative, 0 or positive. An empty string sorts before all others, even one that begins with NUL.
int compare(const LightweightString<char>& a, const LightweightString<char>& b) noexcept
{
    if (a.empty() || b.empty())
        return static_cast<int>(b.empty()) - static_cast<int>(a.empty());
    return a.c_str() == b.c_str() ? 0 : std::strcmp(a.c_str(), b.c_str());
}

} // namespace

Vx::Image::FormatUID::FormatUID() : text_("0", 1) {}

// Deliberate: signed, so 4294967295 becomes "-1", which operator== undoes.
Vx::Image::FormatUID::FormatUID(unsigned int id) : text_(StringFromInteger(static_cast<int>(id))) {}

Vx::Image::FormatUID::FormatUID(const LightweightString<char>& text) : text_(text) {}

Vx::Image::FormatUID& Vx::Image::FormatUID::operator=(const FormatUID& other) noexcept
{
    if (compare(text_, other.text_) != 0)
        text_ = other.text_;
    return *this;
}

bool Vx::Image::FormatUID::valid() const noexcept
{
    return !text_.empty() && !(text_.length() == 1 && text_[0] == '0');
}

bool Vx::Image::FormatUID::isCustom() const noexcept { return text_.length() > 4; }

bool Vx::Image::FormatUID::operator==(unsigned int id) const noexcept
{
    // Deliberate: only standard formats compare as numbers.
    return text_.length() >= 1 && text_.length() <= 3 &&
           static_cast<unsigned int>(std::strtol(text_.c_str(), nullptr, 10)) == id;
}

bool Vx::Image::FormatUID::operator==(const LightweightString<char>& text) const noexcept
{
    return compare(text_, text) == 0;
}

bool Vx::Image::FormatUID::operator==(const FormatUID& other) const noexcept
{
    return compare(text_, other.text_) == 0;
}

bool Vx::Image::FormatUID::operator!=(const FormatUID& other) const noexcept
{
    return compare(text_, other.text_) != 0;
}

bool Vx::Image::FormatUID::operator<(const FormatUID& other) const noexcept
{
    return compare(text_, other.text_) < 0;
}
