#include <Vx/detail/Inspect.h>

using Vx::detail::Inspect;

static_assert(sizeof(Vx::detail::InspectDescriptor) == 96, "tools read it at these offsets");

constinit const Vx::detail::InspectDescriptor Vx_inspectDescriptor = {
    {'V', 'x', ' ', 'l', 'i', 'b', 'r', 'a', 'r', 'y', ' ', '1', '\n', '\x1a', '\x7f', 0},
    Vx::detail::kInspectVersion,
    sizeof(Vx::detail::InspectDescriptor),
    &Vx_inspectDescriptor,
    VX_LIBRARY_VERSION,
    &Inspect::locks,
    &Inspect::names,
    &Inspect::shutdown,
    &Inspect::application,
    &Inspect::pools,
};
