// Uuid.h - new identifiers from the kernel's random numbers.
#pragma once

#include <Vx/platform/iSystemUtils.h>

namespace Uuid {

/// A random identifier, version 4 of RFC 4122: 122 bits straight from the kernel. In our
/// byte order the version is the high half of byte 7, the variant the top of byte 8.
///
/// Randomness is fetched ahead, block-wise. Each bit is used once and wiped from the block;
/// a forked child never sees what its parent fetched.
///
/// Errors: none. There is no second source: if the kernel has no random numbers to give,
///   the process ends with a line that says so, rather than hand out identifiers that might
///   not be unique.
/// Threads: any; they do not wait for one another.
SimpleUUID generate() noexcept;

/// Makes 16 random bytes a version 4 identifier.
SimpleUUID fromRandom(const unsigned char* bytes) noexcept;

} // namespace Uuid
