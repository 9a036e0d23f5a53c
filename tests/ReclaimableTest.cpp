#include <Vx/Reclaimable.h>

#include <Vx/platform/iReclaimRegistry.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

struct Cache final : Reclaimable {
    unsigned long reclaimableBytes() override { return 0; }
    unsigned long reclaim(unsigned long) override { return 0; }
    int reclaimPriority() override { return 0; }
};

} // namespace

TEST(Reclaimable, RegistersAndRemovesItselfOnce)
{
    ScriptedPlatform platform;
    {
        Cache cache;
        EXPECT_EQ(platform.reclaimables(), std::vector<Reclaimable*>{&cache});
        Reclaimable* const second = new Cache;
        EXPECT_EQ(platform.reclaimables(), (std::vector<Reclaimable*>{&cache, second}));
        platform.logCalls();
        delete second;
        EXPECT_EQ(platform.reclaimables(), std::vector<Reclaimable*>{&cache});
        EXPECT_EQ(platform.takeLog(), "remove");
    }
    EXPECT_TRUE(platform.reclaimables().empty());
    EXPECT_EQ(platform.takeLog(), "remove");
    Cache late;
    EXPECT_EQ(platform.takeLog(), "add");
}

TEST(Reclaimable, AFailedRegistrationIsNotRemoved)
{
    ScriptedPlatform platform;
    platform.failCall("add");
    platform.logCalls();
    EXPECT_THROW(Cache(), ScriptedFault);
    EXPECT_EQ(platform.takeLog(), "add");
}
