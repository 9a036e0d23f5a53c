// Modules.h - Finds the program or library that an address belongs to.
#pragma once

#include <cstdint>
#include <link.h>

namespace Modules {

/// A program or library in memory.
struct Module {
    std::uintptr_t base = 0;             ///< what its own addresses are relative to
    const char* path = nullptr;          ///< "" for the program itself
    const ElfW(Dyn) * dynamic = nullptr; ///< its dynamic section
    std::uintptr_t begin = 0, end = 0;   ///< the range that it is mapped to
};

/// Finds the module that contains \p address and describes it in \p module.
/// \returns false if there is none, and leaves \p module unspecified
///
/// Thread safety: any thread. Takes no lock where the C library offers that (version 2.35 and
///   later), and otherwise the lock that the unwinder takes there as well.
bool find(const void* address, Module& module) noexcept;

namespace Detail {

/// The C library's struct dl_find_object, which older ones do not declare.
struct FoundObject {
    unsigned long long flags;
    void* begin;
    void* end;
    link_map* module;
    void* unwindTable;
    unsigned long long reserved[7];
};

/// The C library's _dl_find_object(); null in older ones, and before our constructors have run.
extern int (*findObject)(void* address, FoundObject* found);

} // namespace Detail
} // namespace Modules
