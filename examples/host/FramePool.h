// FramePool.h - A pool of reusable objects that logs its demand.
#pragma once

#include <Vx/VxPooledObjectDebug.h>
#include <cstddef>
#include <memory>
#include <vector>

struct Frame {
    unsigned char pixels[64 * 36];
};

/// Hands out frames and takes them back, so that each is allocated only once.
///
/// The base class counts; the pool calls its four hooks around every pop and push.
/// Thread safety: one thread at a time. A pool for several threads needs a lock for itself, not
///   for the hooks.
class FramePool : private Vx::PooledObjectDebug::LoggingTraitsBase {
public:
    /// \param name identifies the pool in the log
    explicit FramePool(const char* name) : LoggingTraitsBase(name) {}

    Frame* pop()
    {
        ltb_beforePop(sizeof(Frame));
        if (free_.empty()) {
            all_.push_back(std::make_unique<Frame>());
            free_.push_back(all_.back().get());
        }
        Frame* const frame = free_.back();
        free_.pop_back();
        ltb_afterPop(frame, sizeof(Frame));
        return frame;
    }

    void push(Frame* frame)
    {
        ltb_beforePush(frame, sizeof(Frame));
        free_.push_back(frame);
        ltb_afterPush(frame, sizeof(Frame));
    }

    /// Returns the number of frames allocated so far.
    std::size_t size() const { return all_.size(); }

private:
    std::vector<std::unique_ptr<Frame>> all_;
    std::vector<Frame*> free_;
};
