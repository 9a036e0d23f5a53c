// What a block costs from malloc and from the platform: the base of the other rows.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxMemory.h>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

namespace {

struct Malloc {
    static void* allocate(std::size_t size) { return std::malloc(size); }
    static void release(void* block) { std::free(block); }
};

struct Platform {
    static void* allocate(std::size_t size) { return OS()->memoryAllocator()->allocate(size); }
    static void release(void* block) { OS()->memoryAllocator()->deallocate(block); }
};

struct Operators {
    static void* allocate(std::size_t size) { return ::operator new(size); }
    static void release(void* block) { ::operator delete(block); }
};

template <class Source> void oneBlock(bench::State& state)
{
    bench::run(state, true, [] {
        void* block = Source::allocate(88);
        benchmark::DoNotOptimize(block);
        Source::release(block);
    });
}

// A busy host: many live blocks of the sizes that strings and list items have, one of them
// replaced at a time.
template <class Source> void amongManyBlocks(bench::State& state)
{
    bench::Numbers numbers(7);
    std::vector<void*> blocks(20000);
    const auto anySize = [&] { return std::size_t{24} + (numbers.below(8) << numbers.below(6)); };
    for (void*& block : blocks)
        block = Source::allocate(anySize());
    std::vector<std::pair<std::uint32_t, std::size_t>> steps(1 << 14);
    for (auto& step : steps)
        step = {numbers.below(20000), anySize()};
    std::size_t at = 0;
    bench::run(state, true, [&] {
        const auto& [index, size] = steps[at++ & (steps.size() - 1)];
        Source::release(blocks[index]);
        blocks[index] = Source::allocate(size);
        *static_cast<char*>(blocks[index]) = 1;
    });
    for (void* block : blocks)
        Source::release(block);
}

// A document: all blocks are allocated and used, then all are freed.
template <class Source> void buildAndDrop(bench::State& state)
{
    constexpr std::size_t kBlocks = 10000;
    bench::Numbers numbers(3);
    std::vector<std::size_t> sizes(kBlocks);
    for (std::size_t& size : sizes)
        size = 32 + numbers.below(96);
    std::vector<void*> blocks(kBlocks);
    bench::run(state, true, [&] {
        for (std::size_t i = 0; i < kBlocks; ++i) {
            blocks[i] = Source::allocate(sizes[i]);
            *static_cast<char*>(blocks[i]) = 1;
        }
        for (void* block : blocks)
            Source::release(block);
    });
}

// Blocks allocated by one thread and freed by another.
template <class Source> void freedElsewhere(bench::State& state)
{
    constexpr std::size_t kBlocks = 20000;
    std::vector<void*> blocks(kBlocks);
    bench::run(state, true, [&] {
        for (void*& block : blocks)
            block = Source::allocate(88);
        std::thread([&] {
            for (void* block : blocks)
                Source::release(block);
        }).join();
    });
}

template <class Body> void addTo(const char* operation, Body add)
{
    bench::Row row("allocation", operation);
    add(row);
}

} // namespace

void bench::addAllocation()
{
    addTo("one block of 88 bytes, made and freed", [](Row& row) {
        row.ours(oneBlock<Platform>).peer("operator new", oneBlock<Operators>);
        row.peer("malloc", oneBlock<Malloc>);
    });
    addTo("replace one of 20,000 live blocks", [](Row& row) {
        row.ours(amongManyBlocks<Platform>).peer("operator new", amongManyBlocks<Operators>);
        row.peer("malloc", amongManyBlocks<Malloc>);
    });
    addTo("make 10,000 blocks, free them", [](Row& row) {
        row.ours(buildAndDrop<Platform>).peer("operator new", buildAndDrop<Operators>);
        row.peer("malloc", buildAndDrop<Malloc>);
    });
    addTo("20,000 blocks freed by another thread", [](Row& row) {
        row.ours(freedElsewhere<Platform>).peer("operator new", freedElsewhere<Operators>);
        row.peer("malloc", freedElsewhere<Malloc>);
    });
}
