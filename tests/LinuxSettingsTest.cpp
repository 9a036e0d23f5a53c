// The Linux platform's folders and settings: what is kept, and what processes share. For faults,
// kills and power failures while saving see LinuxSavingTest.cpp.
#include "Shell.h"
#include "files/Folders.h"
#include "settings/SettingsJournal.h"
#include "settings/SettingsStore.h"
#include <ScratchFolder.h>
#include <SystemCallScript.h>
#include <Vx/VxApplication.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <csignal>
#include <grp.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/mman.h>

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
        static auto* stores = new std::list<SettingsStore>; // they have no end
        return stores->emplace_back(scope);
    }

    static std::string value(const SettingsKey& key, SettingsStore& store)
    {
        std::string found = "left alone";
        if (store.get(key, found))
            return found;
        EXPECT_EQ(found, "left alone");
        return "(none)";
    }
    std::string value(const SettingsKey& key) { return value(key, started()); }

    static void save(SettingsStore& store, const SettingsKey& key, const std::string& text)
    {
        store.set(key, text);
        store.save();
    }

    std::string get(const std::string& suffix) const { return scratch.get(kName + suffix); }
    void put(const std::string& suffix, const std::string& text) const
    {
        std::filesystem::create_directories(scratch.path("Vx/programs"));
        scratch.put(kName + suffix, text);
    }
    std::string path(const std::string& suffix) const { return scratch.path(kName + suffix); }

    /// Calls \p work. \returns what it reports
    template <class Work> static std::string reported(Work work)
    {
        testing::internal::CaptureStderr();
        work();
        return testing::internal::GetCapturedStderr();
    }

    static inline const std::string kName = "Vx/programs/Test";
    const ScopedProgram program{"Test"};
    const ScratchFolder scratch{ScratchFolder::inMemory()};
    const ScopedEnvironment config{"XDG_CONFIG_HOME", scratch.path().c_str()};
    const ScopedEnvironment machine{"XDG_CONFIG_DIRS", scratch.path("machine").c_str()};
};

const SettingsKey kKey{"Section", "Key"};
const std::string kFiles = "Test.ini Test.journal Test.lock ";

} // namespace

TEST_F(Settings, ComeBackByteForByteSavedOrNot)
{
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    std::vector<std::string> texts{everyByte, std::string("\0", 1)};
    for (const char* text : {"", "plain", " blanks at the ends ", "a=b", "[x]", "]", "#comment",
                             ";note", "\\n\\x41", "\r\n", "tab\t", "\xC3\xA4\xFF"})
        texts.push_back(text);
    std::map<SettingsKey, std::string> expected;
    std::filesystem::create_directories(scratch.path("Vx/programs"));
    std::filesystem::permissions(scratch.path("Vx/programs"), std::filesystem::perms::all);
    const mode_t mask = umask(0);
    SettingsStore& store = started();
    for (const std::string& section : texts)
        for (const std::string& key : texts) {
            const std::string& stored = texts[expected.size() % std::size(texts)];
            store.set({section, key}, stored);
            expected[{section, key}] = stored;
        }
    const auto compare = [&](SettingsStore& next) {
        for (const auto& [key, stored] : expected)
            EXPECT_EQ(value(key, next), stored) << key.first << "/" << key.second;
    };
    EXPECT_EQ(get(".ini"), "(none)") << "not saved yet";
    compare(started());
    store.save();
    umask(mask);
    EXPECT_EQ(get(".journal"), "");
    EXPECT_EQ(scratch.names("Vx/programs"), kFiles);
    for (const char* suffix : {".ini", ".journal", ".lock"})
        EXPECT_EQ(unsigned(std::filesystem::status(path(suffix)).permissions()), 0600u) << suffix;
    compare(started());
}

TEST_F(Settings, KeepWhatPeopleWroteIntoTheFile)
{
    put(".ini", "\xEF\xBB\xBF; by hand\r\n"
                "[ Video ]\r\n"
                "rate = 25 \r\n"
                "rate=50\n"
                "hex=\\x4A\\x4a\\xfF\n"
                "\n"
                "#\tabout audio\n"
                "[Audio]\n"
                " gain =\t1\n"
                "peak=1");
    SettingsStore& store = started();
    EXPECT_EQ(value({"Video", "rate"}, store), "50") << "the last one counts";
    EXPECT_EQ(value({"Video", "hex"}, store), "JJ\xFF");
    store.set({"Video", "size"}, "\x1F \x7E\x7F");
    store.set({"Audio", "peak"}, "2");
    store.set({"Audio", "gain"}, "1"); // what the line says already
    store.set({"New", "a"}, "b");
    store.save();
    EXPECT_EQ(get(".ini"), "; by hand\n"
                           "[ Video ]\n"
                           "rate = 25 \n"
                           "rate=50\n"
                           "hex=\\x4A\\x4a\\xfF\n"
                           "size=\\x1f ~\\x7f\n"
                           "\n"
                           "#\tabout audio\n"
                           "[Audio]\n"
                           " gain =\t1\n"
                           "peak=2\n"
                           "\n"
                           "[New]\n"
                           "a=b\n");
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
        {"a=bad escape \\q\nb=\n\\x=2\n", "line 3 and 1 more are"},
        {"a=cut escape \\x4\n", "line 3 is"},
        {"a=cut escape \\xg0\n", "line 3 is"},
        {"a=cut escape \\x0g\n", "line 3 is"},
        {"a=cut escape \\\n", "line 3 is"},
        {"a=\x1F\n", "line 3 is"},
        {"a=\x7F\n", "line 3 is"},
        {std::string("a=zero \0 byte\n", 14), "line 3 is"},
        {"# \x01\n", "line 3 is"},
    };
    int count = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.lines);
        const std::string text = "[Section]\nKey=kept\n" + row.lines + "Last=kept\n";
        const std::string copy = ".ini.broken" + (count == 0 ? "" : "-" + std::to_string(count));
        const std::string why = std::string(": ") + row.which + " not settings text\n";
        put(".ini", text);
        SettingsStore& store = started();
        EXPECT_EQ(reported([&] { EXPECT_EQ(value(kKey, store), "kept"); }),
                  "Vx: ignored a part of the settings " + path(".ini") + why);
        EXPECT_EQ(value({"Section", "Last"}, store), row.hidesSection ? "(none)" : "kept");
        store.set({"Section", "New"}, "set");
        {
            SystemCallScript script; // the copy is made, but not the new file
            script.before = [&](const std::string& name) {
                if (name == "openat" && get(copy) != "(none)")
                    script.failAll("fsync", EIO);
            };
            reported([&] { store.save(); });
        }
        EXPECT_EQ(get(".ini"), text);
        EXPECT_EQ(reported([&] { store.save(); }),
                  "Vx: copied the damaged settings to " + path(copy) + why);
        EXPECT_EQ(get(copy), text);
        EXPECT_EQ(get(".ini").find(row.lines), std::string::npos);
        EXPECT_EQ(reported([&] { EXPECT_EQ(value({"Section", "New"}), "set"); }), "");
        EXPECT_EQ(value(kKey), "kept");
        ++count;
    }
}

TEST_F(Settings, FilesThatHoldNoSettingsAreLeftAlone)
{
    const auto refuses = [&](const char* reason) {
        SettingsStore& store = started();
        EXPECT_EQ(reported([&] { store.set(kKey, "set"); }), "Vx: could not read the settings " +
                                                                 path(".ini") + ": " + reason +
                                                                 "; defaults apply\n");
        EXPECT_EQ(reported([&] { store.save(); }), "Vx: could not save the settings " +
                                                       path(".ini") + ": " + reason +
                                                       "; the next save tries again\n");
        EXPECT_EQ(reported([&] { EXPECT_EQ(value(kKey), "set"); }).find("could not save"),
                  std::string::npos);
    };
    put(".ini", "");
    std::filesystem::resize_file(path(".ini"), (64u << 20) + 1);
    refuses("File too large");
    const std::string full(64u << 20, '#'); // any more could not be read again
    put(".ini", full);
    EXPECT_NE(reported([&] { save(started(), kKey, "set"); }).find(": File too large;"),
              std::string::npos);
    EXPECT_EQ(std::filesystem::file_size(path(".ini")), full.size());
    std::filesystem::remove(path(".ini"));
    std::filesystem::create_directory(path(".ini"));
    refuses("Is a directory");
}

TEST_F(Settings, BelongToTheProgram)
{
    const struct {
        std::string name;
        std::string file;
    } rows[] = {{"Editor", "Editor"},
                {"Example Editor 2.1", "Example Editor 2.1"},
                {"", "program"},
                {"..", "%2E."},
                {"a/b\x1F%\x7F\xC3\xA4", "a%2Fb%1F%25%7F\xC3\xA4"},
                {std::string(255, 'x'), std::string(200, 'x')}};
    for (const auto& row : rows) {
        const ScopedProgram renamed(row.name.c_str());
        EXPECT_EQ(value(kKey), "(none)") << "not another program's";
        save(started(), kKey, row.name + "!");
        EXPECT_EQ(value(kKey), row.name + "!");
        EXPECT_EQ(scratch.get("Vx/programs/" + row.file + ".ini"),
                  "[Section]\nKey=" + (row.file[0] == 'a' ? "a/b\\x1f%\\x7f\xC3\xA4" : row.name) +
                      "!\n");
    }
}

TEST_F(Settings, OnceSharedByProgramsAreReadUntilEachHasItsOwn)
{
    std::filesystem::create_directories(scratch.path("Vx"));
    scratch.put("Vx/user.ini", "# old\n[Section]\nKey=old\nOther=old\n");
    SettingsStore& store = started();
    EXPECT_EQ(value(kKey, store), "old");
    store.set(kKey, "new");
    EXPECT_EQ(value({"Section", "Other"}), "old") << "there is a journal, but no store";
    store.save();
    scratch.put("Vx/user.ini", "[Section]\nOther=newer\n");
    EXPECT_EQ(get(".ini"), "# old\n[Section]\nKey=new\nOther=old\n");
    EXPECT_EQ(value({"Section", "Other"}), "old");
}

TEST_F(Settings, OfTheMachineStandInItsFolderWhereThatCanBeWritten)
{
    std::filesystem::create_directories(scratch.path("machine/Vx"));
    const std::string all = scratch.path("machine/Vx");
    const struct {
        unsigned folder, store, journal;
    } rows[] = {{0755, 0644, 0600}, {02775, 0664, 0660}, {0777, 0666, 0666}, {01777, 0666, 0666}};
    for (const auto& row : rows) {
        chmod(all.c_str(), row.folder);
        const mode_t mask = umask(077);
        save(started(1), kKey, "for all");
        umask(mask);
        EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");
        for (const auto& [name, mode] : {std::pair<const char*, unsigned>{"machine.ini", row.store},
                                         {"machine.journal", row.journal},
                                         {"lock", row.journal}}) {
            const std::string file = all + "/" + name;
            EXPECT_EQ(unsigned(std::filesystem::status(file).permissions()), mode) << name;
            std::filesystem::remove(file);
        }
    }
    save(started(1), kKey, "for all");

    // Root may write anywhere, so the answer to "may I?" plays an ordinary user.
    SystemCallScript script;
    script.failAll("faccessat", EACCES);
    SettingsStore& user = started(1);
    EXPECT_EQ(value(kKey, user), "for all");
    save(user, kKey, "for me");
    EXPECT_EQ(value(kKey, user), "for me");
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");
    EXPECT_EQ(scratch.get("Vx/machine.ini"), "[Section]\nKey=for me\n");

    scratch.put("machine/Vx/machine.ini", "nonsense\n[Section]\nOther=for all\n");
    EXPECT_EQ(reported([&] {
                  EXPECT_EQ(value({"Section", "Other"}, started(1)), "for all");
              }),
              "Vx: ignored a part of the settings " + all +
                  "/machine.ini: line 1 is not settings "
                  "text\n");
    EXPECT_EQ(scratch.names("machine/Vx"), "lock machine.ini machine.journal ");
}

TEST_F(Settings, OfTheMachineAreSharedByUsers)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be two users";
    std::filesystem::create_directories(scratch.path("machine/Vx"));
    for (const char* folder : {"", "machine", "machine/Vx"})
        chmod(scratch.path(folder).c_str(), 0777);
    for (const char* key : {"1", "2", "3", "4", "5"})
        EXPECT_TRUE(holdsInChild([&] {
            const uid_t user = (*key & 1) != 0 ? 65534 : 0; // nobody, or root
            if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)
                return false;
            SettingsStore& store = started(1);
            store.set({"Section", key}, "set");
            if (*key != '3')
                store.save();
            return *key == '1' || value({"Section", {char(*key - 1)}}, store) == "set";
        })) << key;
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"),
              "[Section]\n1=set\n2=set\n3=set\n4=set\n5=set\n");
}

TEST_F(Settings, FilesThatDisappearWhileRunningAreMadeAgain)
{
    put(".ini", "[Section]\nKey=kept\n");
    SettingsStore& store = started();
    store.set({"Section", "Other"}, "new");
    std::filesystem::remove_all(scratch.path("Vx"));
    store.save();
    EXPECT_EQ(get(".ini"), "[Section]\nKey=kept\nOther=new\n");

    for (const bool another : {false, true}) {
        store.set({"Section", "Other"}, another ? "another" : "none");
        std::filesystem::rename(path(".journal"), path(".moved"));
        if (another)
            started().set(kKey, "of another process");
        store.save();
        EXPECT_EQ(value({"Section", "Other"}), another ? "another" : "none");
    }
    store.set(kKey, "first");
    std::filesystem::rename(path(".journal"), path(".moved"));
    store.set({"Section", "Other"}, "second");
    EXPECT_EQ(value(kKey), "first") << "recorded once more";
}

TEST_F(Settings, ThatWereSetLastCount)
{
    SettingsStore& a = started();
    SettingsStore& b = started();
    a.set({"S", "both"}, "a");
    b.set({"S", "both"}, "b");
    a.set({"S", "a"}, "1");
    b.set({"S", "b"}, "2");
    a.save();
    b.save();
    a.save(); // has nothing to add, so takes nothing back
    EXPECT_EQ(value({"S", "both"}), "b");
    EXPECT_EQ(value({"S", "a"}), "1");
    EXPECT_EQ(value({"S", "b"}), "2");
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
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // The sanitizer's heap may stay locked in a child of several threads.
    constexpr bool kAlone = true;
#else
    constexpr bool kAlone = false;
#endif
    EXPECT_FALSE(OS()->shell()->getSettings(2)) << "no such scope";
    const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(0);
    settings->setValue("before", "fork", "S");
    std::atomic<bool> stop = kAlone;
    std::thread busy([&] {
        for (int n = 0; !stop; ++n) {
            settings->setValue("busy", LightweightString<char>(std::to_string(n).c_str()), "S");
            settings->save();
        }
    });
    if (kAlone)
        busy.join();
    for (int n = 0; n < 30; ++n)
        EXPECT_TRUE(holdsInChild([&] {
            settings->setValue("child", "value", "S");
            settings->save();
            return settings->getValue("before", "", "S") == "fork";
        }));
    stop = true;
    if (!kAlone)
        busy.join();
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
    const std::string unsaved = "could not save the settings " + path(".ini") + ": ";
    const std::string unrecorded = "could not record a setting in " + path(".journal") + ": ";
    const std::string again = "; the next save tries again\n", kept = "; it is kept in memory\n";
    const struct {
        const char* call;
        int error;
        std::string set, save;
    } rows[] = {
        {"fsync", EIO, "", "Input/output error" + again},
        {"write", ENOSPC, "No space left on device" + kept, "No space left on device" + again},
        {"openat", EROFS, "Read-only file system" + kept, "Read-only file system" + again},
        {"flock", EBADF, "Bad file descriptor" + kept, "Bad file descriptor" + again},
        {"read", EIO, "", "Input/output error" + again},
        {"ftruncate", EIO, "", "Input/output error; the error is in " + path(".journal") + again},
    };
    put(".ini", "[Section]\nKey=0\n");
    SettingsStore& store = started();
    save(store, kKey, "1");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        SystemCallScript script;
        script.failAll(row.call, row.error);
        std::string said = reported([&] {
            for (const char* value : {"1", "2", row.call}) // said once, not for each
                store.set(kKey, value);
        });
        EXPECT_EQ(said, row.set.empty() ? "" : "Vx: " + unrecorded + row.set);
        said = reported([&] { store.save(); });
        EXPECT_EQ(said, "Vx: " + unsaved + row.save);
        script.failAll("none", 0);
        EXPECT_EQ(value(kKey, store), row.call);
        EXPECT_EQ(scratch.names("Vx/programs"), kFiles);
        EXPECT_EQ(row.set.empty() ? value(kKey) : row.call, row.call) << "recorded";
        store.set({"Section", "Other"}, row.call);
        EXPECT_EQ(value(kKey), row.call) << "recorded with the next";
        store.save();
        EXPECT_EQ(get(".ini"),
                  std::string("[Section]\nKey=") + row.call + "\nOther=" + row.call + "\n");
    }
}

TEST_F(Settings, SurviveAKillBeforeAnyCall)
{
    auto& done = *static_cast<volatile int*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    bool killed = true;
    int n = 0;
    while (killed && ++n < 300) {
        std::filesystem::remove_all(scratch.path("Vx"));
        done = 0;
        killed = WIFSIGNALED(statusOfChild([&] {
            SystemCallScript script;
            script.cutShort(); // kills in the middle of writes, too
            script.before = [&](const std::string&) {
                if (script.calls() == n)
                    raise(SIGKILL);
            };
            SettingsStore& store = started();
            for (const int value : {1, 2, 3}) {
                store.set(kKey, std::to_string(value));
                done = value;
                if (value == 2)
                    store.save();
            }
            return true;
        }));
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
    // A process died while it wrote; another went on.
    for (const std::string& damage :
         {cut.substr(0, cut.size() - 1), cut.substr(0, 20), cut.substr(0, 5),
          std::string("\n") + std::string(100, '\0'), std::string("\nnot ours\tat\tall")}) {
        SCOPED_TRACE(damage);
        put(".journal", sound + damage + SettingsJournal::record({"Section", "Next"}, "set"));
        SettingsStore& store = started();
        EXPECT_EQ(reported([&] { EXPECT_EQ(value(kKey, store), "sound"); }),
                  "Vx: ignored an incomplete change in " + path(".journal") +
                      ": a process died while it wrote it\n");
        EXPECT_EQ(value({"Section", "Next"}, store), "set");
        store.save();
        EXPECT_EQ(get(".journal"), "");
        EXPECT_EQ(get(".ini"), "[Section]\nKey=sound\nNext=set\n");
        std::filesystem::remove(path(".ini"));
    }
    EXPECT_EQ(scratch.names("Vx/programs"), kFiles.substr(9));
}

TEST_F(Settings, JournalThatIsAnotherFileIsNotWritten)
{
    const std::string victim = scratch.path("victim");
    scratch.put("victim", "precious");
    for (const char* kind : {"link", "hard link", "folder", "pipe"}) {
        SCOPED_TRACE(kind);
        std::filesystem::create_directories(scratch.path("Vx/programs"));
        const std::string journal = path(".journal");
        switch (*kind) {
        case 'l': std::filesystem::create_symlink(victim, journal); break;
        case 'h': std::filesystem::create_hard_link(victim, journal); break;
        case 'f': std::filesystem::create_directory(journal); break;
        default: EXPECT_EQ(mkfifo(journal.c_str(), 0600), 0);
        }
        SettingsStore& store = started();
        EXPECT_NE(reported([&] { store.set(kKey, kind); }).find("could not record a setting"),
                  std::string::npos);
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
    for (int n = 1; n <= 5; ++n) {
        store.set(kKey, large);
        EXPECT_EQ(get(".journal").size() > n * large.size(), n < 4) << n;
    }
    EXPECT_EQ(get(".ini").size(), large.size() + std::strlen("[Section]\nKey=\n"));

    std::filesystem::resize_file(path(".journal"), (64u << 20) - 10);
    EXPECT_EQ(reported([&] { store.set(kKey, "refused"); }),
              "Vx: could not record a setting in " + path(".journal") +
                  ": File too large; it is kept in memory\n");
    EXPECT_EQ(std::filesystem::file_size(path(".journal")), (64u << 20) - 10);
    store.save();
    EXPECT_EQ(value(kKey), "refused");
    EXPECT_EQ(get(".journal"), "");
}

TEST_F(Settings, DoNotWaitForeverForALock)
{
    SettingsStore& store = started();
    save(store, kKey, "0");
    const std::string us = "process " + std::to_string(getpid()) + " (";
    const std::string unsaved = "Vx: could not save the settings " + path(".ini") + ": " + us;
    SystemCallScript script;
    script.failAll("nanosleep", EINTR); // so that no time passes
    const struct {
        const char* name;
        int replacements; // of the store, one in each pause
        int unlocked;     // in which pause
        int pauses;
    } rows[] = {{"released in time", 0, 4999, 4999},
                {"held by a stopped process", 0, 0, 5000},
                {"others make progress", 6000, 7000, 7000},
                {"others never let us in", 70000, 0, 60000}};
    int pauses = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        store.set(kKey, row.name);
        const Descriptor lock(open(path(".lock").c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(lock.get(), LOCK_EX), 0);
        pauses = 0;
        script.before = [&](const std::string& name) {
            script.trace.clear();
            if (name != "nanosleep")
                return;
            if (++pauses <= row.replacements) {
                scratch.put("other", "[Section]\nKey=other\n");
                std::filesystem::rename(scratch.path("other"), path(".ini"));
            }
            if (pauses == row.unlocked)
                flock(lock.get(), LOCK_UN);
        };
        const std::string said = reported([&] { store.save(); });
        EXPECT_EQ(said.substr(0, unsaved.size()), row.unlocked != 0 ? "" : unsaved);
        EXPECT_EQ(pauses, row.pauses);
        EXPECT_EQ(value(kKey), row.name);
    }
}

TEST_F(Settings, DoNotWaitForeverForTheJournal)
{
    SettingsStore& store = started();
    save(store, kKey, "0");
    SystemCallScript script;
    script.failAll("nanosleep", EINTR);
    const std::string us = "process " + std::to_string(getpid()) + " (";
    {
        const Descriptor journal(open(path(".journal").c_str(), O_RDWR | O_CLOEXEC));
        EXPECT_EQ(flock(journal.get(), LOCK_EX), 0);
        const auto expectPauses = [&script](int count) {
            EXPECT_EQ(std::exchange(script.attempts, 0), count);
        };
        std::string said = reported([&] { store.set(kKey, "1"); });
        EXPECT_EQ(said.find("Vx: could not record a setting in " + path(".journal") + ": " + us),
                  0u);
        expectPauses(5000);
        EXPECT_EQ(reported([&] { store.set(kKey, "2"); }), "");
        expectPauses(0);
        said = reported([&] { store.save(); });
        EXPECT_EQ(said.find("Vx: could not save the settings " + path(".ini") + ": " + us), 0u);
        EXPECT_NE(said.find(" holds the lock of " + path(".journal")), std::string::npos);
        expectPauses(5000);
        EXPECT_EQ(value(kKey), "0") << "reads without the lock";
        expectPauses(5000);
    }
    store.save();
    EXPECT_EQ(value(kKey), "2");
}

TEST_F(Settings, TellACrashOfThisProgramWithoutASave)
{
    struct Host : Vx::Application {
        Host() : Application(L"Host", L"1") {}
        void run() override {}
    };
    // One process for each: the program, how it ends, and what it finds about its last run.
    for (const std::string run :
         {"Editor ends, new", "Editor ends, clean", "Editor crashes, clean", "Player ends, new",
          "Player ends, clean", "Editor ends, crash", "Editor crashes, clean",
          "Editor crashes, crash", "Editor ends, crash", "Player crashes, clean",
          "Editor ends, clean", "Player ends, crash"}) {
        const bool crashes = run.find("crashes") != std::string::npos;
        const int status = statusOfChild([&] {
            const ScopedProgram renamed(run.substr(0, 6).c_str());
            Host host;
            if (host.previousExitWasNormal() != (run.find(", clean") != std::string::npos))
                return false;
            if (crashes)
                raise(SIGKILL);
            host.start();
            return true;
        });
        EXPECT_EQ(status, crashes ? SIGKILL : 0) << run;
    }
}

namespace {

// What the user database says; the C library's own function is hidden by ours.
struct UserDatabase {
    std::vector<int> errors; // of the first answers
    const char* home;        // null: there is no such user
} database;

} // namespace

extern "C" int getpwuid_r(uid_t, passwd* entry, char*, std::size_t, passwd** found)
{
    entry->pw_dir = const_cast<char*>(database.home);
    *found = database.home != nullptr ? entry : nullptr;
    if (database.errors.empty())
        return 0;
    const int error = database.errors.front();
    database.errors.erase(database.errors.begin());
    return error;
}

TEST(Shell, FindsTheHomeFolder)
{
    const struct {
        const char* name;
        const char* variable;
        UserDatabase database;
        const char* expected;
    } rows[] = {
        {"variable", "/var", {{EIO}, nullptr}, "/var/"},
        {"variable with an end", "/var/", {{EIO}, nullptr}, "/var/"},
        {"relative variable", "var", {{}, "/users/me"}, "/users/me/"},
        {"user's", nullptr, {{}, "/users/me/"}, "/users/me/"},
        {"in the end", nullptr, {{EINTR, ERANGE, ERANGE, EINTR}, "/users/me"}, "/users/me/"},
        {"no answer", nullptr, {{EIO}, "/users/me"}, "/"},
        {"no user", nullptr, {{}, nullptr}, "/"},
        {"relative", nullptr, {{}, "me"}, "/"},
    };
    for (const auto& row : rows) {
        const ScopedEnvironment home("HOME", row.variable);
        database = row.database;
        EXPECT_EQ(folderPath(FolderKind::kHome), row.expected) << row.name;
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
    const std::string home = scratch.path("home") + "/", set = scratch.path("set/deep") + "/";
    const ScopedEnvironment homeSet("HOME", home.c_str());
    const struct {
        int kind;
        const char* variable;
        std::string fallback;
        bool made;
    } rows[] = {
        {FolderKind::kDocuments, "XDG_DOCUMENTS_DIR", home + "Documents/", true},
        {FolderKind::kTemporary, "TMPDIR", "/tmp/", false},
        {FolderKind::kCache, "XDG_CACHE_HOME", home + ".cache/", true},
        {FolderKind::kUserData, "XDG_CONFIG_HOME", home + ".config/", true},
        {FolderKind::kSharedData, "XDG_DATA_HOME", home + ".local/share/", true},
        {FolderKind::kState, "XDG_STATE_HOME", home + ".local/state/", true},
        {4711, "XDG_CONFIG_HOME", home + ".config/", true},
    };
    for (const auto& row : rows)
        for (const char* value : {"", "relative", set.c_str()}) {
            SCOPED_TRACE(std::to_string(row.kind) + ": " + value);
            const ScopedEnvironment variable(row.variable, value);
            const bool counts = *value == '/' && row.kind != FolderKind::kDocuments;
            const LightweightString<wchar_t> wide = OS()->shell()->getFolder(row.kind);
            const std::string folder(wide.begin(), wide.end());
            EXPECT_EQ(folder, counts ? set : row.fallback);
            EXPECT_EQ(std::filesystem::exists(counts ? set : home), row.made);
            EXPECT_TRUE(!row.made || std::filesystem::status(folder).permissions() ==
                                         std::filesystem::perms::owner_all);
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
    testing::internal::CaptureStderr();
    LightweightString<wchar_t> path = shell.getFolder(FolderKind::kUserData);
    path += L"file";
    EXPECT_FALSE(OS()->fileSystem()->openFile(path, 2, 3, 0, 0));
    shell.setOutputDiagnosticsFolder(path);
    shell.setOutputDiagnosticsFolder(LightweightString<wchar_t>(L"a\0b", 3));
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(
        said.substr(0, said.find('\n')),
        "Vx: could not name the folder " + latin1 +
            "/: "
            "Invalid or incomplete multibyte or wide character; files in it cannot be opened");
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
    testing::internal::CaptureStderr();
    shell.setOutputDiagnosticsFolder({});
    shell.setOutputDiagnosticsFolder(scratch.wide("file/Logs/"));
    shell.setOutputDiagnosticsFolder(scratch.wide("file"));
    EXPECT_EQ(shell.getFolder(FolderKind::kUserData), scratch.wide("file/"));
    const std::string line = "Vx: could not make the folder " + scratch.path("file");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + "/Logs/: Not a directory\n" + line +
                                                          ": Not a directory\n" + line +
                                                          "/: Not a directory\n");
    EXPECT_EQ(scratch.get("file"), "in the way");
}
