// ReclaimRegistry.h - the living reclaimable objects.
#pragma once

#include <Vx/platform/iReclaimRegistry.h>
#include <cstddef>

/// Every living Reclaimable, in a hash table of their addresses.
///
/// Errors: add() throws std::bad_alloc when the table cannot grow, and has then changed
///   nothing. remove() allocates nothing and throws nothing.
/// Threads: add() and remove() any, a fork by another thread included. reclaim(): see there.
/// Lifetime: constant-initialised, never destroyed. The table goes with the last object.
class ReclaimRegistry final : public iReclaimRegistry {
public:
    constexpr ReclaimRegistry() noexcept = default;

    void add(Reclaimable* object) override;
    void remove(Reclaimable* object) override;

    /// Asks the objects, those of lowest priority first and each at most once, until
    /// \p bytes bytes are free. An object may create and destroy others while it is asked.
    /// A call while another is at work does nothing.
    ///
    /// Deliberate: the allocator does not call this when memory runs out. An object is
    ///   registered before its derived part exists and until after that part is gone, and
    ///   the thread that runs out of memory, or any other, may be at just that point with
    ///   any of them. Only whoever knows that no other thread is creating or destroying
    ///   reclaimable objects, and that itself is not, may ask.
    /// \returns the bytes that the objects say they freed
    unsigned long reclaim(unsigned long bytes);

    /// The number of registered objects.
    std::size_t size() const;

private:
    struct Slot {
        Reclaimable* object;
        unsigned long pass; // the last one in which the object was asked
    };

    Slot* find(const Reclaimable* object) const noexcept;
    void growIfFull();
    Reclaimable* takeCheapest() noexcept;

    // Guarded by one mutex, the same for all registries.
    Slot* slots_ = nullptr;    // capacity_ of them; linear probing, never full
    std::size_t capacity_ = 0; // 0 or a power of two
    std::size_t size_ = 0;
    unsigned long pass_ = 0;
    bool reclaiming_ = false;
};
