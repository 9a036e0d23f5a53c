// VxPtr.h - shared ownership by reference count.
#pragma once

#include <Vx/VxFwd.h>
#include <Vx/VxObject.h>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Vx {

/// Says how the last Vx::Ptr destroys: with the object's own destructor.
struct DtorTraits {
    /// Ends the life of \p object and gives its memory back.
    template <class T> static void destroy(T* object) noexcept { delete object; }
};

namespace PtrDetail {

/// Whether what Destroy ends is plain memory: nobody else can reach its count then, so a sole
/// holder needs no atomic operation to count itself out.
template <class Destroy, class = void> inline constexpr bool kPlainMemory = false;
template <class Destroy>
inline constexpr bool kPlainMemory<Destroy, std::enable_if_t<Destroy::kPlainMemory>> = true;

} // namespace PtrDetail

/// Says where the count lives: inside the object. For a Vx::InternalRefCount
/// descendant it is the count of that base; any other class offers a public
/// `unsigned int refCount`.
struct InternalRefCountTraits {
    /// The count of \p object.
    template <class T> static unsigned int* counterOf(T* object)
    {
        if constexpr (std::is_base_of_v<InternalRefCount, T>)
            return &static_cast<InternalRefCount*>(object)->refCount_;
        else
            return &object->refCount;
    }
    /// Nothing: the count goes with the object.
    static void freeCounter(unsigned int*) noexcept {}
};

/// Says where the count lives: in a counter of its own, allocated with `new`.
struct ExternalRefCountTraits {
    /// A new counter, at 0. \throws whatever `new` throws
    template <class T> static unsigned int* counterOf(T*) { return new unsigned int(0); }
    /// Gives the counter back, before the object goes.
    static void freeCounter(unsigned int* counter) noexcept { delete counter; }
};

/// Shares ownership of an object; the last pointer to let go destroys it.
///
///     Vx::Ptr<iLock> lock = OS()->threading()->createLock(0);
///     lock->lock();
///
/// Shape: two pointers, the count and the object; both null when empty.
/// Threads: counts change by sequentially consistent read-modify-writes, so two
///   threads may hold one object through two pointers. (The sole holder of what is
///   plain memory only looks at the count: nobody else can.) One pointer object is
///   a plain value: share it for reading, guard it for writing.
/// Errors: only the construction from a raw object may throw, and only with
///   ExternalRefCountTraits (the counter is allocated); the object is destroyed
///   then. Releasing never throws: an exception that escapes a destructor ends the
///   process.
template <class T, class Destroy, class Count> class Ptr {
public:
    /// The standard library's name for what is pointed at.
    using element_type = T;

    /// Holds nothing.
    constexpr Ptr() noexcept = default;
    constexpr Ptr(std::nullptr_t) noexcept {}

    /// Becomes a holder of \p raw, taking ownership with the first holder. Null gives
    /// an empty pointer.
    explicit Ptr(T* raw)
    {
        if (raw == nullptr)
            return;
        // If the counter cannot be had, the object is still ours to destroy.
        struct Guard {
            T* raw;
            ~Guard()
            {
                if (raw != nullptr)
                    Destroy::destroy(raw);
            }
        } guard{raw};
        count = Count::counterOf(raw);
        object = std::exchange(guard.raw, nullptr);
        incRef();
    }

    /// Becomes a holder of \p raw, whose counter stands at \p counter: the form in
    /// which a platform hands out its objects. The holder is counted, so the first
    /// one finds the counter at 0 and leaves it at 1.
    Ptr(unsigned int* counter, T* raw) noexcept
        : count(raw != nullptr ? counter : nullptr), object(raw)
    {
        incRef();
    }

    /// Becomes the holder that the counter at \p counter, which stands at 1, already counts.
    static Ptr adopt(unsigned int* counter, T* raw) noexcept
    {
        Ptr adopted;
        adopted.count = counter;
        adopted.object = raw;
        return adopted;
    }

    /// One holder more.
    Ptr(const Ptr& other) noexcept : count(other.count), object(other.object) { incRef(); }

    /// Takes the place of \p other, which becomes empty.
    Ptr(Ptr&& other) noexcept
        : count(std::exchange(other.count, nullptr)), object(std::exchange(other.object, nullptr))
    {}

    /// Shares the object of a pointer to a derived class.
    template <class D,
              class = std::enable_if_t<!std::is_same_v<D, T> && std::is_convertible_v<D*, T*>>>
    Ptr(const Ptr<D, Destroy, Count>& other) noexcept : count(other.count), object(other.object)
    {
        static_assert(std::has_virtual_destructor_v<T> || !std::is_same_v<Destroy, DtorTraits>,
                      "the last holder may see only the base: it needs a virtual destructor");
        incRef();
    }

    /// Lets go; the last holder destroys the object.
    ~Ptr() { decRef(); }

    /// Holds what \p other holds. The new pair is installed before the old one is
    /// released; assigning a pointer to itself changes nothing.
    Ptr& operator=(const Ptr& other) noexcept
    {
        Ptr(other).swap(*this);
        return *this;
    }

    /// Lets go and takes the place of \p other, which becomes empty.
    Ptr& operator=(Ptr&& other) noexcept
    {
        Ptr(std::move(other)).swap(*this);
        return *this;
    }

    /// Lets go and becomes empty.
    void reset() noexcept { Ptr().swap(*this); }

    /// Lets go and becomes a holder of \p next.
    void reset(T* next) { Ptr(next).swap(*this); }

    /// Exchanges what the two hold; no count changes.
    void swap(Ptr& other) noexcept
    {
        std::swap(count, other.count);
        std::swap(object, other.object);
    }

    /// The object; null, and not to be followed, when empty.
    T* get() const noexcept { return object; }
    T* operator->() const noexcept { return object; }
    T& operator*() const noexcept { return *object; }

    /// Whether there is an object.
    explicit operator bool() const noexcept { return object != nullptr; }

    /// The number of holders at this moment; 0 for an empty pointer.
    unsigned int useCount() const noexcept
    {
        return object != nullptr ? __atomic_load_n(count, __ATOMIC_ACQUIRE) : 0;
    }

    /// Counts one holder more; nothing for an empty pointer. For code that keeps
    /// the books itself: every incRef() needs its decRef().
    void incRef() noexcept
    {
        if (object != nullptr)
            __atomic_fetch_add(count, 1u, __ATOMIC_SEQ_CST);
    }

    /// Counts one holder less; the last one destroys the object and leaves this
    /// pointer empty.
    ///
    /// Deliberate: while others still hold the object, this pointer keeps both its
    /// addresses. The destructor and assignment, the usual callers, overwrite or
    /// abandon them.
    void decRef() noexcept
    {
        if (object == nullptr)
            return;
        // A count of 1 is this holder's own, and nobody else can raise it.
        if (PtrDetail::kPlainMemory<Destroy> && __atomic_load_n(count, __ATOMIC_ACQUIRE) == 1)
            __atomic_store_n(count, 0u, __ATOMIC_RELAXED);
        else if (__atomic_sub_fetch(count, 1u, __ATOMIC_SEQ_CST) != 0)
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

/// Two pointers are equal when they hold the same object.
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
