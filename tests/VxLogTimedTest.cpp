#include <Vx/VxLogTimed.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

// The origin of the time cannot be taken back: every test below needs a process of its own,
// or sets the clock far enough on not to care.

TEST(LogTimed, DeliberatelyTakesTheOriginFromASecondReading)
{
    ScriptedPlatform platform;
    platform.setClock(1000);
    platform.tickClock(2);
    EXPECT_EQ(printed([] { Vx::LogTimed("first %d\n", 1); }), "-0.002   : first 1\n");
    EXPECT_EQ(printed([] { Vx::LogTimed("second\n"); }), "0.002    : second\n") << "one reading";
    platform.setClock(1002 + 12345.6789);
    EXPECT_EQ(printed([] { Vx::LogTimed("later\n"); }), "12.346   : later\n");
    platform.setClock(1002 + 1e9);
    EXPECT_EQ(printed([] { Vx::LogTimed("much later\n"); }), "1000000.000: much later\n");
    platform.setClock(2);
    EXPECT_EQ(printed([] { Vx::LogTimed("earlier"); }), "-1.000   : earlier") << "as it stands";
}

TEST(LogTimed, PrintsTextsOfOneTo255Characters)
{
    ScriptedPlatform platform;
    const auto text = [&](const std::string& text) {
        platform.logCalls();
        return printed([&] { Vx::LogTimed("%s", text.c_str()); });
    };
    EXPECT_EQ(text(""), "");
    EXPECT_EQ(text(std::string(256, 'x')), "");
    EXPECT_EQ(text(std::string(100000, 'x')), "");
    EXPECT_EQ(platform.takeLog(), "") << "not even the clock is read";

    const auto tail = [](const std::string& line) { return line.substr(line.find(": ") + 2); };
    EXPECT_EQ(tail(text("x")), "x");
    EXPECT_EQ(tail(text("100% %s\n")), "100% %s\n");
    EXPECT_EQ(tail(text(std::string(255, 'x'))), std::string(255, 'x'));
}

TEST(LogTimed, DropsWhatCannotBeFormatted)
{
    // In the C locale a wide character beyond ASCII has no multibyte form.
    EXPECT_EQ(printed([] { Vx::LogTimed("%ls\n", L"\u00E9"); }), "");
}
