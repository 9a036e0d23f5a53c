#include "memory/SmallBlocks.h"
#include "threads/Threading.h"

#include <Vx/detail/Inspect.h>

static_assert(sizeof(Vx::detail::InspectPlatform) == 48, "tools read it at these offsets");

constinit const Vx::detail::InspectPlatform Vx_inspectPlatform = {
    {'V', 'x', ' ', 'p', 'l', 'a', 't', 'f', 'o', 'r', 'm', ' ', '1', '\n', '\x1a', 0},
    Vx::detail::kInspectVersion,
    sizeof(Vx::detail::InspectPlatform),
    &Vx_inspectPlatform,
    &Threading::lockLayout,
#if VX_SMALL_BLOCKS
    &SmallBlocks::layout,
#else
    nullptr,
#endif
};
