// The Linux platform's folders and settings: what is kept, shared, and never lost.
#include <Faults.h>
#include <Folders.h>
#include <ScratchFolder.h>
#include <SettingsStore.h>
#include <Shell.h>
#include <Vx/platform/OS.h>
#include <csignal>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>

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

    /// One that finds just this text in its file.
    SettingsStore& startedWith(const std::string& text)
    {
        std::filesystem::remove_all(scratch.path("Vx"));
        putFile(text);
        return started();
    }

    std::string value(const SettingsKey& key)
    {
        std::string found;
        return started().get(key, found) ? found : "(none)";
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

const std::string kSaved = "[Section]\nKey=new\n";

/// Sets and saves while the n-th system call fails. \returns whether it came to that, and how
/// many lines were said
std::pair<bool, int> setFailing(SettingsStore& store, int n, int error)
{
    testing::internal::CaptureStderr();
    bool fired;
    {
        SystemCallScript script;
        script.failCall(n, error);
        store.set(kKey, "new"); // reads the file
        store.save();
        fired = script.fired();
    }
    const std::string said = testing::internal::GetCapturedStderr();
    return {fired, int(std::count(said.begin(), said.end(), '\n'))};
}

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
            const std::string stored = texts[expected.size() % std::size(texts)];
            store.set({section, key}, stored);
            expected[{section, key}] = stored;
        }
    store.save();
    SettingsStore& next = started();
    for (const auto& [key, stored] : expected) {
        std::string found = "(none)";
        EXPECT_TRUE(next.get(key, found)) << key.first << "/" << key.second;
        EXPECT_EQ(found, stored) << key.first << "/" << key.second;
    }
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
    std::string found;
    EXPECT_TRUE(store.get({"Video", "rate"}, found));
    EXPECT_EQ(found, "50") << "the last one counts";
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

TEST_F(Settings, AreWrittenWhenSaved)
{
    // In a child, because the stores of the process have only one first use.
    const int status = statusOfChild([this] {
        EXPECT_FALSE(OS()->shell()->getSettings(2));
        const Vx::Ptr<iSettings> settings = OS()->shell()->getSettings(0);
        settings->setValue("key", "value", "section");
        EXPECT_EQ(scratch.names(), "") << "nothing is written before save";
        settings->save();
        EXPECT_EQ(file(), "[section]\nkey=value\n");
        return !HasFailure();
    });
    EXPECT_EQ(status, 0);
}

TEST_F(Settings, OfTheMachineStandInItsFolderWhereThatCanBeWritten)
{
    std::filesystem::create_directories(scratch.path("machine/Vx"));
    SettingsStore& administrator = started(1);
    administrator.set(kKey, "for all");
    administrator.save();
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");

    // Root may write anywhere, so an ordinary user is played by the answer to "may I?".
    SystemCallScript script;
    script.failAll("faccessat", EACCES);
    SettingsStore& user = started(1);
    std::string found;
    EXPECT_TRUE(user.get(kKey, found));
    EXPECT_EQ(found, "for all");
    user.set(kKey, "for me");
    user.save();
    EXPECT_EQ(scratch.get("machine/Vx/machine.ini"), "[Section]\nKey=for all\n");
    EXPECT_EQ(scratch.get("Vx/machine.ini"), "[Section]\nKey=for me\n");
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
        std::string found;
        {
            SystemCallScript script; // not every file system can rename without replacing
            script.failAll(count % 2 != 0 ? "renameat2" : "none", count == 1 ? EINVAL : ENOSYS);
            EXPECT_FALSE(store.get(kKey, found)) << "the defaults hold";
        }
        const std::string message = testing::internal::GetCapturedStderr();
        const std::string aside =
            "Vx/user.ini.broken" + (count == 0 ? "" : "-" + std::to_string(count));
        EXPECT_EQ(message, "Vx: settings were broken, set aside as " + scratch.path(aside) +
                               ": line 3 is not settings text\n");
        EXPECT_EQ(scratch.get(aside), "[Section]\nKey=lost?\n" + text);
        store.set(kKey, "again");
        store.save();
        EXPECT_EQ(value(kKey), "again");
        ++count;
    }

    std::filesystem::remove(scratch.path("Vx/user.ini"));
    std::filesystem::create_directory(scratch.path("Vx/user.ini"));
    EXPECT_EQ(value(kKey), "(none)");
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("Vx/user.ini.broken-6")));
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
    std::string found;
    EXPECT_TRUE(b.get({"S", "a"}, found)) << "a save also learns";
}

TEST_F(Settings, OfManyThreadsAreAllKept)
{
    SettingsStore& store = started();
    onThreads(4, [&store](int thread) {
        for (int n = 0; n < 10; ++n) {
            store.set({"T", std::to_string(thread * 10 + n)}, "set");
            store.save();
        }
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
        EXPECT_EQ(statusOfChild([&] {
                      alarm(60); // a lock that stays held would never end
                      settings->setValue("child", "value", "S");
                      settings->save();
                      return settings->getValue("before", "", "S") == "fork";
                  }),
                  0);
    stop = true;
    if (!kAlone)
        busy.join();
    EXPECT_EQ(value({"S", "child"}), "value");
}

TEST_F(Settings, AFaultAnywhereLosesNothing)
{
    const int points = forEachFault({EIO, ENOSPC, EINTR, EACCES}, [&](int error, int n) {
        SettingsStore& store = startedWith("[Section]\nKey=old\n");
        const int descriptors = openDescriptors();
        const auto [fired, lines] = setFailing(store, n, error);
        EXPECT_LE(lines, error == EINTR ? 0 : 2);
        EXPECT_EQ(openDescriptors(), descriptors);
        const std::string after = file();
        EXPECT_TRUE(after == "[Section]\nKey=old\n" || after == kSaved) << after;
        EXPECT_TRUE(after == kSaved || (fired && error != EINTR));
        EXPECT_TRUE(after == kSaved || lines > 0) << "a failed save must say so";
        store.set(kKey, "new");
        store.save();
        EXPECT_EQ(file(), kSaved);
        EXPECT_EQ(filesBeside(), "lock user.ini ");
        return fired;
    });
    EXPECT_GT(points, 80) << "the loop reaches the calls";
}

TEST_F(Settings, AFaultAnywhereKeepsABrokenFile)
{
    const int points = forEachFault({EIO, EINVAL, EEXIST, EINTR}, [&](int error, int n) {
        SettingsStore& store = startedWith("by hand, nonsense");
        const auto [fired, lines] = setFailing(store, n, error);
        EXPECT_GT(lines, 0);
        store.save();
        EXPECT_EQ(file(), kSaved);
        EXPECT_TRUE(scratch.get("Vx/user.ini.broken") == "by hand, nonsense" ||
                    scratch.get("Vx/user.ini.broken-1") == "by hand, nonsense")
            << filesBeside();
        return fired;
    });
    EXPECT_GT(points, 80);
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
    std::string found;
    EXPECT_TRUE(store.get(kKey, found));
    EXPECT_EQ(found, "second");
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
        {"fsync", EIO, "Input/output error"},     {"write", ENOSPC, "No space left on device"},
        {"write", EDQUOT, "Disk quota exceeded"}, {"openat", EROFS, "Read-only file system"},
        {"the limit", EFBIG, "File too large"},
    };
    putFile("[Section]\nKey=0\n");
    SettingsStore& store = started();
    std::signal(SIGXFSZ, SIG_IGN);
    int n = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        const std::string old = file();
        const std::string saved(5000, char('a' + n++));
        store.set(kKey, saved);
        testing::internal::CaptureStderr();
        {
            SystemCallScript script;
            script.failAll(row.call, row.error);
            rlimit limit;
            ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
            const rlimit little{row.error == EFBIG ? 4096 : limit.rlim_cur, limit.rlim_max};
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
            store.save();
            ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Vx: could not save the settings " + scratch.path("Vx/user.ini") + ": " +
                      row.reason + "; the next save tries again\n");
        EXPECT_EQ(file(), old);
        EXPECT_EQ(filesBeside(), "lock user.ini ");
        store.save();
        EXPECT_EQ(value(kKey), saved);
    }
}

// Kills and power failures: of what was saved, and of a broken file, nothing is lost.

namespace {

const std::string kStored = "[Other]\nkept=1\n";
const std::string kBroken = "by hand, nonsense";

/// A world's file, sound or broken.
struct Before : World {
    std::string text, saved;
};
std::vector<Before> everyBefore()
{
    std::vector<Before> all;
    for (const World& world : kWorlds) {
        all.push_back({world, world.exists ? kStored : "(none)",
                       world.exists ? kStored + "\n" + kSaved : kSaved});
        if (world.exists)
            all.push_back({world, kBroken, kSaved});
    }
    return all;
}

} // namespace

TEST_F(Settings, SurviveAKillBeforeAnyCall)
{
    int kills = 0;
    for (const Before& before : everyBefore())
        for (int n = 1;; ++n) {
            ASSERT_LT(n, 200) << "never completes";
            SCOPED_TRACE(before.name + (", " + before.text) + ", call " + std::to_string(n));
            std::filesystem::remove_all(scratch.path("Vx"));
            if (before.exists)
                putFile(before.text);
            testing::internal::CaptureStderr();
            const bool killed = killedBefore(n, before, [&] {
                SettingsStore& store = started();
                store.set(kKey, "new");
                store.save();
            });
            const std::string now = file();
            const bool broken = before.text == kBroken;
            EXPECT_TRUE(now == before.text || now == before.saved || (broken && now == "(none)"));
            SettingsStore& next = started();
            next.set(kKey, "new");
            next.save();
            testing::internal::GetCapturedStderr();
            EXPECT_EQ(file(), before.saved);
            EXPECT_EQ(scratch.get("Vx/user.ini.broken"), broken ? kBroken : "(none)");
            EXPECT_EQ(filesBeside(), broken ? "lock user.ini user.ini.broken " : "lock user.ini ");
            if (!killed)
                break;
            ++kills;
        }
    EXPECT_GT(kills, 120);
}

TEST_F(Settings, SurviveAKillAtAnyMoment)
{
    void* const shared =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    volatile int& saved = *static_cast<int*>(shared); // the number of the last save that returned
    putFile(kStored);
    killAtAnyMoment(
        [&](int n) {
            static SettingsStore& store = started();
            for (const char* key : {"first", "second"})
                store.set({"Section", key}, std::to_string(n));
            store.save();
            saved = n;
        },
        [&] {
            const std::string first = value({"Section", "first"});
            EXPECT_GE(std::atoi(first.c_str()), saved);
            EXPECT_EQ(value({"Section", "second"}), first);
            EXPECT_EQ(value({"Other", "kept"}), "1");
        });
    EXPECT_GT(saved, 0);
    munmap(shared, 4096);
    SettingsStore& next = started();
    next.set(kKey, "new");
    next.save();
    EXPECT_EQ(filesBeside(), "lock user.ini ");
}

TEST_F(Settings, SurviveAPowerFailureAnywhere)
{
    int states = 0;
    for (const Before& before : everyBefore()) {
        SCOPED_TRACE(before.name + (", " + before.text));
        std::filesystem::remove_all(scratch.path("Vx"));
        if (before.exists)
            putFile(before.text);
        std::filesystem::create_directory(scratch.path("Vx"));
        testing::internal::CaptureStderr();
        std::vector<SystemCallScript::Call> trace;
        {
            Calls script(before);
            SettingsStore& store = started();
            store.set(kKey, "new");
            store.save();
            trace = script.trace;
        }
        testing::internal::GetCapturedStderr();
        int bad = 0;
        const bool broken = before.text == kBroken;
        states += powerFailures(
            trace, "user.ini", before.text,
            [&](const std::string& content, const CrashModel::Names& names, bool complete) {
                bad += content != before.saved &&
                       (complete || (content != before.text && !(broken && content == "(none)")));
                bad += broken && std::none_of(names.begin(), names.end(), [](const auto& file) {
                           return file.second->bytes == kBroken;
                       });
            });
        EXPECT_EQ(bad, 0);
    }
    EXPECT_GT(states, 500);
}

TEST(Shell, FindsFoldersByTheXdgRules)
{
    const ScratchFolder scratch;
    const std::string home = scratch.path("home");
    const std::string set = scratch.path("set/deep");
    const struct {
        const char* name;
        int kind;
        const char* variable;
        const char* inHome;
        bool made;
    } rows[] = {
        {"home", Shell::kHomeFolder, nullptr, "/", false},
        {"documents", Shell::kDocumentsFolder, nullptr, "/Documents/", true},
        {"cache", Shell::kCacheFolder, "XDG_CACHE_HOME", "/.cache/", true},
        {"configuration", 4, "XDG_CONFIG_HOME", "/.config/", true},
        {"data", Shell::kSharedDataFolder, "XDG_DATA_HOME", "/.local/share/", true},
        {"state", Shell::kStateFolder, "XDG_STATE_HOME", "/.local/state/", true},
        {"unknown kind", 4711, "XDG_CONFIG_HOME", "/.config/", true},
    };
    const auto folder = [](int kind) {
        const LightweightString<wchar_t> wide = OS()->shell()->getFolder(kind);
        return std::string(wide.begin(), wide.end());
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const ScopedEnvironment homeSet("HOME", home.c_str());
        const ScopedEnvironment unset(row.variable ? row.variable : "XDG_UNUSED", nullptr);
        EXPECT_EQ(folder(row.kind), home + row.inHome);
        EXPECT_EQ(std::filesystem::is_directory(home + row.inHome), row.made);
        std::filesystem::remove_all(home);
        if (row.variable == nullptr)
            continue;
        const ScopedEnvironment relative(row.variable, "relative/path");
        EXPECT_EQ(folder(row.kind), home + row.inHome) << "relative values do not count";
        const ScopedEnvironment absolute(row.variable, set.c_str());
        EXPECT_EQ(folder(row.kind), set + "/");
        EXPECT_TRUE(std::filesystem::is_directory(set));
        EXPECT_EQ(std::filesystem::status(set).permissions(), std::filesystem::perms::owner_all);
        std::filesystem::remove_all(scratch.path("set"));
        std::filesystem::remove_all(home);
    }
    const std::string latin1 = scratch.path("K\xFCste");
    {
        const ScopedEnvironment notUtf8("XDG_CONFIG_HOME", latin1.c_str());
        testing::internal::CaptureStderr();
        OS()->shell()->getFolder(4);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Vx: could not name the folder " + latin1 +
                      "/: it is not UTF-8, so one with U+FFFD in its name takes its place\n");
    }
    const ScopedEnvironment noHome("HOME", nullptr);
    const std::string fallback = folder(Shell::kHomeFolder);
    EXPECT_EQ(fallback.front(), '/');
    EXPECT_EQ(fallback.back(), '/');
}

TEST(Shell, MakesTheDiagnosticsFolder)
{
    const ScratchFolder scratch;
    static Shell shell; // lives as long as the process, as in production
    EXPECT_TRUE(shell.outputDiagnosticsFolder().empty());
    shell.setOutputDiagnosticsFolder(scratch.wide("App/Logs/"));
    EXPECT_TRUE(std::filesystem::is_directory(scratch.path("App/Logs")));
    EXPECT_EQ(shell.outputDiagnosticsFolder(), scratch.wide("App/Logs/"));

    scratch.put("file", "in the way");
    testing::internal::CaptureStderr();
    shell.setOutputDiagnosticsFolder(scratch.wide("file/Logs/"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Vx: could not make the folder " +
                                                          scratch.path("file/Logs/") +
                                                          ": Not a directory\n");
    EXPECT_EQ(scratch.get("file"), "in the way");
}
