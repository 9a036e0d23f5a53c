// LightweightVector.h - A vector whose copies share their elements.
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
///     same.push_back(pair); // pairs.size() is 1, too
///
/// Layout: a virtual-table pointer and a Vx::Ptr, which is never empty: moving copies.
/// Sharing: copies and assigned handles share the elements, which are not copied on write: a
///   change through one handle is visible through all of them.
/// Ownership: the last handle destroys the elements.
/// Errors: only exhausted memory, which throws what the platform throws; the elements are
///   unchanged then.
/// Thread safety: handles may be copied and destroyed on different threads. The elements are
///   not protected: changing them while other threads read them needs a lock.
template <class T> class VX_API LightweightVector : public iVirtual {
public:
    using value_type = T;
    using iterator = typename std::vector<T>::iterator;
    using const_iterator = typename std::vector<T>::const_iterator;

    /// Creates an empty vector of its own.
    LightweightVector() : items_(new std::vector<T>) {}

    /// Shares the elements of \p other.
    LightweightVector(const LightweightVector& other) noexcept : iVirtual(), items_(other.items_) {}
    LightweightVector& operator=(const LightweightVector&) noexcept = default;

    ~LightweightVector() override {}

    /// Appends a copy of \p item. May invalidate references and iterators, also those obtained
    /// through other handles.
    void push_back(const T& item) { items_->push_back(item); }

    unsigned int size() const noexcept { return static_cast<unsigned int>(items_->size()); }
    bool empty() const noexcept { return items_->empty(); }

    /// The element at \p index, which must be less than size().
    T& operator[](unsigned int index) noexcept { return (*items_)[index]; }
    const T& operator[](unsigned int index) const noexcept
    {
        const std::vector<T>& items = *items_;
        return items[index];
    }

    iterator begin() noexcept { return items_->begin(); }
    iterator end() noexcept { return items_->end(); }
    const_iterator begin() const noexcept { return items_->cbegin(); }
    const_iterator end() const noexcept { return items_->cend(); }

private:
    Vx::Ptr<std::vector<T>, Vx::DtorTraits, Vx::ExternalRefCountTraits> items_;
};
