#include <Vx/VxReport.h>

#include <Vx/CriticalSection.h>
#include <Vx/VxApplication.h>
#include <Vx/VxNamedObjects.h>
#include <Vx/VxPooledObjectDebug.h>
#include <Vx/VxShutdown.h>
#include <Vx/detail/Inspect.h>
#include <Vx/detail/ReportText.h>
#include <cstring>
#include <limits>
#include <regex>

#include <ScratchFolder.h>
#include <Vx/testing/ScriptedPlatform.h>

// Nodes of the logger stack and named entries are never freed.
extern "C" VX_API const char* __lsan_default_suppressions()
{
    return "leak:LoggingTraitsBase::LoggingTraitsBase\nleak:NamedObjectsNamespace::prepare\n";
}

namespace {

int failingRead = 0; // the n-th one fails, from then on if it is negative; 0 is none

} // namespace

// Takes precedence over the platform's, whose checks the hosts of InspectTest use.
bool Vx_readMemory(const void* from, void* into, std::size_t size) noexcept
{
    if (failingRead == -1 || (failingRead > 0 && --failingRead == 0))
        return false;
    failingRead += failingRead < 0;
    std::memcpy(into, from, size);
    return true;
}

namespace {

struct Editor : Vx::Application {
    Editor() : Application(L"Editor \x20AC\n", L"1.0") {}
    void run() override {}
};

void save(Shutdown::eExitType) {}

struct Closing : Shutdown::Callback {
    void execute(const Shutdown::eExitType&) override {}
};

struct Cache {};

void append(void* text, const char* bytes, std::size_t count)
{
    EXPECT_LE(count, 512u);
    static_cast<std::string*>(text)->append(bytes, count);
}

std::string take()
{
    std::string text;
    text.reserve(1 << 16);
    Vx::writeReport(append, &text);
    return text;
}

struct VxReport : testing::Test {
    VxReport()
    {
        platform.setThreadId(77);
        platform.setClock(1000);
        new Editor;
        names->create<Cache>("thumbnails", &cache);
        names->findOrCreate<CriticalSection>("published")->enter();
        names->lock<Cache>("held\x1b\x7f");
        names->lock<Cache>("held\x1b\x7f");
        Shutdown::addCallback(save, 300);
        Shutdown::addCallback(Vx::Ptr<Shutdown::Callback>(new Closing), 7);
        auto* const pool = new Vx::PooledObjectDebug::LoggingTraitsBase("frames");
        for (int n = 0; n < 3; ++n)
            pool->ltb_afterPop(this, 1);
        for (const double msecs : {8000, 200}) {
            platform.advanceClock(msecs);
            pool->ltb_afterPop(this, 1);
        }
    }

    ScriptedPlatform platform;
    Cache cache;
    Vx::NamedObjectsNamespace* names = Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
};

const char* const kExpected = R"(Report of a process on itself, by thread 77

Locks
LOCK                            WHERE           OWNER     DEPTH  WAITING
'published'                     published lock  77        1      unknown
'held\x1b\x7f'                  named object    77        2      unknown
4 other locks, all free

Application
name            Editor €\x0a
version         1.0
user data       /data/Editor €\x0a/
logs            /data/Editor €\x0a/Logs/
previous exit   not normal
libVx.so        17.@
state           running

Shutdown
running, 3 callbacks
PASS   PRIORITY  FUNCTION                                 STATE
first  7         0x@ N12_GLOBAL__N_17ClosingE  waits
first  100       0x@                           waits
final  300       0x@ (SAVE)  waits

Named objects
TYPE                                    NAME                            OBJECT          LOCK
N12_GLOBAL__N_15CacheE                  'thumbnails'                    0x@  free
15CriticalSection                       'published'                     0x@  free
N12_GLOBAL__N_15CacheE                  'held\x1b\x7f'                  none            77

Pools
POOL                            IN USE  MOST IN USE  PEAK/S     PEAK AT
frames                          5       5            5.00       20@ UTC

Waiting threads, deadlocks and memory: vx inspect PID, or vx inspect --core FILE
end of the report
)";

// Compares but for addresses and runs of blanks.
std::string plain(std::string text)
{
    std::ostringstream function;
    function << "(0x" << std::hex << reinterpret_cast<std::uintptr_t>(save) << ")";
    if (const auto at = text.find(function.str()); at != std::string::npos)
        text.replace(at, function.str().size(), "(SAVE)");
    for (const auto& [pattern, by] : {std::pair("0x[0-9a-f]+", "0x@"),
                                      {" +", " "},
                                      {"17\\.[0-9.]+", "17.@"},
                                      {"20[-0-9: ]+ UTC", "20@ UTC"}})
        text = std::regex_replace(text, std::regex(pattern), by);
    return text;
}

} // namespace

TEST_F(VxReport, ShowsEverythingWithoutMemoryOrLocks)
{
    std::string text;
    text.reserve(1 << 16);
    const unsigned long allocations = platform.allocations();
    platform.logCalls();
    Vx::writeReport(append, &text);
    EXPECT_EQ(platform.takeLog(), "currentThreadId");
    EXPECT_EQ(platform.allocations(), allocations);
    EXPECT_EQ(plain(text), plain(kExpected));
}

TEST_F(VxReport, SaysSoWhereAddressesCannotBeChecked)
{
    std::string checked = take();
    failingRead = -1;
    const std::string direct = take();
    failingRead = 0;
    checked.insert(checked.find('\n') + 1, "note: addresses cannot be checked here: the report "
                                           "ends at a damaged one\n");
    EXPECT_EQ(direct, checked);
}

// Whatever is damaged, the report gets to its end.
TEST_F(VxReport, SurvivesEachReadThatFails)
{
    for (const bool alsoLater : {false, true}) {
        int n = 2; // the first read finds out whether there are checks
        for (bool failed = true; failed; ++n) {
            ASSERT_LT(n, 5000) << "never succeeds";
            failingRead = alsoLater ? -n : n;
            const std::string text = take();
            failed = failingRead == 0 || failingRead == -1;
            failingRead = 0;
            EXPECT_TRUE(text.ends_with("end of the report\n")) << "read " << n;
            if (!failed) {
                EXPECT_EQ(plain(text), plain(kExpected));
            }
        }
        EXPECT_GT(n, 100);
    }
}

TEST_F(VxReport, TrueMeansThatTheFileHasIt)
{
    const LightweightString<wchar_t> path(L"report.txt");
    for (const char* call : {"openFile", "write", "commit", "currentThreadId"}) {
        platform.failCall(call);
        EXPECT_EQ(Vx::writeReport(path), std::string(call) == "currentThreadId") << call;
    }
    // True after a fault would be a lie, and false without one would be of no use.
    const auto agrees = [&] {
        const bool written = Vx::writeReport(path);
        const bool failed = platform.faultFired();
        platform.failAllocation(0); // those of the test itself must not
        EXPECT_NE(written, failed);
        return written;
    };
    for (unsigned int n = 1; platform.failFileCall(n), !agrees(); ++n)
        ASSERT_LT(n, 10u) << "never succeeds";
    EXPECT_EQ(plain(platform.file(L"report.txt")), plain(kExpected));
    for (unsigned int n = 1; platform.failAllocation(n), !agrees(); ++n)
        ASSERT_LT(n, 100u) << "never succeeds";
}

TEST(ReportText, WritesNumbersTimesAndCharacters)
{
    using namespace Vx::detail;
    std::string text;
    {
        ReportText out(append, &text);
        for (const wchar_t c : {L'a', L'\t', L'\x85', L'\xE4', L'\x20AC', wchar_t(0x1F600),
                                wchar_t(0xD800), wchar_t(0x110000)})
            out << Escaped<wchar_t>{c};
        for (const std::int64_t time : {951782400LL, 951868800LL, 4107542399LL, 1735689599LL,
                                        253402300799LL, 253402300800LL, 0LL, -1LL})
            out << "\n" << UtcTime{time};
        for (const double number :
             {0.0, 0.005, 12.345, 99.999, -1.0, 1e15, std::numeric_limits<double>::quiet_NaN()})
            out << " " << Amount{number};
    }
    EXPECT_EQ(text, "a\\x09\\x85ä€😀\uFFFD\uFFFD\n"
                    "2000-02-29 00:00:00 UTC\n2000-03-01 00:00:00 UTC\n2100-02-28 23:59:59 UTC\n"
                    "2024-12-31 23:59:59 UTC\n9999-12-31 23:59:59 UTC\n-\n-\n- "
                    "0.00 0.01 12.35 100.00 ? ? ?");
}
