#include "memory/SmallBlocks.h"

#include <algorithm>
#include <cstdlib>
#include <pthread.h>
#include <sys/mman.h>

constinit SmallBlocks::Cache SmallBlocks::none = {};
[[gnu::tls_model("initial-exec")]] constinit thread_local SmallBlocks::Cache* SmallBlocks::own =
    &SmallBlocks::none;
constinit std::atomic<std::uintptr_t> SmallBlocks::base = std::uintptr_t{1} << 63;
constinit std::uint8_t SmallBlocks::spanIndex[kReserved / kSpan] = {};
constinit std::atomic<std::uintptr_t> SmallBlocks::nextChunk = 0;
constinit SmallBlocks::Stack SmallBlocks::withFree[kSizes] = {};
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
// of a size. No word of a span has more blocks.
constexpr std::uint32_t batchSize(std::size_t blockSize)
{
    return blockSize <= 128    ? 64
           : blockSize <= 512  ? 32
           : blockSize <= 1056 ? 16
           : blockSize <= 8192 ? static_cast<std::uint32_t>(16384 / blockSize)
                               : 1;
}

} // namespace

std::uintptr_t SmallBlocks::offsetOf(const void* place) noexcept
{
    return reinterpret_cast<std::uintptr_t>(place) - base.load(std::memory_order_relaxed);
}

std::uintptr_t SmallBlocks::addressOf(std::uint32_t span) noexcept
{
    return base.load(std::memory_order_relaxed) + span * kSpan;
}

SmallBlocks::Span& SmallBlocks::spanAt(std::uint32_t span) noexcept
{
    return reinterpret_cast<Span*>(base.load(std::memory_order_relaxed) + kReserved)[span];
}

void SmallBlocks::push(Stack& stack, std::uint32_t span) noexcept
{
    std::uint64_t top = stack.top.load(std::memory_order_relaxed);
    do {
        spanAt(span).below.store(static_cast<std::uint32_t>(top), std::memory_order_relaxed);
    } while (!stack.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32 | (span + 1),
                                              std::memory_order_release,
                                              std::memory_order_relaxed));
}

bool SmallBlocks::pop(Stack& stack, std::uint32_t& span) noexcept
{
    std::uint64_t top = stack.top.load(std::memory_order_acquire);
    while (static_cast<std::uint32_t>(top) != 0) {
        span = static_cast<std::uint32_t>(top) - 1;
        // Another thread may have taken this span and put it on again. The changed count in
        // the top then refuses what was read.
        const std::uint32_t below = spanAt(span).below.load(std::memory_order_relaxed);
        if (stack.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32 | below,
                                            std::memory_order_acquire))
            return true;
    }
    return false;
}

void SmallBlocks::reserve() noexcept
{
    if (pthread_key_create(&threadKey, threadEnds) != 0)
        return;
    // Addresses only; they become memory chunk by chunk.
    void* const place = mmap(nullptr, kReserved + kReserved / kSpan * sizeof(Span) + kHugeChunk,
                             PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (place == MAP_FAILED)
        return;
    base.store(roundedUp(reinterpret_cast<std::uintptr_t>(place), kHugeChunk),
               std::memory_order_relaxed);
    usable = true;
}

// The first of so many spans that nobody has had yet, zeroed by the system.
bool SmallBlocks::takeChunk(std::uintptr_t size, std::uint32_t& span) noexcept
{
    std::uintptr_t next = nextChunk.load(std::memory_order_relaxed);
    std::uintptr_t offset;
    do {
        offset = roundedUp(next, size);
        if (offset + size > kReserved)
            return false;
    } while (!nextChunk.compare_exchange_weak(next, offset + size, std::memory_order_relaxed));
    span = static_cast<std::uint32_t>(offset / kSpan);
    void* const chunk = reinterpret_cast<void*>(addressOf(span));
    // The pages at the ends may be in use for the neighbours already.
    constexpr std::uintptr_t kPage = 4096;
    const std::uintptr_t notes = reinterpret_cast<std::uintptr_t>(&spanAt(span)) / kPage * kPage;
    const std::uintptr_t notesEnd =
        roundedUp(reinterpret_cast<std::uintptr_t>(&spanAt(span) + size / kSpan), kPage);
    if (mprotect(chunk, size, PROT_READ | PROT_WRITE) != 0 ||
        mprotect(reinterpret_cast<void*>(notes), notesEnd - notes, PROT_READ | PROT_WRITE) != 0)
        return false;
    // A wish only. A thread that needs that much will need the rest as well, and looking up
    // one page for it all is quicker than five hundred.
    if (size == kHugeChunk)
        madvise(chunk, size, MADV_HUGEPAGE);
    return true;
}

// Gives this thread a cache: one that an ended thread has left, or a new one.
bool SmallBlocks::adopt() noexcept
{
    if (ended)
        return false;
    pthread_once(&reserved, reserve);
    if (!usable)
        return false;
    std::uint32_t span;
    Cache* cache;
    if (pop(unused, span)) {
        cache = reinterpret_cast<Cache*>(addressOf(span));
    } else {
        if (!takeChunk(kChunk, span))
            return false;
        constexpr std::size_t kPlaces = [] {
            std::size_t places = 0;
            for (std::size_t i = 0; i < kSizes; ++i)
                places += 1 + 2 * batchSize(blockSize(i));
            return places;
        }();
        static_assert(sizeof(Cache) + kPlaces * sizeof(void*) <= kSpan,
                      "the first span of its chunk holds a cache and its places");
        cache = reinterpret_cast<Cache*>(addressOf(span));
        void** blocks = reinterpret_cast<void**>(cache + 1);
        for (std::size_t i = 0; i < kSizes; ++i) {
            const std::uint32_t limit = 2 * batchSize(blockSize(i));
            cache->bins[i] = {blocks, 0, limit};
            blocks += limit + 1;
        }
        cache->nextSpan = span + 1;
        cache->spansEnd = span + kChunk / kSpan;
    }
    if (pthread_setspecific(threadKey, cache) != 0) {
        push(unused, span);
        return false;
    }
    own = cache;
    return true;
}

// Makes a span that nobody has had yet the one that this size takes from.
bool SmallBlocks::beginSpan(Cache& cache, std::size_t index) noexcept
{
    if (cache.nextSpan == cache.spansEnd) {
        std::uint32_t first;
        if (!takeChunk(kHugeChunk, first))
            return false;
        cache.nextSpan = first;
        cache.spansEnd = first + kHugeChunk / kSpan;
    }
    const std::uint32_t span = cache.nextSpan++;
    spanIndex[span] = static_cast<std::uint8_t>(index);
    const std::uintptr_t size = blockSize(index);
    std::uint64_t words = 0;
    for (std::uintptr_t at = 0; at + size <= kSpan; at += size) {
        std::atomic<std::uint64_t>& word = spanAt(span).free[at / kWord];
        word.store(word.load(std::memory_order_relaxed) | bitOf(at), std::memory_order_relaxed);
        words |= std::uint64_t{1} << at / kWord;
    }
    cache.span[index] = span;
    cache.words[index] = words;
    return true;
}

// Puts a batch or a little more into an empty bin; less when the span has no more, none when
// other threads were quicker.
bool SmallBlocks::fill(Cache& cache, std::size_t index) noexcept
{
    std::uint32_t& span = cache.span[index];
    std::uint64_t& words = cache.words[index];
    if (words == 0) {
        if (pop(withFree[index], span))
            words = spanAt(span).announced.exchange(0);
        else if (!beginSpan(cache, index))
            return false;
    }
    Bin& bin = cache.bins[index];
    void** const first = bin.blocks + 1;
    void** end = first;
    std::uint64_t left = words;
    do {
        const auto word = static_cast<std::uintptr_t>(__builtin_ctzl(left));
        left &= left - 1;
        const std::uintptr_t start = addressOf(span) + word * kWord;
        for (std::uint64_t bits = spanAt(span).free[word].exchange(0); bits != 0; bits &= bits - 1)
            *end++ = reinterpret_cast<void*>(
                start + static_cast<std::uintptr_t>(__builtin_ctzl(bits)) * kGranule);
    } while (left != 0 && end - first < bin.limit / 2);
    words = left;
    std::reverse(first, end); // the lowest is had first
    bin.count = static_cast<std::uint32_t>(end - first);
    return true;
}

// Announces words of a span.
void SmallBlocks::announce(std::uint32_t span, std::uint64_t words) noexcept
{
    // An announcement that is there still has somebody look at the words later than this.
    if ((spanAt(span).announced.load() & words) != words &&
        spanAt(span).announced.fetch_or(words) == 0)
        push(withFree[spanIndex[span]], span);
}

// Sets the bits of blocks. Neighbours, as they often are, share the atomic operations.
void SmallBlocks::giveBack(void* const* blocks, std::size_t count) noexcept
{
    void* const* const end = blocks + count;
    while (blocks != end) {
        const std::uintptr_t spanStart = reinterpret_cast<std::uintptr_t>(*blocks) / kSpan * kSpan;
        const auto span = static_cast<std::uint32_t>(offsetOf(*blocks) / kSpan);
        std::uint64_t words = 0;
        do {
            void* const* const first = blocks;
            std::uintptr_t place = reinterpret_cast<std::uintptr_t>(*blocks);
            const std::uintptr_t wordStart = place / kWord;
            std::uint64_t bits = 0;
            do {
                bits |= bitOf(place);
                if (++blocks == end)
                    break;
                place = reinterpret_cast<std::uintptr_t>(*blocks);
            } while (place / kWord == wordStart);
            const std::uintptr_t word = wordStart % (kSpan / kWord);
            if ((spanAt(span).free[word].fetch_or(bits) & bits) != 0 ||
                __builtin_popcountl(bits) != blocks - first)
                freedTwice();
            words |= std::uint64_t{1} << word;
        } while (blocks != end &&
                 reinterpret_cast<std::uintptr_t>(*blocks) / kSpan * kSpan == spanStart);
        announce(span, words);
    }
}

void* SmallBlocks::allocateMore(std::size_t size) noexcept
{
    if (size > kLargest || (own == &none && !adopt()))
        return nullptr;
    const std::size_t index = indexOf(size);
    Bin& bin = own->bins[index];
    while (bin.count == 0)
        if (!fill(*own, index))
            return nullptr;
    return bin.blocks[bin.count--];
}

void SmallBlocks::deallocateMore(void* block) noexcept
{
    if (own == &none && !adopt()) {
        giveBack(&block, 1);
        return;
    }
    Bin& bin = own->bins[spanIndex[offsetOf(block) / kSpan]];
    if (bin.count == bin.limit) {
        // The older half goes.
        const std::uint32_t half = bin.limit / 2;
        giveBack(bin.blocks + 1, half);
        std::copy_n(bin.blocks + 1 + half, half, bin.blocks + 1);
        bin.count = half;
    }
    bin.blocks[++bin.count] = block;
}

// Runs when a thread ends, after the destructors of its thread_local objects.
void SmallBlocks::threadEnds(void* argument) noexcept
{
    Cache& cache = *static_cast<Cache*>(argument);
    ended = true;
    own = &none;
    for (std::size_t i = 0; i < kSizes; ++i) {
        Bin& bin = cache.bins[i];
        giveBack(bin.blocks + 1, bin.count);
        bin.count = 0;
        if (cache.words[i] != 0)
            announce(cache.span[i], cache.words[i]);
        cache.words[i] = 0;
    }
    push(unused, static_cast<std::uint32_t>(offsetOf(&cache) / kSpan));
}

void SmallBlocks::freedTwice() noexcept { std::abort(); }
