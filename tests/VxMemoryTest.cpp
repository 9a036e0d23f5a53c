#include <Vx/VxMemory.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

// VxMemoryHost.cpp and VxMemoryLoader.cpp test what needs another allocator or another moment.

TEST(AllocationOperators, EveryFormCallsThePlatformOnce)
{
    ScriptedPlatform platform;
    const struct {
        const char* name;
        void* (*allocate)();
        void (*release)(void*);
    } rows[] = {
        {"plain", [] { return operator new(100); }, [](void* p) { operator delete(p); }},
        {"array", [] { return operator new[](100); }, [](void* p) { operator delete[](p); }},
        {"nothrow", [] { return operator new(100, std::nothrow); },
         [](void* p) { operator delete(p, std::nothrow); }},
        {"nothrow array", [] { return operator new[](100, std::nothrow); },
         [](void* p) { operator delete[](p, std::nothrow); }},
#ifdef __cpp_sized_deallocation
        {"sized", [] { return operator new(100); }, [](void* p) { operator delete(p, 100); }},
        {"sized array", [] { return operator new[](100); },
         [](void* p) { operator delete[](p, 100); }},
#endif
        {"allocated by the platform", [] { return OS()->memoryAllocator()->allocate(100); },
         [](void* p) { operator delete(p); }},
        {"freed by the platform", [] { return operator new(100); },
         [](void* p) { OS()->memoryAllocator()->deallocate(p); }},
        {"nothing", [] { return operator new(0); }, [](void* p) { operator delete(p); }},
    };
    for (const auto& row : rows) {
        const auto counts = [&] {
            return std::pair(platform.allocations(), platform.liveBlocks());
        };
        const auto [calls, live] = counts();
        void* const block = row.allocate();
        const auto held = counts();
        row.release(block);
        const auto released = counts();
        SCOPED_TRACE(row.name);
        EXPECT_NE(block, nullptr);
        EXPECT_EQ(held, std::pair(calls + 1, live + 1));
        EXPECT_EQ(released, std::pair(calls + 1, live));
    }
}

TEST(StdAllocator, DrawsFromThePlatform)
{
    ScriptedPlatform platform;
    {
        std::vector<long, StdAllocator<long>> numbers(1000, 7);
        EXPECT_EQ(platform.allocations(), 1u);
        EXPECT_EQ(numbers.back(), 7);
        const auto shared = std::allocate_shared<int>(StdAllocator<int>(), 42); // rebinds
        EXPECT_EQ(*shared, 42);
        EXPECT_EQ(platform.liveBlocks(), 2);
    }
    EXPECT_EQ(platform.liveBlocks(), 0);
    EXPECT_TRUE(StdAllocator<int>() == StdAllocator<long>());
    EXPECT_FALSE(StdAllocator<int>() != StdAllocator<long>());
}

TEST(StdAllocator, RefusesSizesThatOverflow)
{
    ScriptedPlatform platform;
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
    const unsigned long before = platform.allocations();
    for (std::size_t count : {kMost, kMost / sizeof(long) + 1, kMost / sizeof(long) / 2 + 1})
        EXPECT_THROW(StdAllocator<long>().allocate(count), std::bad_array_new_length);
    EXPECT_EQ(platform.allocations(), before);
}

static_assert(std::is_empty_v<StdAllocator<int>> &&
                  std::allocator_traits<StdAllocator<int>>::is_always_equal::value,
              "without state, any allocator can free what another allocated");
