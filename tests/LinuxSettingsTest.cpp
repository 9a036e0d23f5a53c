// The Linux platform's folders and settings: what is kept and shared. What faults leave behind
// is in LinuxSavingTest.cpp.
#include "Shell.h"
#include "files/Folders.h"
#include "settings/SettingsStore.h"
#include <ScratchFolder.h>
#include <SystemCallScript.h>
#include <Vx/platform/OS.h>
#include <pwd.h>

namespace {

/// A configuration folder of its own; stores made here find their files in it.
class Settings : public testing::Test {
protected:
    /// A store as a process finds it that has just started.
    SettingsStore& started(int scope = 0)
    {
        static auto* stores = new std::list<SettingsStore>; // they outlive every destructor
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

    std::string file() const { return scratch.get("Vx/user.ini"); }

    void putFile(const std::string& text)
    {
        std::filesystem::create_directory(scratch.path("Vx"));
        scratch.put("Vx/user.ini", text);
    }

    std::string filesBeside() const { return scratch.names("Vx"); }

    const ScratchFolder scratch{ScratchFolder::inMemory()};
    const ScopedEnvironment config{"XDG_CONFIG_HOME", scratch.path().c_str()};
    const ScopedEnvironment machine{"XDG_CONFIG_DIRS", scratch.path("machine").c_str()};
};

const SettingsKey kKey{"Section", "Key"};

} // namespace

TEST_F(Settings, ComeBackByteForByte)
{
    std::string everyByte;
    for (int byte = 0; byte < 256; ++byte)
        everyByte += static_cast<char>(byte);
    std::vector<std::string> texts{everyByte, std::string("\0", 1)};
    for (const char* text : {"", "plain", " blanks at the ends ", "a=b", "[x]", "]", "#comment",
                             ";note", "\\n\\x41", "\r\n", "tab\t", "\xC3\xA4\xFF"})
        texts.push_back(text);
    std::map<SettingsKey, std::string> expected;
    SettingsStore& store = started();
    for (const std::string& section : texts)
        for (const std::string& key : texts) {
            const std::string& stored = texts[expected.size() % std::size(texts)];
            store.set({section, key}, stored);
            expected[{section, key}] = stored;
        }
    EXPECT_EQ(scratch.names(), "") << "nothing is written before save";
    const mode_t mask = umask(022);
    store.save();
    umask(mask);
    for (const char* name : {"Vx/lock", "Vx/user.ini"}) // the machine's are for others, too
        EXPECT_EQ(unsigned(std::filesystem::status(scratch.path(name)).permissions()), 0644u);
    SettingsStore& next = started();
    for (const auto& [key, stored] : expected)
        EXPECT_EQ(value(key, next), stored) << key.first << "/" << key.second;
    EXPECT_EQ(filesBeside(), "lock user.ini ");
}

TEST_F(Settings, KeepWhatPeopleWroteIntoTheFile)
{
    putFile("\xEF\xBB\xBF; by hand\r\n"
            "[ Video ]\r\n"
            "rate = 25 \r\n"
            "rate=50\n"
            "\n"
            "# about audio\n"
            "[Audio]\n"
            "gain=1");
    SettingsStore& store = started();
    EXPECT_EQ(value({"Video", "rate"}, store), "50") << "the last one counts";
    store.set({"Video", "size"}, "4");
    store.set({"Audio", "gain"}, "2");
    store.set({"New", "a"}, "b");
    store.save();
    EXPECT_EQ(file(), "; by hand\n"
                      "[ Video ]\n"
                      "rate = 25 \n"
                      "rate=50\n"
                      "size=4\n"
                      "\n"
                      "# about audio\n"
                      "[Audio]\n"
                      "gain=2\n"
                      "\n"
                      "[New]\n"
                      "a=b\n");
}

TEST_F(Settings, OfTheMachineStandInItsFolderWhereThatCanBeWritten)
{
    std::filesystem::create_directories(scratch.path("machine/Vx"));
    save(started(1), kKey, "for all");
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");

    // Root may write anywhere, so an ordinary user is played by the answer to "may I?".
    SystemCallScript script;
    script.failAll("faccessat", EACCES);
    SettingsStore& user = started(1);
    EXPECT_EQ(value(kKey, user), "for all");
    save(user, kKey, "for me");
    EXPECT_EQ(value(kKey, user), "for me");
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");
    EXPECT_EQ(scratch.get("Vx/machine.ini"), "[Section]\nKey=for me\n");

    const std::string broken = scratch.path("machine/Vx/machine.ini");
    scratch.put("machine/Vx/machine.ini", "nonsense");
    testing::internal::CaptureStderr();
    EXPECT_EQ(value({"Section", "Other"}, started(1)), "(none)");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Vx: the machine's settings are broken and not used: " + broken + "\n");
    EXPECT_EQ(scratch.names("machine/Vx"), "lock machine.ini ");
}

TEST_F(Settings, BrokenFilesAreSetAsideAndNeverLost)
{
    const std::string broken[] = {"no equals sign\n",
                                  "[Section\n",
                                  "a=bad escape \\q\n",
                                  "a=cut escape \\x4\n",
                                  std::string("a=zero \0 byte\n", 14),
                                  "# \x01\n"};
    int count = 0;
    for (const std::string& text : broken) {
        SCOPED_TRACE(text);
        putFile("[Section]\nKey=lost?\n" + text);
        testing::internal::CaptureStderr();
        SettingsStore& store = started();
        {
            SystemCallScript script; // not every file system can rename without replacing
            script.failAll(count % 2 != 0 ? "renameat2" : "none", count == 1 ? EINVAL : ENOSYS);
            EXPECT_EQ(value(kKey, store), "(none)") << "the defaults hold";
        }
        const std::string message = testing::internal::GetCapturedStderr();
        const std::string aside =
            "Vx/user.ini.broken" + (count == 0 ? "" : "-" + std::to_string(count));
        EXPECT_EQ(message, "Vx: settings were broken, set aside as " + scratch.path(aside) +
                               ": line 3 is not settings text\n");
        EXPECT_EQ(scratch.get(aside), "[Section]\nKey=lost?\n" + text);
        save(store, kKey, "again");
        EXPECT_EQ(value(kKey), "again");
        ++count;
    }

    const std::string reason = ": it is no regular file of a usable size\n";
    const std::string set = "Vx: settings were broken, set aside as " + scratch.path("Vx/user.ini");
    testing::internal::CaptureStderr();
    std::filesystem::resize_file(scratch.path("Vx/user.ini"), (64u << 20) + 1);
    EXPECT_EQ(value(kKey), "(none)");
    std::filesystem::create_directory(scratch.path("Vx/user.ini"));
    EXPECT_EQ(value(kKey), "(none)");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              set + ".broken-6" + reason + set + ".broken-7" + reason);
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("Vx/user.ini.broken-7")));
}

TEST_F(Settings, FileBrokenWhileRunningIsReplacedByAllThatIsKnown)
{
    putFile("[Section]\nKey=kept\n");
    SettingsStore& store = started();
    store.set({"Section", "Other"}, "new");
    putFile("nonsense");
    store.save();
    EXPECT_EQ(file(), "[Section]\nKey=kept\nOther=new\n");
    EXPECT_EQ(scratch.get("Vx/user.ini.broken"), "nonsense");
}

TEST_F(Settings, SavingMergesWithWhatOthersSaved)
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
    EXPECT_EQ(value(kKey), "first");
    EXPECT_EQ(value(kKey, store), "second");
    store.save();
    EXPECT_EQ(value(kKey), "second");
}

TEST_F(Settings, UnsavedOnesGoWithTheNextSave)
{
    const struct {
        const char* call;
        int error;
        const char* reason;
    } rows[] = {
        {"fsync", EIO, "Input/output error"},       {"write", ENOSPC, "No space left on device"},
        {"openat", EROFS, "Read-only file system"}, {"flock", EBADF, "Bad file descriptor"},
        {"read", EIO, "Input/output error"},
    };
    putFile("[Section]\nKey=0\n");
    SettingsStore& store = started();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.call);
        const std::string old = file();
        store.set(kKey, row.call);
        testing::internal::CaptureStderr();
        {
            SystemCallScript script;
            script.failAll(row.call, row.error);
            store.save();
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Vx: could not save the settings " + scratch.path("Vx/user.ini") + ": " +
                      row.reason + "; the next save tries again\n");
        EXPECT_EQ(file(), old);
        EXPECT_EQ(filesBeside(), "lock user.ini ");
        store.save();
        EXPECT_EQ(value(kKey), row.call);
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
    const std::string latin1 = scratch.path("K\xFCste");
    const ScopedEnvironment notUtf8("XDG_CONFIG_HOME", latin1.c_str());
    testing::internal::CaptureStderr();
    OS()->shell()->getFolder(FolderKind::kUserData);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Vx: could not name the folder " + latin1 +
                  "/: it is not UTF-8, so one with U+FFFD in its name takes its place\n");
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
