// VxPtr.h - Shared ownership by reference count.
#pragma once

#include <Vx/VxFwd.h>
#include <Vx/VxObject.h>
#include <Vx/detail/RefCount.h>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Vx {

/// Shares ownership of an object; the last pointer to release it destroys it.
///
///     Vx::Ptr<iLock> lock = OS()->threading()->createLock(0);
///     lock->lock();
///
/// Parameters: \p Destroy says how the last pointer destroys the object, \p Count where its
///   32-bit reference count is stored; see the traits below.
/// Layout: two pointers, to the count and to the object; both are null when empty.
/// Thread safety: counts change by sequentially consistent read-modify-writes, so threads may
///   share an object through pointers of their own. A pointer itself is a value type:
///   concurrent reads are safe, writes need a lock.
/// Errors: only construction from a raw object with ExternalRefCountTraits throws, if the
///   counter cannot be allocated; the object is destroyed then. An exception that leaves the
///   object's destructor terminates the process.
template <class T, class Destroy, class Count> class Ptr {
public:
    using element_type = T;

    /// The empty pointer.
    constexpr Ptr() noexcept = default;
    constexpr Ptr(std::nullptr_t) noexcept {}

    /// Holds \p raw, and takes ownership of it if nothing holds it yet. With
    /// ExternalRefCountTraits no other pointer may hold it, because this makes a new counter.
    /// Null gives the empty pointer.
    explicit Ptr(T* raw)
    {
        if (raw == nullptr)
            return;
        try {
            count = Count::counterOf(raw);
        } catch (...) {
            Destroy::destroy(raw);
            throw;
        }
        object = raw;
        incRef();
    }

    /// Holds \p raw, whose count is stored at \p counter. This is how a platform returns its
    /// objects: the pointer increments the count, which is 0 for a new object.
    Ptr(unsigned int* counter, T* raw) noexcept
        : count(raw != nullptr ? counter : nullptr), object(raw)
    {
        incRef();
    }

    /// Holds \p raw without incrementing the count at \p counter, which is 1 already.
    static Ptr adopt(unsigned int* counter, T* raw) noexcept
    {
        Ptr adopted;
        adopted.count = counter;
        adopted.object = raw;
        return adopted;
    }

    Ptr(const Ptr& other) noexcept : count(other.count), object(other.object) { incRef(); }

    /// Leaves \p other empty.
    Ptr(Ptr&& other) noexcept
        : count(std::exchange(other.count, nullptr)), object(std::exchange(other.object, nullptr))
    {}

    /// Shares the object of a pointer to a derived class.
    template <class D,
              class = std::enable_if_t<!std::is_same_v<D, T> && std::is_convertible_v<D*, T*>>>
    Ptr(const Ptr<D, Destroy, Count>& other) noexcept : count(other.count), object(other.object)
    {
        static_assert(std::has_virtual_destructor_v<T> || !std::is_same_v<Destroy, DtorTraits>,
                      "the last pointer may be one to the base, which needs a virtual destructor");
        incRef();
    }

    ~Ptr() { decRef(); }

    /// Installs the new object before it releases the old one. Self-assignment does nothing.
    Ptr& operator=(const Ptr& other) noexcept
    {
        Ptr(other).swap(*this);
        return *this;
    }

    /// Leaves \p other empty.
    Ptr& operator=(Ptr&& other) noexcept
    {
        Ptr moved(std::move(other));
        swap(moved);
        return *this;
    }

    /// Releases the object and becomes empty, or holds \p next.
    void reset() noexcept { Ptr().swap(*this); }
    void reset(T* next) { Ptr(next).swap(*this); }

    /// Exchanges the objects without touching their counts.
    void swap(Ptr& other) noexcept
    {
        std::swap(count, other.count);
        std::swap(object, other.object);
    }

    /// The object; null when empty.
    T* get() const noexcept { return object; }
    T* operator->() const noexcept { return object; }
    T& operator*() const noexcept { return *object; }
    explicit operator bool() const noexcept { return object != nullptr; }

    /// The number of pointers that hold the object right now; 0 when empty.
    unsigned int useCount() const noexcept
    {
        return object != nullptr ? detail::readCount(count) : 0;
    }

    /// Increments the count, unless empty. For code that counts references itself; every
    /// incRef() needs a decRef().
    void incRef() noexcept
    {
        if (object != nullptr)
            __atomic_fetch_add(count, 1u, __ATOMIC_SEQ_CST);
    }

    /// Decrements the count, unless empty. At 0 it destroys the object and becomes empty.
    ///
    /// Deliberate: above 0 the pointer keeps its two addresses. Its usual callers, assignment
    /// and the destructor, overwrite or abandon them.
    void decRef() noexcept
    {
        if (object == nullptr || !detail::dropCount(count))
            return;
        Count::freeCounter(count);
        Destroy::destroy(object);
        count = nullptr;
        object = nullptr;
    }

private:
    template <class, class, class> friend class Ptr;

    unsigned int* count = nullptr;
    T* object = nullptr;
};

/// Destroys with the object's own destructor.
struct DtorTraits {
    /// Deletes the object.
    template <class T> [[gnu::noinline]] static void destroy(T* object) noexcept { delete object; }
};

/// Stores the count inside the object: in its Vx::InternalRefCount base, or else in its public
/// member `unsigned int refCount`.
struct InternalRefCountTraits {
    /// Returns the count inside the object.
    template <class T> static unsigned int* counterOf(T* object)
    {
        if constexpr (std::is_base_of_v<InternalRefCount, T>)
            return &static_cast<InternalRefCount*>(object)->refCount_;
        else
            return &object->refCount;
    }
    /// Does nothing: the count goes with the object.
    static void freeCounter(unsigned int*) noexcept {}
};

/// Stores the count in a counter of its own, allocated with `new` and freed before the object.
struct ExternalRefCountTraits {
    /// Allocates a counter.
    template <class T> static unsigned int* counterOf(T*) { return new unsigned int(0); }
    /// Frees the counter.
    [[gnu::noinline]] static void freeCounter(unsigned int* counter) noexcept { delete counter; }
};

/// Pointers are equal if they hold the same object.
template <class T, class U, class Destroy, class Count>
bool operator==(const Ptr<T, Destroy, Count>& a, const Ptr<U, Destroy, Count>& b) noexcept
{
    return a.get() == b.get();
}
template <class T, class U, class Destroy, class Count>
bool operator!=(const Ptr<T, Destroy, Count>& a, const Ptr<U, Destroy, Count>& b) noexcept
{
    return a.get() != b.get();
}
template <class T, class Destroy, class Count>
bool operator==(const Ptr<T, Destroy, Count>& a, std::nullptr_t) noexcept
{
    return a.get() == nullptr;
}
template <class T, class Destroy, class Count>
bool operator!=(const Ptr<T, Destroy, Count>& a, std::nullptr_t) noexcept
{
    return a.get() != nullptr;
}
template <class T, class Destroy, class Count>
bool operator==(std::nullptr_t, const Ptr<T, Destroy, Count>& b) noexcept
{
    return b.get() == nullptr;
}
template <class T, class Destroy, class Count>
bool operator!=(std::nullptr_t, const Ptr<T, Destroy, Count>& b) noexcept
{
    return b.get() != nullptr;
}

} // namespace Vx
