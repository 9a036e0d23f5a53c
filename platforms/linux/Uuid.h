// Uuid.h - Generates identifiers from the kernel's random numbers.
#pragma once

#include <Vx/platform/iSystemUtils.h>

namespace Uuid {

/// Returns a random identifier, version 4 of RFC 4122: 122 bits from the kernel. In the stored
/// byte order the version is the upper half of byte 7, the variant the top of byte 8.
///
/// Errors: none. If the kernel has no random numbers, the process aborts with a message: there
///   is no second source, and identifiers that might not be unique are worse.
/// Thread safety: any thread; threads do not wait for one another. A forked child generates
///   other identifiers than its parent.
SimpleUUID generate() noexcept;

} // namespace Uuid
