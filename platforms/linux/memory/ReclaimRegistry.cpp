#include "memory/ReclaimRegistry.h"

#include <Vx/Reclaimable.h>

#include <cassert>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>
#include <pthread.h>

namespace {

constinit std::mutex mutex;
constinit bool heldAcrossForks = false; // guarded by mutex

// A fork while another thread is inside would leave the child a table in pieces and a lock
// that nobody gives back.
void holdAcrossForks()
{
    if (heldAcrossForks)
        return;
    const auto lock = [] { mutex.lock(); };
    const auto unlock = [] { mutex.unlock(); };
    if (pthread_atfork(lock, unlock, unlock) != 0)
        throw std::bad_alloc();
    heldAcrossForks = true;
}

std::size_t hashOf(const Reclaimable* object) noexcept
{
    // Addresses differ little in their low bits; the product spreads all of them upwards.
    const std::uint64_t spread =
        reinterpret_cast<std::uintptr_t>(object) * std::uint64_t{0x9E3779B97F4A7C15u};
    return static_cast<std::size_t>(spread >> 32);
}

} // namespace

// The slot of the object, or the free one where it belongs.
ReclaimRegistry::Slot* ReclaimRegistry::find(const Reclaimable* object) const noexcept
{
    std::size_t at = hashOf(object) & (capacity_ - 1);
    while (slots_[at].object != nullptr && slots_[at].object != object)
        at = (at + 1) & (capacity_ - 1);
    return &slots_[at];
}

// Deliberate: straight from the C library. The platform's allocator may be someone else's,
// who registers objects of his own.
void ReclaimRegistry::growIfFull()
{
    if (size_ + size_ / 2 < capacity_)
        return;
    constexpr std::size_t kFirstCapacity = 64;
    const std::size_t oldCapacity = capacity_;
    const std::size_t newCapacity = oldCapacity != 0 ? 2 * oldCapacity : kFirstCapacity;
    Slot* const grown = static_cast<Slot*>(std::calloc(newCapacity, sizeof(Slot)));
    if (grown == nullptr)
        throw std::bad_alloc();
    Slot* const old = slots_;
    slots_ = grown;
    capacity_ = newCapacity;
    for (std::size_t i = 0; i < oldCapacity; ++i)
        if (old[i].object != nullptr)
            *find(old[i].object) = old[i];
    std::free(old);
}

void ReclaimRegistry::add(Reclaimable* object)
{
    const std::lock_guard<std::mutex> guard(mutex);
    holdAcrossForks();
    growIfFull();
    Slot* const slot = find(object);
    assert(slot->object == nullptr && "an object registers once");
    *slot = {object, pass_}; // not before the next pass
    ++size_;
}

void ReclaimRegistry::remove(Reclaimable* object)
{
    const std::lock_guard<std::mutex> guard(mutex);
    Slot* const slot = capacity_ != 0 ? find(object) : nullptr;
    if (slot == nullptr || slot->object == nullptr)
        return;
    if (--size_ == 0) {
        std::free(slots_);
        slots_ = nullptr;
        capacity_ = 0;
        return;
    }
    // Whoever was pushed past the gap moves back into it, so that no search ends too early.
    std::size_t gap = static_cast<std::size_t>(slot - slots_);
    slots_[gap].object = nullptr;
    const std::size_t mask = capacity_ - 1;
    for (std::size_t at = (gap + 1) & mask; slots_[at].object != nullptr; at = (at + 1) & mask) {
        const std::size_t distance = (at - hashOf(slots_[at].object)) & mask;
        if (distance >= ((at - gap) & mask)) {
            slots_[gap] = slots_[at];
            slots_[at].object = nullptr;
            gap = at;
        }
    }
}

// Null when every object has been asked in this pass.
Reclaimable* ReclaimRegistry::takeCheapest() noexcept
{
    const std::lock_guard<std::mutex> guard(mutex);
    Slot* cheapest = nullptr;
    int lowest = 0;
    for (std::size_t i = 0; i < capacity_; ++i) {
        Slot& slot = slots_[i];
        if (slot.object == nullptr || slot.pass == pass_)
            continue;
        const int priority = slot.object->reclaimPriority();
        if (cheapest == nullptr || priority < lowest) {
            cheapest = &slot;
            lowest = priority;
        }
    }
    if (cheapest == nullptr)
        return nullptr;
    cheapest->pass = pass_;
    return cheapest->object;
}

unsigned long ReclaimRegistry::reclaim(unsigned long bytes)
{
    {
        const std::lock_guard<std::mutex> guard(mutex);
        if (reclaiming_)
            return 0;
        reclaiming_ = true;
        ++pass_;
    }
    struct Done {
        ReclaimRegistry& registry;
        ~Done()
        {
            const std::lock_guard<std::mutex> guard(mutex);
            registry.reclaiming_ = false;
        }
    } done{*this};
    // The objects are asked without the lock: they may take locks of their own and create
    // and destroy others.
    unsigned long freed = 0;
    while (freed < bytes) {
        Reclaimable* const object = takeCheapest();
        if (object == nullptr)
            break;
        freed += object->reclaim(bytes - freed);
    }
    return freed;
}

std::size_t ReclaimRegistry::size() const
{
    const std::lock_guard<std::mutex> guard(mutex);
    return size_;
}
