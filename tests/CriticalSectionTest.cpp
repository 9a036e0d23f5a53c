#include <Vx/CriticalSection.h>

#include <mutex>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

TEST(CriticalSection, AsksThePlatformLockOnEveryEntry)
{
    ScriptedPlatform platform;
    platform.setThreadId(4711);
    platform.logCalls();
    CriticalSection lock(7u);
    EXPECT_EQ(platform.takeLog(), "createLock(7)");
    lock.enter();
    lock.enter();
    EXPECT_EQ(lock.attemptEntry(), 0);
    EXPECT_EQ(platform.takeLog(), "lock currentThreadId lock tryLock");
    for (int held = 3; held > 0; --held) {
        EXPECT_EQ(lock.owner(), 4711u) << "until the last leave";
        lock.leave();
    }
    EXPECT_EQ(lock.owner(), 0u);
    EXPECT_EQ(platform.takeLog(), "unlock unlock unlock");
    CriticalSection plain;
    CriticalSection named("x");
    EXPECT_EQ(platform.takeLog(), "createLock(0) createLock(0)");
}

TEST(CriticalSection, EnteringAfterAnotherAsksForTheThreadOnce)
{
    ScriptedPlatform platform;
    CriticalSection first, next;
    platform.setThreadId(4711);
    platform.logCalls();
    first.enter();
    next.enterAfter(first);
    EXPECT_EQ(platform.takeLog(), "lock currentThreadId unlock lock");
    EXPECT_EQ(first.owner(), 0u);
    EXPECT_EQ(next.owner(), 4711u);
    next.enter();
    platform.takeLog();
    first.enterAfter(next); // which stays entered, and may be from before a fork
    EXPECT_EQ(platform.takeLog(), "unlock lock currentThreadId");
    next.leave();
    EXPECT_EQ(next.owner(), 0u);
}

TEST(CriticalSection, BusyAttemptChangesNothing)
{
    CriticalSection lock;
    lock.enter();
    const unsigned int owner = lock.owner();
    std::thread([&] {
        EXPECT_EQ(lock.attemptEntry(), -1);
        EXPECT_FALSE(lock.try_lock());
        EXPECT_EQ(lock.owner(), owner);
    }).join();
    lock.leave(); // one entry, so one leave: a counted failure would keep the owner
    EXPECT_EQ(lock.owner(), 0u);
    std::thread([&] {
        EXPECT_EQ(lock.attemptEntry(), 0);
        EXPECT_NE(lock.owner(), owner);
        lock.leave();
    }).join();
}

TEST(CriticalSection, PlatformFailuresLeaveItFree)
{
    ScriptedPlatform platform;
    CriticalSection lock;
    for (const char* operation : {"lock", "currentThreadId"}) {
        SCOPED_TRACE(operation);
        platform.failCall(operation);
        EXPECT_THROW(lock.enter(), ScriptedFault);
        EXPECT_EQ(lock.owner(), 0u);
        std::thread([&] {
            ASSERT_EQ(lock.attemptEntry(), 0);
            EXPECT_NE(lock.owner(), 0u); // counted from 0 again
            lock.leave();
            EXPECT_EQ(lock.owner(), 0u);
        }).join();
    }
    lock.enter();
    platform.failCall("unlock");
    EXPECT_THROW(lock.leave(), ScriptedFault);
    EXPECT_EQ(lock.owner(), 0u) << "the bookkeeping is done before";
}

TEST(CriticalSection, CopiesShareOneLock)
{
    CriticalSection lock("one");
    CriticalSection copy(lock);
    copy.setName("renamed");
    EXPECT_EQ(lock.name(), "renamed");
    const std::lock_guard<CriticalSection> hold(lock);
    EXPECT_EQ(copy.owner(), lock.owner());
    std::thread([&] { EXPECT_EQ(copy.attemptEntry(), -1); }).join();
}

TEST(CriticalSection, InitStartsAnewAndLeavesCopiesTheOld)
{
    ScriptedPlatform platform;
    CriticalSection lock("old");
    CriticalSection copy(lock);
    lock.enter();
    lock.init(0);
    EXPECT_EQ(lock.owner(), 0u);
    EXPECT_TRUE(lock.name().empty());
    EXPECT_NE(copy.owner(), 0u);
    EXPECT_EQ(copy.name(), "old");
    copy.leave();
    const long before = platform.liveBlocks();
    for (const std::function<void()>& fails : {std::function<void()>([&] { copy.init(0); }),
                                               std::function<void()>([] { CriticalSection(); })}) {
        platform.failCall("createLock");
        EXPECT_THROW(fails(), ScriptedFault);
        EXPECT_EQ(copy.name(), "old");
        EXPECT_EQ(platform.liveBlocks(), before);
    }
}

TEST(CriticalSection, RenamingReusesItsOwnRoomOnly)
{
    ScriptedPlatform platform;
    CriticalSection lock("abcdefg"); // 8 slots
    const char* block = lock.name().c_str();

    for (const char* name : {"xyz", "1234567", "x"}) {
        lock.setName(name);
        EXPECT_EQ(lock.name(), name);
        EXPECT_EQ(lock.name().c_str(), block);
    }
    lock.setName("12345678"); // needs a ninth slot
    EXPECT_EQ(lock.name().capacity(), 16u);

    const LightweightString<char> sharer = lock.name();
    lock.setName("new");
    EXPECT_EQ(sharer, "12345678");
    EXPECT_EQ(lock.name().capacity(), 4u);

    const long before = platform.liveBlocks();
    lock.setName("");
    EXPECT_EQ(platform.liveBlocks(), before - 1);
    lock.setName("x");
    EXPECT_EQ(lock.name(), "x");
    lock.setName(nullptr);
    EXPECT_EQ(lock.name().capacity(), 0u);
    EXPECT_EQ(platform.liveBlocks(), before - 1);
}

TEST(CriticalSection, DebugPrintPrintsNothing)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(printed([] { CriticalSection("silent").debugPrint(); }), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CriticalSection, ThreadsExcludeEachOtherWhileOthersLook)
{
    constexpr int kThreads = 4;
    constexpr int kRounds = 5000;
    CriticalSection lock;
    long total = 0;
    long entered = 0;
    onThreads(kThreads, [&](int i) {
        CriticalSection mine(lock);
        for (int n = 0; n < kRounds; ++n) {
            (void)mine.owner();
            if (i != 0 || mine.attemptEntry() != 0)
                mine.enter();
            mine.enter();
            ++total;
            mine.leave();
            ++entered;
            mine.leave();
        }
    });
    EXPECT_EQ(total, long{kThreads} * kRounds);
    EXPECT_EQ(entered, long{kThreads} * kRounds);
    EXPECT_EQ(lock.owner(), 0u);
}
