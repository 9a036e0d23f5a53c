// Misuse.h - Ends the process when memory is freed that must not be.
#pragma once

/// Writes "Vx: deallocate(ADDRESS): WHAT" and a line end to standard error and aborts.
/// Allocates nothing: the heap may be damaged.
[[noreturn]] void abortOnMisuse(const void* block, const char* what) noexcept;
