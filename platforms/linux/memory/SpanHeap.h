// SpanHeap.h - Takes memory from the system in chunks and hands it out in spans.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// The source of memory for small blocks: spans of 64 KiB, each with a zero-initialised record
/// in which its user keeps notes.
///
/// Addresses: all spans lie in one range of 32 GiB, so that a subtraction tells whether an
///   address can be ours and which span it is in. The range is only chosen, not reserved: chunks
///   of 2 MiB are mapped in it one after another, so RLIMIT_AS counts what is in use. A chunk
///   whose addresses another mapping occupies is left out.
/// Reuse: a span that is put back serves any size. At most kMostResident idle spans keep their
///   memory; the rest is returned to the system, whole chunks first, because they are huge
///   pages.
/// Ownership: each chunk has a bit per idle span. A span belongs to the thread that clears its
///   bit.
/// Thread safety: any thread. There are no locks, so a fork at any moment leaves the child a
///   working heap; it loses the spans that other threads were moving.
class SpanHeap {
public:
    static constexpr std::uintptr_t kSpan = 1u << 16;
    static constexpr std::uintptr_t kChunk = 1u << 21; // a huge page
    static constexpr std::uintptr_t kRange = std::uintptr_t{1} << 35;
    static constexpr std::uint32_t kSpans = kRange / kSpan;

    /// 8 MiB.
    static constexpr int kMostResident = 128;

    /// Bytes per span. Those of a chunk fill whole pages.
#if VX_HARDENED
    static constexpr std::size_t kRecord = 1152;
#else
    static constexpr std::size_t kRecord = 640;
#endif

    /// Chooses the range. Call once, before all other operations.
    /// \returns false if the system has no addresses at all
    static bool start() noexcept;

    /// Returns the distance of \p place from the start of the range: kRange or more if it lies
    /// outside, as every address does before start().
    static std::uintptr_t offsetOf(const void* place) noexcept
    {
        return reinterpret_cast<std::uintptr_t>(place) - base.load(std::memory_order_relaxed);
    }

    static std::uintptr_t addressOf(std::uint32_t span) noexcept
    {
        return base.load(std::memory_order_relaxed) + span * kSpan;
    }

    /// Returns the record of a span that has been handed out before.
    static void* recordOf(std::uint32_t span) noexcept
    {
        return reinterpret_cast<void*>(addressOf(kSpans) + span * kRecord);
    }

    /// Whether the memory around \p span, a number below kSpans, was mapped by this heap.
    static bool hasMapped(std::uint32_t span) noexcept;

    /// Hands out an idle span. Its bytes are unspecified. \returns false if there is none
    static bool takeIdle(std::uint32_t& span) noexcept;

    /// Maps another chunk and hands out a span of it.
    /// \returns false if the system or a limit refuses more memory
    static bool takeNew(std::uint32_t& span) noexcept;

    /// Makes \p span idle.
    static void putBack(std::uint32_t span) noexcept;

    /// Returns memory to the system if too much is idle. Call it after a series of putBack(): the
    /// spans of a huge page, which should go as a whole, are rarely put back one after another.
    static void limitResident() noexcept;

private:
    friend class SmallBlocks; // for its layout

    static constexpr std::uint32_t kChunkSpans = kChunk / kSpan;
    static constexpr std::uint32_t kChunks = kRange / kChunk;

    struct Chunk {
        std::atomic<std::uint32_t> idle;   // a bit for each idle span
        std::atomic<std::uint32_t> absent; // those of them that have no memory
        std::atomic<bool> mapped;
    };

    static bool mapChunk(std::uint32_t& chunk) noexcept;
    static void trimChunk(std::uint32_t chunk, bool wholeOnly) noexcept;

    /// Above all user addresses until start().
    static std::atomic<std::uintptr_t> base;
    static Chunk chunks[kChunks];
    static std::atomic<std::uint32_t> chunksTried;
    // Hints: exact when no thread is in here, briefly negative otherwise.
    static std::atomic<int> idleSpans;
    static std::atomic<int> residentSpans; // idle and not absent
};
