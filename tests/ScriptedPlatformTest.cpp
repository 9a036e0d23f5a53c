#include <Testing.h>
#include <Vx/CriticalSection.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

bool opens(const wchar_t* path) { return bool(OS()->fileSystem()->openFile(path, 1, 0, 1, 0)); }

struct OneProcessor : PlatformProxy {
    int numProcessors() override { return 1; }
};

} // namespace

TEST(PlatformProxy, OverridesOneCallForItsLifetimeAndForwardsTheRest)
{
    ScriptedPlatform below;
    below.setProcessors(7);
    below.setThreadId(42);
    {
        OneProcessor above;
        EXPECT_EQ(OS()->systemInfo()->numProcessors(), 1);
        EXPECT_EQ(OS()->threading()->currentThreadId(), 42u);
        OS()->shell()->getSettings(1)->setValue("key", "value", "section");
        OS()->shell()->getSettings(1)->setValue("b/c", "other", "a");
    }
    EXPECT_EQ(OS()->systemInfo()->numProcessors(), 7);
    EXPECT_EQ(below.setting(1, "section", "key"), "value");
    EXPECT_EQ(below.setting(1, "a/b", "c"), "") << "another section, another key";
}

TEST(PlatformProxyDeathTest, TheNewestMustBeDestroyedFirst)
{
    auto first = std::make_unique<OneProcessor>();
    const OneProcessor second;
    EXPECT_DEATH(first.reset(), "");
    const ScriptedPlatform scripted;
    EXPECT_DEATH(ScriptedPlatform(), "") << "one at a time";
}

TEST(ScriptedPlatform, FailsTheNthCallOnceOrForEver)
{
    ScriptedPlatform platform;
    platform.addFile(L"a", "");
    const auto outcome = [](auto&& call) {
        std::string calls;
        for (int i = 0; i < 4; ++i) {
            try {
                calls += call() ? '+' : '-';
            } catch (const ScriptedFault& fault) {
                calls += fault.service[0];
            } catch (const std::bad_alloc&) {
                calls += '-';
            }
        }
        return calls;
    };
    const auto open = [] { return opens(L"a"); };
    const auto allocate = [] {
        void* const block = operator new(1); // the compiler may omit a new-expression
        operator delete(block);
        return block != nullptr;
    };
    const auto count = [] { return OS()->systemInfo()->numProcessors() > 0; };

    platform.failFileCall(2);
    EXPECT_EQ(outcome(open), "+-++");
    EXPECT_TRUE(platform.faultFired());
    platform.failFileCall(3, ScriptedPlatform::ForEver);
    EXPECT_FALSE(platform.faultFired());
    EXPECT_EQ(outcome(open), "++--");
    platform.failFileCall(0);
    platform.failAllocation(2, ScriptedPlatform::ForEver);
    EXPECT_EQ(outcome(allocate), "+---");
    platform.failAllocation(0);

    platform.failCall("numProcessors", 2, ScriptedPlatform::ForEver);
    EXPECT_EQ(outcome(count), "+nnn");
    EXPECT_EQ(outcome(open), "++++") << "another service";
}

TEST(ScriptedPlatform, ListsLiveMemoryByCallStack)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "operator new is in the program itself, whose functions have no names";
#endif
    ScriptedPlatform platform;
    const auto before = std::make_unique<char[]>(5000);
    platform.trackMemory();
    EXPECT_EQ(platform.liveMemory(), "");
    std::unique_ptr<char[]> small, large[2];
    const long blocks = platform.liveBlocks();
    for (auto& block : large) // one call stack
        block.reset(new char[2000]);
    small.reset(new char[30]);
    EXPECT_EQ(platform.liveBlocks(), blocks + 3);
    std::string text = platform.liveMemory();
    EXPECT_EQ(text.find("2 blocks, 4000 bytes\n"), 0u) << text;
    EXPECT_NE(text.find("\n1 blocks, 30 bytes\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("5000"), std::string::npos) << text;
    EXPECT_NE(text.find("ScriptedPlatformTest"), std::string::npos) << "a frame of this program";
    std::string().swap(text); // its block counts too
    large[0].reset();
    large[1].reset();
    text = platform.liveMemory();
    EXPECT_EQ(text.find("1 blocks, 30 bytes\n"), 0u) << text;
}

TEST(ScriptedPlatform, ItsLocksMayOutliveIt)
{
    auto platform = std::make_unique<ScriptedPlatform>();
    CriticalSection section;
    platform.reset();
    section.enter();
    section.leave();
    EXPECT_FALSE(opens(L"/no/such/file")) << "forwarded to the reference platform";
}
