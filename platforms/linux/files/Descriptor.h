// Descriptor.h - an open file descriptor and its end.
#pragma once

#include "files/SystemCalls.h"

#include <utility>

/// Holds a descriptor and closes it; -1 is none. What close() answers is not asked for:
/// whoever must know that data has arrived calls fsync() before.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const noexcept { return descriptor_; }
    explicit operator bool() const noexcept { return descriptor_ >= 0; }

    void reset() noexcept
    {
        if (descriptor_ >= 0)
            systemCalls.close(std::exchange(descriptor_, -1));
    }

private:
    int descriptor_ = -1;
};
