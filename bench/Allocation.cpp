// What a block costs from malloc and from the platform: the base of the other rows.
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxMemory.h>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#if BENCH_MIMALLOC
#include <dlfcn.h>
#endif

namespace {

using bench::Row;
using bench::State;

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

#if BENCH_MIMALLOC
// Its functions have names of their own; loaded privately, it does not replace malloc.
struct Mimalloc {
    static void* allocate(std::size_t size) { return allocate_(size); }
    static void release(void* block) { release_(block); }

private:
    template <class Function> static Function* named(const char* name)
    {
        static void* const library = dlopen(BENCH_MIMALLOC_FILE, RTLD_NOW | RTLD_LOCAL);
        void* const found = library != nullptr ? dlsym(library, name) : nullptr;
        if (found == nullptr)
            throw std::runtime_error(dlerror());
        return reinterpret_cast<Function*>(found);
    }
    static inline void* (*const allocate_)(std::size_t) = named<void*(std::size_t)>("mi_malloc");
    static inline void (*const release_)(void*) = named<void(void*)>("mi_free");
};
#endif

#if BENCH_JEMALLOC
extern "C" void* bench_je_malloc(std::size_t size);
extern "C" void bench_je_free(void* block);

struct Jemalloc {
    static void* allocate(std::size_t size) { return bench_je_malloc(size); }
    static void release(void* block) { bench_je_free(block); }
};
#endif

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

} // namespace

void bench::addAllocation()
{
    const auto add = [](const char* operation, auto work) {
        const auto with = [=](auto source) { return [=](State& state) { work(state, source); }; };
        Row row("allocation", operation);
        row.ours(with(Platform())).peer("operator new", with(Operators()));
        row.peer("malloc", with(Malloc()));
#if BENCH_MIMALLOC
        row.peer("mimalloc", with(Mimalloc()));
#endif
#if BENCH_JEMALLOC
        row.peer("jemalloc", with(Jemalloc()));
#endif
    };
    add("one block of 88 bytes, made and freed",
        [](State& state, auto source) { oneBlock<decltype(source)>(state); });
    add("replace one of 20,000 live blocks",
        [](State& state, auto source) { amongManyBlocks<decltype(source)>(state); });
    add("make 10,000 blocks, free them",
        [](State& state, auto source) { buildAndDrop<decltype(source)>(state); });
    add("20,000 blocks freed by another thread",
        [](State& state, auto source) { freedElsewhere<decltype(source)>(state); });
}
