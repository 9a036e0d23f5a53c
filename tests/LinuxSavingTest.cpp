// What the Linux platform saves, files and settings, is never lost: whichever system call fails,
// whenever the process is killed or the power fails.
#include "files/FileSystem.h"
#include "settings/SettingsStore.h"
#include <ScratchFolder.h>
#include <SystemCallScript.h>
#include <Vx/VxIniFile.h>
#include <Vx/platform/OS.h>
#include <csignal>
#include <fcntl.h>
#include <mutex>

namespace {

using Text = LightweightString<char>;

const std::string kFolder = "Vx/programs";
const std::string kName = std::string(program_invocation_short_name) + ".ini";
const std::string kPath = kFolder + "/" + kName;
const std::string kJournal = kFolder + "/" + program_invocation_short_name + ".journal";
const std::string kStored = "[Other]\nkept=1\n";
const std::string kBroken = "by hand, nonsense";
const std::string kValue(300, 'n');
const std::string kFile = "[S]\r\nk=" + kValue + "\r\n";
const std::string kSettings = "[Section]\nKey=new\n";

/// What is saved over what, on a file system with unnamed files or without.
struct Case {
    const char* name;
    bool settings; // or a document
    std::string before, after;
    bool unnamed = true;

    bool broken() const { return before == kBroken; }
    bool maySee(const std::string& content) const { return content == before || content == after; }
};

std::vector<Case> everyCase()
{
    std::vector<Case> all = {{"replaces a file", false, kStored, kFile},
                             {"creates a file", false, "(none)", kFile},
                             {"adds to settings", true, kStored, kStored + "\n" + kSettings},
                             {"makes the first settings", true, "(none)", kSettings},
                             {"sets broken settings aside", true, kBroken, kSettings}};
    for (std::size_t i = 0, count = all.size(); i < count; ++i) {
        all.push_back(all[i]);
        all.back().unnamed = false;
    }
    return all;
}

/// The system calls of such a case.
struct Calls : SystemCallScript {
    explicit Calls(const Case& row)
    {
        cutShort();
        if (!row.unnamed)
            refuseUnnamedFiles();
    }
};

class Saving : public testing::Test {
protected:
    void prepare(const Case& row) const
    {
        std::filesystem::remove_all(scratch.path("Vx"));
        if (!row.settings || row.before != "(none)") // else the first save makes it
            std::filesystem::create_directories(scratch.path(kFolder));
        if (row.before != "(none)")
            scratch.put(kPath, row.before);
    }

    /// A store as in a process that has just started.
    static SettingsStore& started()
    {
        static auto* stores = new std::list<SettingsStore>; // never destroyed
        return stores->emplace_back(0);
    }

    bool work(const Case& row, SettingsStore& store = started()) const
    {
        if (row.settings) {
            store.set({"Section", "Key"}, "new"); // reads the file
            store.save();
            return true;
        }
        if (row.before == "(none)") { // piece by piece, as hosts write other files
            const Vx::Ptr<iFile> file =
                OS()->fileSystem()->openFile(scratch.wide(kPath), 2, 3, 0, 0);
            const unsigned int size = static_cast<unsigned int>(kFile.size());
            return file && file->write(kFile.data(), 10) &&
                   file->write(kFile.data() + 10, size - 10) && file->write(nullptr, 0);
        }
        VxIniFile document(true);
        document["S"].emplace_back("k", Text(kValue.c_str()), '=');
        return document.saveAll(scratch.wide(kPath));
    }

    /// \returns whether it looks as if saved, by the result and by the messages
    bool save(const Case& row, SettingsStore& store = started())
    {
        bool done = false;
        said = reported([&] { done = work(row, store); });
        return done && (!row.settings || said.find("could not") == std::string::npos);
    }

    std::string content() const { return scratch.get(kPath); }

    /// The names in the folder, without the lock and the journal; "aside" for a complete copy.
    std::multiset<std::string> names(const Case& row) const
    {
        std::multiset<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(scratch.path(kFolder))) {
            const std::string name = entry.path().filename();
            const bool aside = name.rfind(kName + ".broken", 0) == 0;
            all.insert(aside && scratch.get(kFolder + "/" + name) == row.before ? "aside" : name);
        }
        for (const char* suffix : {"lock", "journal"})
            all.erase(kName.substr(0, kName.size() - 3) + suffix);
        return all;
    }

    void expectSaved(const Case& row) const
    {
        EXPECT_EQ(content(), row.after);
        std::multiset<std::string> found = names(row);
        const std::size_t copies = found.erase("aside");
        // A fault may set aside intact settings; nothing is lost by that.
        EXPECT_TRUE(copies == 1 || (copies == 0 && !row.broken())) << copies;
        EXPECT_EQ(found, std::multiset<std::string>{kName});
    }

    const ScratchFolder scratch{ScratchFolder::inMemory()};
    const ScopedEnvironment config{"XDG_CONFIG_HOME", scratch.path().c_str()};
    std::string said;
};

} // namespace

TEST_F(Saving, AFaultInAnyCallLosesNothing)
{
    int points = 0;
    for (const Case& row : everyCase())
        points += forEachFault({EIO, EACCES, EINVAL, EEXIST, EINTR}, [&](int error, int n) {
            SCOPED_TRACE(row.name);
            prepare(row);
            const int descriptors = openDescriptors();
            SettingsStore& store = started();
            bool done, fired;
            {
                Calls script(row);
                script.failCall(n, error);
                done = save(row, store);
                fired = script.fired();
            }
            EXPECT_TRUE(row.maySee(content())) << content().substr(0, 100);
            EXPECT_TRUE(!done || content() == row.after) << "claims to have saved";
            EXPECT_TRUE(done || row.settings || content() == row.before) << "saved all the same";
            EXPECT_TRUE(done || (fired && error != EINTR)) << said;
            EXPECT_LE(std::count(said.begin(), said.end(), '\n'), row.broken() ? 4 : 2) << said;
            EXPECT_EQ(openDescriptors(), descriptors);
            EXPECT_TRUE(save(row, store)) << "the next save repairs it";
            expectSaved(row);
            return fired;
        });
    EXPECT_GT(points, 1800) << "too few calls failed";
}

TEST_F(Saving, AKillBeforeAnyCallLosesNothing)
{
    int kills = 0, littered = 0;
    for (const Case& row : everyCase())
        for (int n = 1;; ++n) {
            ASSERT_LT(n, 200) << "never completes";
            SCOPED_TRACE(row.name + (", killed before call " + std::to_string(n)));
            prepare(row);
            int status = 0;
            reported([&] {
                status = statusOfChild([&] {
                    Calls script(row);
                    script.beforeCall(n, [] { raise(SIGKILL); });
                    return work(row);
                });
            });
            EXPECT_TRUE(row.maySee(content())) << content().substr(0, 100);
            {
                Calls script(row);
                script.before = [&](const std::string& name) { littered += name == "unlinkat"; };
                EXPECT_TRUE(save(row)) << said;
            }
            expectSaved(row);
            if (!WIFSIGNALED(status))
                break;
            ++kills;
        }
    EXPECT_GT(kills, 350);
    EXPECT_GT(littered, 50) << "too few kills left something to clean up";
}

// --- Power failures

namespace {

SystemCalls realCalls;

/// What a power failure now could undo: bytes until the fsync() of their file, names until that of
/// their folder.
struct Unsynced {
    std::set<ino_t> files;        // whose bytes could be lost
    std::map<ino_t, ino_t> names; // of which files could be lost, and their folders
    int tooEarly = 0;             // names given while anything else could be lost
    int syncs = 0;
    int forgotten = 0; // the number of an fsync() that has no effect
} unsynced;

ino_t inodeOf(int folder, const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(fstatat(folder, path.c_str(), &status, AT_EMPTY_PATH), 0) << path;
    return status.st_ino;
}

void noteName(int folder, const std::string& path)
{
    const ino_t file = inodeOf(folder, path);
    unsynced.names.erase(file);
    unsynced.tooEarly += unsynced.files.count(file) != 0 || !unsynced.names.empty();
    unsynced.names[file] = inodeOf(folder, path.substr(0, path.rfind('/') + 1) + ".");
}

int notedMkdir(int folder, const char* path, mode_t mode)
{
    const int result = realCalls.mkdirat(folder, path, mode);
    if (result == 0)
        noteName(folder, path);
    return result;
}

template <auto Call, class Flags>
int notedName(int from, const char* path, int folder, const char* name, Flags flags)
{
    const int result = (realCalls.*Call)(from, path, folder, name, flags);
    if (result == 0)
        noteName(folder, name);
    return result;
}

ssize_t notedWrite(int file, const void* bytes, size_t count)
{
    unsynced.files.insert(inodeOf(file, ""));
    return realCalls.write(file, bytes, count);
}

int notedSync(int file)
{
    if (++unsynced.syncs != unsynced.forgotten) {
        const ino_t inode = inodeOf(file, "");
        unsynced.files.erase(inode);
        std::erase_if(unsynced.names, [&](const auto& name) { return name.second == inode; });
    }
    return realCalls.fsync(file);
}

} // namespace

TEST_F(Saving, APowerFailureAnywhereLosesNothing)
{
    realCalls = systemCalls;
    for (const Case& row : everyCase()) {
        int forgotten = 0;
        do {
            SCOPED_TRACE(row.name + (", without fsync() number " + std::to_string(forgotten)));
            prepare(row);
            unsynced = {};
            unsynced.forgotten = forgotten;
            systemCalls.mkdirat = notedMkdir;
            systemCalls.linkat = notedName<&SystemCalls::linkat>;
            systemCalls.renameat2 = notedName<&SystemCalls::renameat2>;
            systemCalls.write = notedWrite;
            systemCalls.fsync = notedSync;
            {
                const Calls script(row);
                EXPECT_TRUE(save(row)) << said;
            }
            systemCalls = realCalls;
            if (row.settings) // what was not saved need not survive
                unsynced.files.erase(inodeOf(AT_FDCWD, scratch.path(kJournal)));
            const bool safe =
                unsynced.tooEarly == 0 && unsynced.files.empty() && unsynced.names.empty();
            EXPECT_EQ(safe, forgotten == 0);
        } while (++forgotten <= unsynced.syncs);
        EXPECT_GE(unsynced.syncs, 2);
    }
}

// --- Many writers

namespace {

constexpr int kWriters = 16;
const ScratchFolder* shared;
std::mutex publishing;
std::set<std::string> published; // every content that the file has had

// All writers wait for each other here once, so that all have a temporary name at the same time.
Barrier meeting(kWriters);
thread_local bool hasMet = false;
void meet()
{
    if (!std::exchange(hasMet, true))
        meeting.arrive_and_wait();
}

int recordedRename(int from, const char* path, int folder, const char* name, unsigned int flags)
{
    meet();
    const std::scoped_lock lock(publishing);
    const int result = realCalls.renameat2(from, path, folder, name, flags);
    published.insert(shared->get("a.ini"));
    return result;
}

} // namespace

TEST(SavingAtOnce, EverySuccessOfSixteenWritersWasTheContentOfTheFile)
{
    const ScratchFolder folder{ScratchFolder::inMemory()};
    folder.put("a.ini", "old");
    shared = &folder;
    realCalls = systemCalls;
    systemCalls.renameat2 = recordedRename;
    std::atomic<int> saved = 0, lies = 0;
    const int rounds = scaled(10);
    onThreads(kWriters, [&](int writer) {
        for (int round = 0; round < rounds; ++round) {
            const std::string name = std::to_string(writer) + "." + std::to_string(round);
            VxIniFile document(true);
            document.getSection(Text(name.c_str()));
            const bool done = document.saveAll(folder.wide("a.ini"));
            meet(); // if that failed before it could
            const std::scoped_lock lock(publishing);
            saved += done;
            lies += done && published.count("[" + name + "]\r\n") == 0;
        }
    });
    systemCalls = realCalls;
    EXPECT_EQ(lies, 0);
    EXPECT_EQ(saved, kWriters * rounds);
    EXPECT_EQ(folder.names(), "a.ini ");
}
