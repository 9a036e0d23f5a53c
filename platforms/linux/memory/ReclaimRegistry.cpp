#include "memory/ReclaimRegistry.h"

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <pthread.h>

namespace {

constinit std::mutex mutex;
constinit bool lockedAcrossForks = false; // guarded by mutex

// Without this, a child forked while another thread is in here would inherit a locked mutex and
// a half-changed table.
void lockAcrossForks()
{
    if (lockedAcrossForks)
        return;
    const auto lock = [] { mutex.lock(); };
    const auto unlock = [] { mutex.unlock(); };
    if (pthread_atfork(lock, unlock, unlock) != 0)
        throw std::bad_alloc();
    lockedAcrossForks = true;
}

std::size_t hashOf(const Reclaimable* object) noexcept
{
    // Multiplying carries the low bits, in which addresses differ, into the upper half.
    const std::uint64_t product =
        reinterpret_cast<std::uintptr_t>(object) * std::uint64_t{0x9E3779B97F4A7C15u};
    return static_cast<std::size_t>(product >> 32);
}

} // namespace

// Returns the slot that holds the object, or the empty slot where it belongs.
Reclaimable** ReclaimRegistry::find(const Reclaimable* object) const noexcept
{
    std::size_t at = hashOf(object) & (capacity_ - 1);
    while (slots_[at] != nullptr && slots_[at] != object)
        at = (at + 1) & (capacity_ - 1);
    return &slots_[at];
}

// Deliberate: allocates from the C library. A host's own allocator may register reclaimable
// objects itself.
void ReclaimRegistry::growIfFull()
{
    if (size_ + size_ / 2 < capacity_)
        return;
    constexpr std::size_t kFirstCapacity = 64;
    const std::size_t oldCapacity = capacity_;
    const std::size_t newCapacity = oldCapacity != 0 ? 2 * oldCapacity : kFirstCapacity;
    auto** const grown = static_cast<Reclaimable**>(std::calloc(newCapacity, sizeof(void*)));
    if (grown == nullptr)
        throw std::bad_alloc();
    Reclaimable** const old = slots_;
    slots_ = grown;
    capacity_ = newCapacity;
    for (std::size_t i = 0; i < oldCapacity; ++i)
        if (old[i] != nullptr)
            *find(old[i]) = old[i];
    std::free(old);
}

void ReclaimRegistry::add(Reclaimable* object)
{
    const std::lock_guard<std::mutex> guard(mutex);
    lockAcrossForks();
    growIfFull();
    Reclaimable** const slot = find(object);
    assert(*slot == nullptr && "an object registers once");
    *slot = object;
    ++size_;
}

void ReclaimRegistry::remove(Reclaimable* object)
{
    const std::lock_guard<std::mutex> guard(mutex);
    Reclaimable** const slot = capacity_ != 0 ? find(object) : nullptr;
    if (slot == nullptr || *slot == nullptr)
        return;
    if (--size_ == 0) {
        std::free(slots_);
        slots_ = nullptr;
        capacity_ = 0;
        return;
    }
    // Move later entries of the probe chain into the gap, or a search would end there.
    std::size_t gap = static_cast<std::size_t>(slot - slots_);
    slots_[gap] = nullptr;
    const std::size_t mask = capacity_ - 1;
    for (std::size_t at = (gap + 1) & mask; slots_[at] != nullptr; at = (at + 1) & mask) {
        const std::size_t distance = (at - hashOf(slots_[at])) & mask;
        if (distance >= ((at - gap) & mask)) {
            slots_[gap] = slots_[at];
            slots_[at] = nullptr;
            gap = at;
        }
    }
}

std::size_t ReclaimRegistry::size() const
{
    const std::lock_guard<std::mutex> guard(mutex);
    return size_;
}
