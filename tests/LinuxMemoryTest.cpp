// The small blocks of the Linux platform: what their shape and their threads promise.
#include "memory/SmallBlocks.h"

#include <Testing.h>
#include <Vx/LightweightString.h>
#include <pthread.h>
#include <sys/resource.h>

namespace {

// A block that knows what was written into it.
struct Held {
    unsigned char* bytes;
    std::size_t size;
    unsigned char mark;

    static Held make(std::size_t size, unsigned char mark)
    {
        auto* const bytes = static_cast<unsigned char*>(SmallBlocks::allocate(size));
        if (bytes != nullptr)
            std::memset(bytes, mark, size);
        return {bytes, size, mark};
    }

    bool intact() const
    {
        for (std::size_t i = 0; i < size; ++i)
            if (bytes[i] != mark)
                return false;
        return true;
    }
};

// Opaque to the compiler, which sees otherwise that these blocks are not ours.
[[gnu::noinline]] bool deallocateAny(void* block) { return SmallBlocks::deallocate(block); }

bool makesAndFrees(std::size_t count)
{
    std::vector<Held> held;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t bound = i % 16 == 0 ? SmallBlocks::kLargest : 1000;
        held.push_back(Held::make(1 + i * 7 % bound, static_cast<unsigned char>(i)));
        if (held.back().bytes == nullptr)
            return false;
    }
    for (const Held& block : held)
        if (!block.intact() || !SmallBlocks::deallocate(block.bytes))
            return false;
    return true;
}

} // namespace

TEST(SmallBlocks, HoldWhatIsWrittenUntilFreed)
{
    std::mt19937 random(1);
    std::vector<Held> held;
    for (int step = 0; step < 200000; ++step) {
        if (held.size() < 5000 && random() % 5 != 0) {
            const std::size_t size = random() % (SmallBlocks::kLargest + 1) >> random() % 8;
            held.push_back(Held::make(size, static_cast<unsigned char>(random())));
            ASSERT_NE(held.back().bytes, nullptr);
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(held.back().bytes) % 16, 0u);
        } else if (!held.empty()) {
            std::swap(held[random() % held.size()], held.back());
            ASSERT_TRUE(held.back().intact()) << "step " << step;
            ASSERT_TRUE(SmallBlocks::deallocate(held.back().bytes));
            held.pop_back();
        }
    }
    for (const Held& block : held)
        ASSERT_TRUE(block.intact());
}

TEST(SmallBlocks, LeaveToTheHeapWhatIsNotTheirs)
{
    EXPECT_EQ(SmallBlocks::allocate(SmallBlocks::kLargest + 1), nullptr);
    EXPECT_EQ(SmallBlocks::allocate(~std::size_t{0}), nullptr);
    const auto refusesAll = [] {
        int onTheStack = 0;
        const auto onTheHeap =
            std::unique_ptr<void, decltype(&std::free)>(std::malloc(8), std::free);
        return !deallocateAny(nullptr) && !deallocateAny(&onTheStack) &&
               !deallocateAny(onTheHeap.get()) && !deallocateAny(reinterpret_cast<void*>(16)) &&
               !deallocateAny(reinterpret_cast<void*>(~std::uintptr_t{15}));
    };
    EXPECT_TRUE(refusesAll());
    ASSERT_TRUE(makesAndFrees(1));
    EXPECT_TRUE(refusesAll()) << "with memory reserved";
}

TEST(SmallBlocks, FreeingABlockTwiceEndsTheProcess)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the platform does without small blocks under the sanitizer";
#endif
    for (const std::size_t between : {0u, 1u, 1000u}) {
        SCOPED_TRACE(between);
        EXPECT_DEATH(
            {
                std::vector<void*> blocks(2000);
                for (void*& block : blocks)
                    block = SmallBlocks::allocate(40);
                SmallBlocks::deallocate(blocks[0]);
                for (std::size_t i = 1; i <= between; ++i)
                    SmallBlocks::deallocate(blocks[i]);
                SmallBlocks::deallocate(blocks[0]);
                for (std::size_t i = between + 1; i < blocks.size(); ++i)
                    SmallBlocks::deallocate(blocks[i]);
            },
            "");
    }
}

// Lists and documents that are made after a long time of use are read as fast as the first.
TEST(SmallBlocks, LieTogetherWhereTheyWereFreedInAnyOrder)
{
    std::vector<void*> blocks(50000);
    for (void*& block : blocks)
        block = SmallBlocks::allocate(90);
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(5));
    for (void* block : blocks)
        SmallBlocks::deallocate(block);
    const void* last = nullptr;
    int steps = 0;
    for (int i = 0; i < 10000; ++i) {
        const void* const block = SmallBlocks::allocate(90);
        const std::ptrdiff_t step =
            static_cast<const char*>(block) - static_cast<const char*>(last);
        steps += step == 96;
        last = block;
    }
    EXPECT_GT(steps, 9000);
}

// One thread makes, the other frees, round after round: blocks come back to their maker.
TEST(SmallBlocks, PassBetweenThreadsWithoutUsingMoreAndMore)
{
    constexpr int kRounds = 200;
    constexpr std::size_t kBlocks = 3000;
    std::vector<Held> held(kBlocks);
    std::set<const void*> places;
    std::barrier turn(2);
    bool allIntact = true;
    std::thread freer([&] {
        for (int round = 0; round < kRounds; ++round) {
            turn.arrive_and_wait();
            for (const Held& block : held) {
                allIntact = allIntact && block.intact();
                SmallBlocks::deallocate(block.bytes);
            }
            turn.arrive_and_wait();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        for (std::size_t i = 0; i < kBlocks; ++i) {
            held[i] = Held::make(90, static_cast<unsigned char>(round + int(i)));
            places.insert(held[i].bytes);
        }
        turn.arrive_and_wait();
        turn.arrive_and_wait();
    }
    freer.join();
    EXPECT_TRUE(allIntact);
    EXPECT_LT(places.size(), 2 * kBlocks);
}

TEST(SmallBlocks, ManyThreadsAtOnceNeverShareABlock)
{
    constexpr int kThreads = 8;
    std::atomic<bool> allIntact = true;
    // Each hands its blocks to its neighbour, so the stacks are pushed and popped all the time.
    std::vector<std::atomic<std::vector<Held>*>> mailboxes(kThreads);
    onThreads(kThreads, [&](int self) {
        std::mt19937 random(static_cast<unsigned int>(self));
        for (int round = 0; round < 300; ++round) {
            auto* const made = new std::vector<Held>;
            for (int i = 0; i < 200; ++i)
                made->push_back(
                    Held::make(16 + random() % 3 * 16, static_cast<unsigned char>(self * 31 + i)));
            const std::unique_ptr<std::vector<Held>> received(
                mailboxes[static_cast<std::size_t>(random() % kThreads)].exchange(made));
            if (received != nullptr)
                for (const Held& block : *received) {
                    if (!block.intact())
                        allIntact = false;
                    SmallBlocks::deallocate(block.bytes);
                }
        }
    });
    for (auto& mailbox : mailboxes)
        delete mailbox.load();
    EXPECT_TRUE(allIntact);
}

TEST(SmallBlocks, AThreadThatEndsGivesItsBlocksBack)
{
    std::set<const void*> places;
    for (int i = 0; i < 100; ++i)
        std::thread([&] {
            std::vector<void*> blocks;
            for (int j = 0; j < 1000; ++j) {
                blocks.push_back(SmallBlocks::allocate(64));
                places.insert(blocks.back());
            }
            for (void* block : blocks)
                SmallBlocks::deallocate(block);
        }).join();
    EXPECT_LT(places.size(), 2500u);
}

// Destructors of a thread's own objects, and those of keys in later rounds, allocate still.
TEST(SmallBlocks, ServeAThreadToItsVeryEnd)
{
    static pthread_key_t key;
    static std::atomic<int> rounds = 0;
    static LightweightString<char> left;
    struct Local {
        ~Local() { left = LightweightString<char>("made in a destructor"); }
        int value = 0;
    };
    ASSERT_EQ(pthread_key_create(&key,
                                 [](void* argument) {
                                     void* const block = SmallBlocks::allocate(100);
                                     delete static_cast<LightweightString<char>*>(argument);
                                     SmallBlocks::deallocate(block);
                                     if (++rounds < 3)
                                         pthread_setspecific(
                                             key, new LightweightString<char>("one more round"));
                                 }),
              0);
    std::thread([] {
        static thread_local Local local;
        ++local.value;
        pthread_setspecific(key, new LightweightString<char>("freed when the thread has ended"));
    }).join();
    EXPECT_EQ(rounds, 3);
    EXPECT_EQ(left, "made in a destructor");
    left.clear();
    EXPECT_TRUE(makesAndFrees(1000));
}

TEST(SmallBlocks, WorkInAChildForkedWhileOthersAllocate)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer's own heap may stay locked in a forked child";
#endif
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

TEST(SmallBlocks, AreRefusedWhereNoAddressesAreLeft)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer needs more addresses itself";
#endif
    EXPECT_TRUE(holdsInChild([] {
        // A thread of its own has no blocks yet; the limit is below what is reserved.
        const rlimit little = {std::uint64_t{1} << 30, std::uint64_t{1} << 30};
        if (setrlimit(RLIMIT_AS, &little) != 0)
            return false;
        // Straight from here, or refused: both will do, as long as the heap takes over.
        const LightweightString<char> text("the heap is next");
        return text == "the heap is next";
    }));
}
