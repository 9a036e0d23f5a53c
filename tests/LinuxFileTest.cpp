// The Linux platform's files: what is read, what is replaced, and what faults leave behind.
#include <Faults.h>
#include <FileSystem.h>
#include <Report.h>
#include <ScratchFolder.h>
#include <Vx/platform/OS.h>
#include <fcntl.h>
#include <grp.h>

namespace {

Vx::Ptr<iFile> openToRead(const LightweightString<wchar_t>& path)
{
    return OS()->fileSystem()->openFile(path, 1, 0, 1, 0);
}

Vx::Ptr<iFile> openToWrite(const LightweightString<wchar_t>& path)
{
    return OS()->fileSystem()->openFile(path, 2, 3, 0, 0);
}

bool write(const Vx::Ptr<iFile>& file, const std::string& text)
{
    return file->write(text.data(), static_cast<unsigned int>(text.size()));
}

/// Saves \p text under \p path in one write; false when something could be seen to fail.
bool save(const LightweightString<wchar_t>& path, const std::string& text)
{
    const Vx::Ptr<iFile> file = openToWrite(path);
    return file && write(file, text);
}

mode_t modeOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

const std::string kOld = "old content\n";
const std::string kNew(100000, 'n'); // more than one buffer

/// A folder of such a world.
struct Place : ScratchFolder {
    explicit Place(const World& world, const std::string& below = inMemory()) : ScratchFolder(below)
    {
        if (world.exists)
            put("a", kOld);
    }
};

} // namespace

TEST(FileSystem, OpensNothingElse)
{
    const ScratchFolder folder;
    folder.put("file", kOld);
    std::filesystem::create_directory(folder.path("folder"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
    folder.put("large", "");
    ASSERT_EQ(truncate(folder.path("large").c_str(), off_t(1) << 32), 0);
    folder.put("largest", "");
    ASSERT_EQ(truncate(folder.path("largest").c_str(), (off_t(1) << 32) - 1), 0);

    LightweightString<wchar_t> withZero = folder.wide("file");
    withZero = LightweightString<wchar_t>((std::wstring(withZero.c_str()) + L'\0' + L"x").data(),
                                          withZero.length() + 2);
    const int input = open(folder.path("file").c_str(), O_RDONLY | O_CLOEXEC);
    const std::wstring self = L"/proc/self/fd/" + std::to_wstring(input);
    const struct {
        const char* name;
        LightweightString<wchar_t> path;
        bool reads;
        bool writes;
    } rows[] = {
        {"empty path", {}, false, false},
        {"missing", folder.wide("missing"), false, true},
        {"missing folder", folder.wide("missing2/file"), false, false},
        {"file as folder", folder.wide("file/file"), false, false},
        {"folder", folder.wide("folder"), false, false},
        {"folder with slash", folder.wide("folder/"), false, false},
        {"file with slash", folder.wide("file/"), false, false},
        {"parent", folder.wide("folder/.."), false, false},
        {"fifo, without blocking", folder.wide("fifo"), false, false},
        {"link to itself", folder.wide("loop"), false, false},
        {"4 GiB", folder.wide("large"), false, true},
        {"4 GiB - 1", folder.wide("largest"), true, true},
        {"zero in the path", withZero, false, false},
        {"name too long", folder.wide(std::string(256, 'n')), false, false},
        {"path too long", folder.wide(std::string(5000, '/') + "file"), false, false},
        {"null device", L"/dev/null", false, true},
        {"what a descriptor stands for", self.c_str(), true, false},
        {"file", folder.wide("file"), true, true},
    };
    const int descriptors = openDescriptors();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const Vx::Ptr<iFile> readable = openToRead(row.path);
        EXPECT_EQ(bool(readable), row.reads);
        EXPECT_FALSE(readable && readable->write("x", 1)) << "for reading only";
        const Vx::Ptr<iFile> file = openToWrite(row.path);
        EXPECT_EQ(bool(file), row.writes);
        char byte;
        EXPECT_FALSE(file && file->read(&byte, 1)) << "for writing only";
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(modeOf("/dev/null") & 0222, 0222u);
    close(input);

    folder.put("file", kOld);
    for (const auto& [access, disposition, flags, reserved] : {std::tuple(0, 0, 1, 0),
                                                               {1, 1, 1, 0},
                                                               {1, 0, 0, 0},
                                                               {1, 0, 1, 1},
                                                               {2, 0, 0, 0},
                                                               {2, 3, 1, 0},
                                                               {2, 3, 0, 1},
                                                               {3, 3, 0, 0}})
        EXPECT_FALSE(OS()->fileSystem()->openFile(folder.wide("file"), access, disposition, flags,
                                                  reserved));
    EXPECT_EQ(folder.get("file"), kOld);
    EXPECT_TRUE(openToWrite(folder.wide("file")));
    EXPECT_EQ(folder.get("file"), "") << "nothing written makes an empty file";
}

TEST(ReplacedFile, IsSeenWholeWhenTheLastHolderLetsGo)
{
    for (const auto& world : {kWorlds[0], kWorlds[1]}) {
        SCOPED_TRACE(world.name);
        const Place folder(world);
        const std::string before = folder.get("a"), names = folder.names();
        Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
        ASSERT_TRUE(file);
        std::string expected;
        for (int line = 0; line < 20000; ++line) {
            const std::string text = "line " + std::to_string(line) + "\r\n";
            expected += text;
            ASSERT_TRUE(write(file, text));
        }
        ASSERT_TRUE(write(file, kNew)) << "behind a part of a buffer";
        ASSERT_TRUE(write(file, "end"));
        expected += kNew + "end";
        EXPECT_EQ(file->size(), expected.size());
        EXPECT_TRUE(file->write(nullptr, 0));
        Vx::Ptr<iFile> second = file;
        file.reset();
        EXPECT_EQ(folder.get("a"), before);
        EXPECT_EQ(folder.names(), names) << "unnamed while it is written";
        second.reset();
        EXPECT_EQ(folder.get("a"), expected);
        EXPECT_EQ(folder.names(), "a ");
    }
}

TEST(ReplacedFile, FollowsLinksAndKeepsPermissions)
{
    const ScratchFolder folder;
    std::filesystem::create_directory(folder.path("real"));
    const std::string longName(255, 'n');
    for (const char* name : {"real/direct", "real/target"})
        folder.put(name, kOld);
    folder.put(longName, kOld);
    ASSERT_EQ(chmod(folder.path("real/direct").c_str(), 0640), 0);
    ASSERT_EQ(chmod(folder.path("real/target").c_str(), 0751), 0);
    ASSERT_EQ(symlink("real/target", folder.path("one").c_str()), 0);
    ASSERT_EQ(symlink(folder.path("one").c_str(), folder.path("two").c_str()), 0);
    ASSERT_EQ(symlink("real/new", folder.path("dangling").c_str()), 0);
    const mode_t mask = umask(027);
    const struct {
        const char* name;
        std::string path;
        std::string target;
        mode_t mode;
    } rows[] = {
        {"plain file", "real/direct", "real/direct", 0640},
        {"relative link", "one", "real/target", 0751},
        {"absolute link to a link", "two", "real/target", 0751},
        {"link to nothing yet", "dangling", "real/new", 0640},
        {"new file", "fresh", "fresh", 0640},
        {"longest name", longName, longName, 0644},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const bool linked = std::filesystem::is_symlink(folder.path(row.path));
        EXPECT_TRUE(save(folder.wide(row.path), row.name));
        EXPECT_EQ(folder.get(row.target), row.name);
        EXPECT_EQ(modeOf(folder.path(row.target)), row.mode);
        EXPECT_EQ(std::filesystem::is_symlink(folder.path(row.path)), linked);
    }
    umask(mask);
    EXPECT_EQ(folder.names(), "dangling fresh " + longName + " one real two ");
}

TEST(ReadFile, SurvivesFilesThatChange)
{
    const ScratchFolder folder;
    folder.put("shrinks", "0123456789");
    folder.put("grows", "0123456789");
    const Vx::Ptr<iFile> shrinks = openToRead(folder.wide("shrinks"));
    const Vx::Ptr<iFile> grows = openToRead(folder.wide("grows"));
    ASSERT_EQ(truncate(folder.path("shrinks").c_str(), 5), 0);
    folder.put("grows", "0123456789more");
    char bytes[10];
    EXPECT_FALSE(shrinks->read(bytes, shrinks->size()));
    EXPECT_EQ(grows->size(), 10u);
    EXPECT_TRUE(grows->read(bytes, grows->size()));
    EXPECT_EQ(std::string(bytes, 10), "0123456789");
}

TEST(ReadFile, AFaultAnywhereIsAnAnswer)
{
    const ScratchFolder folder;
    folder.put("a", kNew);
    const LightweightString<wchar_t> path = folder.wide("a");
    const auto readsAll = [&] {
        const Vx::Ptr<iFile> file = openToRead(path);
        std::string bytes(kNew.size(), 'x');
        return file && file->size() == kNew.size() &&
               file->read(bytes.data(), static_cast<unsigned int>(bytes.size())) && bytes == kNew;
    };
    const int points = forEachFault({EIO, ENOMEM, EINTR}, [&](int error, int n) {
        const int descriptors = openDescriptors();
        SystemCallScript script;
        script.cutShort();
        script.failCall(n, error);
        const bool done = readsAll();
        EXPECT_EQ(done, error == EINTR || !script.fired() || script.failedName() == "close");
        EXPECT_EQ(openDescriptors(), descriptors);
        return script.fired();
    });
    EXPECT_GT(points, 30);
}

TEST(ReplacedFile, AFaultAnywhereLeavesTheOldFileOrTheNew)
{
    int points = 0;
    for (const auto& world : kWorlds)
        points += forEachFault({EIO, ENOSPC, EACCES, EINTR}, [&](int error, int n) {
            SCOPED_TRACE(world.name);
            const Place folder(world);
            const std::string old = folder.get("a");
            const int descriptors = openDescriptors();
            bool fired;
            bool told; // that it was saved, by the result and by silence
            testing::internal::CaptureStderr();
            {
                Calls script(world);
                script.cutShort();
                script.failCall(n, error);
                told = save(folder.wide("a"), kNew);
                fired = script.fired();
            }
            const std::string message = testing::internal::GetCapturedStderr();
            const std::string now = folder.get("a");
            EXPECT_TRUE(now == old || now == kNew) << now.substr(0, 100);
            told = told && message.empty();
            EXPECT_TRUE(!told || now == kNew) << "claims to have saved";
            EXPECT_TRUE(told || (fired && error != EINTR)) << message;
            EXPECT_LE(std::count(message.begin(), message.end(), '\n'), 1) << message;
            EXPECT_EQ(folder.names(), now == "(none)" ? "" : "a ") << "litter";
            EXPECT_EQ(openDescriptors(), descriptors);
            EXPECT_TRUE(save(folder.wide("a"), "again"));
            EXPECT_EQ(folder.get("a"), "again");
            return fired;
        });
    EXPECT_GT(points, 250);
}

TEST(ReplacedFile, FailuresStayAndAreToldOnce)
{
    const struct {
        const char* name;
        const char* call;
        int error;
        const char* reason;
    } rows[] = {
        {"full disk", "write", ENOSPC, "No space left on device"},
        {"medium fails", "fsync", EIO, "Input/output error"},
        {"no quota for names", "linkat", EDQUOT, "Disk quota exceeded"},
        {"busy name", "renameat2", EBUSY, "Device or resource busy"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const ScratchFolder folder;
        folder.put("a", kOld);
        testing::internal::CaptureStderr();
        {
            SystemCallScript script;
            script.failAll(row.call, row.error);
            Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
            ASSERT_TRUE(file);
            const std::string call = row.call;
            EXPECT_EQ(write(file, "small"), call != "write") << "who writes once has to learn it";
            const bool atWriting = call == "write" || call == "fsync";
            EXPECT_EQ(file->write(nullptr, 0), !atWriting);
            EXPECT_EQ(write(file, "more"), !atWriting);
            script.attempts = 0;
            file.reset();
            // A failed fsync() may not be asked again: the system would forget and say yes.
            EXPECT_EQ(script.attempts, atWriting ? 0 : 1);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vx: could not write " +
                                                              folder.path("a") + ": " + row.reason +
                                                              "; the old file stands\n");
        EXPECT_EQ(folder.get("a"), kOld);
        EXPECT_EQ(folder.names(), "a ");
    }
}

TEST(Report, OutlivesTheReaderOfStandardError)
{
    EXPECT_EQ(statusOfChild([] {
                  int ends[2];
                  if (std::signal(SIGPIPE, SIG_DFL) == SIG_ERR || pipe(ends) != 0 ||
                      dup2(ends[1], STDERR_FILENO) < 0 || close(ends[0]) != 0)
                      return false;
                  report("could not write", "a", ENOSPC);
                  sigset_t pending;
                  return sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 0;
              }),
              0);
}

TEST(ReplacedFile, IsAbandonedByAnExceptionThatPassesIt)
{
    const ScratchFolder folder;
    folder.put("a", kOld);
    struct SavesInItsDestructor {
        const ScratchFolder& folder;
        ~SavesInItsDestructor() { save(folder.wide("b"), kNew); }
    };
    testing::internal::CaptureStderr();
    try {
        const SavesInItsDestructor later{folder};
        const Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
        write(file, "half a docu");
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(folder.get("a"), kOld);
    EXPECT_EQ(folder.get("b"), kNew) << "begun and ended while the exception was under way";
}

TEST(ReplacedFile, IsNotTouchedByAForkedChild)
{
    for (const auto& world : kWorlds) {
        SCOPED_TRACE(world.name);
        const Place folder(world);
        Calls script(world);
        Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
        ASSERT_TRUE(write(file, kNew));
        const std::string before = folder.get("a");
        EXPECT_EQ(statusOfChild([&] {
                      file.reset();
                      return folder.get("a") == before;
                  }),
                  0);
        file.reset();
        EXPECT_EQ(folder.get("a"), kNew);
        EXPECT_EQ(folder.names(), "a ");
    }
}

TEST(ReplacedFile, IsNotWhereAHostWithoutStandardStreamsPrints)
{
    const ScratchFolder folder;
    EXPECT_EQ(statusOfChild([&] {
                  for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                      close(stream);
                  const Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
                  return ::write(STDOUT_FILENO, "printed", 7) == -1 && write(file, kNew);
              }),
              0);
    EXPECT_EQ(folder.get("a"), kNew);
}

TEST(ReplacedFile, TwoWritersDoNotDisturbEachOther)
{
    for (const auto& world : kWorlds)
        for (const char* moment : {"flock", "fsync", "linkat", "renameat2"}) {
            SCOPED_TRACE(std::string(world.name) + ", the other one before " + moment);
            const Place folder(world);
            Calls script(world);
            bool met = false;
            script.before = [&](const std::string& name) {
                if (name != moment || met)
                    return;
                met = true;
                EXPECT_TRUE(save(folder.wide("a"), "the other's"));
                EXPECT_EQ(folder.get("a"), "the other's");
            };
            EXPECT_TRUE(save(folder.wide("a"), kNew));
            EXPECT_TRUE(met || moment == std::string("linkat") ||
                        moment == std::string("renameat2"));
            EXPECT_EQ(folder.get("a"), kNew);
            EXPECT_EQ(folder.names(), "a ");
        }
}

TEST(ReplacedFile, CleaningUpSparesANameThatLivesAgain)
{
    const ScratchFolder folder;
    folder.put("a", kOld);
    SystemCallScript script;
    script.refuseUnnamedFiles();
    const int status = statusOfChild([&] {
        script.before = [](const std::string& name) {
            if (name == "renameat2")
                raise(SIGKILL);
        };
        return save(folder.wide("a"), kNew);
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_NE(folder.names(), "a ") << "this is about what the dead writer left";

    // While one writer is about to lock what it found, another cleans up and takes the name.
    Vx::Ptr<iFile> other;
    bool met = false;
    script.before = [&](const std::string& name) {
        if (name != "flock" || met)
            return;
        met = true;
        other = openToWrite(folder.wide("a"));
    };
    EXPECT_TRUE(save(folder.wide("a"), "ours"));
    ASSERT_TRUE(other);
    EXPECT_EQ(folder.get("a"), "ours");
    EXPECT_TRUE(write(other, "the other's"));
    other.reset();
    EXPECT_EQ(folder.get("a"), "the other's");
    EXPECT_EQ(folder.names(), "a ");
}

TEST(ReplacedFile, RespectsWhatTheUserMayDo)
{
    const ScratchFolder folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    const auto makeFolder = [&](const char* name, mode_t mode) {
        std::filesystem::create_directory(folder.path(name));
        folder.put(std::string(name) + "/file", kOld);
        EXPECT_EQ(chmod(folder.path(std::string(name) + "/file").c_str(), 0666), 0);
        EXPECT_EQ(chmod(folder.path(name).c_str(), mode), 0);
    };
    makeFolder("readonly", 0555);
    makeFolder("open", 0777);
    makeFolder("sticky", 01777);
    folder.put("open/protected", kOld);
    ASSERT_EQ(chmod(folder.path("open/protected").c_str(), 0444), 0);
    const bool root = getuid() == 0; // only then are the files somebody else's
    if (root) {
        folder.put("open/team", kOld);
        ASSERT_EQ(chmod(folder.path("open/team").c_str(), 0666), 0);
        ASSERT_EQ(chmod(folder.path("open/file").c_str(), 0662), 0);
    }
    EXPECT_EQ(statusOfChild([&] {
                  if (root &&
                      (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
                      return false;
                  EXPECT_FALSE(openToWrite(folder.wide("readonly/file")));
                  EXPECT_FALSE(openToWrite(folder.wide("readonly/new")));
                  EXPECT_FALSE(openToWrite(folder.wide("open/protected")));
                  EXPECT_EQ(bool(openToWrite(folder.wide("sticky/file"))), !root);
                  EXPECT_TRUE(save(folder.wide("open/file"), "new"));
                  return !testing::Test::HasFailure();
              }),
              0);
    EXPECT_EQ(folder.get("readonly/file"), kOld);
    EXPECT_EQ(folder.get("open/file"), "new");
    // The group could not be given, so it may do no more than everybody.
    EXPECT_EQ(modeOf(folder.path("open/file")), root ? 0622u : 0666u);
    if (!root)
        return;
    EXPECT_EQ(folder.get("sticky/file"), kOld);
    ASSERT_EQ(chown(folder.path("open/team").c_str(), 1234, 5678), 0);
    ASSERT_EQ(chmod(folder.path("open/team").c_str(), 06755), 0);
    EXPECT_TRUE(save(folder.wide("open/team"), "new"));
    struct stat status;
    ASSERT_EQ(stat(folder.path("open/team").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234u);
    EXPECT_EQ(status.st_gid, 5678u);
    EXPECT_EQ(status.st_mode & 07777, 06755u);
}

TEST(ReplacedFile, NeedsNeitherLocksNorUnnamedFiles)
{
    const ScratchFolder folder{ScratchFolder::inMemory()};
    for (const int noLocks : {0, ENOLCK, EOPNOTSUPP, ENOSYS, EINVAL})
        for (const int noUnnamed : {EOPNOTSUPP, EISDIR, ENOENT, EINVAL}) {
            SCOPED_TRACE(std::to_string(noLocks) + ", " + std::to_string(noUnnamed));
            const std::string text = std::to_string(noLocks * 1000 + noUnnamed);
            SystemCallScript script;
            script.failAll(noLocks != 0 ? "flock" : "none", noLocks);
            script.refuseUnnamedFiles(noUnnamed);
            EXPECT_TRUE(save(folder.wide("a"), text));
            EXPECT_EQ(folder.get("a"), text);
            EXPECT_EQ(folder.names(), "a ");
        }
}

TEST(ReplacedFile, LeavesANameAloneThatItHasGivenUp)
{
    const ScratchFolder folder;
    Vx::Ptr<iFile> other;
    SystemCallScript script;
    script.refuseUnnamedFiles();
    int syncs = 0;
    script.before = [&](const std::string& name) {
        if (name == "fsync" && ++syncs == 2) // of the folder: the temporary name is free again
            other = openToWrite(folder.wide("a"));
    };
    EXPECT_TRUE(save(folder.wide("a"), "ours"));
    EXPECT_EQ(folder.get("a"), "ours");
    EXPECT_TRUE(other && write(other, "the other's"));
    other.reset();
    EXPECT_EQ(folder.get("a"), "the other's");
}

// Kills and power failures.

TEST(ReplacedFile, KilledBeforeAnyCallTheNextSaveLeavesNoTrace)
{
    int kills = 0;
    int littered = 0;
    for (const auto& world : kWorlds)
        for (int n = 1;; ++n) {
            ASSERT_LT(n, 200) << "never completes";
            SCOPED_TRACE(std::string(world.name) + ", killed before call " + std::to_string(n));
            const Place folder(world);
            const std::string old = folder.get("a");
            const bool killed = killedBefore(n, world, [&] { save(folder.wide("a"), kNew); });
            const std::string now = folder.get("a");
            EXPECT_TRUE(now == old || now == kNew) << now.substr(0, 100);
            const std::string names = folder.names();
            if (names != "a " && !names.empty()) {
                ++littered;
                EXPECT_EQ(names.rfind(".vx-", 0), 0u) << names;
                // Unnamed files have a name for one call only.
                EXPECT_TRUE(!world.unnamed || now == old);
            }
            {
                Calls script(world);
                EXPECT_TRUE(save(folder.wide("a"), "again"));
            }
            EXPECT_EQ(folder.get("a"), "again");
            EXPECT_EQ(folder.names(), "a ");
            if (!killed)
                break;
            ++kills;
        }
    EXPECT_GT(kills, 60);
    EXPECT_GT(littered, 1) << "the moments that the next save cleans up are among them";
}

TEST(ReplacedFile, KilledAtAnyMomentItIsComplete)
{
    const ScratchFolder folder{ScratchFolder::inMemory()};
    const auto version = [](int n) {
        return std::to_string(n) + ":" + std::string(std::size_t(n % 7) * 30000, 'a');
    };
    folder.put("a", version(0));
    killAtAnyMoment(
        [&](int n) { save(folder.wide("a"), version(n)); },
        [&] { EXPECT_EQ(folder.get("a"), version(std::atoi(folder.get("a").c_str()))); });
    EXPECT_TRUE(save(folder.wide("a"), "again"));
    EXPECT_EQ(folder.names(), "a ");
}

namespace {

struct Crashes {
    int bad = 0;         // neither the old content nor the new
    int oldAtTheEnd = 0; // after a save that was told as done
};

Crashes crashes(const std::vector<SystemCallScript::Call>& trace, const std::string& old)
{
    Crashes result;
    powerFailures(trace, "a", old, [&](const std::string& content, const auto&, bool complete) {
        result.bad += content != old && content != kNew;
        result.oldAtTheEnd += complete && content == old;
    });
    return result;
}

} // namespace

TEST(ReplacedFile, APowerFailureAnywhereLeavesTheOldFileOrTheNew)
{
    for (const auto& world : kWorlds) {
        SCOPED_TRACE(world.name);
        const Place folder(world);
        const std::string old = folder.get("a");
        std::vector<SystemCallScript::Call> trace;
        {
            Calls script(world);
            script.cutShort();
            ASSERT_TRUE(save(folder.wide("a"), kNew));
            trace = script.trace;
        }
        const Crashes found = crashes(trace, old);
        EXPECT_EQ(found.bad, 0);
        EXPECT_EQ(found.oldAtTheEnd, 0) << "what was told as saved is on the medium";

        // The model notices when either fsync() is left out.
        const auto isSync = [](const auto& call) { return call.name == "fsync"; };
        ASSERT_EQ(std::count_if(trace.begin(), trace.end(), isSync), 2);
        auto withoutFile = trace, withoutFolder = trace;
        withoutFile.erase(std::find_if(withoutFile.begin(), withoutFile.end(), isSync));
        std::reverse(withoutFolder.begin(), withoutFolder.end());
        withoutFolder.erase(std::find_if(withoutFolder.begin(), withoutFolder.end(), isSync));
        std::reverse(withoutFolder.begin(), withoutFolder.end());
        EXPECT_GT(crashes(withoutFile, old).bad, 0);
        EXPECT_GT(crashes(withoutFolder, old).oldAtTheEnd, 0);
    }
}
