#include "threads/Uuid.h"

#include "threads/ForkPage.h"
#include "threads/Threading.h"

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

[[gnu::noinline]] SimpleUUID fetchOne() noexcept
{
    unsigned char bytes[kSize];
    fetchRandom(bytes, kSize);
    return Uuid::fromRandom(bytes);
}

[[gnu::noinline]] void fill(ForkPage::RandomBlock& block, std::uint32_t epoch) noexcept
{
    fetchRandom(block.bytes, sizeof block.bytes);
    block.epoch.store(epoch, std::memory_order_relaxed);
}

} // namespace

SimpleUUID Uuid::generate() noexcept
{
    ForkPage* const page = forkPage();
    if (page == nullptr)
        return fetchOne();
    const std::uint32_t epoch = forkEpoch(*page);
    ForkPage::RandomBlock* const block = takeBlock(*page);
    if (block == nullptr)
        return fetchOne();
    // A signal handler may fork at any point here and return in the child, on a wiped page.
    // What is written from then on carries the parent's epoch, so nobody believes it.
    std::uint32_t left = block->left.load(std::memory_order_relaxed);
    if (left < kSize || block->epoch.load(std::memory_order_relaxed) != epoch) {
        fill(*block, epoch);
        left = sizeof block->bytes;
    }
    unsigned char* const next = block->bytes + (sizeof block->bytes - left);
    const SimpleUUID id = fromRandom(next);
    std::memset(next, 0, kSize);
    asm volatile("" : : "r"(next) : "memory"); // a write that must not be optimised away
    block->left.store(left - static_cast<std::uint32_t>(kSize), std::memory_order_relaxed);
    block->taken.store(0, std::memory_order_release);
    return forkEpoch(*page) == epoch ? id : fetchOne();
}

SimpleUUID Uuid::fromRandom(const unsigned char* bytes) noexcept
{
    // By the word: it leaves in two registers, and bytes would be picked out and put back.
    std::uint64_t first, second;
    std::memcpy(&first, bytes, sizeof first);
    std::memcpy(&second, bytes + sizeof first, sizeof second);
    first = (first & ~(std::uint64_t{0xF0} << 56)) | std::uint64_t{0x40} << 56;
    second = (second & ~std::uint64_t{0xC0}) | 0x80;
    SimpleUUID id;
    std::memcpy(id.bytes, &first, sizeof first);
    std::memcpy(id.bytes + sizeof first, &second, sizeof second);
    return id;
}
