#include "Host.h"
#include "ScratchFolder.h"

#include <filesystem>
#include <regex>
#include <sys/resource.h>

namespace {

using nlohmann::json;

// A core file of the host, as gdb writes it; empty if gdb may not attach.
std::string coreOf(const Host& host, const ScratchFolder& folder)
{
    const std::string file = folder.path() + "/core";
    const Result result =
        runCommand("gdb -nx -batch -p " + host.word() + " -ex 'gcore " + file + "'");
    return result.output.find("Saved corefile") != std::string::npos ? file : "";
}

// What a host writes about itself when it crashes, up to its end.
std::string crashReport(Host& host)
{
    kill(host.id(), SIGSEGV);
    return host.rest();
}

std::string withoutRuns(const std::string& text)
{
    return std::regex_replace(text, std::regex(" +"), " ");
}

// A section of a report, without what only vx knows: names of threads, which of them have ended or
// wait, and plain names of types.
std::string sectionOf(const std::string& report, const std::string& title)
{
    const std::size_t start = report.find("\n" + title + "\n");
    const std::size_t end = report.find("\n\n", start + 1);
    std::string text = start == std::string::npos ? "" : report.substr(start, end - start);
    for (const auto& [pattern, by] :
         {std::pair(" ('InspectHost'|\\(ended\\))", ""),
          {" (-|unknown)\n", "\n"},
          {"N12_GLOBAL__N_110MediaCacheE", "(anonymous namespace)::MediaCache"},
          {"N2Vx21NamedObjectsNamespaceE", "Vx::NamedObjectsNamespace"}})
        text = std::regex_replace(text, std::regex(pattern), by);
    return withoutRuns(text);
}

} // namespace

TEST(Inspect, TellsADeadlockInOneSentenceAndByStatus3)
{
    struct {
        const char* state;
        std::size_t threads;
        const char* sentence; // with the thread of the first step left out
    } const cases[] = {
        {"deadlock2", 2, " 'render' holds 'MediaCache' and waits for 'ProjectFile'"},
        {"deadlock3", 3, " 'render' holds 'MediaCache' and waits for 'Timeline'"},
        {"private", 2, " holds 'lock at 0x"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.state);
        const Host host({row.state});
        VX_NEED_READABLE(host);
        const json live = report(host.word(), 3);
        ASSERT_EQ(live["deadlocks"].size(), 1u);
        EXPECT_EQ(live["deadlocks"][0]["steps"].size(), row.threads);
        EXPECT_NE(live["deadlocks"][0]["sentence"].get<std::string>().find(row.sentence),
                  std::string::npos)
            << live["deadlocks"];
        EXPECT_EQ(inspect("deadlocks " + host.word()).output.substr(0, 17), "DEADLOCK: thread ");

        const ScratchFolder folder;
        const std::string core = coreOf(host, folder);
        if (core.empty())
            GTEST_SKIP() << "gdb may not attach to a child";
        // A core file has no names of threads, but the same identifiers.
        EXPECT_EQ(report("--core " + core, 3)["deadlocks"][0]["steps"],
                  live["deadlocks"][0]["steps"]);
    }
}

TEST(Inspect, CoreFileShowsWhatTheProcessDid)
{
    const std::vector<std::vector<std::string>> states = {
        {"ended"},       {"held"},      {"first-pass"},  {"final-pass"},
        {"application"}, {"published"}, {"names", "100"}};
    for (const auto& state : states) {
        SCOPED_TRACE(state[0]);
        const Host host(state);
        VX_NEED_READABLE(host);
        const ScratchFolder folder;
        const std::string core = coreOf(host, folder);
        if (core.empty())
            GTEST_SKIP() << "gdb may not attach to a child";
        const json live = report(host.word());
        const json dead = report("--core " + core);
        for (const char* section : {"locks", "application", "shutdown", "names", "pools"})
            EXPECT_EQ(dead[section], live[section]) << section;
        EXPECT_EQ(dead["notes"], json::array());
    }
}

TEST(Inspect, ReadsCoreFilesOfTheKernel)
{
    const ScratchFolder folder;
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    if (runCommand("cat /proc/sys/kernel/core_pattern").output != "core\n" ||
        setrlimit(RLIMIT_CORE, &unlimited) != 0)
        GTEST_SKIP() << "the kernel is set up to write core files elsewhere, or not at all";
    for (const char* state : {"deadlock2", "ended", "first-pass", "final-pass"}) {
        SCOPED_TRACE(state);
        const int expected = std::strcmp(state, "deadlock2") == 0 ? 3 : 0;
        ASSERT_EQ(chdir(folder.path().c_str()), 0); // where the host writes its core file
        const Host host({state});
        ASSERT_EQ(chdir("/"), 0);
        VX_NEED_READABLE(host);
        const json live = report(host.word(), expected);
        kill(host.id(), SIGSEGV);
        int status = 0;
        waitpid(host.id(), &status, 0);
        if (!WCOREDUMP(status))
            GTEST_SKIP() << "the kernel wrote no core file";
        const json dead = report("--core " + folder.path() + "/core*", expected);
        EXPECT_EQ(dead["deadlocks"].size(), live["deadlocks"].size());
        for (const char* section : {"locks", "shutdown", "names"})
            EXPECT_EQ(dead[section], live[section]) << section;
        EXPECT_EQ(dead["notes"], json::array());
        runCommand("rm " + folder.path() + "/core*");
    }
}

TEST(Inspect, DebuggersShowTheSame)
{
    const Host host({"everything"});
    VX_NEED_READABLE(host);
    const ScratchFolder folder;
    const std::string core = folder.path() + "/core";
    // Debian's lldb 14 does not find its own module, and searches PATH for its Python.
    const std::string lldb =
        "PATH=/usr/bin:/bin PYTHONPATH=$(printf '%s:' /usr/lib/llvm-*/lib/python3.*/dist-packages)"
        " lldb --no-lldbinit --batch -o 'command script import " VX_LLDB "'";
    const std::string inLldb = " -o 'vx locks' -o 'vx names' -o 'vx pools' -o 'vx shutdown'";
    const std::string inGdb = " -ex 'source " VX_GDB "' -ex 'info vx locks' -ex 'info vx names'"
                              " -ex 'info vx pools' -ex 'info vx shutdown'";
    const std::string commands[] = {
        "gdb -nx -batch -p " + host.word() + inGdb + " -ex 'gcore " + core + "'",
        "gdb -nx -batch " INSPECT_HOST " " + core + inGdb,
        lldb + " -p " + host.word() + inLldb,
        lldb + " -o 'target create --core " + core + " " INSPECT_HOST "'" + inLldb,
    };
    for (const std::string& command : commands) {
        SCOPED_TRACE(command);
        const std::string output = runCommand(command).output;
        if (output.find("lldb: not found") != std::string::npos)
            break;
        if (output.find("ptrace: ") != std::string::npos ||
            output.find("gdb: not found") != std::string::npos)
            GTEST_SKIP() << "gdb is missing or may not attach to a child";
        for (const char* line :
             {"DEADLOCK: thread ", ") holds 'lock at 0x", "'left' ", " (ended) ",
              "\nplugin     (anonymous namespace)::MediaCache  'inside' ",
              "\nframes  4       5            0.00", "final pass of the shutdown\n",
              "\n300       (anonymous namespace)::doEverything()::", "  RUNNING\n"})
            EXPECT_NE(output.find(line), std::string::npos) << line << "\n" << output;
    }
}

TEST(Inspect, SurvivesTruncatedCoreFiles)
{
    const Host host({"first-pass"});
    VX_NEED_READABLE(host);
    const ScratchFolder folder;
    const std::string core = coreOf(host, folder);
    if (core.empty())
        GTEST_SKIP() << "gdb may not attach to a child";
    for (std::uintmax_t size = std::filesystem::file_size(core); size > 0; size = size * 2 / 3) {
        std::filesystem::resize_file(core, size);
        const int status = inspect("--stacks --core " + core).status;
        EXPECT_TRUE(status == 0 || status == 1) << size << " bytes: " << status;
    }
}

TEST(Inspect, FollowsPublishedNamespaces)
{
    const Host host({"published"});
    VX_NEED_READABLE(host);
    const json found = report(host.word());
    EXPECT_EQ(lockNamed(found, "inside")["owner"], host.id());
    EXPECT_EQ(lockNamed(found, "namespace plugin")["owner"], 0);
    ASSERT_EQ(found["names"].size(), 3u);
    EXPECT_EQ(found["names"][2]["namespace"], "plugin");
    EXPECT_EQ(found["notes"], json::array());
}

TEST(Inspect, FindsLocksOfThreadsThatEnded)
{
    const Host host({"ended"});
    VX_NEED_READABLE(host);
    const json lock = lockNamed(report(host.word()), "left");
    EXPECT_TRUE(lock["ownerEnded"].get<bool>());
    EXPECT_EQ(lock["depth"], 1);
    EXPECT_NE(inspect("deadlocks " + host.word()).output.find("lock 'left' is held by thread"),
              std::string::npos);
}

TEST(Inspect, ShowsTheCallbackThatRuns)
{
    struct {
        const char* state;
        const char* stateText;
        json priorities;
        std::size_t running;
    } const cases[] = {
        {"first-pass", "first pass of the shutdown", {5, 100, 400}, 1},
        {"final-pass", "final pass of the shutdown", {300, 400}, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.state);
        const Host host({row.state});
        VX_NEED_READABLE(host);
        const json found = report(host.word());
        EXPECT_EQ(found["application"]["state"], row.stateText);
        const json& callbacks = found["shutdown"]["callbacks"];
        ASSERT_EQ(callbacks.size(), row.priorities.size());
        for (std::size_t i = 0; i < callbacks.size(); ++i) {
            EXPECT_EQ(callbacks[i]["priority"], row.priorities[i]);
            EXPECT_EQ(callbacks[i]["running"], i == row.running);
            EXPECT_NE(callbacks[i]["function"].get<std::string>().find("atShutdown"),
                      std::string::npos)
                << callbacks[i];
        }
    }
}

TEST(Inspect, ShowsApplicationAndPools)
{
    const Host host({"application"});
    VX_NEED_READABLE(host);
    const json found = report(host.word());
    EXPECT_EQ(found["application"]["name"], "Editor Ä");
    EXPECT_EQ(found["application"]["version"], "2026.1");
    ASSERT_EQ(found["pools"].size(), 1u);
    EXPECT_EQ(found["pools"][0]["pool"], "frames");
    EXPECT_EQ(found["pools"][0]["inUse"], 4);
    EXPECT_EQ(found["pools"][0]["mostInUse"], 5);
    EXPECT_EQ(found["shutdown"]["callbacks"][0]["function"],
              "Vx::PooledObjectDebug::LoggingTraitsBase_exit(Shutdown::eExitType)");
}

TEST(Inspect, ReadsTenThousandNames)
{
    const Host host({"names", "10000"});
    VX_NEED_READABLE(host);
    const json found = report(host.word());
    ASSERT_EQ(found["names"].size(), 10000u);
    EXPECT_EQ(found["names"][9999]["name"], "object 9999");
    EXPECT_NE(found["names"][9999]["object"], nullptr);
    // Null where the platform was built without small blocks.
    const json& spans = found["memory"]["bytesOfSpans"];
    EXPECT_TRUE(spans.is_null() || spans >= 10000 * 64) << spans;
}

TEST(Inspect, NeverMistakesABusyLockForAnythingElse)
{
    Host host({"busy"});
    VX_NEED_READABLE(host);
    for (int i = 0; i < INSPECTIONS; ++i) {
        const json found = report(host.word());
        ASSERT_EQ(found["deadlocks"], json::array());
        ASSERT_EQ(found["notes"], json::array());
        for (const json& lock : found["locks"]) {
            ASSERT_FALSE(lock["ownerEnded"].get<bool>()) << lock;
            const bool known = !lock["changing"].get<bool>();
            ASSERT_EQ(known && lock["owner"] != 0, known && lock["depth"] == 1) << lock;
        }
    }
}

TEST(Inspect, SurvivesRootsThatWereOverwritten)
{
    const std::vector<std::vector<std::string>> states = {
        {"scribbled", "1"}, {"scribbled", "127"}, {"scribbled", "255"}, {"circles"}};
    for (const auto& state : states) {
        SCOPED_TRACE(state.back());
        const Host host(state);
        VX_NEED_READABLE(host);
        EXPECT_GT(report(host.word())["notes"].size(), 1u);
    }
}

TEST(Inspect, CrashHandlersReportTheSame)
{
    const std::vector<std::vector<std::string>> states = {
        {"held"}, {"ended"}, {"application"}, {"published"}, {"names", "10"}};
    for (const auto& state : states) {
        SCOPED_TRACE(state[0]);
        Host host(state);
        VX_NEED_READABLE(host);
        const std::string tool = inspect(host.word()).output;
        const std::string own = crashReport(host);
        for (const char* section : {"Locks", "Application", "Named objects", "Pools"})
            EXPECT_EQ(sectionOf(own, section), sectionOf(tool, section));
    }
}

TEST(Inspect, CrashHandlersGetTheWholeReport)
{
    struct {
        std::vector<std::string> state;
        const char* line;
    } const cases[] = {
        {{"factory"}, "'namespace GLOBAL' namespace "}, // whose lock the thread that crashes holds
        {{"busy"}, "15CriticalSection 'busy' 0x"},      // all the time entered by others
        {{"first-pass"}, " RUNNING\nfinal 400 0x"},
        {{"final-pass"}, "final 300 0x"},
        {{"scribbled", "1"}, "note: the list of named objects of namespace '<damaged>' is damaged"},
        {{"scribbled", "127"}, "note: the shutdown list changed at each look, or is damaged"},
        {{"scribbled", "255"}, "note: the list of pools is damaged"},
        {{"circles"}, "note: the list of named objects of namespace 'GLOBAL' is damaged after 1 "},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.state.back());
        Host host(row.state);
        const std::string text = withoutRuns(crashReport(host));
        if (text.find("note: addresses cannot be checked") != std::string::npos)
            GTEST_SKIP() << "the kernel does not permit process_vm_readv()";
        EXPECT_NE(text.find(row.line), std::string::npos) << text;
        EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1), "end of the report\n");
    }
}

TEST(Inspect, SurvivesAProcessThatEndsMeanwhile)
{
    for (int i = 0; i < 20; ++i) {
        Host host({"names", "1000"});
        VX_NEED_READABLE(host);
        host.end();
        const Result result = inspect("--json --stacks " + host.word());
        EXPECT_TRUE(result.status == 0 || result.status == 1) << result.output;
    }
}

namespace {

// Stripped copies of the libraries, with separate debug files.
void copyLibraries(const std::string& to)
{
    for (const std::string library : {VX_LIBRARY, OS_LIBRARY}) {
        const std::string copy = to + "/$(basename " + library + ")";
        ASSERT_EQ(runCommand("objcopy --only-keep-debug " + library + " " + copy + ".debug && " +
                             "objcopy --strip-all --add-gnu-debuglink=" + copy + ".debug " +
                             library + " " + copy)
                      .status,
                  0);
    }
    ASSERT_EQ(runCommand("cd " + to + " && ln -s libVx.so.17.*[0-9] libVx.so.17").status, 0);
}

} // namespace

TEST(Inspect, NeedsNeitherSymbolsNorDebugFilesForLocks)
{
    const ScratchFolder folder;
    const std::string copies = folder.path();
    copyLibraries(copies);
    const Host host({"deadlock2"}, copies + ":" IPP_FOLDER);
    VX_NEED_READABLE(host);
#ifdef __OPTIMIZE__ // frames of other code need rbp, which a running process does not show
    // The debug file has the name of a function that is not exported.
    EXPECT_NE(inspect("--stacks threads " + host.word()).output.find("RecursiveLock::lock()"),
              std::string::npos);
#endif
    ASSERT_EQ(runCommand("rm " + copies + "/*.debug").status, 0);
    const Result without = inspect("--stacks " + host.word());
    EXPECT_EQ(without.status, 3) << without.output;
    EXPECT_EQ(without.output.find("RecursiveLock"), std::string::npos);
    EXPECT_NE(without.output.find("waits for 'MediaCache'"), std::string::npos);
}

TEST(Inspect, FindsTheBinariesOfACoreFileBelowTheSysroot)
{
    const ScratchFolder ran; // stripped libraries, which are gone when the core file is read
    copyLibraries(ran.path());
    const Host host({"deadlock2"}, ran.path() + ":" IPP_FOLDER);
    VX_NEED_READABLE(host);
    const ScratchFolder folder;
    const std::string core = coreOf(host, folder);
    if (core.empty())
        GTEST_SKIP() << "gdb may not attach to a child";
    ASSERT_EQ(runCommand("rm -r " + ran.path() + "/*").status, 0);
    const std::string without = report("--core " + core, 3)["notes"].dump();
    EXPECT_NE(without.find("libVx.so"), std::string::npos) << without;
    EXPECT_NE(without.find("--sysroot"), std::string::npos) << without;

    const std::string libraries = " " VX_LIBRARY " " OS_LIBRARY " "; // not stripped
    const std::string arrangements[] = {
        "mkdir -p ." + ran.path() + " && cp" + libraries + "." + ran.path(),
        "cp" + libraries + ".",
        "for file in" + libraries +
            "; do id=$(readelf -n $file | sed -n 's/.*Build ID: //p'); "
            "to=debug/usr/lib/debug/.build-id/$(echo $id | cut -c -2); mkdir -p $to; "
            "cp $file $to/$(echo $id | cut -c 3-); done; mv debug/usr .",
    };
    for (const std::string& arrangement : arrangements) {
        SCOPED_TRACE(arrangement);
        const ScratchFolder sysroot;
        const Result made = runCommand("cd " + sysroot.path() + " && " + arrangement);
        ASSERT_EQ(made.status, 0) << made.output;
        const std::string notes =
            report("--core " + core + " --sysroot " + sysroot.path(), 3)["notes"].dump();
        EXPECT_EQ(notes.find("libVx.so"), std::string::npos) << notes;
        EXPECT_NE(notes.find("libc.so"), std::string::npos) << notes;
    }
    // Of another build.
    const ScratchFolder sysroot;
    ASSERT_EQ(runCommand("cp /bin/true " + sysroot.path() + "/libOS.so").status, 0);
    const std::string other = "--core " + core + " --sysroot " + sysroot.path();
    EXPECT_NE(report(other, 3)["notes"].dump().find("others, or has another build"),
              std::string::npos);
}

TEST(Inspect, ExplainsWhatItCannotRead)
{
    const Host host({""});
    VX_NEED_READABLE(host);
    const std::string shell = "$$"; // that runs the command
    struct {
        std::string arguments;
        int status;
        const char* message;
    } const cases[] = {
        {"4194304", 1, "there is no process 4194304"},
        {shell, 1, "does not have libVx.so loaded"},
        {"--core /nonexistent", 1, "cannot be opened"},
        {std::string("--core ") + INSPECT_HOST, 1, "is not a core file"},
        {"--core /dev/null", 1, "is not a core file"},
        {"nonsense", 2, "neither a process identifier nor a section"},
        {"locks", 2, "expected a process identifier"},
        {shell + " --core x", 2, "one of them"},
    };
    for (const auto& row : cases) {
        const Result result = inspect(row.arguments);
        EXPECT_EQ(result.status, row.status) << row.arguments;
        EXPECT_NE(result.output.find(row.message), std::string::npos) << result.output;
    }
    EXPECT_NE(inspect("").output.find(" " + host.word() + "  InspectHost"), std::string::npos);
}

TEST(Inspect, WatchPrintsALineEachTimeInAPipe)
{
    const Host host({"held"});
    VX_NEED_READABLE(host);
    const std::string line = "InspectHost (" + host.word() + "): no deadlock, 1 lock held, running";
    const Result result =
        runCommand(std::string(VX_TOOL) + " inspect --watch 1 " + host.word() + " | head -n 2");
    EXPECT_EQ(result.output, line + "\n" + line + "\n");
}
