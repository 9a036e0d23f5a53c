// Memory runs out inside the reference platform's services: their first allocation fails, then
// their second, and so on until they get through.
#include <ScratchFolder.h>
#include <Vx/testing/PlatformProxy.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>

namespace {

/// The reference platform; one allocation can fail.
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

    unsigned int left = 0; // until one fails; 0: none does
    bool fired = false;
    long blocks = 0;
};

const std::string kOld = "old content\n";
const std::string kNew(100000, 'n');
const std::string kBroken = "no settings text\n";
using Text = LightweightString<char>;
using Frames = std::vector<Text, StdAllocator<Text>>;

/// What every row of the table leaves allocated. With \p failing each of its allocations fails
/// once, and the last attempt succeeds.
void runAll(bool failing, long* kept)
{
    Memory memory;
    const ScratchFolder folder{ScratchFolder::inMemory()};
    const ScopedEnvironment home("HOME", folder.path("a home that takes a block").c_str());
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path("configuration").c_str());
    const ScopedEnvironment machine("XDG_CONFIG_DIRS", folder.path("for all users").c_str());
    std::filesystem::create_directories(folder.path("configuration/Vx"));
    folder.put("old", kOld);
    folder.put("configuration/Vx/user.ini", "[S]\nkey=stored\n");
    folder.put("configuration/Vx/machine.ini", kBroken);
    const LightweightString<wchar_t> old = folder.wide("old"), written = folder.wide("new"),
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
        std::function<void()> work;
        unsigned int least;  // allocations
        bool silent = false; // goes on without what it has no memory for
    } rows[] = {
        {"read a file",
         [&] {
             const Vx::Ptr<iFile> file = files.openFile(old, 1, 0, 1, 0);
             ASSERT_TRUE(file);
             std::string bytes(file->size(), 'x');
             EXPECT_TRUE(file->read(bytes.data(), file->size()));
             EXPECT_EQ(bytes, kOld);
         },
         2},
        {"replace a file",
         [&] {
             const Vx::Ptr<iFile> file = files.openFile(written, 2, 3, 0, 0);
             EXPECT_TRUE(file && file->write(kNew.data(), unsigned(kNew.size())));
         },
         4},
        {"write to a device",
         [&] {
             const Vx::Ptr<iFile> file = files.openFile(L"/dev/null", 2, 3, 0, 0);
             EXPECT_TRUE(file && file->write("x", 1));
         },
         2},
        {"make a lock",
         [&] {
             const Vx::Ptr<iLock> lock = OS()->threading()->createLock(0);
             lock->lock();
             lock->unlock();
         },
         1},
        {"to UTF-8", [&] { EXPECT_EQ(utils.toUTF8(wide).length(), 26u); }, 1},
        {"from malformed UTF-8",
         [&] { EXPECT_NE(utils.fromUTF8(malformed.data(), unsigned(malformed.size())), L""); }, 1},
        {"from UTF-8", [&] { EXPECT_EQ(utils.fromUTF8("text", 4), L"text"); }, 1},
        {"from ASCII", [&] { EXPECT_EQ(utils.wideFromAscii("text"), L"text"); }, 1},
        {"folder", [&] { EXPECT_NE(shell.getFolder(4711), L""); }, 2},
        {"home folder", [&] { EXPECT_NE(shell.getFolder(1), L""); }, 2},
        {"set the diagnostics folder", [&] { shell.setOutputDiagnosticsFolder(diagnostics); }, 2},
        {"get settings",
         [&] {
             for (const int scope : {0, 1})
                 settings[scope] = shell.getSettings(scope);
         },
         2},
        {"load settings", [&] { EXPECT_EQ(settings[0]->getValue(key, value, section), "stored"); },
         10},
        {"load broken settings",
         [&] { EXPECT_EQ(settings[1]->getValue(key, value, section), value); }, 10},
        {"get a setting that is not there",
         [&] { EXPECT_EQ(settings[0]->getValue(other, value, section), value); }, 1},
        {"set", [&] { settings[0]->setValue(other, value, section); }, 4},
        {"set in a new section", [&] { settings[0]->setValue(key, value, value); }, 4},
        {"set another value", [&] { settings[0]->setValue(key, other, section); }, 2},
        {"get", [&] { EXPECT_EQ(settings[0]->getValue(key, value, section), other); }, 1},
        {"save", [&] { settings[0]->save(); }, 20},
        {"capture a call stack",
         [&] {
             Frames frames;
             utils.captureCallStack(frames);
         },
         2, true},
    };
    const std::string lock = folder.path("configuration/Vx/lock");
    unsigned int points = 0;
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const int descriptors = openDescriptors();
        const long blocks = memory.blocks;
        unsigned int n = 0;
        do {
            ASSERT_LT(n, 500u) << "never completes";
            memory.fired = false;
            memory.left = failing ? ++n : 0;
            bool thrown = false;
            try {
                row.work();
            } catch (const std::bad_alloc&) {
                thrown = true;
            }
            memory.left = 0;
            EXPECT_TRUE(thrown == memory.fired || row.silent) << "failure " << n;
            EXPECT_EQ(openDescriptors(), descriptors) << "failure " << n;
            const int file = open(lock.c_str(), O_RDWR | O_CLOEXEC);
            EXPECT_TRUE(file < 0 || flock(file, LOCK_EX | LOCK_NB) == 0) << "failure " << n;
            close(file);
            points += memory.fired;
        } while (memory.fired);
        EXPECT_GE(n, failing ? row.least + 1 : 0) << "fewer allocations than there must be";
        *kept++ = memory.blocks - blocks;
    }
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(folder.get("old"), kOld);
    EXPECT_EQ(folder.get("new"), kNew);
    EXPECT_EQ(folder.get("configuration/Vx/user.ini"),
              "[S]\nkey=" + std::string(other.c_str()) + "\n" + other.c_str() + "=" +
                  value.c_str() + "\n\n[" + value.c_str() + "]\nkey=" + value.c_str() + "\n");
    EXPECT_EQ(folder.get("configuration/Vx/machine.ini.broken"), kBroken);
    EXPECT_EQ(folder.names("configuration/Vx"), "lock machine.ini.broken user.ini ");
    if (failing)
        std::printf("%u points of failure in %zu operations\n", points, std::size(rows));
}

} // namespace

TEST(LinuxExhaustion, AFailedAllocationAnywhereCostsNothing)
{
    constexpr std::size_t kSize = 4096;
    void* const shared =
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    long* const kept[] = {static_cast<long*>(shared), static_cast<long*>(shared) + 100};
    // In processes of their own, because settings are loaded once in each.
    for (const bool failing : {false, true})
        EXPECT_EQ(statusOfChild([&] {
                      runAll(failing, kept[failing]);
                      return std::fflush(stdout) == 0 && !testing::Test::HasFailure();
                  }),
                  0);
    EXPECT_EQ(std::vector<long>(kept[0], kept[0] + 100), std::vector<long>(kept[1], kept[1] + 100));
    munmap(shared, kSize);
}
