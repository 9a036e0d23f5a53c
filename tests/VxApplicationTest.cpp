#include <Vx/VxApplication.h>

#include <Vx/VxException.h>

#include <Testing.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

struct Editor : Vx::Application {
    explicit Editor(ScriptedPlatform& platform, const wchar_t* name = L"Editor")
        : Application(name, L"1.0"), platform(platform)
    {}
    void run() override { platform.note("run"); }
    void shutdown() override
    {
        platform.note("shutdown");
        Application::shutdown();
    }
    ScriptedPlatform& platform;
};

const std::string kMarker = "Configuration/Normal Exit";

// The platform calls of every constructor, up to reading the marker.
const std::string kConstruction = "getFolder(4) pathSeparator pathSeparator "
                                  "setOutputDiagnosticsFolder(/data/Editor/Logs/) "
                                  "getSettings(0) getValue(0," +
                                  kMarker + ",false)";

std::string marker(const ScriptedPlatform& platform)
{
    return platform.setting(0, "Configuration", "Normal Exit");
}

void setMarker(ScriptedPlatform& platform, const char* value)
{
    platform.setSetting(0, "Configuration", "Normal Exit", value);
}

} // namespace

TEST(Application, ConstructionCallsThePlatformInTheStatedOrder)
{
    ScriptedPlatform platform;
    EXPECT_EQ(Vx::Application::instance(), nullptr);
    platform.logCalls();
    Editor editor(platform);
    EXPECT_EQ(platform.takeLog(), kConstruction);
    EXPECT_EQ(Vx::Application::instance(), &editor);
    EXPECT_EQ(editor.getUserDataPath(), L"/data/Editor/");
    EXPECT_EQ(editor.getLogsPath(), L"/data/Editor/Logs/");
    EXPECT_FALSE(editor.previousExitWasNormal());
    EXPECT_EQ(marker(platform), "") << "a missing marker is not written";

    setMarker(platform, "true");
    Editor second(platform);
    EXPECT_EQ(platform.takeLog(),
              kConstruction + " getSettings(0) setValue(0," + kMarker + "=false)");
    EXPECT_TRUE(second.previousExitWasNormal());
    EXPECT_EQ(Vx::Application::instance(), &second) << "the last constructed wins";
}

TEST(Application, OnlyTheExactMarkerCountsAsANormalExit)
{
    for (const char* value : {"True", "true ", " true", "", "TRUE", "1", "truetrue", "false"}) {
        SCOPED_TRACE(value);
        ScriptedPlatform platform;
        setMarker(platform, value);
        Editor editor(platform);
        EXPECT_FALSE(editor.previousExitWasNormal());
        EXPECT_EQ(marker(platform), value) << "nothing is written";
    }
}

TEST(Application, StartRunsThenShutsDownThenSaves)
{
    ScriptedPlatform platform;
    Editor editor(platform);
    const auto noting = [&platform](const char* word) {
        return [&platform, word](Shutdown::eExitType type) {
            platform.note(word + std::to_string(type));
        };
    };
    editor.atShutdown([&platform] { platform.note("late"); }, 300);
    editor.atShutdown(Vx::Ptr<Shutdown::Callback>(new Shutdown::FunctionCallback(noting("object"))),
                      200);
    editor.atShutdown(noting("type"), 5);
    platform.logCalls();
    editor.start();
    std::string log = platform.takeLog();
    EXPECT_EQ(log, "run shutdown type0 object0 late getSettings(0) setValue(0," + kMarker +
                       "=true) getSettings(0) save(0) getSettings(1) save(1)");
}

TEST(Application, RunThatThrowsLeavesTheMarkerOfACrash)
{
    struct Crashing : Editor {
        using Editor::Editor;
        void run() override { throw std::runtime_error("crash"); }
    };
    ScriptedPlatform platform;
    setMarker(platform, "true");
    Crashing editor(platform);
    bool called = false;
    editor.atShutdown([&called] { called = true; }, 1);
    platform.logCalls();
    EXPECT_THROW(editor.start(), std::runtime_error);
    EXPECT_EQ(platform.takeLog(), "");
    EXPECT_FALSE(called);
    EXPECT_EQ(marker(platform), "false");
}

TEST(Application, RejectsNamesThatLeaveTheUserDataFolder)
{
    ScriptedPlatform platform;
    const Editor before(platform);
    platform.logCalls();
    for (const wchar_t* name : {L"..", L"../x", L"x/../..", L"x/..", L"x\\..\\..\\y"}) {
        SCOPED_TRACE(name);
        EXPECT_THROW(Editor(platform, name), Vx::Exception::RuntimeError);
        EXPECT_EQ(platform.takeLog(), "captureCallStack");
        EXPECT_EQ(Vx::Application::instance(), &before);
    }
    for (const wchar_t* name : {L"", L".", L"...", L"..x", L"x..", L"/x", L"Maker/Editor"})
        EXPECT_NO_THROW(Editor(platform, name));
}

TEST(Application, FailedConstructionLeavesNothingBehind)
{
    ScriptedPlatform platform;
    Editor before(platform);
    for (const auto& [operation, n] : {std::pair<const char*, unsigned int>{"getFolder", 1},
                                       {"pathSeparator", 1},
                                       {"pathSeparator", 2},
                                       {"setOutputDiagnosticsFolder", 1},
                                       {"getSettings", 1},
                                       {"getValue", 1},
                                       {"getSettings", 2},
                                       {"setValue", 1}}) {
        SCOPED_TRACE(operation + std::to_string(n));
        setMarker(platform, "true");
        const long blocks = platform.liveBlocks();
        platform.failCall(operation, n);
        EXPECT_THROW(Editor(platform, L"Failing"), ScriptedFault);
        EXPECT_EQ(platform.liveBlocks(), blocks);
        EXPECT_EQ(Vx::Application::instance(), &before);
        EXPECT_EQ(marker(platform), "true");
    }
}
