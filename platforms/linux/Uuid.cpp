#include "Uuid.h"

#include "ForkPage.h"
#include "Threading.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/random.h>

namespace {

constexpr std::size_t kSize = sizeof(SimpleUUID);

void fetchRandom(unsigned char* to, std::size_t count) noexcept
{
    while (count != 0) {
        const ssize_t got = getrandom(to, count, 0);
        if (got > 0) {
            to += got;
            count -= static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            std::fprintf(stderr,
                         "libOS: the kernel gives no random numbers (%s), so no "
                         "identifier can be made\n",
                         std::strerror(errno));
            std::abort();
        }
    }
}

// A block of its own for the thread, as long as there are fewer threads than blocks; null
// when all are in use.
ForkPage::RandomBlock* takeBlock(ForkPage& page) noexcept
{
    const unsigned int preferred = Threading().currentThreadId();
    for (unsigned int i = 0; i < ForkPage::kRandomBlocks; ++i) {
        auto& block = page.randomBlocks[(preferred + i) % ForkPage::kRandomBlocks];
        if (block.taken.exchange(1, std::memory_order_acquire) == 0)
            return &block;
    }
    return nullptr;
}

bool takeFetched(unsigned char* bytes) noexcept
{
    ForkPage* const page = forkPage();
    if (page == nullptr)
        return false;
    const std::uint32_t epoch = forkEpoch(*page);
    ForkPage::RandomBlock* const block = takeBlock(*page);
    if (block == nullptr)
        return false;
    // A signal handler may fork at any point here and return in the child, on a wiped page.
    // What is written from then on carries the parent's epoch, so nobody believes it.
    std::uint32_t left = block->left.load(std::memory_order_relaxed);
    if (left < kSize || block->epoch.load(std::memory_order_relaxed) != epoch) {
        left = sizeof block->bytes;
        fetchRandom(block->bytes, left);
        block->epoch.store(epoch, std::memory_order_relaxed);
    }
    unsigned char* const next = block->bytes + (sizeof block->bytes - left);
    std::memcpy(bytes, next, kSize);
    std::memset(next, 0, kSize);
    asm volatile("" : : "r"(next) : "memory"); // a write that must not be optimised away
    block->left.store(left - static_cast<std::uint32_t>(kSize), std::memory_order_relaxed);
    block->taken.store(0, std::memory_order_release);
    return forkEpoch(*page) == epoch;
}

} // namespace

SimpleUUID Uuid::generate() noexcept
{
    unsigned char bytes[kSize];
    if (!takeFetched(bytes))
        fetchRandom(bytes, kSize);
    return fromRandom(bytes);
}

SimpleUUID Uuid::fromRandom(const unsigned char* bytes) noexcept
{
    SimpleUUID id;
    std::memcpy(id.bytes, bytes, kSize);
    id.bytes[7] = static_cast<unsigned char>((id.bytes[7] & 0x0F) | 0x40);
    id.bytes[8] = static_cast<unsigned char>((id.bytes[8] & 0x3F) | 0x80);
    return id;
}
