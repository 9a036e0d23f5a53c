// SmallBlocks.h - Allocates blocks of up to 16 KiB faster than malloc.
#pragma once

#include "memory/SizeClasses.h"
#include "memory/SpanHeap.h"

#include <Vx/detail/Inspect.h>
#include <atomic>
#include <cstddef>
#include <cstdint>

/// The allocator for what strings, list items and short lists are made of.
///
///     void* block = SmallBlocks::take(size);
///     if (block == nullptr)
///         block = SmallBlocks::allocateMore(size); // null: use malloc
///     ...
///     if (!SmallBlocks::put(block) && !SmallBlocks::deallocateMore(block))
///         std::free(block);
///
/// How it works:
/// - A *span* is 64 KiB of memory cut into equal blocks (SpanHeap.h, SizeClasses.h). Its record
///   has a bit for each free block.
/// - Each thread has a *cache*: for each size class a *bin*, a stack of free blocks that only
///   this thread touches. Allocating pops a block and freeing pushes one, without atomic
///   operations and whichever thread allocated the block.
/// - An empty bin is filled with a batch of blocks from the span that the cache *holds* for this
///   class; a full bin returns a batch to the spans that the blocks came from.
/// - When the held span is used up, the cache takes another from the *list* of spans of that
///   class with free blocks, or starts a new span. Spans on the lists that are entirely free
///   move to the SpanHeap, which hands them to any class or back to the system: when another
///   class needs a span, and when there are too many of them.
/// - Batches are sorted by address, so what is allocated together lies together, in whatever
///   order the blocks were freed.
///
/// Ownership: a free block belongs to the thread that clears its bit, a span to the cache that
///   holds it or to the thread that took it off its list. Any thread may set bits.
/// Errors: allocation returns null when there is no memory or \p size is above kLargest.
///   Freeing what is not an allocated block here aborts with a line on standard error. Caught at
///   once: addresses that are not the start of a block, or in a span that is not in use, and
///   the last two blocks freed; other double frees when their batch is returned, if the block
///   has not been allocated again. Built with VX_HARDENED, every wrong free is caught at once,
///   and freed blocks are overwritten.
/// Thread safety: any thread. There are no locks, so there is no lock order, and a fork at any
///   moment leaves the child a working allocator; it loses what other threads had cached or
///   were moving.
/// Start and end: works before the first constructor and after the last destructor. A thread
///   that ends returns its blocks; what still runs in it afterwards allocates with malloc.
/// Memory checkers: never returns a block in a process with a sanitizer or under Valgrind, so that
///   all blocks come from malloc, where these can watch them.
class SmallBlocks {
public:
    static constexpr std::size_t kLargest = SizeClasses::kLargest;

#if VX_HARDENED
    /// What freed blocks are overwritten with.
    static constexpr unsigned char kScrub = 0xDF;
#endif

    /// Returns a block of at least \p size bytes, aligned to 16, from this thread's cache, or
    /// null if the cache has none.
    static void* take(std::size_t size) noexcept
    {
        if (__builtin_expect(size > SizeClasses::kLargestFine, false)) {
            if (size > kLargest)
                return nullptr;
            return pop(own->bins[SizeClasses::coarseClassOf(size)]);
        }
        return pop(own->bins[(size + SizeClasses::kGranule - 1) / SizeClasses::kGranule]);
    }

    /// Does the same after filling the cache. Returns null if there is no memory for it.
    static void* allocateMore(std::size_t size) noexcept;

    /// Frees \p block into this thread's cache.
    /// \returns false, having done nothing, if this needs deallocateMore()
    static bool put(void* block) noexcept
    {
        const std::uintptr_t offset = SpanHeap::offsetOf(block);
        const std::uintptr_t span = offset / SpanHeap::kSpan;
        if (__builtin_expect(span >= SpanHeap::kSpans || VX_HARDENED, false))
            return false;
        Bin& bin = own->bins[classOfSpan[span].load(std::memory_order_relaxed)];
        if (__builtin_expect(bin.top == bin.full || !mayFree(bin, block, offset), false))
            return false;
        *++bin.top = block;
        return true;
    }

    /// Frees \p block, or aborts if it is not an allocated one.
    /// \returns false, having done nothing, if it is not from here, as null is not
    static bool deallocateMore(void* block) noexcept;

    /// How the spans are laid out, for diagnostic tools.
    static const Vx::detail::InspectBlocks layout;

private:
    static_assert(SizeClasses::kSpan == SpanHeap::kSpan, "large blocks fill a span");
    static constexpr std::size_t kClasses = SizeClasses::kClasses;
    static constexpr std::uintptr_t kWord = 64 * SizeClasses::kGranule; // bytes per word of bits
    static constexpr std::size_t kWords = SpanHeap::kSpan / kWord;

    /// The free blocks of one class that a thread has at hand: a stack that grows upwards, with
    /// two nulls below it. The bin of class 0 is always both empty and full, so that whatever
    /// falls into it takes the slow path.
    struct alignas(32) Bin {
        void** top = nothing + 1;
        void** full = nothing + 1; // top, when there are two batches
        std::uint32_t divisor = 0; // see isMultiple()
        std::uint32_t batch = 0;
        static void* nothing[2];
    };

    /// What a thread owns. Lies in pages of its own between two guard pages, followed by the
    /// places of its bins.
    struct Cache {
        Bin bins[kClasses];
        struct Held {
            std::uint32_t span = 0;  // its number + 1, or 0
            std::uint32_t taken = 0; // blocks that the span's state still counts
            std::uint64_t words = 0; // with free blocks, as far as known
        } held[kClasses];
        std::atomic<std::uint64_t> below = 0; // the next unused cache, its page number
    };

    /// Where a span is. Its count and this change in one atomic step.
    enum Place : std::uint32_t {
        kUsedUp, // nowhere: it had no free blocks when it was last held
        kListed, // on the list of its class, or with the thread that took it off
        kHeld,   // by a cache
        kIdle,   // in the SpanHeap
    };

    /// The record of a span.
    struct Span {
        std::atomic<std::uint64_t> announced;    // words where bits were set since the last look
        std::atomic<std::uint32_t> state;        // free blocks * 4 + Place
        std::atomic<std::uint32_t> below;        // the next span on its list, its number + 1
        std::atomic<std::uint64_t> free[kWords]; // a bit where each free block starts
#if VX_HARDENED
        std::atomic<std::uint64_t> inUse[kWords]; // a bit where each allocated block starts
#endif
    };
    static_assert(sizeof(Span) <= SpanHeap::kRecord);

    /// A class and its spans. A list is a stack of span numbers (plus 1) with a count of changes
    /// in the upper half: a span that left and came back must not look as if it had stayed.
    struct alignas(64) Class {
        std::atomic<std::uint64_t> top;
        std::atomic<std::int32_t> spans;     // in use by this class
        std::atomic<std::int32_t> freeSpans; // of them on the list, all blocks free
    };

    static void* pop(Bin& bin) noexcept
    {
        void** const top = bin.top;
        void* const block = *top;
        if (__builtin_expect(block == nullptr, false))
            return nullptr;
        bin.top = top - 1;
        // The next block is often written soon, and after a while of disuse it is not cached.
        __builtin_prefetch(top[-1], 1);
#if VX_HARDENED
        markInUse(block);
#endif
        return block;
    }

    /// Whether \p n is a multiple of the number that \p divisor was made for by divisorOf().
    /// Exact for numbers below 2^16: the product is the fraction of the quotient.
    static bool isMultiple(std::uint32_t n, std::uint32_t divisor) noexcept
    {
        return n * divisor < divisor;
    }
    static constexpr std::uint32_t divisorOf(std::size_t size) noexcept
    {
        return static_cast<std::uint32_t>(~std::uint32_t{0} / size + 1);
    }

    /// Whether \p block starts where a block can and is not one of the last two in its bin.
    static bool mayFree(const Bin& bin, const void* block, std::uintptr_t offset) noexcept
    {
        return bin.top[0] != block && bin.top[-1] != block &&
               isMultiple(static_cast<std::uint32_t>(offset % SpanHeap::kSpan), bin.divisor);
    }

#if VX_HARDENED
    static void markInUse(const void* block) noexcept;
    static void markFree(void* block, std::size_t size) noexcept;
#endif

    static constexpr std::size_t cacheSize() noexcept;
    static void start() noexcept;
    static Cache* popCache() noexcept;
    static void pushCache(Cache& cache) noexcept;
    static Cache* makeCache() noexcept;
    static bool adoptCache() noexcept;
    static void threadEnds(void* cache) noexcept;
    static bool fill(Cache& cache, std::size_t sizeClass) noexcept;
    static bool holdWords(Cache& cache, std::size_t sizeClass) noexcept;
    static bool beginSpan(Cache::Held& held, std::size_t sizeClass) noexcept;
    static bool letGo(Cache::Held& held, std::size_t sizeClass, bool mayList) noexcept;
    static void giveBack(void* const* blocks, std::size_t count) noexcept;
    static void addFree(std::uint32_t span, std::uint64_t words, std::size_t count) noexcept;
    static void noteFreeSpan(std::size_t sizeClass) noexcept;
    static bool gatherFreeSpans() noexcept;
    static bool gatherFrom(std::size_t sizeClass) noexcept;
    static void pushChain(Class& list, std::uint32_t first, std::uint32_t last) noexcept;
    static std::uint32_t popSpan(Class& list) noexcept;
    static Span& recordOf(std::uint32_t span) noexcept;

    /// Serves threads without a cache of their own. All its bins are like that of class 0.
    static Cache none;
    // Initial-exec: reading it never allocates, and eight bytes fit the space that the C library
    // keeps for libraries loaded late. constinit here, or each use would check for a constructor.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local Cache* own;

    static std::atomic<std::uint8_t> classOfSpan[SpanHeap::kSpans]; // 0: not in use
    static Class classes[kClasses];
    static std::atomic<std::int32_t> freeSpans;     // of all classes
    static std::atomic<std::uint64_t> unusedCaches; // as a class's list, by page number
};
