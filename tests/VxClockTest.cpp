#include <Vx/VxClock.h>

#include <Vx/VxCPUInfo.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

TEST(VxClock, ForwardsThePlatformsReading)
{
    ScriptedPlatform platform;
    platform.setClock(1500.25);
    EXPECT_EQ(msecsNow(), 1500.25);
    EXPECT_EQ(secondsNow(), 1500.25 / 1000.0);
    platform.advanceClock(-3000.5); // no reading is kept
    EXPECT_EQ(secondsNow(), -1500.25 / 1000.0);
}

TEST(CPUInfo, AsksUntilThePlatformKnowsAndThenNeverAgain)
{
    ScriptedPlatform platform;
    platform.setProcessors(0);
    platform.logCalls();
    EXPECT_EQ(Vx::CPUInfo::getNumProcessors(), 0);
    EXPECT_EQ(Vx::CPUInfo::getNumProcessors(), 0);
    EXPECT_EQ(platform.takeLog(), "numProcessors numProcessors");
    platform.setProcessors(6);
    EXPECT_EQ(Vx::CPUInfo::getNumProcessors(), 6);
    platform.setProcessors(8);
    EXPECT_EQ(Vx::CPUInfo::getNumProcessors(), 6);
    EXPECT_EQ(platform.takeLog(), "numProcessors");
}
