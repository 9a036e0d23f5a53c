// ReclaimRegistry.h - The living reclaimable objects of the process.
#pragma once

#include <Vx/platform/iReclaimRegistry.h>
#include <cstddef>

/// The addresses of all living Reclaimable objects, in a hash table.
///
/// The platform never asks these objects for memory: an object is registered before its derived
/// part exists and until after that part is gone, and a thread that runs out of memory cannot
/// know whether another thread is at that point. The table serves debuggers, and hosts that
/// replace this service.
///
/// Errors: add() throws std::bad_alloc when the table cannot grow, and changes nothing then.
///   remove() never allocates and never throws.
/// Thread safety: any thread, also while another thread forks.
/// Lifetime: constant-initialised, never destroyed. The last object to leave frees the table.
class ReclaimRegistry final : public iReclaimRegistry {
public:
    constexpr ReclaimRegistry() noexcept = default;

    void add(Reclaimable* object) override;

    /// Ignores an object that is not registered.
    void remove(Reclaimable* object) override;

    /// Returns the number of registered objects.
    std::size_t size() const;

private:
    Reclaimable** find(const Reclaimable* object) const noexcept;
    void growIfFull();

    // Guarded by one mutex, which all registries share.
    Reclaimable** slots_ = nullptr; // linear probing; empty slots are null, one at least is
    std::size_t capacity_ = 0;      // 0 or a power of two
    std::size_t size_ = 0;
};
