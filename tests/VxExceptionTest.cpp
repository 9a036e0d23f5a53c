#include <Vx/VxException.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

using Vx::Exception::Base;
using Vx::Exception::LogicError;
using Vx::Exception::RuntimeError;

namespace {

const char kMessage[] = "it broke";
const char kFile[] = "ole/Vx/Example";

std::string joined(const Base::CallStack& frames)
{
    std::string text;
    for (const LightweightString<char>& frame : frames)
        text += std::string(frame.c_str()) + ";";
    return text;
}

template <class Error>
void expectKept(int line, const char* typeName, const char* calls, const char* frames)
{
    ScriptedPlatform platform;
    platform.setCallStack({"inner", "outer"});
    platform.logCalls();
    try {
        throw Error(kMessage, kFile, line);
    } catch (const Base& error) {
        EXPECT_STREQ(error.typeName, typeName);
        EXPECT_EQ(error.message, kMessage);
        EXPECT_EQ(error.file, kFile);
        EXPECT_EQ(error.line, line);
        EXPECT_EQ(joined(error.callStack), frames);
    }
    EXPECT_EQ(platform.takeLog(), calls);
}

} // namespace

TEST(Exception, KeepsThePointersAndDeliberatelyOnlyOneKindTheCallStack)
{
    expectKept<RuntimeError>(7, "RuntimeError", "captureCallStack", "inner;outer;");
    expectKept<LogicError>(-1, "LogicError", "", "");
}

TEST(RuntimeError, CopiesOutliveTheOriginalAndFreeTheStackOnly)
{
    ScriptedPlatform platform;
    platform.setCallStack({"inner", "outer"});
    const long before = platform.liveBlocks();
    std::unique_ptr<Base> copy;
    try {
        throw RuntimeError(kMessage, kFile, 7);
    } catch (const RuntimeError& error) {
        copy = std::make_unique<RuntimeError>(error);
    }
    EXPECT_EQ(joined(copy->callStack), "inner;outer;");
    EXPECT_EQ(copy->message, kMessage);
    copy.reset(); // through the base
    EXPECT_EQ(platform.liveBlocks(), before);
}

TEST(RuntimeErrorDeathTest, AFailureWhileCapturingEndsTheProcess)
{
    const auto raise = [](auto script) {
        ScriptedPlatform platform;
        platform.setCallStack({"inner"});
        script(platform);
        try {
            throw RuntimeError(kMessage, kFile, 7);
        } catch (...) {
        }
    };
    EXPECT_EXIT(raise([](ScriptedPlatform& platform) { platform.failCall("captureCallStack"); }),
                testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(raise([](ScriptedPlatform& platform) { platform.failAllocation(1); }),
                testing::KilledBySignal(SIGABRT), "");
}

static_assert(!std::is_base_of_v<std::exception, RuntimeError>, "no standard exception");
static_assert(std::has_virtual_destructor_v<Base> && !std::is_constructible_v<Base>,
              "only the two kinds exist");
static_assert(!std::is_convertible_v<RuntimeError*, LogicError*>, "neither is the other");
