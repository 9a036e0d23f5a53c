// Counts live memory and lists it by call stack.
#include <Vx/testing/ScriptedPlatform.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <string_view>

namespace {

// Set while this thread does the bookkeeping, whose allocations do not count.
constinit thread_local bool keepingBooks = false;

} // namespace

void* ScriptedPlatform::allocate(unsigned long size)
{
    if (keepingBooks)
        return PlatformProxy::allocate(size);
    ++allocations_;
    if (due(allocationFault_))
        throw std::bad_alloc();
    void* block = PlatformProxy::allocate(size);
    ++liveBlocks_;
    if (tracking_)
        remember(block, size, __builtin_return_address(0));
    return block;
}

void ScriptedPlatform::deallocate(void* block)
{
    if (block != nullptr && !keepingBooks) {
        --liveBlocks_;
        if (tracking_) {
            const std::scoped_lock guard(mutex_);
            blocks_.erase(block);
        }
    }
    PlatformProxy::deallocate(block);
}

void ScriptedPlatform::remember(void* block, unsigned long size, const void* caller)
{
    keepingBooks = true;
    {
        std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>> frames;
        PlatformProxy::captureCallStack(frames);
        // Skip the platform's own frames. Each frame ends with the offset of its call, which is
        // the byte before the return address.
        Dl_info module = {};
        dladdr(caller, &module);
        char end[32];
        std::snprintf(end, sizeof end, "+0x%tx)",
                      static_cast<const char*>(caller) - 1 -
                          static_cast<const char*>(module.dli_fbase));
        auto first = std::find_if(frames.begin(), frames.end(), [&](const auto& frame) {
            return std::strstr(frame.c_str(), end) != nullptr;
        });
        if (first == frames.end())
            first = frames.begin();
        Block entry{size, {}};
        for (; first != frames.end(); ++first)
            entry.callStack.append("    ").append(first->c_str()).append("\n");
        const std::scoped_lock guard(mutex_);
        blocks_[block] = std::move(entry);
    }
    keepingBooks = false;
}

std::string ScriptedPlatform::liveMemory() const
{
    struct Holder {
        unsigned long bytes, blocks;
        std::string_view callStack;
    };
    const std::scoped_lock guard(mutex_);
    Map<Text<char>, Holder> byStack;
    for (const auto& [address, block] : blocks_) {
        Holder& holder =
            byStack.try_emplace(block.callStack, Holder{0, 0, block.callStack}).first->second;
        holder.bytes += block.size;
        ++holder.blocks;
    }
    List<Holder> holders;
    for (const auto& [callStack, holder] : byStack)
        holders.push_back(holder);
    std::stable_sort(holders.begin(), holders.end(),
                     [](const Holder& a, const Holder& b) { return a.bytes > b.bytes; });
    std::string text;
    for (const Holder& holder : holders) {
        text +=
            std::to_string(holder.blocks) + " blocks, " + std::to_string(holder.bytes) + " bytes\n";
        text += holder.callStack;
    }
    return text;
}
