// The allocator and the reclaim registry.
#include "Check.h"

#include <Vx/Reclaimable.h>
#include <Vx/platform/iMemoryAllocator.h>
#include <Vx/platform/iReclaimRegistry.h>
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <set>
#include <thread>

namespace {

iMemoryAllocator* memory() { return OS()->memoryAllocator(); }

void services()
{
    iPlatformServices* const root = OS();
    require(root != nullptr, "OS() returns null");
    const void* const all[] = {
        root->memoryAllocator(), root->reclaimRegistry(), root->systemUtils(), root->fileSystem(),
        root->threading(),       root->systemInfo(),      root->shell()};
    const char* const names[] = {"memoryAllocator", "reclaimRegistry", "systemUtils", "fileSystem",
                                 "threading",       "systemInfo",      "shell"};
    for (std::size_t i = 0; i < std::size(all); ++i)
        require(all[i] != nullptr, std::string(names[i]) + "() returns null");
}

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

// Every thread fills its blocks with a byte of its own, and looks at them when all have done so.
void concurrent()
{
    constexpr unsigned int kThreads = 4;
    std::atomic<unsigned int> filled{0};
    std::atomic<bool> overlap{false};
    std::vector<std::thread> threads;
    for (unsigned int id = 1; id <= kThreads; ++id)
        threads.emplace_back([id, &filled, &overlap] {
            std::vector<unsigned char*> blocks;
            for (unsigned long size = 1; size < 2000; ++size) {
                memory()->deallocate(memory()->allocate(size));
                blocks.push_back(static_cast<unsigned char*>(memory()->allocate(size)));
                std::memset(blocks.back(), static_cast<int>(id), size);
            }
            ++filled;
            while (filled != kThreads)
                std::this_thread::yield();
            for (unsigned long size = 1; size < 2000; ++size) {
                unsigned char* const block = blocks[size - 1];
                if (std::count(block, block + size, id) != static_cast<long>(size))
                    overlap = true;
                memory()->deallocate(block);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    require(!overlap, "two threads have the same block");
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
    static constexpr char kAllocator[] = "iMemoryAllocator.h";
    static constexpr char kRegistry[] = "iReclaimRegistry.h";
    return {
        {"root.services", Contract, "OS.h", "Each returns the service of that name, never null.",
         services},
        {"memory.aligned", Contract, kAllocator,
         "Returns at least size bytes, aligned for any fundamental type.", aligned},
        {"memory.content", Contract, kAllocator,
         "Returns at least size bytes, aligned for any fundamental type.", keepsContent},
        {"memory.distinct", Contract, kAllocator, "Size 0 also yields a block of its own.",
         distinct},
        {"memory.null", Contract, kAllocator, "Ignores null.", nullIsIgnored},
        {"memory.exhaustion", Contract, kAllocator,
         "Never returns null, and callers do not test for it: exhaustion is reported by an "
         "exception",
         exhaustionThrows},
        {"memory.concurrent", Contract, kAllocator,
         "both operations may be called from any thread at any time", concurrent},
        {"memory.threads", Contract, kAllocator, "Frees a block of allocate(), on any thread.",
         otherThread},
        {"memory.fork", Contract, kAllocator,
         "static initialisation, process exit and a child right after fork.", afterFork},
        {"memory.early-and-late", Contract, "OS.h",
         "The root and the allocator must work throughout.", earlyAndLateUse},
        {"reclaim.registry", Contract, kRegistry,
         "The registry must not call an object back from inside add() or remove()", registry},
    };
}
