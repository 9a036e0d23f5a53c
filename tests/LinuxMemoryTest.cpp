// The small blocks of the Linux platform: contents, reuse, threads, forks, limits, misuse.
#include "memory/SmallBlocks.h"

#include <Testing.h>
#include <Vx/LightweightString.h>
#include <cerrno>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true; // addresses, memory and forks are the sanitizer's, too
#else
constexpr bool kSanitized = false;
#endif

void* allocate(std::size_t size)
{
    void* const block = SmallBlocks::take(size);
    return block != nullptr ? block : SmallBlocks::allocateMore(size);
}

// Opaque to the compiler, which warns otherwise about freeing what is not allocated.
[[gnu::noinline]] bool deallocate(void* block)
{
    return SmallBlocks::put(block) || SmallBlocks::deallocateMore(block);
}

// A block that knows what was written into it.
struct Held {
    unsigned char* bytes;
    std::size_t size;
    unsigned char mark;

    static Held make(std::size_t size, std::size_t mark)
    {
        auto* const bytes = static_cast<unsigned char*>(allocate(size));
        if (bytes != nullptr)
            std::memset(bytes, static_cast<unsigned char>(mark), size);
        return {bytes, size, static_cast<unsigned char>(mark)};
    }

    bool freeIntact() const
    {
        return bytes != nullptr && reinterpret_cast<std::uintptr_t>(bytes) % 16 == 0 &&
               (size == 0 || (bytes[0] == mark && std::memcmp(bytes, bytes + 1, size - 1) == 0)) &&
               deallocate(bytes);
    }
};

bool makesAndFrees(std::size_t count)
{
    std::vector<Held> held;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t bound = i % 16 == 0 ? SmallBlocks::kLargest : 1000;
        held.push_back(Held::make(1 + i * 7 % bound, i));
    }
    return std::all_of(held.begin(), held.end(),
                       [](const Held& block) { return block.freeIntact(); });
}

// Memory of the process in MiB: 0 all addresses, 1 what is resident.
std::size_t mebibytes(int which)
{
    std::ifstream file("/proc/self/statm");
    std::size_t pages[2] = {};
    file >> pages[0] >> pages[1];
    return pages[which] / 256;
}

// Counts mappings of the size of a thread's cache that are between two without access.
int guardedCaches()
{
    std::ifstream maps("/proc/self/maps");
    std::string line;
    std::string kinds; // of the mappings so far that touch each other
    std::uintptr_t end = 0;
    int found = 0;
    while (std::getline(maps, line)) {
        std::uintptr_t start, next;
        char access[5];
        std::sscanf(line.c_str(), "%zx-%zx %4s", &start, &next, access);
        if (start != end)
            kinds.clear();
        kinds += access[1] == 'w' && next - start < 100000 ? 'c' : access[0] == '-' ? 'g' : '?';
        found += kinds.ends_with("gcg");
        end = next;
    }
    return found;
}

} // namespace

TEST(SmallBlocks, LeaveToTheHeapWhatIsNotTheirs)
{
    EXPECT_EQ(allocate(SmallBlocks::kLargest + 1), nullptr);
    EXPECT_EQ(allocate(~std::size_t{0}), nullptr);
    const auto refusesAll = [] {
        int onTheStack = 0;
        const auto onTheHeap =
            std::unique_ptr<void, decltype(&std::free)>(std::malloc(8), std::free);
        return !deallocate(nullptr) && !deallocate(&onTheStack) && !deallocate(onTheHeap.get()) &&
               !deallocate(reinterpret_cast<void*>(16)) &&
               !deallocate(reinterpret_cast<void*>(~std::uintptr_t{15}));
    };
    EXPECT_TRUE(refusesAll());
    ASSERT_TRUE(makesAndFrees(1));
    EXPECT_TRUE(refusesAll()) << "after the first block";
}

TEST(SmallBlocksDeathTest, FreeingWhatIsNotAllocatedAborts)
{
    const auto after = [](std::size_t others) { // a block freed, then others, then the block
        std::vector<void*> blocks(2000);
        for (void*& block : blocks)
            block = allocate(40);
        for (std::size_t i = 0; i <= others; ++i)
            deallocate(blocks[i]);
        deallocate(blocks[0]);
        for (std::size_t i = others + 1; i < blocks.size(); ++i)
            deallocate(blocks[i]);
    };
    const auto beside = [](std::size_t size, std::ptrdiff_t distance) {
        deallocate(static_cast<char*>(allocate(size)) + distance);
    };
    const struct {
        const char* what;
        const char* message;
        std::function<void()> misuse;
    } rows[] = {
        {"p, p", "this block is already free", [&] { after(0); }},
        {"p, q, p", "this block is already free", [&] { after(1); }},
        {"p, 1000 others, p", "this block is already free", [&] { after(1000); }},
        {"not aligned", "this is not the start of a block", [&] { beside(96, 8); }},
        {"inside a block", "this is not the start of a block", [&] { beside(96, 16); }},
        {"inside a large block", "this is not the start of a block", [&] { beside(16384, 8192); }},
        {"a block in a thread that has no cache yet", "this is not the start of a block",
         [] {
             char* const block = static_cast<char*>(allocate(96));
             std::thread([block] { deallocate(block + 1); }).join();
         }},
        {"a part of a chunk that is not in use", "no block is allocated at this address",
         [&] { beside(96, (32 - 1) << 16); }},
        {"an address that has no memory yet", "no block is allocated at this address",
         [&] { beside(96, std::ptrdiff_t{1} << 34); }},
#if VX_HARDENED
        {"p, q, r, p", "this block is already free", [&] { after(2); }},
        {"never allocated", "this block is already free", [&] { beside(1040, 1040); }},
#endif
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EXIT(row.misuse(), testing::KilledBySignal(SIGABRT),
                    std::string("^Vx: deallocate\\(0x[0-9a-f]+\\): ") + row.message + "\n$");
    }
}

#if VX_HARDENED
TEST(SmallBlocks, AreOverwrittenWhenFreed)
{
    auto* const bytes = static_cast<volatile unsigned char*>(allocate(1000));
    for (int i = 0; i < 1000; ++i)
        bytes[i] = 1;
    deallocate(const_cast<unsigned char*>(bytes));
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(bytes[i], SmallBlocks::kScrub);
}
#endif

// Lists and documents that are made after a long time of use are read as fast as the first.
TEST(SmallBlocks, AreAdjacentAgainAfterBeingFreedInAnyOrder)
{
    std::vector<void*> blocks(50000);
    for (void*& block : blocks)
        block = allocate(90);
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(5));
    for (void* block : blocks)
        deallocate(block);
    const void* last = nullptr;
    int adjacent = 0;
    for (int i = 0; i < 10000; ++i) {
        const void* const block = allocate(90);
        adjacent += static_cast<const char*>(block) - static_cast<const char*>(last) == 96;
        last = block;
    }
    EXPECT_GT(adjacent, 9000);
}

// One size after the other, in the order of addresses and in none: as much as stays with its size
// until another needs it, and more.
TEST(SmallBlocks, ServeOtherSizesAndReturnToTheSystemWhenFreed)
{
    const std::size_t before = mebibytes(1);
    for (const std::size_t amount : {16u, 100u}) {
        SCOPED_TRACE(amount);
        std::set<std::uintptr_t> spans;
        for (const std::size_t size : {1000u, 400u, 4000u, 120u}) {
            std::vector<void*> blocks((amount << 20) / size);
            for (void*& block : blocks) {
                block = allocate(size);
                std::memset(block, 1, size);
                spans.insert(reinterpret_cast<std::uintptr_t>(block) >> 16);
            }
            if (size == 400)
                std::shuffle(blocks.begin(), blocks.end(), std::mt19937(3));
            for (void* block : blocks)
                deallocate(block);
        }
        EXPECT_LT(spans.size(), amount * 16 * 8 / 5) << "each size needs 16 for each MiB";
        EXPECT_LT(kSanitized ? 0 : mebibytes(1) - before, 90u);
    }
}

// Blocks of changing sizes go from thread to thread, so spans change hands and sizes all the
// time; threads end in between.
TEST(SmallBlocks, ManyThreadsAtOnceNeverShareABlock)
{
    constexpr int kThreads = 8;
    std::atomic<bool> allIntact = true;
    std::vector<std::atomic<std::vector<Held>*>> mailboxes(kThreads);
    for (int generation = 0; generation < 6; ++generation)
        onThreads(kThreads, [&](int self) {
            std::mt19937 random(static_cast<unsigned int>(generation * kThreads + self));
            for (int round = 0; round < 50; ++round) {
                auto* const made = new std::vector<Held>;
                const std::size_t large = random() % (SmallBlocks::kLargest + 1) >> random() % 8;
                for (int i = 0; i < 200; ++i)
                    made->push_back(
                        Held::make(random() % 8 == 0 ? large : random() % 48, random()));
                const std::unique_ptr<std::vector<Held>> received(
                    mailboxes[random() % kThreads].exchange(made));
                if (received != nullptr)
                    for (const Held& block : *received)
                        if (!block.freeIntact())
                            allIntact = false;
            }
        });
    for (auto& mailbox : mailboxes)
        delete mailbox.load();
    EXPECT_TRUE(allIntact);
}

TEST(SmallBlocks, AThreadThatEndsReturnsItsBlocksAndItsCache)
{
    constexpr std::size_t kBlocks = 3000;
    std::vector<Held> held(kBlocks);
    std::set<const void*> places;
    bool allIntact = true;
    const auto make = [&](std::size_t mark) {
        for (Held& block : held)
            places.insert((block = Held::make(90, mark)).bytes);
    };
    const auto free = [&] {
        for (const Held& block : held)
            allIntact = block.freeIntact() && allIntact;
    };
    int caches = 0;
    for (std::size_t round = 0; round < 100; ++round) {
        make(round);
        std::thread([&] {
            free();
            make(round + 1);
            free();
            caches = guardedCaches();
        }).join();
        ASSERT_GE(caches, 2) << "this thread's and the other's are between guard pages";
    }
    EXPECT_TRUE(allIntact);
    EXPECT_LT(places.size(), 2 * kBlocks);
    EXPECT_LT(caches, 50) << "one more for each thread would be 101";
}

// After its cache has been returned, a thread must not touch it: another may have it by now.
TEST(SmallBlocks, AThreadThatHasEndedUsesTheHeap)
{
    static pthread_key_t key;
    static int rounds = 0;
    static bool refused = true;
    static bool freed = true;
    static LightweightString<char> left;
    struct Local {
        ~Local() { left = LightweightString<char>("made in a destructor"); }
        int value = 0;
    };
    ASSERT_TRUE(makesAndFrees(1)); // the cache's own key comes first
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void* block) {
                                     refused = refused && allocate(100) == nullptr;
                                     freed = freed && deallocate(block);
                                     LightweightString<char> text("from the heap");
                                     if (++rounds < 3)
                                         pthread_setspecific(key, Held::make(0, 0).bytes);
                                 }),
              0);
    std::set<const void*> places;
    std::thread([&] {
        static thread_local Local local;
        ++local.value;
        void* const block = allocate(1040);
        places.insert(block);
        pthread_setspecific(key, block);
    }).join();
    EXPECT_TRUE(refused && freed);
    EXPECT_EQ(left, "made in a destructor");
    left.clear();
    std::thread([&] {
        for (int i = 0; i < 100; ++i)
            places.erase(allocate(1040));
    }).join();
    EXPECT_TRUE(places.empty()) << "freed at the very end, and lost";
}

TEST(SmallBlocks, WorkInAChildForkedWhileOthersAllocate)
{
    if (kSanitized)
        GTEST_SKIP() << "the sanitizer's own heap may stay locked in a forked child";
    std::atomic<bool> done = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            while (!done)
                makesAndFrees(500);
        });
    bool allHold = true;
    for (int i = 0; i < 60; ++i)
        allHold = allHold && holdsInChild([] {
                      bool elsewhere = false;
                      std::thread([&] { elsewhere = makesAndFrees(300); }).join();
                      return elsewhere && makesAndFrees(2000);
                  });
    done = true;
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_TRUE(allHold);
}

// The limit counts what is in use, no matter when it is set.
TEST(SmallBlocks, StayWithinALimitOfAddresses)
{
    if (kSanitized)
        GTEST_SKIP() << "the sanitizer needs more addresses itself";
    EXPECT_TRUE(holdsInChild([] {
        if (!makesAndFrees(1000) || mebibytes(0) > 1000)
            return false;
        rlimit original;
        if (getrlimit(RLIMIT_AS, &original) != 0)
            return false;
        const rlimit limit = {(mebibytes(0) + 200) << 20, original.rlim_max};
        if (setrlimit(RLIMIT_AS, &limit) != 0)
            return false;
        void* last = nullptr; // a chain through all blocks
        std::size_t count = 0;
        for (void* block; (block = allocate(1000)) != nullptr; ++count) {
            *static_cast<void**>(block) = last;
            last = block;
        }
        for (int i = 0; i < 20000; ++i) // as many as there are chunks, and more
            if (allocate(16384) != nullptr)
                ++count;
        if (setrlimit(RLIMIT_AS, &original) != 0 || allocate(16384) == nullptr)
            return false;
        for (void* block = last; block != nullptr;) {
            void* const next = *static_cast<void**>(block);
            deallocate(block);
            block = next;
        }
        return count > 150000 && count < 600000 && makesAndFrees(1000);
    }));
}

TEST(MemoryAllocator, FreeingKeepsErrno)
{
    if (kSanitized)
        GTEST_SKIP() << "the sanitizer needs more addresses itself";
    EXPECT_TRUE(holdsInChild([] {
        void* const block = operator new(100);
        int error = 0;
        std::thread([&] { // has no cache, and finds no addresses for one
            rlimit original;
            if (getrlimit(RLIMIT_AS, &original) != 0)
                return;
            const rlimit limit = {4096, original.rlim_max};
            setrlimit(RLIMIT_AS, &limit);
            errno = EDOM;
            operator delete(block);
            error = errno;
            setrlimit(RLIMIT_AS, &original);
        })
            .join();
        return error == EDOM;
    }));
}
