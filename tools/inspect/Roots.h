// Roots.h - Finds the libraries' descriptors in a process, and reads what they refer to.
#pragma once

#include "Process.h"

#include <Vx/detail/Inspect.h>

namespace inspect {

/// Copies of the tables that the descriptors refer to, checked. A table that an older library
/// does not have, or that cannot be read, is missing.
struct Roots {
    std::string libraryVersion;
    std::optional<Vx::detail::InspectLocks> locks;
    std::optional<Vx::detail::InspectNames> names;
    std::optional<Vx::detail::InspectShutdown> shutdown;
    std::optional<Vx::detail::InspectApplication> application;
    std::optional<Vx::detail::InspectPools> pools;
    std::optional<Vx::detail::InspectPlatformLocks> platformLocks;
    std::optional<Vx::detail::InspectBlocks> blocks;
    std::string platformFile; ///< the path of the module with the platform's descriptor
};

/// Looks for the descriptors in the initialised data of all modules, so that neither symbols nor
/// the files are needed.
/// \throws CannotInspect
Roots findRoots(const Process& process);

} // namespace inspect
