// Descriptor.h - Owns an open file descriptor.
#pragma once

#include "files/SystemCalls.h"

#include <utility>

/// Owns a descriptor and closes it; -1 is none. Ignores the result of close(): to learn whether
/// the data has arrived, call fsync() first.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor() { reset(); }

    int get() const noexcept { return descriptor_; }
    explicit operator bool() const noexcept { return descriptor_ >= 0; }

    /// Hands the descriptor over to the caller.
    int release() noexcept { return std::exchange(descriptor_, -1); }

    void reset() noexcept
    {
        if (descriptor_ >= 0)
            systemCalls.close(release());
    }

private:
    int descriptor_ = -1;
};
