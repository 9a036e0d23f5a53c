// detail/FieldHash.h - The hash of a metadata record: of all its fields.
#pragma once

#include <cstddef>
#include <functional>
#include <tuple>
#include <type_traits>

namespace Vx {
namespace detail {

template <class... Fields>
std::size_t hashFields(const std::tuple<const Fields&...>& fields) noexcept
{
    return std::apply(
        [](const auto&... field) {
            std::size_t mixed = 0;
            ((mixed = mixed * 31 + std::hash<std::decay_t<decltype(field)>>()(field)), ...);
            return mixed;
        },
        fields);
}

} // namespace detail
} // namespace Vx
