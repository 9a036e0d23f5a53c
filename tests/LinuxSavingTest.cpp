// What the Linux platform saves, files and settings, is never lost: whichever system call fails,
// whenever the process is killed or the power fails.
#include "files/Descriptor.h"
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

using Call = SystemCallScript::Call;
using Text = LightweightString<char>;

const std::string kFolder = "Vx/programs";
const std::string kName = std::string(program_invocation_short_name) + ".ini";
const std::string kPath = kFolder + "/" + kName;
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
        VxIniFile document(true);
        document["S"].emplace_back("k", Text(kValue.c_str()), '=');
        return document.saveAll(scratch.wide(kPath));
    }

    /// \returns whether it looks as if saved, by the result and by the messages
    bool save(const Case& row, SettingsStore& store = started())
    {
        testing::internal::CaptureStderr();
        const bool done = work(row, store);
        said = testing::internal::GetCapturedStderr();
        return done && (!row.settings || said.find("could not") == std::string::npos);
    }

    std::string content() const { return scratch.get(kPath); }

    /// The names in the folder, without the lock and the journal; "aside" for a complete copy.
    std::set<std::string> names(const Case& row) const
    {
        std::set<std::string> all;
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
        std::set<std::string> found = names(row);
        // A fault may set aside intact settings; nothing is lost by that.
        EXPECT_GE(found.erase("aside"), std::size_t(row.broken()));
        EXPECT_EQ(found, std::set<std::string>{kName});
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
            testing::internal::CaptureStderr();
            const bool killed = WIFSIGNALED(statusOfChild([&] {
                Calls script(row);
                script.before = [&](const std::string&) {
                    if (script.calls() == n)
                        raise(SIGKILL);
                };
                return work(row);
            }));
            testing::internal::GetCapturedStderr();
            EXPECT_TRUE(row.maySee(content())) << content().substr(0, 100);
            {
                Calls script(row);
                script.before = [&](const std::string& name) { littered += name == "unlinkat"; };
                EXPECT_TRUE(save(row)) << said;
            }
            expectSaved(row);
            if (!killed)
                break;
            ++kills;
        }
    EXPECT_GT(kills, 350);
    EXPECT_GT(littered, 50) << "too few kills left something to clean up";
}

// --- Power failures

namespace {

/// What a medium may hold of a folder after a power failure. Content is durable after the
/// fsync() of its file, a name after that of its folder, the folder after that of its parent;
/// until then, each may be there or not, in any order.
class Medium {
public:
    struct Content {
        std::string bytes;
        bool synced = false;
    };
    using Names = std::map<std::string, std::shared_ptr<Content>>;

    explicit Medium(const std::string& before)
    {
        if (before != "(none)")
            names_[kName] = std::make_shared<Content>(Content{before, true});
    }

    void replay(const Call& call)
    {
        const auto& [call_, arguments, result] = call;
        if (result < 0)
            return;
        if (call_ == "openat")
            open(arguments[1], std::stoi(arguments[2]), std::to_string(result));
        else if (call_ == "close")
            files_.erase(arguments[0]);
        else if (call_ == "mkdirat")
            newFolders_.insert(arguments[1]);
        else if (call_ == "linkat")
            pending_.push_back({lastOf(arguments[3]), files_.at(lastOf(arguments[1])), {}});
        else if (call_ == "renameat2")
            pending_.push_back({lastOf(arguments[3]), nullptr, lastOf(arguments[1])});
        else if (call_ == "unlinkat")
            pending_.push_back({{}, nullptr, lastOf(arguments[1])});
        else if (call_ == "write" && files_.count(arguments[0]) != 0)
            *files_.at(arguments[0]) = {files_.at(arguments[0])->bytes + arguments[1], false};
        else if (call_ == "fsync" && files_.count(arguments[0]) != 0)
            files_.at(arguments[0])->synced = true;
        else if (call_ == "fsync")
            syncFolder(folders_.at(arguments[0]));
    }

    /// Calls \p judge with the content of the file and with all files, for every state that a
    /// power failure now could leave.
    template <class Judge> void forEachState(Judge judge) const
    {
        if (!newFolders_.empty())
            judge("(none)", Names());
        std::vector<std::size_t> order(pending_.size());
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        do
            for (unsigned int subset = 0; subset < 1u << pending_.size(); ++subset) {
                Names names = names_;
                for (const std::size_t i : order)
                    if ((subset >> i & 1) != 0)
                        apply(names, pending_[i]);
                const auto found = names.find(kName);
                const Content content =
                    found != names.end() ? *found->second : Content{"(none)", true};
                judge(content.bytes, names);
                if (!content.synced) {
                    judge(content.bytes.substr(0, content.bytes.size() / 2), names);
                    judge(std::string(content.bytes.size(), '\0'), names);
                    judge("", names);
                }
            }
        while (std::next_permutation(order.begin(), order.end()));
    }

private:
    struct Change {
        std::string name; // gets the content, or that of `from`; empty: the name is removed
        std::shared_ptr<Content> content;
        std::string from;
    };

    static std::string lastOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

    void open(const std::string& path, int flags, const std::string& descriptor)
    {
        // The lock holds nothing, and the journal need not survive.
        if (path.find(".lock") != std::string::npos || path.find(".journal") != std::string::npos)
            return;
        const bool unnamed = (flags & O_TMPFILE) == O_TMPFILE;
        if (!unnamed && (flags & O_CREAT) == 0) {
            folders_[descriptor] = path;
            return;
        }
        files_[descriptor] = std::make_shared<Content>();
        if (!unnamed)
            pending_.push_back({lastOf(path), files_[descriptor], {}});
    }

    void syncFolder(const std::string& path)
    {
        std::erase_if(newFolders_, [&](const std::string& folder) {
            return folder.substr(0, folder.rfind('/') + 1) == path;
        });
        if (path.find("/" + kFolder) != std::string::npos)
            for (; !pending_.empty(); pending_.erase(pending_.begin()))
                apply(names_, pending_.front());
    }

    static void apply(Names& names, const Change& change)
    {
        std::shared_ptr<Content> content = change.content;
        if (!change.from.empty()) {
            const auto source = names.find(change.from);
            if (source == names.end())
                return;
            content = source->second;
            names.erase(source);
        }
        if (!change.name.empty())
            names[change.name] = content;
    }

    Names names_;                 // durable
    std::vector<Change> pending_; // not yet durable
    Names files_;                 // open, by descriptor
    std::map<std::string, std::string> folders_;
    std::set<std::string> newFolders_; // whose names are not yet on the medium for sure
};

/// Counts the states after a power failure, during or after a save, that lose something.
int losses(const std::vector<Call>& trace, const Case& row, int* states)
{
    int bad = 0;
    Medium medium(row.before);
    for (std::size_t length = 0; length <= trace.size(); ++length) {
        if (length > 0)
            medium.replay(trace[length - 1]);
        medium.forEachState([&](const std::string& content, const Medium::Names& names) {
            ++*states;
            const auto isBroken = [](const auto& file) {
                return file.second->synced && file.second->bytes == kBroken;
            };
            bad += !row.maySee(content) || (length == trace.size() && content != row.after) ||
                   (row.broken() && std::none_of(names.begin(), names.end(), isBroken));
        });
    }
    return bad;
}

} // namespace

TEST_F(Saving, APowerFailureAnywhereLosesNothing)
{
    int states = 0;
    for (const Case& row : everyCase()) {
        SCOPED_TRACE(row.name);
        prepare(row);
        std::vector<Call> trace;
        {
            Calls script(row);
            EXPECT_TRUE(save(row));
            trace = script.trace;
        }
        EXPECT_EQ(losses(trace, row, &states), 0);
        int syncs = 0;
        for (std::size_t i = 0; i < trace.size(); ++i) {
            if (trace[i].name != "fsync")
                continue;
            ++syncs;
            std::vector<Call> without = trace;
            without.erase(without.begin() + std::ptrdiff_t(i));
            EXPECT_GT(losses(without, row, &states), 0) << "fsync() number " << syncs;
        }
        EXPECT_GE(syncs, 2);
    }
    EXPECT_GT(states, 5000);
}

// --- Many writers

namespace {

constexpr int kWriters = 16;
std::mutex publishing;
std::set<std::string> published; // every content that the file has had
SystemCalls realCalls;

// All writers wait for each other here once, so that all have a temporary name at the same time.
std::barrier meeting(kWriters);
thread_local bool hasMet = false;
void meet()
{
    if (!std::exchange(hasMet, true))
        meeting.arrive_and_wait();
}

std::string contentAt(int folder, const char* name)
{
    const Descriptor file(::openat(folder, name, O_RDONLY | O_CLOEXEC));
    std::string bytes(100, ' ');
    const ssize_t size = ::read(file.get(), bytes.data(), bytes.size());
    return bytes.substr(0, std::size_t(std::max<ssize_t>(size, 0)));
}

int recordedRename(int from, const char* path, int folder, const char* name, unsigned int flags)
{
    meet();
    const std::scoped_lock lock(publishing);
    const int result = realCalls.renameat2(from, path, folder, name, flags);
    if (result == 0)
        published.insert(contentAt(folder, name));
    return result;
}

int refusedUnnamed(int folder, const char* path, int flags, mode_t mode)
{
    if ((flags & O_TMPFILE) != O_TMPFILE)
        return realCalls.openat(folder, path, flags, mode);
    errno = EOPNOTSUPP;
    return -1;
}

} // namespace

TEST(SavingAtOnce, EverySuccessOfSixteenWritersWasTheContentOfTheFile)
{
    for (const bool unnamed : {true, false}) {
        const ScratchFolder folder{ScratchFolder::inMemory()};
        folder.put("a.ini", "old");
        const LightweightString<wchar_t> path = folder.wide("a.ini");
        realCalls = systemCalls;
        systemCalls.renameat2 = recordedRename;
        if (!unnamed)
            systemCalls.openat = refusedUnnamed;
        std::atomic<int> saved = 0, lies = 0;
        const int rounds = scaled(10);
        onThreads(kWriters, [&](int writer) {
            for (int round = 0; round < rounds; ++round) {
                const std::string name = std::to_string(writer) + "." + std::to_string(round);
                VxIniFile document(true);
                document.getSection(Text(name.c_str()));
                const bool done = document.saveAll(path);
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
}
