// LightweightVector.h - a vector whose copies share their items.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <Vx/VxObject.h>
#include <Vx/VxPtr.h>
#include <cstddef>
#include <vector>

/// A handle to a shared `std::vector<T>`.
///
///     LightweightVector<Vx::AttribValuePair> pairs;
///     LightweightVector<Vx::AttribValuePair> same(pairs);
///     same.push_back(pair); // pairs.size() is 1 as well
///
/// Shape: a virtual-table pointer and one Vx::Ptr. There is always a vector behind it;
///   moving is copying, so a handle never goes empty.
/// Sharing: no copy on write. An item that is added or changed through one copy is seen
///   through all of them; a vector of one's own is made with a constructor.
/// Ownership: the last copy to go destroys the items.
/// Threads: copies may be made and destroyed on different threads; the items are guarded
///   by nothing, so whoever changes them while others look brings a lock.
/// Errors: memory exhaustion passes through and leaves the items as they were.
template <class T> class VX_API LightweightVector : public iVirtual {
public:
    /// The standard library's names for the parts of a container.
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    /// An empty vector, shared with nobody yet.
    LightweightVector() : items_(new std::vector<T>) {}

    /// Shares the items of \p other.
    LightweightVector(const LightweightVector& other) noexcept : iVirtual(), items_(other.items_) {}
    LightweightVector& operator=(const LightweightVector&) noexcept = default;

    ~LightweightVector() override {}

    /// Appends a copy of \p item; every holder sees it. References to items and positions
    /// become invalid when the vector grows.
    void push_back(const T& item) { items_->push_back(item); }

    /// The items, or whether there are none.
    unsigned int size() const noexcept { return static_cast<unsigned int>(items_->size()); }
    bool empty() const noexcept { return items_->empty(); }

    /// The item at \p index, which is below size().
    T& operator[](unsigned int index) noexcept { return (*items_)[index]; }
    const T& operator[](unsigned int index) const noexcept
    {
        const std::vector<T>& items = *items_;
        return items[index];
    }

    /// The items as a range; valid until the vector grows, through whichever copy.
    iterator begin() noexcept { return items_->begin(); }
    iterator end() noexcept { return items_->end(); }
    const_iterator begin() const noexcept { return items_->cbegin(); }
    const_iterator end() const noexcept { return items_->cend(); }

private:
    Vx::Ptr<std::vector<T>, Vx::DtorTraits, Vx::ExternalRefCountTraits> items_;
};
