// Memory runs out in the reference platform: the first allocation of each service fails, then the
// second, and so on until it succeeds. MemoryExhaustionTest.cpp covers locks and text conversion.
#include <ScratchFolder.h>
#include <Vx/testing/ScriptedPlatform.h>
#include <fcntl.h>
#include <sys/file.h>

namespace {

using Text = LightweightString<char>;
using Wide = LightweightString<wchar_t>;

/// Allocations can fail; files, folders and settings are the reference platform's.
struct Memory : ScriptedPlatform {
    Vx::Ptr<iFile> openFile(const Wide& path, int access, int disposition, int flags,
                            int reserved) override
    {
        return PlatformProxy::openFile(path, access, disposition, flags, reserved);
    }
    Wide getFolder(int kind) override { return PlatformProxy::getFolder(kind); }
    void setOutputDiagnosticsFolder(const Wide& folder) override
    {
        PlatformProxy::setOutputDiagnosticsFolder(folder);
    }
    Vx::Ptr<iSettings> getSettings(int scope) override { return PlatformProxy::getSettings(scope); }
};

bool lockIsFree(const std::string& path)
{
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool free = file < 0 || flock(file, LOCK_EX | LOCK_NB) == 0;
    close(file);
    return free;
}

struct LinuxExhaustion : testing::Test {
    /// Fails each allocation of \p work in turn; it must make at least \p least of them.
    void exhaust(const char* name, unsigned int least, const std::function<void()>& work)
    {
        SCOPED_TRACE(name);
        const long blocks = memory.liveBlocks();
        const int descriptors = openDescriptors();
        const unsigned int failures = failEachAllocation(memory, work, [&] {
            EXPECT_EQ(memory.liveBlocks(), blocks);
            EXPECT_EQ(openDescriptors(), descriptors);
            for (const char* suffix : {".lock", ".journal"})
                EXPECT_TRUE(lockIsFree(folder.path(own + suffix)));
        });
        EXPECT_GE(failures, least) << "allocates too little to be tested here";
    }

    const ScratchFolder folder{ScratchFolder::inMemory()};
    const ScopedEnvironment home{"HOME", folder.path("a home that takes a block").c_str()};
    const ScopedEnvironment config{"XDG_CONFIG_HOME", folder.path("configuration").c_str()};
    const ScopedEnvironment machine{"XDG_CONFIG_DIRS", folder.path("for all users").c_str()};
    const std::string programs = "configuration/Vx/programs/",
                      own = programs + program_invocation_short_name;
    Memory memory;
    iShell& shell = *OS()->shell();
};

} // namespace

TEST_F(LinuxExhaustion, FilesAndFolders)
{
    folder.put("stored", "old");
    const Wide stored = folder.wide("stored"), written = folder.wide("new"), device = L"/dev/null",
               deeper = folder.wide("diagnostics/deeper");
    const auto save = [](const Wide& path) {
        const Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(path, 2, 3, 0, 0);
        EXPECT_TRUE(file && file->write("new", 3));
    };
    exhaust("read", 2, [&] {
        char first = 'x';
        const Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(stored, 1, 0, 1, 0);
        EXPECT_TRUE(file && file->read(&first, 1) && first == 'o');
    });
    exhaust("replace", 4, [&] { save(written); });
    EXPECT_EQ(folder.get("new"), "new");
    exhaust("write to a device", 2, [&] { save(device); });
    exhaust("folder", 2, [&] { EXPECT_NE(shell.getFolder(4711), L""); });
    exhaust("home folder", 2, [&] { EXPECT_NE(shell.getFolder(1), L""); });
    exhaust("diagnostics folder", 2, [&] { shell.setOutputDiagnosticsFolder(deeper); });
    exhaust("from malformed UTF-8", 1,
            [] { EXPECT_NE(OS()->systemUtils()->fromUTF8("ill-formed \xFF \xE2\x82", 14), L""); });
}

TEST_F(LinuxExhaustion, CallStacksAreShorter)
{
    unsigned int n = 0;
    do {
        memory.failAllocation(++n);
        std::vector<Text, StdAllocator<Text>> frames;
        EXPECT_NO_THROW(OS()->systemUtils()->captureCallStack(frames));
    } while (memory.faultFired());
    EXPECT_GT(n, 2u);
}

TEST_F(LinuxExhaustion, Settings)
{
    const std::string damaged = "no settings text\n", name = program_invocation_short_name;
    std::filesystem::create_directories(folder.path(programs));
    folder.put(own + ".ini", "[S]\nkey=stored\n");
    folder.put("configuration/Vx/machine.ini", damaged);
    const Text section = "S", key = "key", added = "a key of many letters",
               value = "a value of many letters", another = "another value of many letters";
    Vx::Ptr<iSettings> mine, machines;
    reported([&] {
        exhaust("get settings", 1, [&] { mine = shell.getSettings(0); });
        exhaust("get the machine's", 1, [&] { machines = shell.getSettings(1); });
        exhaust("load", 10, [&] { EXPECT_EQ(mine->getValue(added, "", section), ""); });
        EXPECT_EQ(mine->getValue(key, value, section), "stored");
        exhaust("load damaged", 10,
                [&] { EXPECT_EQ(machines->getValue(key, value, section), value); });
        exhaust("get none", 1, [&] { EXPECT_EQ(mine->getValue(added, value, section), value); });
        exhaust("set", 4, [&] { mine->setValue(added, value, section); });
        exhaust("set in a new section", 4, [&] { mine->setValue(key, value, value); });
        exhaust("set another value", 2, [&] { mine->setValue(key, another, section); });
        exhaust("get", 1, [&] { EXPECT_EQ(mine->getValue(key, value, section), another); });
        exhaust("save", 20, [&] { mine->save(); });
    });
    EXPECT_EQ(folder.get(own + ".ini"),
              "[S]\nkey=another value of many letters\na key of many letters=a value of many "
              "letters\n\n[a value of many letters]\nkey=a value of many letters\n");
    EXPECT_EQ(folder.get("configuration/Vx/machine.ini"), damaged);
    EXPECT_EQ(folder.names(programs), name + ".ini " + name + ".journal " + name + ".lock ");
}
