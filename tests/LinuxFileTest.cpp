// Which files the Linux platform reads and replaces, and for whom. LinuxSavingTest.cpp tests what
// faults leave behind.
#include "diagnostics/Report.h"
#include "files/FileSystem.h"
#include <ScratchFolder.h>
#include <SystemCallScript.h>
#include <Vx/platform/OS.h>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <grp.h>
#include <sys/xattr.h>

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

/// Saves \p text as documents are saved.
bool save(const LightweightString<wchar_t>& path, const std::string& text)
{
    const Vx::Ptr<iFile> file = openToWrite(path);
    return file && write(file, text) && file->write(nullptr, 0);
}

const std::string kOld = "old content\n";
const std::string kNew(100000, 'n'); // larger than the buffer

/// The system calls on a file system that supports unnamed files or does not.
struct Calls : SystemCallScript {
    explicit Calls(bool unnamed) { refuseUnnamedFiles(unnamed ? 0 : EOPNOTSUPP); }
};

} // namespace

TEST(FileSystem, OpensRegularFilesAndCharacterDevices)
{
    const ScratchFolder folder;
    for (const char* name : {"file", "large", "largest"})
        folder.put(name, kOld);
    std::filesystem::create_directory(folder.path("folder"));
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("loop", folder.path("loop").c_str()), 0);
    ASSERT_EQ(truncate(folder.path("large").c_str(), off_t(1) << 32), 0);
    ASSERT_EQ(truncate(folder.path("largest").c_str(), (off_t(1) << 32) - 1), 0);
    const int input = open(folder.path("file").c_str(), O_RDONLY | O_CLOEXEC);
    const std::wstring self = L"/proc/self/fd/" + std::to_wstring(input);
    const std::tuple<const char*, LightweightString<wchar_t>, bool, bool> rows[] = {
        {"file as folder", folder.wide("file/file"), false, false},
        {"folder with slash", folder.wide("folder/"), false, false},
        {"file with slash", folder.wide("file/"), false, false},
        {"parent", folder.wide("folder/.."), false, false},
        {"fifo, without blocking", folder.wide("fifo"), false, false},
        {"link to itself", folder.wide("loop"), false, false},
        {"4 GiB", folder.wide("large"), false, true},
        {"4 GiB - 1", folder.wide("largest"), true, true},
        {"name too long", folder.wide(std::string(256, 'n')), false, false},
        {"path too long", folder.wide(std::string(5000, '/') + "file"), false, false},
        {"null device", L"/dev/null", false, true},
        {"link to an open file", self.c_str(), true, false},
        {"file", folder.wide("file"), true, true},
    };
    const int descriptors = openDescriptors();
    for (const auto& [name, path, reads, writes] : rows) {
        SCOPED_TRACE(name);
        const Vx::Ptr<iFile> readable = openToRead(path);
        EXPECT_EQ(bool(readable), reads);
        EXPECT_FALSE(readable && readable->write("x", 1)) << "for reading only";
        const Vx::Ptr<iFile> file = openToWrite(path);
        EXPECT_EQ(bool(file), writes);
        char byte;
        EXPECT_FALSE(file && file->read(&byte, 1)) << "for writing only";
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    EXPECT_EQ(modeOf("/dev/null") & 0222, 0222u);
    close(input);
}

TEST(FileSystem, RefusesOtherArguments)
{
    const ScratchFolder folder;
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
    EXPECT_EQ(folder.get("file"), "") << "without a write, the file is empty";
}

TEST(FileSystem, RefusesPathsThatWouldReachAnotherFile)
{
    const ScratchFolder folder;
    folder.put("file", kOld);
    for (const auto& [last, valid] : {std::pair(0, false),
                                      {0x7F, true},
                                      {0xD7FF, true},
                                      {0xD800, false},
                                      {0xDFFF, false},
                                      {0xE000, true},
                                      {0xFFFD, true},
                                      {0x10FFFF, true},
                                      {0x110000, false},
                                      {-1, false}}) {
        SCOPED_TRACE(last);
        LightweightString<wchar_t> path = folder.wide("file");
        path.push_back(wchar_t(last));
        bool saved = !valid;
        const std::string said = reported([&] { saved = save(path, kNew); });
        EXPECT_EQ(saved, valid);
        EXPECT_EQ(said.empty(), valid);
        EXPECT_EQ(said.find("the path has a NUL or an invalid character\n") == said.npos, valid);
    }
    EXPECT_EQ(folder.get("file"), kOld);
}

TEST(ReplacedFile, IsPublishedByTheCommitOrTheLastRelease)
{
    const ScratchFolder folder;
    for (const bool commits : {false, true, false, true}) {
        const std::string old = folder.get("a"), names = folder.names();
        Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
        ASSERT_TRUE(file);
        std::string expected;
        for (int line = 0; line < 20000; ++line) {
            const std::string text = "line " + std::to_string(line) + "\r\n";
            expected += text;
            ASSERT_TRUE(write(file, text));
        }
        ASSERT_TRUE(write(file, kNew)) << "while the buffer is partly filled";
        ASSERT_TRUE(write(file, commits ? "x" : "y"));
        expected += kNew + (commits ? "x" : "y");
        EXPECT_EQ(file->size(), expected.size());
        EXPECT_TRUE(folder.get("a") == old);
        EXPECT_EQ(folder.names(), names) << "unnamed while it is written";
        if (commits) {
            EXPECT_TRUE(file->write(nullptr, 0));
            EXPECT_TRUE(folder.get("a") == expected);
            EXPECT_FALSE(write(file, "z")) << "would change the published file";
        }
        file.reset();
        EXPECT_TRUE(folder.get("a") == expected);
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
    const std::tuple<const char*, std::string, std::string, mode_t> rows[] = {
        {"plain file", "real/direct", "real/direct", 0640},
        {"relative link", "one", "real/target", 0751},
        {"absolute link to a link", "two", "real/target", 0751},
        {"link to nothing yet", "dangling", "real/new", 0640},
        {"new file", "fresh", "fresh", 0640},
        {"longest name", longName, longName, 0644},
    };
    for (const auto& [name, path, target, mode] : rows) {
        SCOPED_TRACE(name);
        const bool linked = std::filesystem::is_symlink(folder.path(path));
        EXPECT_TRUE(save(folder.wide(path), name));
        EXPECT_EQ(folder.get(target), name);
        EXPECT_EQ(modeOf(folder.path(target)), mode);
        EXPECT_EQ(std::filesystem::is_symlink(folder.path(path)), linked);
    }
    umask(mask);
    EXPECT_EQ(folder.names(), "dangling fresh " + longName + " one real two ");
}

TEST(ReadFile, SurvivesFilesThatChange)
{
    const ScratchFolder folder;
    for (const char* change : {"01234", "0123456789more"}) {
        folder.put("a", "0123456789");
        const Vx::Ptr<iFile> file = openToRead(folder.wide("a"));
        folder.put("a", change);
        char bytes[10];
        EXPECT_EQ(file->size(), 10u);
        EXPECT_EQ(file->read(bytes, 10), std::strlen(change) > 10);
        EXPECT_EQ(std::string(bytes, 5), "01234");
    }
}

TEST(FileSystem, ChecksWhatItHasOpened)
{
    const ScratchFolder folder;
    folder.put("file", kOld);
    ASSERT_EQ(mkfifo(folder.path("fifo").c_str(), 0600), 0);
    for (const bool reading : {true, false}) {
        const char* const first = reading ? "file" : "/dev/null";
        std::filesystem::remove(folder.path("a"));
        std::filesystem::create_symlink(first, folder.path("a"));
        SystemCallScript script;
        script.before = [&](const std::string& name) {
            if (name == "openat" && std::filesystem::remove(folder.path("a")))
                std::filesystem::create_symlink(reading ? "fifo" : "file", folder.path("a"));
        };
        EXPECT_FALSE(reading ? openToRead(folder.wide("a")) : openToWrite(folder.wide("a")));
    }
    EXPECT_EQ(folder.get("file"), kOld);
}

TEST(FileTarget, IsNeverReachedThroughALinkThatAnotherUserPlants)
{
    if (getuid() != 0)
        GTEST_SKIP() << "only root can make links of another user";
    for (const char* victim : {"victim", "missing"})
        for (const bool exists : {false, true}) // the file that is saved
            for (int n = 1;; ++n) {
                SCOPED_TRACE(victim + std::string(", planted before call ") + std::to_string(n));
                const ScratchFolder folder{ScratchFolder::inMemory()};
                folder.put("victim", kOld);
                std::filesystem::create_directory(folder.path("shared"));
                ASSERT_EQ(chmod(folder.path("shared").c_str(), 01777), 0);
                const std::string file = folder.path("shared/a"), target = folder.path(victim);
                if (exists)
                    folder.put("shared/a", kOld);
                SystemCallScript script;
                script.beforeCall(n, [&] {
                    std::filesystem::remove(file);
                    EXPECT_EQ(symlink(target.c_str(), file.c_str()), 0);
                    EXPECT_EQ(lchown(file.c_str(), 65534, 65534), 0);
                });
                const bool saved = save(folder.wide("shared/a"), kNew);
                EXPECT_EQ(folder.get("victim"), kOld);
                EXPECT_EQ(folder.get("missing"), "(none)");
                EXPECT_TRUE(!saved || n >= script.calls() || folder.get("shared/a") == kNew ||
                            std::filesystem::is_symlink(file));
                if (script.calls() < n)
                    break;
            }
}

TEST(DeviceFile, WritesStraight)
{
    const int points = forEachFault({EIO, EINTR}, [&](int error, int n) {
        const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_EQ(unlockpt(terminal), 0);
        const std::string name = ptsname(terminal);
        SystemCallScript script;
        script.cutShort();
        script.failCall(n, error);
        const Vx::Ptr<iFile> file = openToWrite(std::wstring(name.begin(), name.end()).c_str());
        const bool done = file && write(file, "12345");
        EXPECT_EQ(done, error == EINTR || !script.fired());
        std::string shown;
        for (char byte; done && shown.size() < 5 && ::read(terminal, &byte, 1) == 1;)
            shown += byte;
        EXPECT_EQ(shown, done ? "12345" : "");
        EXPECT_TRUE(!done || file->size() == 5);
        close(terminal);
        return script.fired();
    });
    EXPECT_GE(points, 10);
    const Vx::Ptr<iFile> full = openToWrite(L"/dev/full");
    EXPECT_FALSE(write(full, "x"));
    EXPECT_EQ(full->size(), 0u);
}

TEST(ReadFile, AFaultAnywhereIsAnAnswer)
{
    const ScratchFolder folder;
    folder.put("a", kNew);
    const int points = forEachFault({EIO, ENOMEM, EINTR}, [&](int error, int n) {
        const int descriptors = openDescriptors();
        SystemCallScript script;
        script.cutShort();
        script.failCall(n, error);
        bool done;
        {
            const Vx::Ptr<iFile> file = openToRead(folder.wide("a"));
            std::string bytes(kNew.size(), 'x');
            done = file && file->size() == kNew.size() &&
                   file->read(bytes.data(), static_cast<unsigned int>(bytes.size())) &&
                   bytes == kNew;
        }
        EXPECT_EQ(done, error == EINTR || !script.fired() || script.failedName() == "close");
        EXPECT_EQ(openDescriptors(), descriptors);
        return script.fired();
    });
    EXPECT_GT(points, 30);
}

TEST(ReplacedFile, AFailureIsFinalAndReportedOnce)
{
    for (const auto& [call, error] : {std::pair(std::string("write"), ENOSPC),
                                      {"fsync", EIO},
                                      {"linkat", EDQUOT},
                                      {"renameat2", EBUSY}})
        for (const bool commits : {false, true}) {
            SCOPED_TRACE(call + (commits ? ", committed" : ""));
            const ScratchFolder folder;
            folder.put("a", kOld);
            testing::internal::CaptureStderr();
            {
                SystemCallScript script;
                script.failAll(call, error);
                Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
                ASSERT_TRUE(file);
                const bool writes = call != "write";
                EXPECT_EQ(write(file, "small"), writes) << "the first write is not buffered";
                EXPECT_EQ(write(file, "more"), writes);
                for (int i = 0; commits && i < 2; ++i)
                    EXPECT_FALSE(file->write(nullptr, 0));
                EXPECT_EQ(write(file, "late"), writes && !commits);
                file.reset();
                // A second fsync() would report success.
                EXPECT_EQ(script.attempts, 1);
            }
            EXPECT_EQ(testing::internal::GetCapturedStderr(),
                      "Vx: could not write " + folder.path("a") + ": " + strerror(error) +
                          "; the old file is unchanged\n");
            EXPECT_EQ(folder.get("a"), kOld);
            EXPECT_EQ(folder.names(), "a ");
        }
}

TEST(Report, IsOneLineWhateverThePath)
{
    const std::tuple<std::string, int, const char*, std::string> rows[] = {
        {"a\n\x1f \x7f~\xC3\xA4", ENOSPC, nullptr,
         "a\\x0a\\x1f \\x7f~\xC3\xA4: No space left on device"},
        {"a", 0, "because", "a: because"},
        {"a", 99999, "so", "a: Unknown error 99999; so"},
        {std::string(9000, 'p'), 0, nullptr, std::string(8191 - std::strlen("Vx: what "), 'p')},
    };
    for (const auto& [path, error, detail, expected] : rows) {
        testing::internal::CaptureStderr();
        errno = EBADF;
        report("what", path.c_str(), error, detail);
        EXPECT_EQ(errno, EBADF);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vx: what " + expected + "\n");
    }
}

TEST(Report, OutlivesTheReaderOfStandardError)
{
    for (const bool pending : {false, true}) // a signal that the program waits for itself
        EXPECT_TRUE(holdsInChild([&] {
            sigset_t blocked, before, after;
            sigemptyset(&blocked);
            sigaddset(&blocked, SIGPIPE);
            int ends[2];
            if (std::signal(SIGPIPE, SIG_DFL) == SIG_ERR || pipe(ends) != 0 ||
                dup2(ends[1], STDERR_FILENO) < 0 || close(ends[0]) != 0)
                return false;
            sigprocmask(pending ? SIG_BLOCK : SIG_UNBLOCK, &blocked, nullptr);
            if (pending)
                raise(SIGPIPE);
            report("could not write", "a", ENOSPC);
            return sigpending(&after) == 0 && sigismember(&after, SIGPIPE) == pending &&
                   sigprocmask(SIG_BLOCK, nullptr, &before) == 0 &&
                   sigismember(&before, SIGPIPE) == pending;
        }));
}

TEST(ReplacedFile, IsPublishedIfOpenedWhileAnExceptionIsInFlight)
{
    const ScratchFolder folder;
    struct SavesInItsDestructor {
        const ScratchFolder& folder;
        ~SavesInItsDestructor() { write(openToWrite(folder.wide("a")), kNew); }
    };
    try {
        const SavesInItsDestructor later{folder};
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(folder.get("a"), kNew);
}

TEST(ReplacedFile, IsNotTouchedByAForkedChild)
{
    const ScratchFolder folder;
    for (const bool unnamed : {true, false})
        for (const std::string& text : {kNew, kOld}) {
            const std::string before = folder.get("a");
            const Calls script(unnamed);
            Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
            ASSERT_TRUE(write(file, text));
            EXPECT_TRUE(holdsInChild([&] {
                const bool committed = file->write(nullptr, 0);
                file.reset();
                return !committed && folder.get("a") == before;
            }));
            file.reset();
            EXPECT_EQ(folder.get("a"), text);
            EXPECT_EQ(folder.names(), "a ");
        }
}

TEST(ReplacedFile, NeverHasTheNumberOfAStandardStream)
{
    const ScratchFolder folder;
    EXPECT_TRUE(holdsInChild([&] {
        for (const int stream : {0, 1, 2})
            close(stream);
        const Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
        return ::write(STDOUT_FILENO, "printed", 7) == -1 && write(file, kNew);
    }));
    EXPECT_EQ(folder.get("a"), kNew);
}

TEST(ReplacedFile, TwoWritersDoNotDisturbEachOther)
{
    int moments = 0;
    for (const int row : {0, 1, 2, 3, 4, 5, 6, 7})
        for (int n = 1; n != 0; ++moments) {
            const bool unnamed = (row & 1) != 0, afterAKill = (row & 2) != 0;
            const bool stays = (row & 4) != 0; // the other one, until we have finished
            SCOPED_TRACE(std::to_string(row) + ": the other one before call " + std::to_string(n));
            const ScratchFolder folder{ScratchFolder::inMemory()};
            if (afterAKill || !stays) // else the other one creates it, too
                folder.put("a", kOld);
            Calls script(unnamed);
            script.before = [](const std::string& name) {
                if (name == "renameat2")
                    raise(SIGKILL);
            };
            if (afterAKill)
                statusOfChild([&] { return save(folder.wide("a"), kOld); });
            EXPECT_EQ(folder.names().size() > 2, afterAKill);
            Vx::Ptr<iFile> other;
            std::string expected = "ours";
            const int last = script.calls() + n;
            script.beforeCall(n, [&] {
                if (stays || folder.get("a") == "ours") // published after us
                    expected = "the other's";
                other = openToWrite(folder.wide("a"));
                EXPECT_TRUE(other && write(other, "the other's"));
                if (!stays)
                    other.reset();
            });
            EXPECT_TRUE(save(folder.wide("a"), "ours"));
            EXPECT_EQ(folder.get("a"), stays ? "ours" : expected);
            other.reset();
            EXPECT_EQ(folder.get("a"), expected);
            EXPECT_EQ(folder.names(), "a ");
            n = script.calls() < last ? 0 : n + 1;
        }
    EXPECT_GT(moments, 100);
}

TEST(ReplacedFile, RespectsWhatTheUserMayDo)
{
    const ScratchFolder folder;
    ASSERT_EQ(chmod(folder.path().c_str(), 0755), 0);
    for (const auto& [name, mode] :
         {std::pair("readonly", 0555u), {"open", 0777u}, {"sticky", 01777u}}) {
        std::filesystem::create_directory(folder.path(name));
        for (const auto& [file, permissions] :
             {std::pair("/file", 04662u), {"/protected", 0444u}}) {
            folder.put(name + std::string(file), kOld);
            ASSERT_EQ(chmod(folder.path(name + std::string(file)).c_str(), permissions), 0);
        }
        ASSERT_EQ(chmod(folder.path(name).c_str(), mode), 0);
    }
    const bool root = getuid() == 0; // only then do the files belong to another user
    EXPECT_TRUE(holdsInChild([&] {
        if (root && (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            return false;
        for (const char* refused : {"readonly/file", "readonly/new", "open/protected"})
            EXPECT_FALSE(openToWrite(folder.wide(refused))) << refused;
        EXPECT_EQ(bool(openToWrite(folder.wide("sticky/file"))), !root);
        EXPECT_TRUE(save(folder.wide("open/file"), "new"));
        return !testing::Test::HasFailure();
    }));
    EXPECT_EQ(folder.get("readonly/file"), kOld);
    EXPECT_EQ(folder.get("open/file"), "new");
    // Neither owner nor group could be set, so their rights do not pass to others.
    EXPECT_EQ(modeOf(folder.path("open/file")), root ? 0622u : 04662u);
    if (!root)
        return;
    EXPECT_EQ(folder.get("sticky/file"), kOld);
    const std::string owned = folder.path("open/file");
    ASSERT_EQ(chown(owned.c_str(), 1234, 5678) + chmod(owned.c_str(), 06755), 0);
    EXPECT_TRUE(save(folder.wide("open/file"), "newer"));
    struct stat status = {};
    ASSERT_EQ(stat(owned.c_str(), &status), 0);
    EXPECT_EQ(std::tuple(status.st_uid, status.st_gid, status.st_mode & 07777),
              std::tuple(1234u, 5678u, 06755u));
}

TEST(ReplacedFile, RefusesMoreThanItsSizeCanReturn)
{
    const ScratchFolder folder;
    folder.put("a", kOld);
    Vx::Ptr<iFile> file = openToWrite(folder.wide("a"));
    EXPECT_TRUE(write(file, "x"));
    EXPECT_FALSE(file->write("x", UINT_MAX));
    EXPECT_EQ(file->size(), 1u);
    const std::string said = reported([&] { file.reset(); });
    EXPECT_NE(said.find("File too large; the old file is unchanged"), said.npos) << said;
    EXPECT_EQ(folder.get("a"), kOld);
}

TEST(ReplacedFile, IsWrittenAlthoughItsTemporaryNamesAreTaken)
{
    for (const bool unnamed : {true, false}) {
        const ScratchFolder folder;
        folder.put("a", kOld);
        std::string prefix;
        {
            const Calls script(false);
            const Vx::Ptr<iFile> writer = openToWrite(folder.wide("a"));
            prefix = folder.names().substr(0, folder.names().rfind('-') + 1);
        }
        std::string expected;
        for (const char* digit : {"0", "1", "2", "3"}) {
            std::filesystem::create_directory(folder.path(prefix + digit));
            expected += prefix + digit + " ";
        }
        folder.put(prefix + "0123456789abcdef", "of a process that was killed");
        const Calls script(unnamed);
        EXPECT_TRUE(save(folder.wide("a"), kNew));
        EXPECT_TRUE(folder.get("a") == kNew);
        EXPECT_EQ(folder.names(), expected + "a ");
    }
}

namespace {

/// An access list in the system's form: owner, user 1234, group, mask and others.
std::string accessList(std::uint16_t group)
{
    struct Entry {
        std::uint16_t tag, permissions;
        std::uint32_t id;
    };
    const Entry entries[] = {
        {0x01, 6, ~0u}, {0x02, 6, 1234}, {0x04, group, ~0u}, {0x10, 6, ~0u}, {0x20, 2, ~0u}};
    return std::string("\2\0\0\0", 4) +
           std::string(reinterpret_cast<const char*>(entries), sizeof entries);
}

std::string attributeOf(const std::string& path, const char* name)
{
    char value[1000];
    const ssize_t size = getxattr(path.c_str(), name, value, sizeof value);
    return size >= 0 ? std::string(value, std::size_t(size)) : "(none)";
}

bool setAttribute(const std::string& path, const char* name, const std::string& value)
{
    return setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

constexpr char kAccess[] = "system.posix_acl_access", kDefault[] = "system.posix_acl_default";

} // namespace

TEST(ReplacedFile, KeepsAccessListAndAttributesOrIsRefused)
{
    const ScratchFolder folder;
    const std::string path = folder.path("a");
    const auto prepare = [&] {
        std::filesystem::remove(path);
        folder.put("a", kOld);
        return setAttribute(path, kAccess, accessList(4)) &&
               setAttribute(path, "user.colour", "green") && setAttribute(path, "user.empty", "");
    };
    if (!prepare())
        GTEST_SKIP() << "no access lists or user attributes below " << folder.path();
    int refusals = 0;
    forEachFault({EIO, ENOSPC}, [&](int error, int n) {
        EXPECT_TRUE(prepare());
        SystemCallScript script;
        script.failCall(n, error);
        bool saved = false;
        const std::string said = reported([&] { saved = save(folder.wide("a"), kNew); });
        if (script.failedName().find("xattr") != std::string::npos) {
            ++refusals;
            EXPECT_NE(said.find("attributes would be lost\n"), std::string::npos) << said;
        }
        EXPECT_EQ(folder.get("a") == kNew, saved);
        EXPECT_EQ(attributeOf(path, kAccess), accessList(4));
        EXPECT_EQ(attributeOf(path, "user.colour"), "green");
        EXPECT_EQ(attributeOf(path, "user.empty"), "");
        return script.fired();
    });
    EXPECT_GE(refusals, 14);

    folder.put("plain", kOld);
    ASSERT_EQ(chmod(folder.path("plain").c_str(), 0640), 0);
    ASSERT_TRUE(setAttribute(folder.path(), kDefault, accessList(6)));
    EXPECT_TRUE(save(folder.wide("plain"), kNew));
    EXPECT_EQ(attributeOf(folder.path("plain"), kAccess), "(none)") << "not that of the folder";
    EXPECT_EQ(modeOf(folder.path("plain")), 0640u);
    if (getuid() != 0)
        return;
    ASSERT_EQ(chmod(folder.path().c_str(), 0777), 0);
    EXPECT_TRUE(holdsInChild([&] {
        return setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(1234) == 0 &&
               save(folder.wide("a"), "new");
    }));
    EXPECT_EQ(attributeOf(path, kAccess), accessList(0)) << "another group: no more than others";
}

TEST(ReplacedFile, NeedsNoProcessFileSystem)
{
    if (getuid() != 0)
        GTEST_SKIP() << "older kernels require root";
    const ScratchFolder folder;
    SystemCallScript script;
    int links = 0;
    script.before = [&](const std::string& name) {
        if (name == "linkat" && ++links == 1)
            script.failCall(0, ENOENT); // this call, as without /proc
    };
    EXPECT_TRUE(save(folder.wide("a"), kNew));
    EXPECT_EQ(links, 2);
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
