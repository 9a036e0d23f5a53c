// The Linux platform's folders and settings: what is kept, and what processes share. For faults,
// kills and power failures while saving see LinuxSavingTest.cpp.
#include "Shell.h"
#include "files/Folders.h"
#include "settings/SettingsJournal.h"
#include "settings/SettingsStore.h"
#include <ScratchFolder.h>
#include <SystemCallScript.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <pwd.h>
#include <sys/file.h>

namespace {

/// Names the program, as a host may, while it lives.
struct ScopedProgram {
    explicit ScopedProgram(const char* name) : copy(name)
    {
        program_invocation_short_name = copy.data();
    }
    ~ScopedProgram() { program_invocation_short_name = kept; }
    char* const kept = program_invocation_short_name;
    std::string copy;
};

/// A configuration folder, and stores with their files in it.
class Settings : public testing::Test {
protected:
    /// A store as a new process finds it.
    SettingsStore& started(int scope = 0)
    {
        static auto* stores = new std::list<SettingsStore>; // never destroyed
        return stores->emplace_back(scope);
    }

    static std::string value(const SettingsKey& key, SettingsStore& store)
    {
        std::string found = "(none)";
        store.get(key, found);
        return found;
    }
    std::string value(const SettingsKey& key) { return value(key, started()); }

    static void save(SettingsStore& store, const SettingsKey& key, const std::string& text)
    {
        store.set(key, text);
        store.save();
    }

    std::string path(const std::string& suffix) const { return scratch.path(kName + suffix); }
    std::string get(const std::string& suffix) const { return scratch.get(kName + suffix); }
    void put(const std::string& suffix, const std::string& text) const
    {
        std::filesystem::create_directories(scratch.path("Vx/programs"));
        scratch.put(kName + suffix, text);
    }

    /// The message that says \p what happened to the file with this suffix, and why.
    std::string message(const char* what, const std::string& suffix, const std::string& why) const
    {
        return std::string("Vx: ") + what + " " + path(suffix) + ": " + why + "\n";
    }

    static inline const std::string kName = "Vx/programs/Test";
    const ScopedProgram program{"Test"};
    const ScratchFolder scratch{ScratchFolder::inMemory()};
    const ScopedEnvironment config{"XDG_CONFIG_HOME", scratch.path().c_str()};
    const ScopedEnvironment machine{"XDG_CONFIG_DIRS", scratch.path("machine").c_str()};
};

const SettingsKey kKey{"Section", "Key"}, kOther{"Section", "Other"};
const std::string kFiles = "Test.ini Test.journal Test.lock ";
const char* const kUnsaved = "could not save the settings";
const char* const kUnrecorded = "could not record a setting in";

} // namespace

TEST_F(Settings, OfAnyBytesComeBackSavedOrNot)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    const mode_t mask = umask(0);
    SettingsStore& store = started();
    for (const bool saved : {false, true}) {
        store.set({all, all}, all);
        if (saved)
            store.save();
        EXPECT_EQ(get(".ini") != "(none)", saved);
        EXPECT_EQ(get(".journal").empty(), saved);
        EXPECT_EQ(value({all, all}), all);
    }
    umask(mask);
    EXPECT_EQ(scratch.names("Vx/programs"), kFiles);
    for (const char* suffix : {".ini", ".journal", ".lock"})
        EXPECT_EQ(modeOf(path(suffix)), 0600u) << suffix;
}

TEST_F(Settings, KeepWhatPeopleWroteIntoTheFile)
{
    const struct {
        std::string read, saved;
    } rows[] = {{"\xEF\xBB\xBF; by hand\r\n", "; by hand\n"},
                {"[ Video ]\r\n", "[ Video ]\n"},
                {"rate = 25 \r\nrate=50\n", "rate = 25 \nrate=50\n"},
                {"hex=\\x4A\\x4a\\xfF\n", "hex=\\x4A\\x4a\\xfF\nsize=\\x1f ~\\x7f\n"},
                {"\n#\tabout audio\n[Audio]\n", "\n#\tabout audio\n[Audio]\n"},
                {" gain =\t1\n", " gain =\t1\n"},
                {"peak=1", "peak=2\n\n[New]\na=b\n"}};
    std::string read, saved;
    for (const auto& row : rows) {
        read += row.read;
        saved += row.saved;
    }
    put(".ini", read);
    SettingsStore& store = started();
    EXPECT_EQ(value({"Video", "rate"}, store), "50") << "the last one counts";
    EXPECT_EQ(value({"Video", "hex"}, store), "JJ\xFF");
    store.set({"Video", "size"}, "\x1F \x7E\x7F");
    store.set({"Audio", "peak"}, "2");
    store.set({"Audio", "gain"}, "1"); // what the line says already
    save(store, {"New", "a"}, "b");
    EXPECT_EQ(get(".ini"), saved);
}

TEST_F(Settings, LinesThatCannotBeReadCostNoOthers)
{
    const struct {
        std::string lines;
        const char* which;
        bool hidesSection = false; // the keys after them have no known section
    } rows[] = {
        {"no equals sign\n", "line 3 is"},
        {"\n[Open\nOther=1\n", "line 4 and 2 more are", true},
        {"[bad\\q]\n", "line 3 and 1 more are", true},
        {"a=unknown escape \\q\nb=\n\\x=2\n", "line 3 and 1 more are"},
        {"a=cut \\x4\na=cut \\\na=\\xg0\na=\\x0g\n", "line 3 and 3 more are"},
        {std::string("a=\0\n", 4) + "a=\x1F\na=\x7F\n# \x01\n", "line 3 and 3 more are"},
    };
    std::string copy = ".ini.broken";
    for (int count = 1; const auto& row : rows) {
        SCOPED_TRACE(row.lines);
        const std::string text = "[Section]\nKey=kept\n" + row.lines + "Last=kept\n";
        const std::string why = std::string(row.which) + " not settings text";
        put(".ini", text);
        SettingsStore& store = started();
        EXPECT_EQ(reported([&] { EXPECT_EQ(value(kKey, store), "kept"); }),
                  message("ignored a part of the settings", ".ini", why));
        EXPECT_EQ(value({"Section", "Last"}, store), row.hidesSection ? "(none)" : "kept");
        store.set({"Section", "New"}, "set");
        EXPECT_EQ(reported([&] { store.save(); }),
                  message("copied the damaged settings to", copy, why));
        EXPECT_EQ(get(copy), text);
        EXPECT_EQ(get(".ini").find(row.lines), std::string::npos);
        EXPECT_EQ(reported([&] { EXPECT_EQ(value({"Section", "New"}), "set"); }), "");
        EXPECT_EQ(value(kKey), "kept");
        copy = ".ini.broken-" + std::to_string(count++);
    }
}

TEST_F(Settings, FilesThatHoldNoSettingsAreLeftAlone)
{
    const auto refuses = [&](const std::string& why) {
        SettingsStore& store = started();
        EXPECT_EQ(reported([&] { store.set(kKey, "set"); }),
                  message("could not read the settings", ".ini", why + "; defaults apply"));
        EXPECT_EQ(reported([&] { store.save(); }),
                  message(kUnsaved, ".ini", why + "; the next save tries again"));
        reported([&] { EXPECT_EQ(value(kKey), "set"); });
    };
    constexpr std::size_t kMost = 64u << 20;
    put(".ini", "");
    std::filesystem::resize_file(path(".ini"), kMost + 1);
    refuses("File too large");
    put(".ini", std::string(kMost, '#')); // with anything more it could not be read again
    EXPECT_NE(reported([&] { save(started(), kKey, "set"); }).find(": File too large;"),
              std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(path(".ini")), kMost);
    std::filesystem::remove(path(".ini"));
    std::filesystem::create_directory(path(".ini"));
    refuses("Is a directory");
}

TEST_F(Settings, BelongToTheProgram)
{
    const std::pair<std::string, std::string> rows[] = {
        {"Editor", "Editor"},
        {"Example Editor 2.1", "Example Editor 2.1"},
        {"", "program"},
        {"..", "%2E."},
        {"a/b\x1F%\x7F\xC3\xA4", "a%2Fb%1F%25%7F\xC3\xA4"},
        {std::string(255, 'x'), std::string(200, 'x')}};
    for (const auto& [name, file] : rows) {
        const ScopedProgram renamed(name.c_str());
        EXPECT_EQ(value(kKey), "(none)") << "not another program's";
        save(started(), kKey, name);
        EXPECT_EQ(value(kKey), name);
        EXPECT_NE(scratch.get("Vx/programs/" + file + ".ini"), "(none)") << file;
    }
}

TEST_F(Settings, OnceSharedByProgramsAreReadUntilEachHasItsOwn)
{
    std::filesystem::create_directories(scratch.path("Vx"));
    scratch.put("Vx/user.ini", "# old\n[Section]\nKey=old\nOther=old\n");
    SettingsStore& store = started();
    EXPECT_EQ(value(kKey, store), "old");
    store.set(kKey, "new");
    EXPECT_EQ(value(kOther), "old") << "there is a journal, but no store";
    store.save();
    scratch.put("Vx/user.ini", "[Section]\nOther=newer\n");
    EXPECT_EQ(get(".ini"), "# old\n[Section]\nKey=new\nOther=old\n");
    EXPECT_EQ(value(kOther), "old");
}

TEST_F(Settings, OfTheMachineAreInItsFolderIfThatIsWritable)
{
    const std::string all = scratch.path("machine/Vx/");
    std::filesystem::create_directories(all);
    const struct {
        unsigned folder, store, journal;
    } rows[] = {{0755, 0644, 0600}, {02775, 0664, 0660}, {0777, 0666, 0666}, {01777, 0666, 0666}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.folder);
        for (const char* name : {"machine.ini", "machine.journal", "lock"})
            std::filesystem::remove(all + name);
        chmod(all.c_str(), row.folder);
        const mode_t mask = umask(077);
        save(started(1), kKey, "for all");
        umask(mask);
        EXPECT_EQ(modeOf(all + "machine.ini"), row.store);
        EXPECT_EQ(modeOf(all + "machine.journal"), row.journal);
        EXPECT_EQ(modeOf(all + "lock"), row.journal);
    }
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");

    // Root may write anywhere, so a failing faccessat() makes it an ordinary user.
    scratch.put("machine/Vx/machine.ini", "nonsense\n[Section]\nKey=for all\nOther=for all\n");
    SystemCallScript script;
    script.failAll("faccessat", EACCES);
    SettingsStore& user = started(1);
    EXPECT_EQ(reported([&] { EXPECT_EQ(value(kKey, user), "for all"); }),
              "Vx: ignored a part of the settings " + all +
                  "machine.ini: line 1 is not settings text\n");
    save(user, kKey, "for me");
    EXPECT_EQ(value(kKey, user), "for me");
    EXPECT_EQ(value(kOther, user), "for all");
    EXPECT_EQ(scratch.get("Vx/machine.ini"), "[Section]\nKey=for me\n");
    EXPECT_EQ(scratch.names("machine/Vx"), "lock machine.ini machine.journal ");
}

TEST_F(Settings, OfTheMachineInAStickyFolderAreItsOwnersAndRoots)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be another user";
    const std::string all = scratch.path("machine/Vx/");
    std::filesystem::create_directories(all);
    chmod(scratch.path().c_str(), 0777);
    chmod(scratch.path("machine").c_str(), 0755);
    for (int row = 0; row < 8; ++row) {
        const uid_t owner = (row & 1) != 0 ? 65534 : 0, user = (row & 2) != 0 ? 65534 : 0;
        const mode_t mode = (row & 4) != 0 ? 01777 : 0777;
        std::filesystem::remove(all + "machine.ini");
        EXPECT_EQ(chown(all.c_str(), owner, owner) + chmod(all.c_str(), mode), 0);
        EXPECT_TRUE(holdsInChild([&] {
            const bool isUser = seteuid(user) == 0;
            save(started(1), kKey, "set");
            return isUser && value(kKey, started(1)) == "set";
        }));
        EXPECT_EQ(std::filesystem::exists(all + "machine.ini"),
                  mode == 0777 || user == 0 || user == owner)
            << row;
    }
}

TEST_F(Settings, FilesThatDisappearWhileRunningAreMadeAgain)
{
    put(".ini", "[Section]\nKey=kept\n");
    SettingsStore& store = started();
    store.set(kOther, "new");
    std::filesystem::remove_all(scratch.path("Vx"));
    store.save();
    EXPECT_EQ(scratch.names("Vx/programs"), "Test.ini Test.lock ");
    EXPECT_EQ(get(".ini"), "[Section]\nKey=kept\nOther=new\n");

    for (const bool another : {false, true}) {
        store.set(kOther, another ? "another" : "none");
        std::filesystem::rename(path(".journal"), path(".moved"));
        if (another)
            started().set(kKey, "of another process");
        store.save();
        EXPECT_EQ(value(kOther), another ? "another" : "none");
    }
    store.set(kKey, "first");
    std::filesystem::rename(path(".journal"), path(".moved"));
    store.set(kOther, "second");
    EXPECT_EQ(value(kKey), "first") << "recorded once more";
}

TEST_F(Settings, ThatWereSetLastCount)
{
    SettingsStore& a = started();
    SettingsStore& b = started();
    a.set({"S", "both"}, "a");
    b.set({"S", "both"}, "b");
    save(a, {"S", "a"}, "1");
    save(b, {"S", "b"}, "2");
    a.save(); // has nothing to add, so takes nothing back
    EXPECT_EQ(get(".ini"), "[S]\nboth=b\na=1\nb=2\n");
    EXPECT_EQ(value({"S", "a"}, b), "1") << "a save also learns";
    a.set({"S", "both"}, "a");
    SettingsStore& heir = started();
    EXPECT_EQ(value({"S", "both"}, heir), "a");
    heir.save();
    EXPECT_EQ(get(".journal"), "") << "saves what a dead process has set";
}

TEST_F(Settings, OfManyThreadsAreAllKept)
{
    SettingsStore& store = started();
    onThreads(4, [&store](int thread) {
        for (int n = 0; n < 10; ++n)
            save(store, {"T", std::to_string(thread * 10 + n)}, "set");
    });
    for (int n = 0; n < 40; ++n)
        EXPECT_EQ(value({"T", std::to_string(n)}), "set") << n;
}

TEST_F(Settings, WorkInAChildForkedWhileOthersUseThem)
{
    EXPECT_FALSE(OS()->shell()->getSettings(2)) << "no such scope";
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(0);
    settings->setValue("before", "fork", "S");
    std::jthread busy;
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // A sanitizer's heap may stay locked in a child of several threads.
    busy = std::jthread([&](const std::stop_token& stop) {
        for (int n = 0; !stop.stop_requested(); ++n) {
            settings->setValue("busy", LightweightString<char>(std::to_string(n).c_str()), "S");
            settings->save();
        }
    });
#endif
    for (int n = 0; n < 30; ++n)
        EXPECT_TRUE(holdsInChild([&] {
            settings->setValue("child", "value", "S");
            settings->save();
            return settings->getValue("before", "", "S") == "fork";
        }));
    EXPECT_EQ(value({"S", "child"}), "value");
}

TEST_F(Settings, SetWhileASaveIsUnderWayAreKeptForTheNext)
{
    SettingsStore& store = started();
    store.set(kKey, "first");
    {
        SystemCallScript script;
        script.before = [&](const std::string& name) {
            if (name == "fsync")
                store.set(kKey, "second");
        };
        store.save();
    }
    EXPECT_EQ(get(".ini"), "[Section]\nKey=first\n");
    EXPECT_EQ(value(kKey), "second");
    EXPECT_EQ(value(kKey, store), "second");
    store.save();
    EXPECT_EQ(get(".ini"), "[Section]\nKey=second\n");
    EXPECT_EQ(get(".journal"), "");
}

TEST_F(Settings, UnsavedOnesGoWithTheNextSave)
{
    const struct {
        const char* call;
        int error;
        bool recorded;
    } rows[] = {{"fsync", EIO, true},    {"write", ENOSPC, false}, {"openat", EROFS, false},
                {"flock", EBADF, false}, {"read", EIO, true},      {"ftruncate", EIO, true}};
    put(".ini", "[Section]\nKey=0\n");
    SettingsStore& store = started();
    save(store, kKey, "1");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        const std::string error = std::strerror(row.error);
        const std::string place = "; the error is in " + path(".journal");
        const std::string detail = row.call == std::string("ftruncate") ? place : "";
        {
            SystemCallScript script;
            script.failAll(row.call, row.error);
            const std::string said = reported([&] {
                for (const char* value : {"1", "2", row.call}) // said once, not for each
                    store.set(kKey, value);
            });
            EXPECT_EQ(said, row.recorded ? ""
                                         : message(kUnrecorded, ".journal",
                                                   error + "; it is kept in memory"));
            EXPECT_EQ(reported([&] { store.save(); }),
                      message(kUnsaved, ".ini", error + detail + "; the next save tries again"));
        }
        EXPECT_EQ(value(kKey, store), row.call);
        EXPECT_EQ(scratch.names("Vx/programs"), kFiles);
        EXPECT_EQ(value(kKey) == row.call, row.recorded);
        store.set(kOther, row.call);
        EXPECT_EQ(value(kKey), row.call) << "recorded with the next";
        store.save();
        EXPECT_EQ(get(".ini"),
                  std::string("[Section]\nKey=") + row.call + "\nOther=" + row.call + "\n");
    }
}

TEST_F(Settings, SurviveAKillBeforeAnyCall)
{
    bool killed = true;
    int n = 0;
    while (killed && ++n < 300) {
        std::filesystem::remove_all(scratch.path("Vx"));
        scratch.put("done", "0");
        killed = WIFSIGNALED(statusOfChild([&] {
            SystemCallScript script;
            script.cutShort(); // kills in the middle of writes, too
            script.beforeCall(n, [] { raise(SIGKILL); });
            SettingsStore& store = started();
            for (const int value : {1, 2, 3}) {
                store.set(kKey, std::to_string(value));
                scratch.put("done", std::to_string(value));
                if (value == 2)
                    store.save();
            }
            return true;
        }));
        const int done = std::stoi(scratch.get("done"));
        reported([&] { EXPECT_GE(std::atoi(value(kKey).c_str()), done) << "call " << n; });
    }
    EXPECT_EQ(value(kKey), "3");
    EXPECT_GT(n, 60);
}

TEST_F(Settings, AreRecordedByOneWriteAndNoSync)
{
    SettingsStore& store = started();
    store.set(kKey, "0"); // creates the folder and the file
    SystemCallScript script;
    std::map<std::string, int> calls;
    script.before = [&](const std::string& name) { ++calls[name]; };
    for (int n = 0; n < 100; ++n)
        store.set({"Section", std::to_string(n)}, "value");
    EXPECT_EQ(calls["write"], 100);
    EXPECT_EQ(calls["fsync"], 0);
    EXPECT_LE(script.calls(), 800);
}

TEST_F(Settings, JournalIsReadAsFarAsItIsSound)
{
    started().set(kKey, "sound");
    const std::string sound = get(".journal");
    const std::string cut = SettingsJournal::record(kKey, "a longer value");
    std::string noTab = cut;
    noTab[9] = ' '; // after the checksum
    // A process died while it wrote; another went on.
    for (const std::string& damage :
         {cut.substr(0, cut.size() - 1), cut.substr(0, 20), cut.substr(0, 5), noTab,
          "\n" + std::string(100, '\0'), std::string("\nnot ours\tat\tall")}) {
        SCOPED_TRACE(damage);
        put(".journal", sound + damage + SettingsJournal::record(kOther, "set"));
        SettingsStore& store = started();
        EXPECT_EQ(reported([&] { EXPECT_EQ(value(kKey, store), "sound"); }),
                  message("ignored an incomplete change in", ".journal",
                          "a process died while it wrote it"));
        store.save();
        EXPECT_EQ(get(".journal"), "");
        EXPECT_EQ(get(".ini"), "[Section]\nKey=sound\nOther=set\n");
        std::filesystem::remove(path(".ini"));
    }
}

TEST_F(Settings, JournalThatIsAnotherFileIsNotWritten)
{
    const std::string victim = scratch.path("victim"), journal = path(".journal");
    scratch.put("victim", "precious");
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"link", [&] { std::filesystem::create_symlink(victim, journal); }},
        {"hard link", [&] { std::filesystem::create_hard_link(victim, journal); }},
        {"folder", [&] { std::filesystem::create_directory(journal); }},
        {"pipe", [&] { EXPECT_EQ(mkfifo(journal.c_str(), 0600), 0); }}};
    for (const auto& row : rows) {
        const char* const kind = row.first;
        SCOPED_TRACE(kind);
        std::filesystem::create_directories(scratch.path("Vx/programs"));
        row.second();
        SettingsStore& store = started();
        EXPECT_NE(reported([&] { store.set(kKey, kind); }).find(kUnrecorded), std::string::npos);
        EXPECT_EQ(reported([&] { store.save(); }), "");
        EXPECT_EQ(value(kKey), kind);
        EXPECT_EQ(scratch.get("victim"), "precious");
        std::filesystem::remove_all(scratch.path("Vx"));
    }
}

TEST_F(Settings, LargeJournalIsSavedAndNeverOutgrowsItsLimit)
{
    SettingsStore& store = started();
    const std::string large(1u << 20, 'x');
    for (std::size_t n = 1; n <= 5; ++n) {
        store.set(kKey, large);
        EXPECT_EQ(get(".journal").size() > n * large.size(), n < 4) << n;
    }
    EXPECT_EQ(get(".ini").size(), large.size() + std::strlen("[Section]\nKey=\n"));

    std::filesystem::resize_file(path(".journal"), (64u << 20) - 10);
    EXPECT_EQ(reported([&] { store.set(kKey, "refused"); }),
              message(kUnrecorded, ".journal", "File too large; it is kept in memory"));
    EXPECT_EQ(std::filesystem::file_size(path(".journal")), (64u << 20) - 10);
    store.save();
    EXPECT_EQ(value(kKey), "refused");
    EXPECT_EQ(get(".journal"), "");
}

TEST_F(Settings, DoNotWaitForeverForALock)
{
    const struct {
        const char* name;
        const char* locked;  // the file
        int replacements;    // of the store, one in each pause
        int unlocked;        // in which pause
        int setting, saving; // pauses of set() and save()
    } rows[] = {{"released in time", ".lock", 0, 4999, 0, 4999},
                {"held by a stopped process", ".lock", 0, 0, 0, 5000},
                {"others make progress", ".lock", 6000, 7000, 0, 7000},
                {"others never let us in", ".lock", 70000, 0, 0, 60000},
                {"journal held by a stopped process", ".journal", 0, 0, 5000, 5000}};
    SettingsStore& store = started();
    save(store, kKey, "0");
    SystemCallScript script;
    script.failAll("nanosleep", EINTR); // so that no time passes
    const std::string holder = ": process " + std::to_string(getpid()) + " (";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Descriptor lock(open(path(row.locked).c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(lock.get(), LOCK_EX), 0);
        int pauses = 0;
        script.before = [&](const std::string& name) {
            if (name != "nanosleep")
                return;
            if (++pauses <= row.replacements) {
                scratch.put("other", "[Section]\nKey=other\n");
                std::filesystem::rename(scratch.path("other"), path(".ini"));
            }
            if (pauses == row.unlocked)
                flock(lock.get(), LOCK_UN);
        };
        std::string said = reported([&] { store.set(kKey, "1"); });
        EXPECT_EQ(said.find(kUnrecorded + (" " + path(".journal") + holder)) == 4, row.setting != 0)
            << said;
        EXPECT_EQ(std::exchange(pauses, 0), row.setting);
        EXPECT_EQ(reported([&] { store.set(kKey, row.name); }), "") << "said and waited for once";
        EXPECT_EQ(std::exchange(pauses, 0), 0);
        said = reported([&] { store.save(); });
        EXPECT_EQ(said.find(kUnsaved + (" " + path(".ini") + holder)) == 4, row.unlocked == 0)
            << said;
        EXPECT_EQ(std::exchange(pauses, 0), row.saving);
        EXPECT_EQ(value(kKey) == row.name, row.setting == 0) << "reads without the lock";
        EXPECT_EQ(pauses, row.setting);
        lock.reset();
        store.save();
        EXPECT_EQ(value(kKey), row.name);
    }
}

namespace {

const char* homeInDatabase;
std::vector<int> databaseErrors; // of the first answers, last one first

} // namespace

// Hides the C library's own function.
extern "C" int getpwuid_r(uid_t, passwd* entry, char*, std::size_t, passwd** found)
{
    entry->pw_dir = const_cast<char*>(homeInDatabase);
    *found = homeInDatabase != nullptr ? entry : nullptr;
    if (databaseErrors.empty())
        return 0;
    const int error = databaseErrors.back();
    databaseErrors.pop_back();
    return error;
}

TEST(Shell, FindsTheHomeFolder)
{
    const struct {
        const char* variable;
        const char* inDatabase;
        std::vector<int> errors;
        const char* expected;
    } rows[] = {{"/var", nullptr, {EIO}, "/var/"},
                {"/var/", nullptr, {EIO}, "/var/"},
                {"relative", "/users/me/", {}, "/users/me/"},
                {nullptr, "/users/me", {EINTR, ERANGE, EINTR}, "/users/me/"},
                {nullptr, "/users/me", {EIO}, "/"},
                {nullptr, nullptr, {}, "/"},
                {nullptr, "relative", {}, "/"}};
    for (const auto& row : rows) {
        const ScopedEnvironment home("HOME", row.variable);
        homeInDatabase = row.inDatabase;
        databaseErrors = row.errors;
        EXPECT_EQ(folderPath(FolderKind::kHome), row.expected) << "row " << &row - rows;
    }
}

TEST(Shell, FindsTheMachinesSettings)
{
    for (const auto& [value, expected] : {std::pair<const char*, const char*>{nullptr, "/etc/xdg"},
                                          {"", "/etc/xdg"},
                                          {"relative", "/etc/xdg"},
                                          {"/a", "/a"},
                                          {"/a:/b", "/a"},
                                          {"::relative:/b:/c", "/b"}}) {
        const ScopedEnvironment folders("XDG_CONFIG_DIRS", value);
        EXPECT_EQ(machineSettingsFolder(), expected + std::string("/Vx/"));
    }
}

TEST(Shell, FindsFoldersByTheXdgRules)
{
    const ScratchFolder scratch;
    const std::string home = scratch.path("home/"), set = scratch.path("set/deep/");
    const ScopedEnvironment homeSet("HOME", home.c_str());
    const struct {
        int kind;
        const char* variable;
        std::string fallback;
    } rows[] = {{FolderKind::kDocuments, "XDG_DOCUMENTS_DIR", home + "Documents/"},
                {FolderKind::kTemporary, "TMPDIR", "/tmp/"},
                {FolderKind::kCache, "XDG_CACHE_HOME", home + ".cache/"},
                {FolderKind::kUserData, "XDG_CONFIG_HOME", home + ".config/"},
                {FolderKind::kSharedData, "XDG_DATA_HOME", home + ".local/share/"},
                {FolderKind::kState, "XDG_STATE_HOME", home + ".local/state/"},
                {4711, "XDG_CONFIG_HOME", home + ".config/"}};
    for (const auto& row : rows)
        for (const char* value : {"", "relative", set.c_str()}) {
            SCOPED_TRACE(std::to_string(row.kind) + ": " + value);
            const ScopedEnvironment variable(row.variable, value);
            const bool counts = *value == '/' && row.kind != FolderKind::kDocuments;
            const LightweightString<wchar_t> wide = OS()->shell()->getFolder(row.kind);
            const std::string folder(wide.begin(), wide.end());
            EXPECT_EQ(folder, counts ? set : row.fallback);
            const bool made = row.kind != FolderKind::kTemporary;
            EXPECT_EQ(std::filesystem::exists(counts ? set : home), made);
            EXPECT_TRUE(!made || modeOf(folder) == 0700);
            std::filesystem::remove_all(home);
            std::filesystem::remove_all(scratch.path("set"));
        }
}

TEST(Shell, RefusesFoldersThatAreNotUtf8)
{
    const ScratchFolder scratch;
    const std::string latin1 = scratch.path("K\xFCste");
    const ScopedEnvironment notUtf8("XDG_CONFIG_HOME", latin1.c_str());
    iShell& shell = *OS()->shell();
    const std::string said = reported([&] {
        LightweightString<wchar_t> path = shell.getFolder(FolderKind::kUserData);
        path += L"file";
        EXPECT_FALSE(OS()->fileSystem()->openFile(path, 2, 3, 0, 0));
        shell.setOutputDiagnosticsFolder(path);
        shell.setOutputDiagnosticsFolder(LightweightString<wchar_t>(L"a\0b", 3));
    });
    EXPECT_EQ(said.find("Vx: could not name the folder " + latin1 + "/: Invalid "), 0u) << said;
    EXPECT_NE(said.find("; files in it cannot be opened\n"), std::string::npos) << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 4);
    EXPECT_EQ(scratch.names(), "K\xFCste ") << "nothing beside it";
}

TEST(Shell, MakesTheDiagnosticsFolder)
{
    const ScratchFolder scratch;
    static Shell shell;
    shell.setOutputDiagnosticsFolder(scratch.wide("App/Logs/"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("App/Logs")));

    scratch.put("file", "in the way");
    const ScopedEnvironment config("XDG_CONFIG_HOME", scratch.path("file").c_str());
    const std::string said = reported([&] {
        shell.setOutputDiagnosticsFolder({});
        shell.setOutputDiagnosticsFolder(scratch.wide("file/Logs/"));
        shell.setOutputDiagnosticsFolder(scratch.wide("file"));
        EXPECT_EQ(shell.getFolder(FolderKind::kUserData), scratch.wide("file/"));
    });
    std::string expected;
    for (const char* folder : {"file/Logs/", "file", "file/"})
        expected += "Vx: could not make the folder " + scratch.path(folder) + ": Not a directory\n";
    EXPECT_EQ(said, expected);
    EXPECT_EQ(scratch.get("file"), "in the way");
}
