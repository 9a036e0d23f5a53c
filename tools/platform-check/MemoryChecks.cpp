// The allocator and the reclaim registry.
#include "Check.h"

#include <Vx/Reclaimable.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <Vx/platform/iReclaimRegistry.h>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <thread>

namespace {

iMemoryAllocator* memory() { return OS()->memoryAllocator(); }

void aligned()
{
    std::vector<void*> blocks;
    for (unsigned long size :
         {1ul, 2ul, 7ul, 8ul, 15ul, 16ul, 24ul, 33ul, 100ul, 4095ul, 70000ul, 5000001ul})
        for (int i = 0; i < 20; ++i) {
            blocks.push_back(memory()->allocate(size));
            require(reinterpret_cast<std::uintptr_t>(blocks.back()) % alignof(std::max_align_t) ==
                        0,
                    "a block of " + std::to_string(size) + " bytes is not aligned to " +
                        std::to_string(alignof(std::max_align_t)));
        }
    for (void* block : blocks)
        memory()->deallocate(block);
}

void distinct()
{
    std::set<void*> seen;
    for (int i = 0; i < 100; ++i) {
        void* block = memory()->allocate(0);
        require(block != nullptr, "allocate(0) returned null");
        require(seen.insert(block).second, "allocate(0) returned the same block twice");
    }
    for (void* block : seen)
        memory()->deallocate(block);
}

void keepsContent()
{
    struct Block {
        unsigned char* bytes;
        unsigned long size;
    };
    std::vector<Block> blocks;
    unsigned long size = 1;
    for (int i = 0; i < 2000; ++i) {
        size = (size * 31 + 7) % 3000 + 1;
        blocks.push_back({static_cast<unsigned char*>(memory()->allocate(size)), size});
        std::memset(blocks.back().bytes, i % 251, size);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i)
        for (unsigned long n = 0; n < blocks[i].size; ++n)
            require(blocks[i].bytes[n] == i % 251, "two live blocks overlap");
    for (const Block& block : blocks)
        memory()->deallocate(block.bytes);
}

void nullIsIgnored()
{
    memory()->deallocate(nullptr);
    operator delete(nullptr);
}

void exhaustionThrows()
{
    void* block = nullptr;
    try {
        block = memory()->allocate(1ul << 62);
    } catch (...) {
        block = memory()->allocate(16); // must still work
        memory()->deallocate(block);
        return;
    }
    throw Failure{block == nullptr ? "2^62 bytes: returned null instead of throwing"
                                   : "2^62 bytes: returned a block"};
}

void otherThread()
{
    for (int round = 0; round < 50; ++round) {
        std::vector<void*> blocks;
        for (unsigned long n = 1; n < 200; ++n)
            blocks.push_back(memory()->allocate(n));
        std::thread([&] {
            for (void* block : blocks)
                memory()->deallocate(block);
        }).join();
    }
}

void afterFork()
{
    void* before = memory()->allocate(100);
    const int status = inChild([&] {
        memory()->deallocate(before);
        for (unsigned long n = 1; n < 2000; ++n)
            memory()->deallocate(memory()->allocate(n));
        return 0;
    });
    memory()->deallocate(before);
    require(status == 0, "a forked child that frees and allocates died");
}

// Constructed before main and destroyed after it. The platform must work both times.
struct EarlyAndLate {
    std::unique_ptr<LightweightString<char>> text{new LightweightString<char>("early")};
};
EarlyAndLate earlyAndLate;

void earlyAndLateUse()
{
    require(*earlyAndLate.text == "early", "a block from before main lost its content");
    const int status = inChild([] {
        std::exit(0); // runs the destructors
        return 1;
    });
    require(status == 0, "a process that frees memory in its last destructors died");
}

struct Cache final : Reclaimable {
    unsigned long reclaimableBytes() override { return 0; }
    unsigned long reclaim(unsigned long) override { return 0; }
    int reclaimPriority() override { return 0; }
};

void registry()
{
    std::vector<std::unique_ptr<Cache>> caches;
    for (int i = 0; i < 100; ++i)
        caches.push_back(std::make_unique<Cache>());
    for (std::size_t i = 0; i < caches.size(); i += 2)
        caches[i].reset();
    std::thread([&] { caches.clear(); }).join();
}

} // namespace

std::vector<Check> memoryChecks()
{
    return {
        {"memory.aligned", "blocks are aligned for every fundamental type", aligned},
        {"memory.distinct", "blocks of size 0 are distinct", distinct},
        {"memory.content", "live blocks do not overlap", keepsContent},
        {"memory.null", "deallocate ignores null", nullIsIgnored},
        {"memory.exhaustion", "exhaustion throws instead of returning null", exhaustionThrows},
        {"memory.threads", "a block may be freed by another thread", otherThread},
        {"memory.fork", "allocates and frees in a forked child", afterFork},
        {"memory.early-and-late", "works before main and after the last destructor",
         earlyAndLateUse},
        {"reclaim.registry", "objects register and unregister in any order, on any thread",
         registry},
    };
}
