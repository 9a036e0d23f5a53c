// GuardedBlock.h - A block of memory followed by an inaccessible page.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

/// An array of \p Element that ends where an inaccessible page starts, so that access beyond the
/// end crashes the test.
template <class Element> class GuardedBlock {
public:
    /// Copies \p count elements, or fills with 0xAA bytes if \p from is null.
    GuardedBlock(const Element* from, std::size_t count)
    {
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t bytes = count * sizeof(Element);
        const std::size_t usable = (bytes + page - 1) / page * page;
        size_ = usable + page;
        base_ = static_cast<char*>(
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (base_ == MAP_FAILED || mprotect(base_ + usable, page, PROT_NONE) != 0)
            throw std::bad_alloc();
        end_ = reinterpret_cast<Element*>(base_ + usable);
        begin_ = end_ - count;
        if (from == nullptr)
            std::memset(static_cast<void*>(begin_), 0xAA, bytes);
        else
            std::memcpy(static_cast<void*>(begin_), from, bytes);
    }
    ~GuardedBlock() { munmap(base_, size_); }

    GuardedBlock(const GuardedBlock&) = delete;
    GuardedBlock& operator=(const GuardedBlock&) = delete;

    Element* begin() const { return begin_; }
    Element* end() const { return end_; }

private:
    char* base_;
    std::size_t size_;
    Element* begin_;
    Element* end_;
};
