// SmallBlocks.h - blocks of up to 16 kilobytes, from memory of our own.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// What strings, list items and short lists are made of: small blocks, faster than the heap's.
///
/// Shape: one stretch of address space, reserved on first use and cut into spans of equal
///   blocks. A thread keeps what it frees and takes from there first, without an atomic
///   operation; full batches pass between threads through one stack for each size.
/// Errors: none. For a large block, and where no memory can be had, allocate() gives null,
///   and deallocate() refuses what is not from here: the heap is next.
/// Threads: any. Whoever frees a block need not be who made it. There is no lock, so a fork
///   at any moment leaves the child a working allocator; only what other threads of the
///   parent kept for themselves is lost to it.
/// Start and end: usable before the first constructor and after the last destructor. A
///   thread that ends gives its blocks back; whatever still runs in it after that uses the
///   heap and the stacks.
/// Memory: pages are not given back to the system, freed blocks serve blocks of their size.
class SmallBlocks {
public:
    /// Larger blocks are the heap's.
    static constexpr std::size_t kLargest = 16416;

    /// A block of at least \p size bytes, aligned to 16, or null.
    static void* allocate(std::size_t size) noexcept
    {
        if (size > kLargestFine)
            return size <= kLargest ? allocateFrom(coarseIndex(size)) : nullptr;
        return allocateFrom((size + kGranule - 1) / kGranule);
    }

    /// Takes \p block back.
    /// \returns false, having done nothing, when it is not from here, as null is not
    static bool deallocate(void* block) noexcept
    {
        const std::uintptr_t offset =
            reinterpret_cast<std::uintptr_t>(block) - base.load(std::memory_order_relaxed);
        if (offset >= kReserved)
            return false;
        const std::size_t index = spanIndex[offset / kSpan];
        Bin& bin = own->bins[index];
        if (__builtin_expect(bin.room == 0, false)) {
            deallocateMore(index, block);
            return true;
        }
        Block* const freed = static_cast<Block*>(block);
        if (__builtin_expect(freed == bin.head, false))
            freedTwice();
        freed->next = bin.head;
        bin.head = freed;
        --bin.room;
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
    static constexpr std::uintptr_t kChunk = 1u << 20;     // what a thread takes first
    static constexpr std::uintptr_t kHugeChunk = 1u << 21; // and next: a huge page
    static constexpr std::uintptr_t kReserved = std::uintptr_t{1} << 35;

    /// A free block. On a stack, the first block of a batch tells the batch below it and
    /// how many blocks the batch has.
    struct Block {
        Block* next;
        std::uint64_t batch;
    };

    struct Bin {
        Block* head;         // free blocks, linked
        std::uint32_t room;  // for so many more; then they become a batch
        std::uint32_t limit; // the blocks of a full batch
    };

    /// What a thread keeps. Lies in the reserved memory itself and passes from a thread that
    /// ends to one that begins.
    struct Cache {
        Block link; // on the stack of the unused
        Bin bins[kSizes];
        Block* spare[kSizes];            // one full batch, or null
        std::uintptr_t fresh[kSizes];    // blocks never used yet: from here
        std::uintptr_t freshEnd[kSizes]; // to here
        std::uintptr_t chunk;            // spans never used yet: from here
        std::uintptr_t chunkEnd;         // to here
    };

    /// A stack of batches. Their places are 32-bit granules of the reserved memory; the
    /// other half of the word counts changes, so that a batch which went and came back in
    /// between is noticed.
    struct alignas(64) Stack {
        std::atomic<std::uint64_t> top;
    };

    static std::size_t coarseIndex(std::size_t size) noexcept
    {
        const std::size_t last = size - kBehind - 1;
        const int step = 61 - __builtin_clzl(last); // 2^step is a quarter of the octave
        return kFineSizes + static_cast<std::size_t>(step - 8) * 4 + (last >> step) - 4;
    }

    static constexpr std::size_t blockSize(std::size_t index) noexcept
    {
        if (index < kFineSizes)
            return index != 0 ? index * kGranule : kGranule;
        const std::size_t coarse = index - kFineSizes;
        return ((coarse % 4 + 5) << (coarse / 4 + 8)) + kBehind;
    }

    static void* allocateFrom(std::size_t index) noexcept
    {
        Bin& bin = own->bins[index];
        Block* const block = bin.head;
        if (__builtin_expect(block == nullptr, false))
            return allocateMore(index);
        bin.head = block->next;
        // Whoever reads a long text back into freed blocks would wait for each of them.
        __builtin_prefetch(bin.head, 1);
        ++bin.room;
        return block;
    }

    static void* allocateMore(std::size_t index) noexcept;
    static void deallocateMore(std::size_t index, void* block) noexcept;
    [[noreturn]] static void freedTwice() noexcept;

    static bool adopt() noexcept;
    static bool carve(Cache& cache, std::size_t index) noexcept;
    static std::uintptr_t takeChunk(std::uintptr_t size) noexcept;
    static void reserve() noexcept;
    static void threadEnds(void* cache) noexcept;
    static void push(Stack& stack, Block* first, std::uint32_t count) noexcept;
    static Block* pop(Stack& stack, std::uint32_t& count) noexcept;

    /// Stands in for a thread without a cache: has no block and takes none.
    static Cache none;
    // Initial-exec: reading it can never allocate. Eight bytes, so that a host may load this
    // library late. Known to need no initialising where it is used, or each use would ask.
    [[gnu::tls_model("initial-exec")]] static constinit thread_local Cache* own;

    /// Where the reserved memory begins; before that, so that no address lies in it.
    static std::atomic<std::uintptr_t> base;
    static std::uint8_t spanIndex[kReserved / kSpan];
    static std::atomic<std::uintptr_t> nextChunk;
    static Stack batches[kSizes];
    static Stack unused;
};
