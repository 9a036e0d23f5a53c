#include <Vx/CriticalSection.h>

#include <mutex>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

TEST(CriticalSection, CallsThePlatformLockOnEveryEntry)
{
    ScriptedPlatform platform;
    platform.setThreadId(4711);
    platform.logCalls();
    CriticalSection plain;
    CriticalSection named("x");
    CriticalSection lock(7u);
    EXPECT_EQ(platform.takeLog(), "createLock(0) createLock(0) createLock(7)");
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
}

TEST(CriticalSection, BusyAttemptChangesNothing)
{
    CriticalSection lock;
    lock.enter();
    const unsigned int owner = lock.owner();
    std::thread([&] {
        EXPECT_EQ(CriticalSection(lock).attemptEntry(), -1);
        EXPECT_FALSE(lock.try_lock());
        EXPECT_EQ(lock.owner(), owner);
    }).join();
    lock.leave(); // would keep the owner if the failed attempt had been counted
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
            lock.leave();
        }).join();
    }
    lock.enter();
    platform.failCall("unlock");
    EXPECT_THROW(lock.leave(), ScriptedFault);
    EXPECT_EQ(lock.owner(), 0u) << "bookkeeping precedes the unlock";
}

TEST(CriticalSection, InitMakesANewLockAndLeavesCopiesTheOldOne)
{
    ScriptedPlatform platform;
    CriticalSection lock;
    CriticalSection copy(lock);
    copy.setName("old");
    EXPECT_EQ(lock.name(), "old");
    lock.enter();
    EXPECT_EQ(copy.owner(), lock.owner());
    lock.init(0);
    EXPECT_EQ(lock.owner(), 0u);
    EXPECT_TRUE(lock.name().empty());
    EXPECT_NE(copy.owner(), 0u);
    EXPECT_EQ(copy.name(), "old");
    copy.leave();
    const long before = platform.liveBlocks();
    platform.failCall("createLock");
    EXPECT_THROW(copy.init(0), ScriptedFault);
    EXPECT_EQ(copy.name(), "old");
    EXPECT_EQ(platform.liveBlocks(), before);
}

TEST(CriticalSection, RenamingReusesAnUnsharedBlock)
{
    CriticalSection lock("abcdefg");
    const char* block = lock.name().c_str();
    for (const char* name : {"xyz", "1234567", "x"}) {
        lock.setName(name);
        EXPECT_EQ(lock.name(), name);
        EXPECT_EQ(lock.name().c_str(), block);
    }
    const LightweightString<char> sharer = lock.name();
    lock.setName("12345678");
    EXPECT_EQ(sharer, "x");
    EXPECT_EQ(lock.name(), "12345678");
    for (const char* none : {"", static_cast<const char*>(nullptr)}) {
        lock.setName(none);
        EXPECT_EQ(lock.name().capacity(), 0u);
        lock.setName("y");
    }
}

TEST(CriticalSection, DebugPrintDeliberatelyPrintsNothing)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(printed([] { CriticalSection("silent").debugPrint(); }), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(CriticalSection, ThreadsExcludeEachOther)
{
    constexpr int kThreads = 4, kRounds = 5000;
    CriticalSection lock;
    long total = 0;
    onThreads(kThreads, [&](int i) {
        CriticalSection copy(lock);
        for (int n = 0; n < kRounds; ++n) {
            (void)copy.owner();
            if (i != 0 || copy.attemptEntry() != 0)
                copy.enter();
            const std::lock_guard<CriticalSection> again(copy);
            ++total;
            copy.leave();
        }
    });
    EXPECT_EQ(total, kThreads * kRounds);
    EXPECT_EQ(lock.owner(), 0u);
}
