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

// Random bytes fetched in advance, since one call for each identifier takes five times as long.
// Not thread_local: the loader has little storage to spare for a library that is loaded late.
struct Reserve {
    std::atomic_flag inUse = ATOMIC_FLAG_INIT; // guards the other members
    std::uint64_t epoch = 0;                   // of the process that fetched the bytes
    std::size_t left = 0;                      // identifiers, the first ones in the array
    unsigned char bytes[256][sizeof(SimpleUUID)] = {};
};
constinit Reserve reserve;

bool takeFromReserve(std::uint64_t epoch, unsigned char* to) noexcept
{
    // Without waiting, which would never end in a child forked while another thread is here.
    if (reserve.inUse.test_and_set(std::memory_order_acquire))
        return false;
    // The parent is going to use what a child inherits.
    if (reserve.left == 0 || reserve.epoch != epoch) {
        fetchRandom(reserve.bytes[0], sizeof reserve.bytes);
        reserve.epoch = epoch;
        reserve.left = std::size(reserve.bytes);
    }
    std::memcpy(to, reserve.bytes[--reserve.left], sizeof(SimpleUUID));
    reserve.inUse.clear(std::memory_order_release);
    return true;
}

} // namespace

SimpleUUID Uuid::generate() noexcept
{
    SimpleUUID id;
    const std::uint64_t epoch = forkEpoch();
    if (epoch == 0 || !takeFromReserve(epoch, id.bytes))
        fetchRandom(id.bytes, sizeof id.bytes);
    id.bytes[7] = static_cast<unsigned char>((id.bytes[7] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<unsigned char>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}
