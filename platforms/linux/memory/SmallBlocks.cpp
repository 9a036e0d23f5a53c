#include "memory/SmallBlocks.h"

#include "memory/Misuse.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <utility>

// Defined by the sanitizers that watch the blocks of malloc: address, leak, memory and thread.
extern "C" [[gnu::weak]] std::size_t __sanitizer_get_allocated_size(const volatile void* block);

// A platform that is built with a sanitizer has no small blocks; their tests then check this code.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kChecked = true;
#else
constexpr bool kChecked = false;
#endif

constinit void* SmallBlocks::Bin::nothing[2] = {};
constinit SmallBlocks::Cache SmallBlocks::none = {};
[[gnu::tls_model("initial-exec")]] constinit thread_local SmallBlocks::Cache* SmallBlocks::own =
    &SmallBlocks::none;
constinit std::atomic<std::uint8_t> SmallBlocks::classOfSpan[SpanHeap::kSpans] = {};
constinit SmallBlocks::Class SmallBlocks::classes[kClasses] = {};
constinit std::atomic<std::int32_t> SmallBlocks::freeSpans = 0;
constinit std::atomic<std::uint64_t> SmallBlocks::unusedCaches = 0;

namespace {

constinit pthread_once_t started = PTHREAD_ONCE_INIT;
constinit bool usable = false; // written once, before pthread_once() returns
constinit pthread_key_t threadKey = 0;

// Set when this thread has returned its blocks: it gets no other cache.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool ended = false;

// 24 MiB. Classes keep their free spans up to here, because they will most likely need them again:
// a document of this size is dropped and loaded again without another span.
constexpr std::int32_t kMostFreeSpans = 384;

constexpr std::uintptr_t kPage = 4096;
constexpr std::uint64_t kPageNumbers = std::uint64_t{1} << 36; // that user addresses can have

std::uint32_t spanOf(const void* block)
{
    return static_cast<std::uint32_t>(SpanHeap::offsetOf(block) / SpanHeap::kSpan);
}

std::uintptr_t addressOf(const void* block) { return reinterpret_cast<std::uintptr_t>(block); }

std::uint64_t bitOf(const void* block)
{
    return std::uint64_t{1} << addressOf(block) / SizeClasses::kGranule % 64;
}

constexpr std::int32_t blocksPerSpan(std::size_t sizeClass)
{
    return static_cast<std::int32_t>(SpanHeap::kSpan / SizeClasses::blockSize(sizeClass));
}

// The number of free blocks that a state tells. Less than 0 for a moment, when blocks are
// taken between the setting of their bits and their being counted.
std::int32_t countIn(std::uint32_t state) { return static_cast<std::int32_t>(state) >> 2; }

bool isMapped(const void* place)
{
    unsigned char resident;
    const std::uintptr_t page = addressOf(place) / kPage * kPage;
    return mincore(reinterpret_cast<void*>(page), 1, &resident) == 0;
}

[[noreturn]] void freedTwice(const void* block)
{
    abortOnMisuse(block, "this block is already free");
}

} // namespace

SmallBlocks::Span& SmallBlocks::recordOf(std::uint32_t span) noexcept
{
    return *static_cast<Span*>(SpanHeap::recordOf(span));
}

// --- Lists of spans

// Puts spans that are linked by `below` on a list.
void SmallBlocks::pushChain(Class& list, std::uint32_t first, std::uint32_t last) noexcept
{
    std::uint64_t top = list.top.load(std::memory_order_relaxed);
    do {
        recordOf(last).below.store(static_cast<std::uint32_t>(top), std::memory_order_relaxed);
    } while (!list.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32 | (first + 1),
                                             std::memory_order_release, std::memory_order_relaxed));
}

// Returns the number of a span plus 1, or 0 if the list is empty.
std::uint32_t SmallBlocks::popSpan(Class& list) noexcept
{
    std::uint64_t top = list.top.load(std::memory_order_acquire);
    while (static_cast<std::uint32_t>(top) != 0) {
        const std::uint32_t span = static_cast<std::uint32_t>(top) - 1;
        // If another thread has taken the span meanwhile, this reads nonsense, and the count of
        // changes makes the exchange fail.
        const std::uint32_t below = recordOf(span).below.load(std::memory_order_relaxed);
        if (list.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32 | below,
                                           std::memory_order_acquire))
            return span + 1;
    }
    return 0;
}

void SmallBlocks::noteFreeSpan(std::size_t sizeClass) noexcept
{
    ++classes[sizeClass].freeSpans;
    if (++freeSpans > kMostFreeSpans)
        gatherFreeSpans();
}

// Moves free spans from the lists to the SpanHeap. Leaves out lists with few of them, which
// would be searched in vain again and again.
bool SmallBlocks::gatherFreeSpans() noexcept
{
    bool found = false;
    if (freeSpans.load(std::memory_order_relaxed) > 0)
        for (std::size_t i = 1; i < kClasses; ++i) {
            const std::int32_t free = classes[i].freeSpans.load(std::memory_order_relaxed);
            if (free > 0 && free >= classes[i].spans.load(std::memory_order_relaxed) / 8)
                found = gatherFrom(i) || found;
        }
    if (found)
        SpanHeap::limitResident();
    return found;
}

bool SmallBlocks::gatherFrom(std::size_t sizeClass) noexcept
{
    Class& list = classes[sizeClass];
    std::uint64_t top = list.top.load(std::memory_order_relaxed);
    while (!list.top.compare_exchange_weak(top, ((top >> 32) + 1) << 32, std::memory_order_acquire))
        continue;
    // The whole list is ours now. What is not free goes back in the same order.
    const std::uint32_t allFree =
        static_cast<std::uint32_t>(blocksPerSpan(sizeClass)) * 4 + kListed;
    bool found = false;
    std::uint32_t first = 0;
    std::uint32_t last = 0;
    std::uint32_t next = 0;
    for (std::uint32_t at = static_cast<std::uint32_t>(top); at != 0; at = next) {
        Span& record = recordOf(at - 1);
        next = record.below.load(std::memory_order_relaxed);
        if (record.state.load(std::memory_order_acquire) == allFree) {
            record.state.store(kIdle, std::memory_order_relaxed);
            --list.freeSpans;
            --freeSpans;
            --list.spans;
            classOfSpan[at - 1].store(0, std::memory_order_relaxed);
            SpanHeap::putBack(at - 1);
            found = true;
        } else {
            if (first == 0)
                first = at;
            else
                recordOf(last - 1).below.store(at, std::memory_order_relaxed);
            last = at;
        }
    }
    if (first != 0)
        pushChain(list, first - 1, last - 1);
    return found;
}

// --- From spans to caches

// Makes the calling thread the holder of a span that is not in use.
bool SmallBlocks::beginSpan(Cache::Held& held, std::size_t sizeClass) noexcept
{
    std::uint32_t span;
    if (!SpanHeap::takeIdle(span) && !(gatherFreeSpans() && SpanHeap::takeIdle(span)) &&
        !SpanHeap::takeNew(span))
        return false;
    Span& record = recordOf(span);
    const auto granules =
        static_cast<std::uint32_t>(SizeClasses::blockSize(sizeClass) / SizeClasses::kGranule);
    std::uint64_t pattern = 0; // of a word whose first granule starts a block
    for (std::uint32_t bit = 0; bit < 64; bit += granules)
        pattern |= std::uint64_t{1} << bit;
    const std::int32_t count = blocksPerSpan(sizeClass);
    std::int32_t left = count;
    std::uint64_t words = 0;
    std::uint32_t next = 0; // granules from the start of the word to the next block
    for (std::size_t i = 0; i < kWords; ++i) {
        std::uint64_t bits = next < 64 ? pattern << next : 0;
        while (__builtin_popcountl(bits) > left) // what is left of the span is too small
            bits &= ~(std::uint64_t{1} << (63 - __builtin_clzl(bits)));
        const int placed = __builtin_popcountl(bits);
        left -= placed;
        next += static_cast<std::uint32_t>(placed) * granules - 64;
        record.free[i].store(bits, std::memory_order_relaxed);
        words |= static_cast<std::uint64_t>(bits != 0) << i;
    }
    record.announced.store(0, std::memory_order_relaxed);
    record.state.store(static_cast<std::uint32_t>(count) * 4 + kHeld, std::memory_order_relaxed);
    ++classes[sizeClass].spans;
    classOfSpan[span].store(static_cast<std::uint8_t>(sizeClass), std::memory_order_relaxed);
    held = {span + 1, 0, words};
    return true;
}

// Ends the holding of a span. One with free blocks goes on its list if it may; otherwise it
// stays held and the result is false.
bool SmallBlocks::letGo(Cache::Held& held, std::size_t sizeClass, bool mayList) noexcept
{
    const std::uint32_t span = held.span - 1;
    std::atomic<std::uint32_t>& state = recordOf(span).state;
    const std::uint32_t taken = std::exchange(held.taken, 0) * 4;
    std::uint32_t before = state.fetch_sub(taken) - taken;
    do {
        if (countIn(before) > 0 && !mayList)
            return false;
    } while (!state.compare_exchange_weak(before, before - kHeld +
                                                      (countIn(before) > 0 ? kListed : kUsedUp)));
    if (countIn(before) > 0) {
        pushChain(classes[sizeClass], span, span);
        if (countIn(before) == blocksPerSpan(sizeClass))
            noteFreeSpan(sizeClass);
    }
    held = {};
    return true;
}

// Makes sure that the cache holds a span with words to look at, if not necessarily with blocks
// in them.
bool SmallBlocks::holdWords(Cache& cache, std::size_t sizeClass) noexcept
{
    Cache::Held& held = cache.held[sizeClass];
    while (held.span != 0) {
        held.words = recordOf(held.span - 1).announced.exchange(0);
        if (held.words != 0)
            return true;
        // Blocks are announced before they are counted: a count above 0 means another look.
        letGo(held, sizeClass, false);
    }
    held.span = popSpan(classes[sizeClass]);
    if (held.span == 0)
        return beginSpan(held, sizeClass);
    const std::uint32_t before = recordOf(held.span - 1).state.fetch_add(kHeld - kListed);
    if (countIn(before) == blocksPerSpan(sizeClass)) {
        --classes[sizeClass].freeSpans;
        --freeSpans;
    }
    held.words = recordOf(held.span - 1).announced.exchange(0);
    return true;
}

// Puts a batch or a little more into an empty bin, or less if the span has no more.
bool SmallBlocks::fill(Cache& cache, std::size_t sizeClass) noexcept
{
    Cache::Held& held = cache.held[sizeClass];
    Bin& bin = cache.bins[sizeClass];
    void** const first = bin.top + 1;
    void** end = first;
    do {
        if (held.words == 0 && !holdWords(cache, sizeClass))
            return false;
        const std::uint32_t span = held.span - 1;
        Span& record = recordOf(span);
        while (held.words != 0 && end - first < bin.batch) {
            const auto word = static_cast<std::uintptr_t>(__builtin_ctzl(held.words));
            held.words &= held.words - 1;
            const std::uintptr_t start = SpanHeap::addressOf(span) + word * kWord;
            std::uint64_t bits = record.free[word].exchange(0);
            for (; bits != 0; bits &= bits - 1)
                *end++ = reinterpret_cast<void*>(start +
                                                 static_cast<std::uintptr_t>(__builtin_ctzl(bits)) *
                                                     SizeClasses::kGranule);
        }
    } while (end == first);
    held.taken += static_cast<std::uint32_t>(end - first);
    std::reverse(first, end); // the lowest comes out first
    bin.top = end - 1;
    return true;
}

// --- From caches to spans

// Counts free blocks whose bits have been set in these words.
void SmallBlocks::addFree(std::uint32_t span, std::uint64_t words, std::size_t count) noexcept
{
    Span& record = recordOf(span);
    // Words that are still announced will be looked at later than now.
    if ((record.announced.load() & words) != words)
        record.announced.fetch_or(words);
    std::uint32_t before = record.state.load();
    std::uint32_t after;
    do {
        after = before + static_cast<std::uint32_t>(count) * 4;
        if (before % 4 == kUsedUp)
            after += kListed - kUsedUp;
    } while (!record.state.compare_exchange_weak(before, after));
    const std::size_t sizeClass = classOfSpan[span].load(std::memory_order_relaxed);
    if (before % 4 == kUsedUp)
        pushChain(classes[sizeClass], span, span);
    if (after == static_cast<std::uint32_t>(blocksPerSpan(sizeClass)) * 4 + kListed)
        noteFreeSpan(sizeClass);
}

// Sets the bits of blocks. Neighbours, as they often are, share the atomic operations.
void SmallBlocks::giveBack(void* const* blocks, std::size_t count) noexcept
{
    void* const* const end = blocks + count;
    while (blocks != end) {
        void* const* const firstOfSpan = blocks;
        Span& record = recordOf(spanOf(*blocks));
        std::uint64_t words = 0;
        do {
            const std::uintptr_t word = addressOf(*blocks) / kWord;
            std::uint64_t bits = 0;
            do {
                if ((bits & bitOf(*blocks)) != 0)
                    freedTwice(*blocks);
                bits |= bitOf(*blocks);
            } while (++blocks != end && addressOf(*blocks) / kWord == word);
            if ((record.free[word % kWords].fetch_or(bits) & bits) != 0)
                freedTwice(blocks[-1]);
            words |= std::uint64_t{1} << word % kWords;
        } while (blocks != end &&
                 addressOf(*blocks) / SpanHeap::kSpan == addressOf(*firstOfSpan) / SpanHeap::kSpan);
        addFree(spanOf(*firstOfSpan), words, static_cast<std::size_t>(blocks - firstOfSpan));
    }
}

// --- Caches

// Two places with null come before those for the blocks of each bin.
constexpr std::size_t SmallBlocks::cacheSize() noexcept
{
    std::size_t places = 0;
    for (std::size_t i = 1; i < kClasses; ++i)
        places += 2 + 2 * SizeClasses::batchSize(i);
    return (sizeof(Cache) + places * sizeof(void*) + kPage - 1) / kPage * kPage;
}

void SmallBlocks::start() noexcept
{
    usable = (kChecked || __sanitizer_get_allocated_size == nullptr) &&
             pthread_key_create(&threadKey, threadEnds) == 0 && SpanHeap::start();
}

// Returns the cache of a thread that has ended, or null.
SmallBlocks::Cache* SmallBlocks::popCache() noexcept
{
    std::uint64_t top = unusedCaches.load(std::memory_order_acquire);
    while (top % kPageNumbers != 0) {
        auto* const cache = reinterpret_cast<Cache*>(top % kPageNumbers * kPage);
        const std::uint64_t below = cache->below.load(std::memory_order_relaxed);
        if (unusedCaches.compare_exchange_weak(top, (top / kPageNumbers + 1) * kPageNumbers + below,
                                               std::memory_order_acquire))
            return cache;
    }
    return nullptr;
}

void SmallBlocks::pushCache(Cache& cache) noexcept
{
    const std::uint64_t page = addressOf(&cache) / kPage;
    std::uint64_t top = unusedCaches.load(std::memory_order_relaxed);
    do {
        cache.below.store(top % kPageNumbers, std::memory_order_relaxed);
    } while (
        !unusedCaches.compare_exchange_weak(top, (top / kPageNumbers + 1) * kPageNumbers + page,
                                            std::memory_order_release, std::memory_order_relaxed));
}

// Returns a new cache, or null if there is no memory for it.
SmallBlocks::Cache* SmallBlocks::makeCache() noexcept
{
    constexpr std::size_t kAll = cacheSize() + 2 * kPage;
    void* const pages = mmap(nullptr, kAll, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED)
        return nullptr;
    // What overflows towards a cache hits a guard page.
    void* const usablePages = static_cast<char*>(pages) + kPage;
    if (mprotect(usablePages, cacheSize(), PROT_READ | PROT_WRITE) != 0) {
        munmap(pages, kAll);
        return nullptr;
    }
    auto* const cache = new (usablePages) Cache();
    void** places = reinterpret_cast<void**>(cache + 1);
    for (std::size_t i = 1; i < kClasses; ++i) {
        const std::uint32_t batch = SizeClasses::batchSize(i);
        cache->bins[i] = {places + 1, places + 1 + 2 * batch, divisorOf(SizeClasses::blockSize(i)),
                          batch};
        places += 2 + 2 * batch;
    }
    return cache;
}

// Gives this thread a cache, if it may have one and there is memory for it.
bool SmallBlocks::adoptCache() noexcept
{
    if (ended)
        return false;
    pthread_once(&started, start);
    if (!usable)
        return false;
    Cache* cache = popCache();
    if (cache == nullptr)
        cache = makeCache();
    if (cache == nullptr)
        return false;
    if (pthread_setspecific(threadKey, cache) != 0) {
        pushCache(*cache);
        return false;
    }
    own = cache;
    return true;
}

// Runs when a thread ends, after the destructors of its thread_local objects.
void SmallBlocks::threadEnds(void* argument) noexcept
{
    Cache& cache = *static_cast<Cache*>(argument);
    ended = true;
    own = &none;
    for (std::size_t i = 1; i < kClasses; ++i) {
        Bin& bin = cache.bins[i];
        void** const bottom = bin.full - 2 * bin.batch;
        giveBack(bottom + 1, static_cast<std::size_t>(bin.top - bottom));
        bin.top = bottom;
        if (Cache::Held& held = cache.held[i]; held.span != 0) {
            recordOf(held.span - 1).announced.fetch_or(held.words);
            letGo(held, i, true);
        }
    }
    pushCache(cache);
}

// --- For diagnostic tools

namespace {

constexpr Vx::detail::InspectBlocks withBlockSizes(Vx::detail::InspectBlocks layout) noexcept
{
    for (std::size_t i = 0; i < SizeClasses::kClasses; ++i)
        layout.blockSizes[i] = static_cast<std::uint32_t>(SizeClasses::blockSize(i));
    return layout;
}

static_assert(SizeClasses::kClasses <= Vx::detail::kInspectMostClasses);

} // namespace

constinit const Vx::detail::InspectBlocks SmallBlocks::layout = withBlockSizes({
    .size = sizeof(Vx::detail::InspectBlocks),
    .spanSize = SpanHeap::kSpan,
    .base = &SpanHeap::base,
    .chunksTried = &SpanHeap::chunksTried,
    .chunks = SpanHeap::chunks,
    .classOfSpan = classOfSpan,
    .classes = kClasses,
    .spansPerChunk = SpanHeap::kChunkSpans,
    .maxSpans = SpanHeap::kSpans,
    .chunkSize = sizeof(SpanHeap::Chunk),
    .mappedInChunk = offsetof(SpanHeap::Chunk, mapped),
    .recordSize = SpanHeap::kRecord,
    .freeInRecord = offsetof(Span, free),
    .wordsInRecord = kWords,
    .blockSizes = {},
});

// --- Slow paths

void* SmallBlocks::allocateMore(std::size_t size) noexcept
{
    if (size > kLargest || (own == &none && !adoptCache()))
        return nullptr;
    const std::size_t sizeClass = SizeClasses::classOf(size);
    Bin& bin = own->bins[sizeClass];
    if (*bin.top == nullptr && !fill(*own, sizeClass))
        return nullptr;
    return pop(bin);
}

bool SmallBlocks::deallocateMore(void* block) noexcept
{
    const std::uintptr_t offset = SpanHeap::offsetOf(block);
    if (offset >= SpanHeap::kRange)
        return false;
    const std::size_t sizeClass = classOfSpan[spanOf(block)].load(std::memory_order_relaxed);
    if (sizeClass == 0) {
        // Another mapping may lie in our range, with blocks of the heap in it.
        if (!SpanHeap::hasMapped(spanOf(block)) && isMapped(block))
            return false;
        abortOnMisuse(block, "no block is allocated at this address");
    }
    const std::size_t size = SizeClasses::blockSize(sizeClass);
    if (!isMultiple(static_cast<std::uint32_t>(offset % SpanHeap::kSpan), divisorOf(size)))
        abortOnMisuse(block, "this is not the start of a block");
#if VX_HARDENED
    markFree(block, size);
#endif
    if (own == &none && !adoptCache()) {
        giveBack(&block, 1);
        return true;
    }
    Bin& bin = own->bins[sizeClass];
    if (!mayFree(bin, block, offset))
        freedTwice(block);
    if (bin.top == bin.full) {
        void** const first = bin.full - 2 * bin.batch + 1; // the batch that was freed first
        giveBack(first, bin.batch);
        std::copy_n(first + bin.batch, bin.batch, first);
        bin.top -= bin.batch;
    }
    *++bin.top = block;
    return true;
}

#if VX_HARDENED

void SmallBlocks::markInUse(const void* block) noexcept
{
    const std::uintptr_t word = SpanHeap::offsetOf(block) % SpanHeap::kSpan / kWord;
    recordOf(spanOf(block)).inUse[word].fetch_or(bitOf(block), std::memory_order_relaxed);
}

void SmallBlocks::markFree(void* block, std::size_t size) noexcept
{
    const std::uintptr_t word = SpanHeap::offsetOf(block) % SpanHeap::kSpan / kWord;
    const std::uint64_t before =
        recordOf(spanOf(block)).inUse[word].fetch_and(~bitOf(block), std::memory_order_relaxed);
    if ((before & bitOf(block)) == 0)
        freedTwice(block);
    std::memset(block, kScrub, size);
}

#endif
