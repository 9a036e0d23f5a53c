// Fuzz.h - Shared by the fuzz targets: assertions, and typed access to the input.
#pragma once

#include <Vx/LightweightString.h>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

/// Runs the target on one input and asserts what must hold for every input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Aborts unless \p condition holds, in every build.
#define FUZZ_CLAIM(condition)                                                                      \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);    \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

/// The bytes of an input, consumed from the front.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

    bool empty() const { return left_ == 0; }

    /// Takes the next bytes as a number; missing bytes are 0.
    template <class Number> Number take()
    {
        Number number{};
        const std::size_t count = left_ < sizeof number ? left_ : sizeof number;
        if (count != 0)
            std::memcpy(&number, at_, count);
        at_ += count;
        left_ -= count;
        return number;
    }

    /// Takes everything up to the next '\n', which is dropped.
    std::string line()
    {
        std::string text;
        while (!empty()) {
            const char c = take<char>();
            if (c == '\n')
                break;
            text += c;
        }
        return text;
    }

    /// Takes all remaining bytes.
    std::string rest()
    {
        std::string bytes(reinterpret_cast<const char*>(at_), left_);
        left_ = 0;
        return bytes;
    }

    /// Takes all remaining bytes, one or \p four per character.
    std::wstring wideRest(bool four)
    {
        std::wstring text;
        while (!empty())
            text += four ? take<wchar_t>() : static_cast<wchar_t>(take<std::uint8_t>());
        return text;
    }

private:
    const std::uint8_t* at_;
    std::size_t left_;
};

/// Converts to a string of the library, embedded NULs included.
template <class Ch> LightweightString<Ch> ours(const std::basic_string<Ch>& text)
{
    return LightweightString<Ch>(text.data(), static_cast<unsigned int>(text.size()));
}

template <class Ch> std::basic_string<Ch> plain(const LightweightString<Ch>& text)
{
    return std::basic_string<Ch>(text.c_str(), text.length());
}
