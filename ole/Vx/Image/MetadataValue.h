// Image/MetadataValue.h - what makes the metadata records values: comparison and hashing.
#pragma once

#include <cstddef>
#include <functional>
#include <tuple>
#include <type_traits>

namespace Vx {
namespace Image {

/// A hash over all fields of a record.
template <class Record> struct MetadataHash {
    /// Equal records have equal hashes.
    std::size_t operator()(const Record& record) const noexcept
    {
        return std::apply(
            [](const auto&... field) {
                std::size_t mixed = 0;
                ((mixed = mixed * 31 + std::hash<std::decay_t<decltype(field)>>()(field)), ...);
                return mixed;
            },
            record.fields());
    }
};

/// A type for metadata records, none for any other.
template <class Record> using IfMetadata = typename Record::IsMetadata;

} // namespace Image
} // namespace Vx

// At global scope, where the records' root class stands, so that one set of operators serves
// all five.

/// Records compare field by field, in the order of declaration.
template <class Record, class = Vx::Image::IfMetadata<Record>>
bool operator==(const Record& a, const Record& b) noexcept
{
    return a.fields() == b.fields();
}
template <class Record, class = Vx::Image::IfMetadata<Record>>
bool operator!=(const Record& a, const Record& b) noexcept
{
    return !(a == b);
}
template <class Record, class = Vx::Image::IfMetadata<Record>>
bool operator<(const Record& a, const Record& b) noexcept
{
    return a.fields() < b.fields();
}
template <class Record, class = Vx::Image::IfMetadata<Record>>
bool operator>(const Record& a, const Record& b) noexcept
{
    return b < a;
}
template <class Record, class = Vx::Image::IfMetadata<Record>>
bool operator<=(const Record& a, const Record& b) noexcept
{
    return !(b < a);
}
template <class Record, class = Vx::Image::IfMetadata<Record>>
bool operator>=(const Record& a, const Record& b) noexcept
{
    return !(a < b);
}
