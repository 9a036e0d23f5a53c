#include "memory/SpanHeap.h"

#include <cerrno>
#include <initializer_list>
#include <sys/mman.h>

constinit std::atomic<std::uintptr_t> SpanHeap::base = std::uintptr_t{1} << 63;
constinit SpanHeap::Chunk SpanHeap::chunks[kChunks] = {};
constinit std::atomic<std::uint32_t> SpanHeap::chunksTried = 0;
constinit std::atomic<int> SpanHeap::idleSpans = 0;
constinit std::atomic<int> SpanHeap::residentSpans = 0;

namespace {

constexpr std::uint32_t kAllSpans = ~std::uint32_t{0};

int countOf(std::uint32_t spans) { return __builtin_popcount(spans); }

// Maps exactly there or not at all. errno is EEXIST if the addresses are taken.
bool mapAt(std::uintptr_t address, std::size_t size)
{
    void* const wanted = reinterpret_cast<void*>(address);
    void* const place = mmap(wanted, size, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    if (place == wanted)
        return true;
    if (place != MAP_FAILED) { // a kernel that takes the address as a wish
        munmap(place, size);
        errno = EEXIST;
    }
    return false;
}

} // namespace

bool SpanHeap::start() noexcept
{
    // The system maps new memory below the lowest mapping that it chose before. This far below,
    // it comes into the range only after it has given the process that much.
    constexpr std::uintptr_t kDistance = std::uintptr_t{1} << 38;
    void* const probe = mmap(nullptr, kChunk, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (probe == MAP_FAILED)
        return false;
    munmap(probe, kChunk);
    const auto place = reinterpret_cast<std::uintptr_t>(probe);
    if (place < 2 * kDistance) // also under Valgrind, which maps new memory at low addresses
        return false;
    base.store((place - kDistance) / kChunk * kChunk, std::memory_order_relaxed);
    return true;
}

bool SpanHeap::hasMapped(std::uint32_t span) noexcept
{
    return chunks[span / kChunkSpans].mapped.load(std::memory_order_relaxed);
}

bool SpanHeap::takeIdle(std::uint32_t& span) noexcept
{
    if (idleSpans.load(std::memory_order_relaxed) <= 0)
        return false;
    const std::uint32_t end = chunksTried.load(std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < end; ++i) {
        Chunk& chunk = chunks[i];
        std::uint32_t idle = chunk.idle.load(std::memory_order_relaxed);
        while (idle != 0) {
            const std::uint32_t lowest = idle & -idle;
            idle = chunk.idle.fetch_and(~lowest, std::memory_order_acquire);
            if ((idle & lowest) != 0) {
                // The first touch of a huge page brings memory for all its spans.
                const std::uint32_t nowPresent = chunk.absent.exchange(0);
                residentSpans += countOf(nowPresent) - 1;
                --idleSpans;
                span = i * kChunkSpans + static_cast<std::uint32_t>(__builtin_ctz(lowest));
                return true;
            }
        }
    }
    return false;
}

bool SpanHeap::mapChunk(std::uint32_t& chunk) noexcept
{
    static_assert(kChunkSpans * kRecord % 4096 == 0, "the records of a chunk fill whole pages");
    for (;;) {
        std::uint32_t next = chunksTried.load(std::memory_order_relaxed);
        if (next == kChunks)
            return false;
        if (!chunksTried.compare_exchange_weak(next, next + 1))
            continue;
        const std::uintptr_t memory = addressOf(next * kChunkSpans);
        if (mapAt(memory, kChunk)) {
            if (mapAt(reinterpret_cast<std::uintptr_t>(recordOf(next * kChunkSpans)),
                      kChunkSpans * kRecord)) {
                chunk = next;
                return true;
            }
            const int error = errno;
            munmap(reinterpret_cast<void*>(memory), kChunk);
            errno = error;
        }
        if (errno != EEXIST) { // there may be memory for this chunk later
            std::uint32_t tried = next + 1;
            chunksTried.compare_exchange_strong(tried, next);
            return false;
        }
    }
}

bool SpanHeap::takeNew(std::uint32_t& span) noexcept
{
    std::uint32_t number;
    if (!mapChunk(number))
        return false;
    // A process that needs more than one chunk profits from huge pages; a small one would only
    // be larger.
    if (number != 0)
        madvise(reinterpret_cast<void*>(addressOf(number * kChunkSpans)), kChunk, MADV_HUGEPAGE);
    Chunk& chunk = chunks[number];
    chunk.mapped.store(true, std::memory_order_relaxed);
    // The caller touches the first span, and with it all of the huge page.
    constexpr std::uint32_t kOthers = kAllSpans & ~std::uint32_t{1};
    idleSpans += countOf(kOthers);
    residentSpans += countOf(kOthers);
    chunk.idle.store(kOthers, std::memory_order_release);
    span = number * kChunkSpans;
    return true;
}

void SpanHeap::putBack(std::uint32_t span) noexcept
{
    const std::uint32_t bit = std::uint32_t{1} << span % kChunkSpans;
    chunks[span / kChunkSpans].idle.fetch_or(bit, std::memory_order_release);
    ++idleSpans;
    ++residentSpans;
}

void SpanHeap::limitResident() noexcept
{
    if (residentSpans.load(std::memory_order_relaxed) <= kMostResident)
        return;
    // Goes well below the limit, so that the next time is far away.
    for (const bool wholeOnly : {true, false})
        for (std::uint32_t i = chunksTried.load(std::memory_order_relaxed); i > 0; --i) {
            if (residentSpans.load(std::memory_order_relaxed) <= kMostResident / 2)
                return;
            trimChunk(i - 1, wholeOnly);
        }
}

// Returns the memory of the idle spans of a chunk, or of none if not all of them are idle.
void SpanHeap::trimChunk(std::uint32_t number, bool wholeOnly) noexcept
{
    Chunk& chunk = chunks[number];
    std::uint32_t idle = chunk.idle.load(std::memory_order_relaxed);
    if ((wholeOnly && idle != kAllSpans) || (idle & ~chunk.absent.load()) == 0)
        return;
    // Until they are published again, these spans are ours alone.
    if (!chunk.idle.compare_exchange_strong(idle, 0, std::memory_order_acquire))
        return;
    const std::uint32_t present = idle & ~chunk.absent.load();
    for (std::uint32_t left = present; left != 0;) {
        const int first = __builtin_ctz(left);
        const std::uint32_t shifted = left >> first;
        const int count = shifted == kAllSpans ? 32 : __builtin_ctz(~shifted);
        madvise(reinterpret_cast<void*>(addressOf(number * kChunkSpans) +
                                        static_cast<std::uintptr_t>(first) * kSpan),
                static_cast<std::uintptr_t>(count) * kSpan, MADV_DONTNEED);
        left = first + count == 32 ? 0 : left >> (first + count) << (first + count);
    }
    residentSpans -= countOf(present & ~chunk.absent.fetch_or(present));
    chunk.idle.fetch_or(idle, std::memory_order_release);
}
