#include "SmallBlocks.h"

#include <cstdlib>
#include <pthread.h>
#include <sys/mman.h>

constinit SmallBlocks::Cache SmallBlocks::none = {};
[[gnu::tls_model("initial-exec")]] constinit thread_local SmallBlocks::Cache* SmallBlocks::own =
    &SmallBlocks::none;
constinit std::atomic<std::uintptr_t> SmallBlocks::base = std::uintptr_t{1} << 63;
constinit std::uint8_t SmallBlocks::spanIndex[kReserved / kSpan] = {};
constinit std::atomic<std::uintptr_t> SmallBlocks::nextChunk = 0;
constinit SmallBlocks::Stack SmallBlocks::batches[kSizes] = {};
constinit SmallBlocks::Stack SmallBlocks::unused = {};

namespace {

constinit pthread_once_t reserved = PTHREAD_ONCE_INIT;
constinit bool usable = false; // written once, before pthread_once() returns
constinit pthread_key_t threadKey = 0;

// Set when this thread has given its blocks back: from now on it keeps none.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool ended = false;

constexpr std::uintptr_t roundedUp(std::uintptr_t value, std::uintptr_t step)
{
    return (value + step - 1) / step * step;
}

// Enough that passing a batch on is rare, little enough that a thread holds few kilobytes
// of a size.
constexpr std::uint32_t batchSize(std::size_t blockSize)
{
    return blockSize <= 128    ? 64
           : blockSize <= 512  ? 32
           : blockSize <= 1056 ? 16
           : blockSize <= 8192 ? static_cast<std::uint32_t>(16384 / blockSize)
                               : 1;
}

} // namespace

void SmallBlocks::push(Stack& stack, Block* first, std::uint32_t count) noexcept
{
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(first) - base.load(std::memory_order_relaxed);
    const std::uint64_t place = offset / kGranule + 1; // 0 is the bottom
    std::uint64_t top = stack.top.load(std::memory_order_relaxed);
    do {
        __atomic_store_n(&first->batch, (top & 0xFFFFFFFFu) | std::uint64_t{count} << 32,
                         __ATOMIC_RELAXED);
    } while (!stack.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32 | place,
                                              std::memory_order_release,
                                              std::memory_order_relaxed));
}

SmallBlocks::Block* SmallBlocks::pop(Stack& stack, std::uint32_t& count) noexcept
{
    std::uint64_t top = stack.top.load(std::memory_order_acquire);
    while ((top & 0xFFFFFFFFu) != 0) {
        Block* const first = reinterpret_cast<Block*>(base.load(std::memory_order_relaxed) +
                                                      ((top & 0xFFFFFFFFu) - 1) * kGranule);
        // Another thread may have taken this batch, and its new owner may be writing here.
        // The memory stays mapped, and the changed count in the top then refuses what was
        // read.
        const std::uint64_t batch = __atomic_load_n(&first->batch, __ATOMIC_RELAXED);
        if (stack.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32 | (batch & 0xFFFFFFFFu),
                                            std::memory_order_acquire)) {
            count = static_cast<std::uint32_t>(batch >> 32);
            return first;
        }
    }
    return nullptr;
}

void SmallBlocks::reserve() noexcept
{
    if (pthread_key_create(&threadKey, threadEnds) != 0)
        return;
    // Addresses only; they become memory chunk by chunk.
    void* const place = mmap(nullptr, kReserved + kHugeChunk, PROT_NONE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (place == MAP_FAILED)
        return;
    base.store(roundedUp(reinterpret_cast<std::uintptr_t>(place), kHugeChunk),
               std::memory_order_relaxed);
    usable = true;
}

std::uintptr_t SmallBlocks::takeChunk(std::uintptr_t size) noexcept
{
    std::uintptr_t next = nextChunk.load(std::memory_order_relaxed);
    std::uintptr_t offset;
    do {
        offset = roundedUp(next, size);
        if (offset + size > kReserved)
            return 0;
    } while (!nextChunk.compare_exchange_weak(next, offset + size, std::memory_order_relaxed));
    void* const chunk = reinterpret_cast<void*>(base.load(std::memory_order_relaxed) + offset);
    if (mprotect(chunk, size, PROT_READ | PROT_WRITE) != 0)
        return 0;
    // A wish only. A thread that needs that much will need the rest as well, and looking up
    // one page for it all is quicker than five hundred.
    if (size == kHugeChunk)
        madvise(chunk, size, MADV_HUGEPAGE);
    return reinterpret_cast<std::uintptr_t>(chunk);
}

// Gives this thread a cache: one that an ended thread has left, or a new one.
bool SmallBlocks::adopt() noexcept
{
    if (ended)
        return false;
    pthread_once(&reserved, reserve);
    if (!usable)
        return false;
    std::uint32_t count = 0;
    Cache* cache = reinterpret_cast<Cache*>(pop(unused, count));
    if (cache == nullptr) {
        const std::uintptr_t chunk = takeChunk(kChunk);
        if (chunk == 0)
            return false;
        cache = reinterpret_cast<Cache*>(chunk); // zeroed by the system
        for (std::size_t i = 0; i < kSizes; ++i)
            cache->bins[i].room = cache->bins[i].limit = batchSize(blockSize(i));
        static_assert(sizeof(Cache) <= kSpan, "the first span of its chunk holds a cache");
        cache->chunk = chunk + kSpan;
        cache->chunkEnd = chunk + kChunk;
    }
    if (pthread_setspecific(threadKey, cache) != 0) {
        push(unused, &cache->link, 0);
        return false;
    }
    own = cache;
    return true;
}

// Puts blocks that nobody has had yet into an empty bin.
bool SmallBlocks::carve(Cache& cache, std::size_t index) noexcept
{
    const std::uintptr_t size = blockSize(index);
    std::uintptr_t at = cache.fresh[index];
    if (cache.freshEnd[index] - at < size) {
        if (cache.chunk == cache.chunkEnd) {
            const std::uintptr_t chunk = takeChunk(kHugeChunk);
            if (chunk == 0)
                return false;
            cache.chunk = chunk;
            cache.chunkEnd = chunk + kHugeChunk;
        }
        at = cache.chunk;
        cache.chunk += kSpan;
        cache.freshEnd[index] = at + kSpan;
        spanIndex[(at - base.load(std::memory_order_relaxed)) / kSpan] =
            static_cast<std::uint8_t>(index);
    }
    Bin& bin = cache.bins[index];
    Block** link = &bin.head;
    do { // there is room for one
        Block* const block = reinterpret_cast<Block*>(at);
        *link = block;
        link = &block->next;
        --bin.room;
        at += size;
    } while (bin.room != 0 && cache.freshEnd[index] - at >= size);
    *link = nullptr;
    cache.fresh[index] = at;
    return true;
}

void* SmallBlocks::allocateMore(std::size_t index) noexcept
{
    if (own == &none && !adopt())
        return nullptr;
    Cache& cache = *own;
    Bin& bin = cache.bins[index];
    if (bin.head == nullptr) {
        if (cache.spare[index] != nullptr) {
            bin.head = cache.spare[index];
            bin.room = 0;
            cache.spare[index] = nullptr;
        } else if (std::uint32_t count; (bin.head = pop(batches[index], count)) != nullptr) {
            bin.room = bin.limit - count;
        } else if (!carve(cache, index)) {
            return nullptr;
        }
    }
    Block* const block = bin.head;
    bin.head = block->next;
    ++bin.room;
    return block;
}

void SmallBlocks::deallocateMore(std::size_t index, void* block) noexcept
{
    Block* const freed = static_cast<Block*>(block);
    freed->next = nullptr;
    if (own == &none && !adopt()) {
        push(batches[index], freed, 1);
        return;
    }
    Cache& cache = *own;
    Bin& bin = cache.bins[index];
    if (bin.room == 0) {
        if (cache.spare[index] != nullptr)
            push(batches[index], cache.spare[index], bin.limit);
        cache.spare[index] = bin.head;
        bin.head = nullptr;
        bin.room = bin.limit;
    }
    freed->next = bin.head;
    bin.head = freed;
    --bin.room;
}

// Runs when a thread ends, after the destructors of its thread_local objects.
void SmallBlocks::threadEnds(void* argument) noexcept
{
    Cache& cache = *static_cast<Cache*>(argument);
    ended = true;
    own = &none;
    for (std::size_t i = 0; i < kSizes; ++i) {
        Bin& bin = cache.bins[i];
        if (bin.head != nullptr)
            push(batches[i], bin.head, bin.limit - bin.room);
        if (cache.spare[i] != nullptr)
            push(batches[i], cache.spare[i], bin.limit);
        bin.head = nullptr;
        bin.room = bin.limit;
        cache.spare[i] = nullptr;
    }
    push(unused, &cache.link, 0);
}

void SmallBlocks::freedTwice() noexcept { std::abort(); }
