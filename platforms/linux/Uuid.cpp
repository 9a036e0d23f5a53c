#include "Uuid.h"

#include "threads/ForkEpoch.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
// A thread's own, so that there is nothing to lock.
struct Reserve {
    std::uint64_t epoch; // of the process that fetched the bytes
    std::size_t left;    // identifiers, the first ones in the array
    unsigned char bytes[64][sizeof(SimpleUUID)];
};
constinit thread_local Reserve reserve = {};

} // namespace

SimpleUUID Uuid::generate() noexcept
{
    SimpleUUID id;
    const std::uint64_t epoch = forkEpoch();
    if (epoch == 0) {
        fetchRandom(id.bytes, sizeof id.bytes);
    } else {
        // What a child inherits, its parent is going to use.
        if (reserve.left == 0 || reserve.epoch != epoch) {
            fetchRandom(reserve.bytes[0], sizeof reserve.bytes);
            reserve.epoch = epoch;
            reserve.left = std::size(reserve.bytes);
        }
        std::memcpy(id.bytes, reserve.bytes[--reserve.left], sizeof id.bytes);
    }
    id.bytes[7] = static_cast<unsigned char>((id.bytes[7] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<unsigned char>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}
