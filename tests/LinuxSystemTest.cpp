// Threads, locks, identifiers, the reclaim registry and call stacks of the Linux platform, beyond
// what platform-check checks on every platform.

#include "SystemInfo.h"
#include "SystemUtils.h"
#include "Uuid.h"
#include "diagnostics/CallStack.h"
#include "diagnostics/Modules.h"
#include "memory/MemoryAllocator.h"
#include "memory/ReclaimRegistry.h"
#include "threads/ForkEpoch.h"
#include "threads/Threading.h"

#include <Vx/Reclaimable.h>
#include <Vx/detail/Inspect.h>
#include <Vx/platform/OS.h>

#include <Testing.h>
#include <deque>
#include <dlfcn.h>
#include <sched.h>
#include <search.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>

namespace {

// What the kernel gives to the platform. The functions below replace the C library's.
struct Kernel {
    int refusals = 0; // of the next requests for random numbers
    int error = EINTR;
    std::size_t most = ~std::size_t{0}; // bytes at once
    bool wipes = true;                  // can zero memory in children
};
constinit Kernel kernel;

} // namespace

extern "C" ssize_t getrandom(void* to, std::size_t count, unsigned int flags)
{
    if (kernel.refusals > 0) {
        --kernel.refusals;
        errno = kernel.error;
        return -1;
    }
    return syscall(SYS_getrandom, to, std::min(count, kernel.most), flags);
}

extern "C" int madvise(void* block, std::size_t size, int advice) noexcept
{
    if (kernel.wipes || advice != MADV_WIPEONFORK)
        return static_cast<int>(syscall(SYS_madvise, block, size, advice));
    errno = EINVAL;
    return -1;
}

namespace {

TEST(ReadMemory, RefusesWhatIsNotThereAndKeepsErrno)
{
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char* const mapped = static_cast<char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(munmap(mapped + page, page), 0);
    char* const last = mapped + page - 4;
    std::strcpy(last, "abc");
    char copy[8] = "1234567";
    errno = 7;
    if (!Vx_readMemory(last, copy, 4))
        GTEST_SKIP() << "the kernel does not permit process_vm_readv()";
    EXPECT_STREQ(copy, "abc");
    for (const void* const missing :
         {static_cast<const void*>(nullptr), static_cast<const void*>(last + 4),
          static_cast<const void*>(last)})
        EXPECT_FALSE(Vx_readMemory(missing, copy, 5)) << missing;
    EXPECT_EQ(errno, 7);
    munmap(mapped, page);
}

TEST(SystemInfo, CountsTheProcessorsThatTheThreadMayUse)
{
    SystemInfo info;
    cpu_set_t all, one = {};
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    EXPECT_EQ(info.numProcessors(), CPU_COUNT(&all));
    for (int cpu = 0; CPU_COUNT(&one) == 0; ++cpu)
        if (CPU_ISSET(cpu, &all))
            CPU_SET(cpu, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(info.numProcessors(), 1);
    ASSERT_EQ(sched_setaffinity(0, sizeof all, &all), 0);
}

// --- Thread identifiers

TEST(Threading, ForkedChildrenHaveIdentifiersOfTheirOwn)
{
    Threading threading;
    const unsigned int parent = threading.currentThreadId();
    // The child may have asked before it forks in turn, or not.
    for (const bool childAsks : {true, false})
        EXPECT_TRUE(holdsInChild([&] {
            const unsigned int child = childAsks ? threading.currentThreadId() : 0;
            return child != parent && holdsInChild([&] {
                       const unsigned int id = threading.currentThreadId();
                       return id == static_cast<unsigned int>(gettid()) && id != child &&
                              id != parent;
                   });
        }));
    EXPECT_EQ(threading.currentThreadId(), parent);
}

// --- Locks

bool freeForOthers(iLock& lock)
{
    bool taken = false;
    std::thread([&] {
        taken = lock.tryLock();
        if (taken)
            lock.unlock();
    }).join();
    return taken;
}

TEST(Lock, StaysWithTheThreadThatForks)
{
    Threading threading;
    const Vx::Ptr<iLock> lock = threading.createLock(0);
    lock->lock();
    lock->unlock();
    lock->lock();
    EXPECT_TRUE(holdsInChild([&] {
        const bool reentered = lock->tryLock() && !freeForOthers(*lock);
        lock->unlock();
        lock->unlock();
        return reentered && freeForOthers(*lock);
    }));
    lock->unlock();
}

// A later thread gets the memory of an earlier one, its thread-local storage included.
TEST(Lock, StaysHeldWhenItsOwnerEnds)
{
    Threading threading;
    const Vx::Ptr<iLock> lock = threading.createLock(0);
    std::thread([&] { lock->lock(); }).join();
    EXPECT_FALSE(lock->tryLock());
    for (int i = 0; i < 20; ++i)
        EXPECT_FALSE(freeForOthers(*lock));
}

// --- Identifiers

using Id = std::array<unsigned char, 16>;

Id newId()
{
    SystemUtils utils;
    const SimpleUUID uuid = utils.generateUUID();
    Id id;
    std::memcpy(id.data(), uuid.bytes, sizeof uuid.bytes);
    return id;
}

TEST(Uuid, IsRandomExceptForVersionAndVariant)
{
    const Id first = newId();
    Id changed{}, expected;
    for (int i = 0; i < 1000; ++i) {
        const Id id = newId();
        for (std::size_t k = 0; k < id.size(); ++k)
            changed[k] = static_cast<unsigned char>(changed[k] | (id[k] ^ first[k]));
    }
    expected.fill(0xFF);
    expected[7] = 0x0F;
    expected[8] = 0x3F;
    EXPECT_EQ(changed, expected);
    EXPECT_EQ(first[7] & 0xF0, 0x40);
    EXPECT_EQ(first[8] & 0xC0, 0x80);
}

TEST(Uuid, IsUniqueAmongThreads)
{
    constexpr std::size_t kThreads = 8, kEach = 2000;
    std::vector<Id> ids(kThreads * kEach);
    onThreads(kThreads,
              [&](int i) { std::generate_n(&ids[std::size_t(i) * kEach], kEach, newId); });
    EXPECT_EQ(std::set<Id>(ids.begin(), ids.end()).size(), ids.size());
}

TEST(Uuid, WantsAllItsBytesFromTheKernel)
{
    EXPECT_TRUE(holdsInChild([] { // where nothing is fetched in advance yet
        kernel = {3, EINTR, 1};
        const Id zeros{};
        std::set<Id> all{zeros};
        for (int i = 0; i < 1000; ++i)
            all.insert(newId());
        return kernel.refusals == 0 && all.size() == 1001;
    }));
    kernel.error = ENOSYS;
    const auto refused = [] {
        ForkEpochDetail::word = nullptr;
        kernel.refusals = 1;
        newId();
    };
    EXPECT_DEATH(refused(), "the kernel gives no random numbers: Function not implemented");
}

TEST(ForkEpoch, IsUnknownWhereTheKernelCannotTellProcessesApart)
{
    const auto works = [](bool known) {
        errno = EBADF;
        return (forkEpoch() != 0) == known && errno == EBADF && newId() != newId() &&
               Threading().currentThreadId() == static_cast<unsigned int>(gettid());
    };
    for (const bool lacksMemory : {true, false}) // otherwise it lacks the feature, for good
        EXPECT_TRUE(holdsInChild([&] {
            ForkEpochDetail::word = nullptr;
            rlimit before;
            getrlimit(RLIMIT_AS, &before);
            const rlimit none = {0, before.rlim_max};
            setrlimit(RLIMIT_AS, lacksMemory ? &none : &before);
            kernel.wipes = lacksMemory;
            const bool without = works(false);
            setrlimit(RLIMIT_AS, &before);
            kernel.wipes = true;
            return without && works(lacksMemory);
        })) << lacksMemory;
    EXPECT_TRUE(works(true));
}

// --- The reclaim registry

struct Cache final : Reclaimable {
    unsigned long reclaimableBytes() override { return 0; }
    unsigned long reclaim(unsigned long) override { return 0; }
    int reclaimPriority() override { return 0; }
};

TEST(ReclaimRegistry, KnowsExactlyTheLivingObjects)
{
    Seeded random;
    ReclaimRegistry registry;
    std::deque<Cache> caches(400);
    std::set<Cache*> known;
    for (int step = 0; step < 20000; ++step) {
        const bool toggles = step / 2000 % 2 == 0; // or removes each in turn, strangers as well
        Cache* const cache = &caches[toggles ? random() % 400 : std::size_t(step % 400)];
        if (toggles && known.insert(cache).second) {
            registry.add(cache);
        } else {
            known.erase(cache);
            registry.remove(cache);
        }
        ASSERT_EQ(registry.size(), known.size());
    }
}

} // namespace

// --- Call stacks

// Exported, so that they have names to print. Each does something after its call, which would
// otherwise replace its frame.
#define EXPORTED [[gnu::visibility("default"), gnu::noinline]]

EXPORTED void captureFromHere(CallStack::Frames& frames)
{
    OS()->systemUtils()->captureCallStack(frames);
    asm volatile("" ::: "memory");
}

EXPORTED void captureFromDepth(int depth, CallStack::Frames& frames)
{
    if (depth == 0)
        captureFromHere(frames);
    else
        captureFromDepth(depth - 1, frames);
    asm volatile("" ::: "memory");
}

namespace {

std::string asString(const LightweightString<char>& text) { return std::string(text.c_str()); }

TEST(CallStack, DescribesAnyAddress)
{
    // A return address is one byte or more after the call.
    const auto after = [](auto* code) {
        return reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(code) + 1);
    };
    Dl_info program = {};
    ASSERT_NE(dladdr(after(&asString), &program), 0);
    std::ostringstream offset;
    offset << reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(&asString) -
                                      reinterpret_cast<std::uintptr_t>(program.dli_fbase));
    const struct {
        const void* address;
        std::string prefix;
    } rows[] = {
        {after(&hcreate), "hcreate+0x0 (libc.so.6+0x"},
        {after(&std::get_terminate), "std::get_terminate()+0x0 (libstdc++.so.6+0x"},
        // Not exported, so without a name; a neighbour's would be wrong.
        {after(&asString), "(LinuxSystemTest+" + offset.str() + ")"},
        {reinterpret_cast<const void*>(0x1235), "0x1234"},
        {nullptr, "0xffffffffffffffff"},
    };
    const auto findObject = Modules::Detail::findObject;
    for (const auto& row : rows) {
        const std::string text = asString(CallStack::describe(row.address));
        EXPECT_EQ(text.rfind(row.prefix, 0), 0u) << text;
        Modules::Detail::findObject = nullptr; // as with an older C library
        EXPECT_EQ(asString(CallStack::describe(row.address)), text);
        CallStack::Frames frames;
        captureFromHere(frames);
        EXPECT_EQ(asString(frames.at(0)).rfind("captureFromHere(", 0), 0u);
        Modules::Detail::findObject = findObject;
    }
}

TEST(CallStack, EndsAtItsLimit)
{
    CallStack::Frames frames;
    captureFromDepth(2 * CallStack::kMostFrames, frames);
    // The platform's own frames count as walked.
    EXPECT_LE(frames.size(), static_cast<std::size_t>(CallStack::kMostFrames));
    EXPECT_GE(frames.size(), static_cast<std::size_t>(CallStack::kMostFrames) - 5);
    EXPECT_EQ(asString(frames.back()).rfind("captureFromDepth(int, ", 0), 0u);
}

// --- Before everything else

// Constructed before all objects without a priority.
struct Early {
    Early()
    {
        iPlatformServices* const os = OS();
        void* const block = os->memoryAllocator()->allocate(10);
        os->memoryAllocator()->deallocate(block);
        const Vx::Ptr<iLock> lock = os->threading()->createLock(0);
        lock->lock();
        lock->unlock();
        Cache cache;
        CallStack::Frames frames;
        os->systemUtils()->captureCallStack(frames);
        worked = !frames.empty() && os->systemUtils()->generateUUID().bytes[8] >= 0x80 &&
                 os->systemUtils()->wideFromAscii("early") == L"early" &&
                 os->threading()->currentThreadId() != 0 && os->systemUtils()->msecsNow() > 0;
    }
    bool worked;
};
[[gnu::init_priority(101)]] Early early;

TEST(Platform, WorksBeforeTheFirstConstructor) { EXPECT_TRUE(early.worked); }

// --- Forks at a bad moment

// One thread is always inside. A child that inherited a lock of that thread would hang.
TEST(Fork, ChildrenFindNoLockHeldByAThreadTheyDoNotHave)
{
    const auto works = [] {
        Cache cache;
        CallStack::Frames frames;
        captureFromHere(frames);
        newId();
        return !frames.empty() && asString(frames[0]).rfind("captureFromHere(", 0) == 0;
    };
    std::atomic<bool> stop = false;
    std::thread busy([&] {
        while (!stop)
            works();
    });
    for (int i = 0; i < 50; ++i) {
        EXPECT_TRUE(works()); // while the other thread captures its own
        EXPECT_TRUE(holdsInChild(works));
    }
    stop = true;
    busy.join();
}

} // namespace
