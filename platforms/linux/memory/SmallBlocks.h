// SmallBlocks.h - blocks of up to 16 kilobytes, from memory of our own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// What strings, list items and short lists are made of: small blocks, faster than the heap's.
///
/// Shape: one stretch of address space, reserved on first use and cut into spans of equal
///   blocks. A thread keeps what it frees and takes from there first, without an atomic
///   operation. What it keeps of a size is two batches at most; more goes back to the spans,
///   which note it in a bit for each place.
/// Order: a thread takes from one span at a time, by rising addresses. So what is made
///   together lies together, in whatever order the blocks were freed.
/// Errors: for a large block, and where no memory can be had, allocate() gives null, and
///   deallocate() refuses what is not from here: the heap is next. A block that is freed twice
///   ends the process, unless it has been had again in between.
/// Threads: any. Whoever frees a block need not be who made it. There is no lock, so a fork
///   at any moment leaves the child a working allocator; only what other threads of the
///   parent kept for themselves, or had in hand, is lost to it.
/// Start and end: usable before the first constructor and after the last destructor. A
///   thread that ends gives its blocks back; whatever still runs in it after that uses the
///   heap and the spans.
/// Memory: pages are not given back to the system, freed blocks serve blocks of their size.
class SmallBlocks {
public:
    /// Larger blocks are the heap's.
    static constexpr std::size_t kLargest = 16416;

    /// A block of at least \p size bytes, aligned to 16, or null.
    static void* allocate(std::size_t size) noexcept
    {
        void* const block = take(size);
        return block != nullptr ? block : allocateMore(size);
    }

    /// The same from what this thread keeps; null when there may be more elsewhere.
    static void* take(std::size_t size) noexcept
    {
        if (__builtin_expect(size > kLargestFine, false))
            return size <= kLargest ? takeFrom(own->bins[coarseIndex(size)]) : nullptr;
        return takeFrom(own->bins[(size + kGranule - 1) / kGranule]);
    }

    /// What take() does not have.
    static void* allocateMore(std::size_t size) noexcept;

    /// Takes \p block back.
    /// \returns false, having done nothing, when it is not from here, as null is not
    static bool deallocate(void* block) noexcept
    {
        const std::uintptr_t offset =
            reinterpret_cast<std::uintptr_t>(block) - base.load(std::memory_order_relaxed);
        if (offset >= kReserved)
            return false;
        Bin& bin = own->bins[spanIndex[offset / kSpan]];
        const std::size_t count = bin.count;
        if (__builtin_expect(count == bin.limit, false)) {
            deallocateMore(block);
            return true;
        }
        void** const blocks = bin.blocks;
        if (__builtin_expect(blocks[count] == block, false))
            freedTwice();
        bin.count = static_cast<std::uint32_t>(count + 1);
        blocks[count + 1] = block;
        return true;
    }

private:
    // Two scales of sizes: each granule up to a kilobyte, then four steps to each doubling.
    // Both end a little behind a power of two, where a header and so many characters fit.
    static constexpr std::size_t kGranule = 16;
    static constexpr std::size_t kBehind = 32;
    static constexpr std::size_t kLargestFine = 1024 + kBehind;
    static constexpr std::size_t kFineSizes = kLargestFine / kGranule + 1;
    static constexpr std::size_t kSizes = kFineSizes + 16;
    static constexpr std::uintptr_t kSpan = 1u << 16;
    static constexpr std::uintptr_t kWord = 64 * kGranule; // what one word has bits for
    static constexpr std::uintptr_t kChunk = 1u << 20;     // what a thread takes first
    static constexpr std::uintptr_t kHugeChunk = 1u << 21; // and next: a huge page
    static constexpr std::uintptr_t kReserved = std::uintptr_t{1} << 35;

    /// Free blocks of one size, the next to be had last.
    struct Bin {
        void** blocks; // from place 1 on; at place 0 is a null
        std::uint32_t count;
        std::uint32_t limit; // two batches
    };

    /// What a thread keeps. Lies in the reserved memory itself, and behind it the places of its
    /// bins; passes from a thread that ends to one that begins.
    struct Cache {
        Bin bins[kSizes];
        std::uint32_t span[kSizes];  // where a bin takes its blocks from,
        std::uint64_t words[kSizes]; // and the words of it that have not been looked at yet
        std::uint32_t nextSpan;      // spans never used yet: from here
        std::uint32_t spansEnd;      // to here
    };

    /// What is free in a span: a bit for each granule where a free block begins.
    ///
    /// Whoever sets bits in a word announces the word, and with the first announcement puts
    /// the span on the stack of its size. Whoever takes the span from there takes all
    /// announcements with it, and then looks at the words. A block belongs to the one who
    /// clears its bit.
    struct Span {
        std::atomic<std::uint64_t> announced; // a bit for each word
        std::atomic<std::uint64_t> free[kSpan / kWord];
        std::atomic<std::uint32_t> below; // the span below on a stack
    };

    /// A stack of spans, by number from 1 on. The other half of the word counts changes, so
    /// that a span which went and came back in between is noticed.
    struct alignas(64) Stack {
        std::atomic<std::uint64_t> top;
    };

    static std::size_t coarseIndex(std::size_t size) noexcept
    {
        const std::size_t last = size - kBehind - 1;
        const int step = 61 - __builtin_clzl(last); // 2^step is a quarter of the octave
        return kFineSizes + static_cast<std::size_t>(step - 8) * 4 + (last >> step) - 4;
    }

    static std::size_t indexOf(std::size_t size) noexcept
    {
        return size <= kLargestFine ? (size + kGranule - 1) / kGranule : coarseIndex(size);
    }

    static void* takeFrom(Bin& bin) noexcept
    {
        const std::size_t count = bin.count;
        if (__builtin_expect(count == 0, false))
            return nullptr;
        void** const blocks = bin.blocks;
        bin.count = static_cast<std::uint32_t>(count - 1);
        // Whoever reads a long text into freed blocks would wait for each of them.
        __builtin_prefetch(blocks[count - 1], 1);
        if (blocks[count] == nullptr)
            __builtin_unreachable(); // callers need not test
        return blocks[count];
    }

    static constexpr std::size_t blockSize(std::size_t index) noexcept
    {
        if (index < kFineSizes)
            return index != 0 ? index * kGranule : kGranule;
        const std::size_t coarse = index - kFineSizes;
        return ((coarse % 4 + 5) << (coarse / 4 + 8)) + kBehind;
    }

    static void deallocateMore(void* block) noexcept;
    [[noreturn]] static void freedTwice() noexcept;

    static bool adopt() noexcept;
    static bool fill(Cache& cache, std::size_t index) noexcept;
    static bool beginSpan(Cache& cache, std::size_t index) noexcept;
    static bool takeChunk(std::uintptr_t size, std::uint32_t& span) noexcept;
    static void giveBack(void* const* blocks, std::size_t count) noexcept;
    static void announce(std::uint32_t span, std::uint64_t words) noexcept;
    static void reserve() noexcept;
    static void threadEnds(void* cache) noexcept;
    static void push(Stack& stack, std::uint32_t span) noexcept;
    static bool pop(Stack& stack, std::uint32_t& span) noexcept;
    static std::uintptr_t offsetOf(const void* place) noexcept;
    static std::uintptr_t addressOf(std::uint32_t span) noexcept;
    static Span& spanAt(std::uint32_t span) noexcept;
    static std::uint64_t bitOf(std::uintptr_t place) noexcept
    {
        return std::uint64_t{1} << place / kGranule % 64;
    }

    /// Stands in for a thread without a cache: has no block and takes none.
    static Cache none;
    // Initial-exec: reading it can never allocate. Eight bytes, so that a host may load this
    // library late. Known to need no initialising where it is used, or each use would ask.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local Cache* own;

    /// Where the reserved memory begins; before that, so that no address lies in it.
    static std::atomic<std::uintptr_t> base;
    static std::uint8_t spanIndex[kReserved / kSpan];
    static std::atomic<std::uintptr_t> nextChunk;
    static Stack withFree[kSizes]; // spans of that size
    static Stack unused;           // spans that hold a cache
};
