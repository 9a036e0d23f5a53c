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

void fetchRandom(SimpleUUID* ids, std::size_t count) noexcept
{
    unsigned char* to = ids->bytes;
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

// Marks an identifier as a random one: version 4, variant 1. In halves, since reading sixteen bytes
// right after writing one of them stalls the processor.
SimpleUUID marked(const SimpleUUID& random) noexcept
{
    std::uint64_t halves[2];
    std::memcpy(halves, random.bytes, sizeof halves);
    halves[0] = (halves[0] & ~(std::uint64_t{0xF0} << 56)) | std::uint64_t{0x40} << 56;
    halves[1] = (halves[1] & ~std::uint64_t{0xC0}) | 0x80;
    SimpleUUID id;
    std::memcpy(id.bytes, halves, sizeof halves);
    return id;
}

// Random bytes fetched in advance, since one call for each identifier takes five times as long.
// Not thread_local: the loader has little storage to spare for a library that is loaded late.
struct Reserve {
    std::atomic_flag inUse = ATOMIC_FLAG_INIT; // guards the other members
    std::uint64_t epoch = 0;                   // of the process that fetched them
    std::size_t left = 0;                      // the first ones in the array
    SimpleUUID random[512] = {};
};
constinit Reserve reserve;

bool takeFromReserve(std::uint64_t epoch, SimpleUUID& to) noexcept
{
    // Without waiting, which would never end in a child forked while another thread is here.
    if (reserve.inUse.test_and_set(std::memory_order_acquire))
        return false;
    // The parent is going to use what a child inherits.
    if (reserve.left == 0 || reserve.epoch != epoch) {
        fetchRandom(reserve.random, sizeof reserve.random);
        reserve.epoch = epoch;
        reserve.left = std::size(reserve.random);
    }
    to = reserve.random[--reserve.left];
    reserve.inUse.clear(std::memory_order_release);
    return true;
}

} // namespace

SimpleUUID Uuid::generate() noexcept
{
    SimpleUUID random;
    const std::uint64_t epoch = forkEpoch();
    if (epoch == 0 || !takeFromReserve(epoch, random))
        fetchRandom(&random, sizeof random);
    return marked(random);
}
