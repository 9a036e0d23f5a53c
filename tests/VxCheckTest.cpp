#include <Vx/VxCheck.h>

#include <Vx/VxException.h>
#include <cstring>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

using namespace Vx::Check::Private;

namespace {

const char kFile[] = "ole/Vx/Example";

// What work prints, without the seconds at the start of each line.
template <class Work> std::string lines(Work&& work)
{
    std::istringstream text(printed(work));
    std::string lines;
    for (std::string line; std::getline(text, line);)
        lines += line.substr(line.find(": ") + 2) + "\n";
    return lines;
}

// The messages of thrown checks are never freed. Leak checkers accept what is still referenced.
void keepInReach(const char* message)
{
    static const char* kept[16];
    static std::size_t count = 0;
    ASSERT_LT(count, std::size(kept));
    kept[count++] = message;
}

} // namespace

TEST(CheckAndLog, JudgesTheCodeAndPrintsFailuresAndSlowCalls)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        int code;
        double threshold, elapsed;
        const char* lines;
    } rows[] = {
        {1, 0.0, 10.0, ""},
        {0, -1.0, 10.0, ""},
        {std::numeric_limits<int>::max(), 2.0, 1.0, ""},
        {-2147024809, 2.0, 1.0, "VxCheck: f(3) [x()] = 0x80070057\n"},
        {std::numeric_limits<int>::min(), 0.0, 1.0, "VxCheck: f(3) [x()] = 0x80000000\n"},
        {1, 10.0, 10.0, "VxCheck: f(3) [x()] took 10.00\n"},
        {0, 10.0, 9.999, ""},
        {-1, 1.0, 12.345, "VxCheck: f(3) [x()] took 12.35\nVxCheck: f(3) [x()] = 0xffffffff\n"},
        {0, 1.0, nan, ""},
        {0, nan, 1.0, ""},
    };
    EXPECT_TRUE(logInDebug());
    for (const auto& row : rows)
        for (bool force : {false, true}) {
            SCOPED_TRACE(row.lines + std::to_string(row.code));
            bool answer = row.code < 0, timed = answer;
            const auto check = [&] { answer = checkAndLog(row.code, "f", 3, "x()", force); };
            const auto time = [&] {
                timed = checkAndLog(row.code, "f", 3, "x()", force, row.threshold, row.elapsed);
            };
            EXPECT_EQ(lines(time), row.lines);
            EXPECT_EQ(lines(check),
                      row.code < 0 ? std::strstr(row.lines, "VxCheck: f(3) [x()] =") : "");
            EXPECT_EQ(answer, row.code >= 0);
            EXPECT_EQ(timed, row.code >= 0);
        }
}

TEST(Throw, BuildsTheMessage)
{
    const struct {
        void (*raise)();
        const char* message;
    } rows[] = {
        {[] { throwShort(kFile, 7, -1); },
         "VxCheck: ole/Vx/Example(7) FAILED with code 0xffffffff"},
        {[] { throwDetailed(kFile, 7, "a % b", -2147024809); },
         "VxCheck: ole/Vx/Example(7) [a % b] = 0x80070057"},
    };
    for (const auto& [raise, message] : rows)
        try {
            raise();
            ADD_FAILURE() << "nothing thrown";
        } catch (const Vx::Exception::RuntimeError& error) {
            keepInReach(error.message);
            EXPECT_EQ(error.message, std::string(message));
            EXPECT_EQ(error.file, kFile);
            EXPECT_EQ(error.line, 7);
        }
}

TEST(Throw, CutsLongMessagesAndDeliberatelyNeverFreesThem)
{
    ScriptedPlatform platform;
    platform.setCallStack({"frame"});
    const std::string expression(1000, 'x');
    const long before = platform.liveBlocks();
    const char* message = nullptr;
    try {
        throwDetailed(kFile, 7, expression.c_str(), -1);
    } catch (const Vx::Exception::Base& error) {
        message = error.message;
        EXPECT_EQ(error.callStack.size(), 1u);
    }
    keepInReach(message);
    EXPECT_EQ(platform.liveBlocks(), before + 1);
    EXPECT_EQ(message, "VxCheck: ole/Vx/Example(7) [" + std::string(255 - 28, 'x'));
}

TEST(Throw, LetsMemoryExhaustionOut)
{
    ScriptedPlatform platform;
    platform.failAllocation(1);
    EXPECT_THROW(throwShort(kFile, 7, -1), std::bad_alloc);
}
