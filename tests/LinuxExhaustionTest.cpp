// Memory runs out in the reference platform: the first allocation of each service fails, then the
// second, and so on until it succeeds.
#include <ScratchFolder.h>
#include <Vx/testing/PlatformProxy.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>

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

/// Runs every row of the table; with \p failing, once for each of its allocations. Stores in \p kept
/// how many blocks each leaves allocated. \returns false if an expectation failed
bool runAll(bool failing, long* kept)
{
    Memory memory;
    const ScratchFolder folder{ScratchFolder::inMemory()};
    const ScopedEnvironment home("HOME", folder.path("a home that takes a block").c_str());
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path("configuration").c_str());
    const ScopedEnvironment machine("XDG_CONFIG_DIRS", folder.path("for all users").c_str());
    const std::string programs = "configuration/Vx/programs/",
                      own = programs + program_invocation_short_name;
    std::filesystem::create_directories(folder.path(programs));
    folder.put(own + ".ini", "[S]\nkey=stored\n");
    folder.put("configuration/Vx/machine.ini", kDamaged);
    const LightweightString<wchar_t> stored = folder.wide(own + ".ini"),
                                     written = folder.wide("new"),
                                     diagnostics = folder.wide("diagnostics/deeper"),
                                     wide = L"wide text with \x20AC and \xD800";
    const std::string malformed = "long enough for vectors \xC3\xA4 \xFF \xE2\x82";
    const Text section = "S", key = "key", other = "a key of more than a few letters",
               value = "a value of more than a few letters";
    iFileSystem& files = *OS()->fileSystem();
    iShell& shell = *OS()->shell();
    iSystemUtils& utils = *OS()->systemUtils();
    Vx::Ptr<iSettings> settings[2];

    const struct {
        const char* name;
        unsigned int least; // allocations
        std::function<void()> work;
    } rows[] = {
        {"read a file", 2,
         [&] {
             char first = 'x';
             const Vx::Ptr<iFile> file = files.openFile(stored, 1, 0, 1, 0);
             EXPECT_TRUE(file && file->read(&first, 1) && first == '[');
         }},
        {"replace a file", 4,
         [&] {
             const Vx::Ptr<iFile> file = files.openFile(written, 2, 3, 0, 0);
             EXPECT_TRUE(file && file->write("new", 3));
         }},
        {"write to a device", 2,
         [&] {
             const Vx::Ptr<iFile> file = files.openFile(L"/dev/null", 2, 3, 0, 0);
             EXPECT_TRUE(file && file->write("x", 1));
         }},
        {"make a lock", 1, [&] { EXPECT_TRUE(OS()->threading()->createLock(0)->tryLock()); }},
        {"to UTF-8", 1, [&] { EXPECT_EQ(utils.toUTF8(wide).length(), 26u); }},
        {"from malformed UTF-8", 1,
         [&] { EXPECT_NE(utils.fromUTF8(malformed.data(), unsigned(malformed.size())), L""); }},
        {"from UTF-8", 1, [&] { EXPECT_EQ(utils.fromUTF8("text", 4), L"text"); }},
        {"from ASCII", 1, [&] { EXPECT_EQ(utils.wideFromAscii("text"), L"text"); }},
        {"folder", 2, [&] { EXPECT_NE(shell.getFolder(4711), L""); }},
        {"home folder", 2, [&] { EXPECT_NE(shell.getFolder(1), L""); }},
        {"diagnostics folder", 2, [&] { shell.setOutputDiagnosticsFolder(diagnostics); }},
        {"get settings", 1, [&] { settings[0] = shell.getSettings(0); }},
        {"get the machine's", 1, [&] { settings[1] = shell.getSettings(1); }},
        {"load", 10, [&] { EXPECT_EQ(settings[0]->getValue(key, value, section), "stored"); }},
        {"load damaged", 10, [&] { EXPECT_EQ(settings[1]->getValue(key, value, section), value); }},
        {"get none", 1, [&] { EXPECT_EQ(settings[0]->getValue(other, value, section), value); }},
        {"set", 4, [&] { settings[0]->setValue(other, value, section); }},
        {"set in a new section", 4, [&] { settings[0]->setValue(key, value, value); }},
        {"set another value", 2, [&] { settings[0]->setValue(key, other, section); }},
        {"get", 1, [&] { EXPECT_EQ(settings[0]->getValue(key, value, section), other); }},
        {"save", 20, [&] { settings[0]->save(); }},
        {"capture a call stack", 2,
         [&] {
             Frames frames;
             utils.captureCallStack(frames);
         }},
    };
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const bool goesOn = row.name == std::string("capture a call stack");
        const int descriptors = openDescriptors();
        const long blocks = memory.blocks;
        unsigned int n = 0;
        do {
            SCOPED_TRACE("failure " + std::to_string(n));
            EXPECT_LT(n, 500u) << "never completes";
            memory.fired = false;
            memory.left = failing ? ++n : 0;
            bool thrown = false;
            try {
                row.work();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            memory.left = 0;
            EXPECT_EQ(thrown, memory.fired && !goesOn);
            EXPECT_EQ(openDescriptors(), descriptors);
            for (const std::string& file : {own + ".lock", own + ".journal"})
                EXPECT_TRUE(lockIsFree(folder.path(file)));
        } while (memory.fired && n < 500);
        EXPECT_GE(n, failing ? row.least + 1 : 0) << "too few allocations";
        *kept++ = memory.blocks - blocks;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(folder.get("new"), "new");
    EXPECT_EQ(folder.get(own + ".ini"), "[S]\nkey=" + std::string(other.c_str()) + "\n" +
                                            other.c_str() + "=" + value.c_str() + "\n\n[" +
                                            value.c_str() + "]\nkey=" + value.c_str() + "\n");
    EXPECT_EQ(folder.get("configuration/Vx/machine.ini"), kDamaged);
    const std::string name = program_invocation_short_name;
    EXPECT_EQ(folder.names(programs), name + ".ini " + name + ".journal " + name + ".lock ");
    return !testing::Test::HasFailure();
}

} // namespace

TEST(LinuxExhaustion, AFailedAllocationAnywhereCostsNothing)
{
    constexpr std::size_t kRows = 100;
    void* const shared = mmap(nullptr, 2 * kRows * sizeof(long), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    long* const kept = static_cast<long*>(shared);
    // In separate processes, because settings are loaded once per process.
    for (const bool failing : {false, true})
        EXPECT_TRUE(holdsInChild([&] {
            const bool held = runAll(failing, kept + failing * kRows);
            return std::fflush(stdout) == 0 && held;
        }));
    EXPECT_TRUE(std::equal(kept, kept + kRows, kept + kRows)) << "blocks leak";
    munmap(shared, 2 * kRows * sizeof(long));
}
