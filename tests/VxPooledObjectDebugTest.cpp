#include <Vx/VxPooledObjectDebug.h>

#include <Vx/CriticalSection.h>
#include <Vx/LightweightString.h>
#include <Vx/VxApplication.h>
#include <Vx/VxNamedObjects.h>
#include <ctime>

#include <ScratchFolder.h>
#include <Vx/testing/ScriptedPlatform.h>

using Vx::PooledObjectDebug::gAllLoggers;
using Vx::PooledObjectDebug::LoggingTraitsBase;
using Vx::PooledObjectDebug::LoggingTraitsBase_exit;

// Nodes of the logger stack and named entries are never freed.
extern "C" VX_API const char* __lsan_default_suppressions()
{
    return "leak:LoggingTraitsBase::LoggingTraitsBase\nleak:NamedObjectsNamespace::prepare\n";
}

namespace {

// A platform whose logs folder is a scratch folder.
struct PooledObjectLog : testing::Test {
    PooledObjectLog()
    {
        setenv("TZ", "UTC", 1);
        platform.setFolder(scratch.wide("").c_str());
        platform.setClock(1000);
    }

    void makeLogsFolder() { std::filesystem::create_directories(scratch.path("Host/Logs")); }

    std::string content() const { return scratch.get("Host/Logs/PooledObjects.log"); }

    // The names in the log, "-" for a header.
    std::string order() const
    {
        std::string names;
        std::istringstream text(content());
        for (std::string line; std::getline(text, line);)
            if (!line.empty() && line != "(none)")
                names += line[0] == '-' ? "-" : " " + line.substr(0, line.find(':'));
        return names;
    }
    std::string lastLine() const
    {
        const std::string text = content();
        return text.substr(text.rfind('\n', text.size() - 2) + 1);
    }
    static bool logIsFree()
    {
        const auto* const lock =
            Vx::NamedObjectsNamespace::getGlobalNamespaceInstance()->find<CriticalSection>(
                "PooledObjects.log_FileAccessLock");
        return lock == nullptr || lock->owner() == 0;
    }
    void pops(LoggingTraitsBase& logger, int count)
    {
        for (int n = 0; n < count; ++n)
            logger.ltb_beforePop(1), logger.ltb_afterPop(this, 1);
    }
    void pushes(LoggingTraitsBase& logger, int count)
    {
        for (int n = 0; n < count; ++n)
            logger.ltb_beforePush(this, 1), logger.ltb_afterPush(this, 1);
    }

    struct Host : Vx::Application {
        Host() : Application(L"Host", L"1") {}
        explicit Host(PooledObjectLog& test) : Host() { test.makeLogsFolder(); }
        void run() override {}
    };

    const ScratchFolder scratch; // outlives the platform
    ScriptedPlatform platform;
};

const char kIdle[] = ": maxInUse 0 Peak Demand 0.00 allocs/sec @ 0.00 Thu Jan  1 00:00:00 1970";

} // namespace

TEST_F(PooledObjectLog, IdleLoggerWritesItsLineUnderOneHeader)
{
    Host host(*this);
    LoggingTraitsBase frames("frames"), nameless(nullptr);
    frames.dump();
    nameless.dump();
    // A header, whose time ends with a newline of its own, and the two lines.
    const std::string text = content();
    const std::string rule = "\n" + std::string(59, '-') + ' ';
    const std::size_t timeLength = std::string("Thu Jan  1 00:00:00 1970\n").size();
    EXPECT_EQ(text.substr(0, rule.size()), rule);
    EXPECT_EQ(text.substr(rule.size() + timeLength),
              "\nframes" + std::string(kIdle) + "\n" + kIdle + "\n");
    std::tm written = {};
    EXPECT_STREQ(strptime(text.c_str() + rule.size(), "%a %b %d %H:%M:%S %Y", &written),
                 text.c_str() + rule.size() + timeLength - 1);
    EXPECT_TRUE(logIsFree());
}

TEST_F(PooledObjectLog, WarmUpCountsUseButNotDemand)
{
    Host host(*this);
    LoggingTraitsBase logger("pool");
    pops(logger, 9);
    pushes(logger, 4);
    platform.advanceClock(7500); // its last moment
    pops(logger, 2);
    logger.dump();
    EXPECT_EQ(lastLine(), "pool: maxInUse 9" + std::string(kIdle).substr(12) + "\n");
}

TEST_F(PooledObjectLog, PeakDemandIsTheBusiestInterval)
{
    Host host(*this);
    LoggingTraitsBase logger("pool");
    platform.advanceClock(8000);
    pops(logger, 1); // closes the empty interval, opens the first
    platform.advanceClock(100);
    pops(logger, 29); // still the first
    const std::time_t before = std::time(nullptr);
    platform.advanceClock(20);
    pops(logger, 1); // 30 pops in 120 ms
    logger.dump();
    const std::string line = lastLine();
    EXPECT_EQ(line.rfind("pool: maxInUse 31 Peak Demand 250.00 allocs/sec @ 9120.00 ", 0), 0u)
        << line;
    bool sameTime = false;
    for (std::time_t at = before; at <= std::time(nullptr); ++at)
        sameTime |= line.find(std::string(std::ctime(&at), 24)) != std::string::npos;
    EXPECT_TRUE(sameTime) << line;

    platform.advanceClock(200);
    pops(logger, 1); // closes an interval of one pop: no peak
    logger.dump();
    EXPECT_EQ(lastLine().find("@ 9120.00"), line.find("@ 9120.00"));
    pops(logger, 99);
    platform.advanceClock(101);
    pops(logger, 1);
    logger.dump();
    EXPECT_NE(lastLine().find("Peak Demand 990.10 allocs/sec @ 9421.00"), std::string::npos);
}

TEST_F(PooledObjectLog, ShutdownDumpsTheLivingLoggersNewestFirst)
{
    Host host(*this);
    LoggingTraitsBase a("a");
    auto b = std::make_unique<LoggingTraitsBase>("b");
    LoggingTraitsBase c("c"), d("d");
    b.reset();
    EXPECT_EQ(order(), "- b") << "destroying it writes its line";
    host.atShutdown([this] { EXPECT_EQ(order(), "- b"); }, 99);
    host.atShutdown([this] { EXPECT_EQ(order(), "- b d c a"); }, 101);
    host.start();
    EXPECT_EQ(gAllLoggers.count, 0u);
    LoggingTraitsBase_exit(Shutdown::kOrderlyExit); // the stack is empty
    EXPECT_EQ(order(), "- b d c a");
}

LoggingTraitsBase* kept[2]; // never destroyed

// Callbacks that are added in the first pass run in the final one, by priority.
TEST_F(PooledObjectLog, AllAreDumpedWhenOneIsMadeInTheFinalPass)
{
    makeLogsFolder();
    const auto leave = [] {
        (new Host)->atShutdown(
            [] {
                kept[0] = new LoggingTraitsBase("older");
                Shutdown::addCallback([] { kept[1] = new LoggingTraitsBase("newer"); }, 99);
            },
            150);
        Shutdown::executeCallbacks(Shutdown::kOrderlyExit);
        std::exit(0);
    };
    EXPECT_EXIT(leave(), testing::ExitedWithCode(0), "");
    EXPECT_EQ(order(), "- newer older");
}

TEST_F(PooledObjectLog, WithoutApplicationOrFolderNothingIsWrittenNorThrown)
{
    const auto use = [] {
        LoggingTraitsBase logger("pool");
        logger.dump();
        LoggingTraitsBase_exit(Shutdown::kOrderlyExit);
        EXPECT_TRUE(logIsFree());
    };
    use();
    Host host; // its logs folder does not exist
    use();
    EXPECT_EQ(scratch.names(), "");
    makeLogsFolder();
    LoggingTraitsBase("pool").dump();
    EXPECT_EQ(order(), "- pool pool") << "the header comes with the first file that opens";
}

TEST_F(PooledObjectLog, FailuresWhileDumpingLeaveTheLockFree)
{
    Host host(*this);
    LoggingTraitsBase logger("pool"), older("older");
    failEachAllocation(
        platform, [&] { logger.dump(); }, [&] { EXPECT_TRUE(logIsFree()); });
    const std::function<void()> dumps[] = {[&] { logger.dump(); },
                                           [] { LoggingTraitsBase_exit(Shutdown::kOrderlyExit); }};
    for (const auto& dump : dumps) {
        platform.failCall("toUTF8");
        EXPECT_THROW(dump(), ScriptedFault);
        EXPECT_TRUE(logIsFree());
    }
    EXPECT_EQ(order(), "- pool");
}

TEST_F(PooledObjectLog, FailedConstructionLeavesNothingBehind)
{
    LoggingTraitsBase first("first");
    const long blocks = platform.liveBlocks();
    const unsigned int failures = failEachAllocation(
        platform, [] { new LoggingTraitsBase("a name of its own"); },
        [&] {
            EXPECT_EQ(platform.liveBlocks(), blocks);
            EXPECT_EQ(gAllLoggers.count, 1u);
            EXPECT_EQ(gAllLoggers.head->logger, &first);
        });
    EXPECT_GE(failures, 5u); // record, name, node, callback, item
    EXPECT_EQ(gAllLoggers.count, 2u);
}

TEST_F(PooledObjectLog, HooksTakeNoLockAndAllocateNothing)
{
    LoggingTraitsBase logger("pool");
    platform.advanceClock(8000);
    platform.logCalls();
    const unsigned long allocations = platform.allocations();
    pops(logger, 3);
    pushes(logger, 3);
    EXPECT_EQ(platform.allocations(), allocations);
    const std::string log = platform.takeLog();
    EXPECT_EQ(log.find("ock"), std::string::npos) << log;
    EXPECT_NE(log.find("msecsNow"), std::string::npos);
}

TEST_F(PooledObjectLog, ThreadsCountExactly)
{
    constexpr int kThreads = 4, kRounds = 2000;
    Host host(*this);
    LoggingTraitsBase logger("shared");
    platform.advanceClock(8000);
    Barrier allOut(kThreads);
    onThreads(kThreads, [&](int) {
        pops(logger, kRounds);
        allOut.arrive_and_wait();
        pushes(logger, kRounds);
        LoggingTraitsBase own("own");
        pops(own, 3);
    });
    pops(logger, 1); // none is in use: no new maximum
    logger.dump();
    EXPECT_EQ(order(), "- own own own own shared");
    EXPECT_EQ(lastLine().rfind("shared: maxInUse 8000 ", 0), 0u) << lastLine();
    EXPECT_EQ(gAllLoggers.count, 5u);
    Shutdown::executeCallbacks(Shutdown::kOrderlyExit);
    EXPECT_EQ(order(), "- own own own own shared shared");
}
