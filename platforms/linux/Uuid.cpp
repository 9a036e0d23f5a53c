#include "Uuid.h"

#include "threads/ForkEpoch.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sys/random.h>

namespace {

void fetchRandom(unsigned char* to, std::size_t count) noexcept
{
    while (count != 0) {
        const ssize_t got = getrandom(to, count, 0);
        if (got > 0) {
            to += got;
            count -= static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            std::fprintf(stderr,
                         "libOS: cannot generate an identifier, because the kernel gives no "
                         "random numbers: %s\n",
                         std::strerror(errno));
            std::abort();
        }
    }
}

// Marks the identifiers as random ones: version 4, variant 1. Before they are handed out: reading
// sixteen bytes right after writing one of them stalls the processor.
void fetch(SimpleUUID* ids, std::size_t count) noexcept
{
    fetchRandom(ids->bytes, count * sizeof *ids);
    for (; count != 0; --count, ++ids) {
        ids->bytes[7] = static_cast<unsigned char>((ids->bytes[7] & 0x0F) | 0x40);
        ids->bytes[8] = static_cast<unsigned char>((ids->bytes[8] & 0x3F) | 0x80);
    }
}

// Identifiers fetched in advance, since one call for each identifier takes five times as long.
// Not thread_local: the loader has little storage to spare for a library that is loaded late.
struct Reserve {
    std::atomic_flag inUse = ATOMIC_FLAG_INIT; // guards the other members
    std::uint64_t epoch = 0;                   // of the process that fetched them
    std::size_t left = 0;                      // the first ones in the array
    SimpleUUID ids[256] = {};
};
constinit Reserve reserve;

bool takeFromReserve(std::uint64_t epoch, SimpleUUID& to) noexcept
{
    // Without waiting, which would never end in a child forked while another thread is here.
    if (reserve.inUse.test_and_set(std::memory_order_acquire))
        return false;
    // The parent is going to use what a child inherits.
    if (reserve.left == 0 || reserve.epoch != epoch) {
        fetch(reserve.ids, std::size(reserve.ids));
        reserve.epoch = epoch;
        reserve.left = std::size(reserve.ids);
    }
    to = reserve.ids[--reserve.left];
    reserve.inUse.clear(std::memory_order_release);
    return true;
}

} // namespace

SimpleUUID Uuid::generate() noexcept
{
    SimpleUUID id;
    const std::uint64_t epoch = forkEpoch();
    if (epoch == 0 || !takeFromReserve(epoch, id))
        fetch(&id, 1);
    return id;
}
