// Memory runs out in the reference platform: the first allocation of each service fails, then the
// second, and so on until it succeeds. MemoryExhaustionTest.cpp covers locks and text conversion.
#include <ScratchFolder.h>
#include <Vx/testing/PlatformProxy.h>
#include <fcntl.h>
#include <sys/file.h>

namespace {

/// The reference platform, of which one allocation can fail.
struct Memory : PlatformProxy {
    void* allocate(unsigned long size) override
    {
        if (left != 0 && --left == 0) {
            fired = true;
            throw std::bad_alloc();
        }
        void* const block = PlatformProxy::allocate(size);
        ++blocks;
        return block;
    }
    void deallocate(void* block) override
    {
        blocks -= block != nullptr;
        PlatformProxy::deallocate(block);
    }

    unsigned int left = 0; // until one fails; 0: none
    bool fired = false;
    long blocks = 0;
};

const std::string kDamaged = "no settings text\n";
using Text = LightweightString<char>;
using Frames = std::vector<Text, StdAllocator<Text>>;

bool lockIsFree(const std::string& path)
{
    const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool free = file < 0 || flock(file, LOCK_EX | LOCK_NB) == 0;
    close(file);
    return free;
}

/// Work that makes at least so many allocations.
struct Row {
    const char* name;
    unsigned int least;
    std::function<void()> work;
};

/// The services, with all their files in a folder of their own.
class Services {
public:
    Services()
    {
        std::filesystem::create_directories(folder.path(programs));
        folder.put(own + ".ini", "[S]\nkey=stored\n");
        folder.put("configuration/Vx/machine.ini", kDamaged);
    }

    /// Runs every row; if \p failing, once for each of its allocations. \returns how many blocks
    /// stay allocated
    long runAll(bool failing)
    {
        reported([&] {
            for (const auto& rows : {generalRows(), settingsRows()})
                for (const Row& row : rows)
                    run(row, failing);
        });
        EXPECT_EQ(folder.get("new"), "new");
        EXPECT_EQ(folder.get(own + ".ini"),
                  "[S]\nkey=another value of many letters\na key of many letters=a value of many "
                  "letters\n\n[a value of many letters]\nkey=a value of many letters\n");
        EXPECT_EQ(folder.get("configuration/Vx/machine.ini"), kDamaged);
        const std::string name = program_invocation_short_name;
        EXPECT_EQ(folder.names(programs), name + ".ini " + name + ".journal " + name + ".lock ");
        return memory.blocks;
    }

private:
    std::vector<Row> generalRows()
    {
        const auto saves = [this](const LightweightString<wchar_t>& path) {
            const Vx::Ptr<iFile> file = files.openFile(path, 2, 3, 0, 0);
            EXPECT_TRUE(file && file->write("new", 3));
        };
        static const std::string malformed = "long enough for vectors \xC3\xA4 \xFF \xE2\x82";
        static const LightweightString<wchar_t> stored = folder.wide(own + ".ini"),
                                                written = folder.wide("new"), device = L"/dev/null",
                                                deeper = folder.wide("diagnostics/deeper");
        return {
            {"read a file", 2,
             [&] {
                 char first = 'x';
                 const Vx::Ptr<iFile> file = files.openFile(stored, 1, 0, 1, 0);
                 EXPECT_TRUE(file && file->read(&first, 1) && first == '[');
             }},
            {"replace a file", 4, [saves] { saves(written); }},
            {"write to a device", 2, [saves] { saves(device); }},
            {"from malformed UTF-8", 1,
             [&] { EXPECT_NE(utils.fromUTF8(malformed.data(), unsigned(malformed.size())), L""); }},
            {"folder", 2, [&] { EXPECT_NE(shell.getFolder(4711), L""); }},
            {"home folder", 2, [&] { EXPECT_NE(shell.getFolder(1), L""); }},
            {"diagnostics folder", 2, [&] { shell.setOutputDiagnosticsFolder(deeper); }},
            {kCapture, 2,
             [&] {
                 Frames frames;
                 utils.captureCallStack(frames);
             }},
        };
    }

    std::vector<Row> settingsRows()
    {
        static const Text section = "S", key = "key", stored = "stored",
                          added = "a key of many letters", value = "a value of many letters",
                          another = "another value of many letters";
        const auto expectValue = [this](int scope, const Text& name, const Text& expected) {
            EXPECT_EQ(settings[scope]->getValue(name, value, section), expected);
        };
        return {
            {"get settings", 1, [&] { settings[0] = shell.getSettings(0); }},
            {"get the machine's", 1, [&] { settings[1] = shell.getSettings(1); }},
            {"load", 10, [=] { expectValue(0, key, stored); }},
            {"load damaged", 10, [=] { expectValue(1, key, value); }},
            {"get none", 1, [=] { expectValue(0, added, value); }},
            {"set", 4, [&] { settings[0]->setValue(added, value, section); }},
            {"set in a new section", 4, [&] { settings[0]->setValue(key, value, value); }},
            {"set another value", 2, [&] { settings[0]->setValue(key, another, section); }},
            {"get", 1, [=] { expectValue(0, key, another); }},
            {"save", 20, [&] { settings[0]->save(); }},
        };
    }

    void run(const Row& row, bool failing)
    {
        SCOPED_TRACE(row.name);
        const int descriptors = openDescriptors();
        unsigned int n = 0;
        do {
            SCOPED_TRACE("failure " + std::to_string(n));
            memory.fired = false;
            memory.left = failing ? ++n : 0;
            bool thrown = false;
            try {
                row.work();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            memory.left = 0;
            EXPECT_EQ(thrown, memory.fired && row.name != kCapture);
            EXPECT_EQ(openDescriptors(), descriptors);
            for (const char* suffix : {".lock", ".journal"})
                EXPECT_TRUE(lockIsFree(folder.path(own + suffix)));
        } while (memory.fired && n < 500);
        EXPECT_FALSE(memory.fired) << "never completes";
        EXPECT_GE(n, failing ? row.least + 1 : 0) << "too few allocations";
    }

    static constexpr const char* kCapture = "capture a call stack"; // does without what it lacks
    Memory memory;
    const ScratchFolder folder{ScratchFolder::inMemory()};
    const ScopedEnvironment home{"HOME", folder.path("a home that takes a block").c_str()};
    const ScopedEnvironment config{"XDG_CONFIG_HOME", folder.path("configuration").c_str()};
    const ScopedEnvironment machine{"XDG_CONFIG_DIRS", folder.path("for all users").c_str()};
    const std::string programs = "configuration/Vx/programs/",
                      own = programs + program_invocation_short_name;
    iFileSystem& files = *OS()->fileSystem();
    iShell& shell = *OS()->shell();
    iSystemUtils& utils = *OS()->systemUtils();
    Vx::Ptr<iSettings> settings[2];
};

} // namespace

TEST(LinuxExhaustion, AFailedAllocationAnywhereCostsNothing)
{
    const ScratchFolder kept;
    // In separate processes, because settings are loaded once per process.
    for (const char* name : {"without", "with failures"})
        EXPECT_TRUE(holdsInChild([&] {
            kept.put(name, std::to_string(Services().runAll(name[4] == ' ')));
            return std::fflush(stdout) == 0 && !testing::Test::HasFailure();
        }));
    EXPECT_EQ(kept.get("without"), kept.get("with failures")) << "blocks leak";
}
