// FramePool.h - a pool of reusable objects under the demand log.
#pragma once

#include <Vx/VxPooledObjectDebug.h>
#include <cstddef>
#include <memory>
#include <vector>

struct Frame {
    unsigned char pixels[64 * 36];
};

/// Gives out frames and takes them back, so that they are made only once.
///
/// The base class counts: a pool calls its four hooks around every pop and push.
/// Threads: one thread at a time; a pool for several brings a lock, the hooks need none.
class FramePool : private Vx::PooledObjectDebug::LoggingTraitsBase {
public:
    /// \param name stands in the log
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

    /// The frames that were made.
    std::size_t size() const { return all_.size(); }

private:
    std::vector<std::unique_ptr<Frame>> all_;
    std::vector<Frame*> free_;
};
