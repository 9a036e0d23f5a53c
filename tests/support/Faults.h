// Faults.h - what a save can meet: file systems of all kinds, kills, and power failures.
#pragma once

#include "SystemCallScript.h"
#include "Testing.h"

#include <csignal>

/// What a save can meet: a file or none under the name, a file system with unnamed files or
/// without.
struct World {
    const char* name;
    bool exists;
    bool unnamed;
};
inline constexpr World kWorlds[] = {
    {"replaces", true, true},
    {"creates", false, true},
    {"replaces without unnamed files", true, false},
    {"creates without unnamed files", false, false},
};

/// The system calls of such a world.
struct Calls : SystemCallScript {
    explicit Calls(const World& world)
    {
        if (!world.unnamed)
            refuseUnnamedFiles();
    }
};

/// Runs \p work in a child that is killed before its n-th system call.
/// \returns whether it came to that
template <class Work> bool killedBefore(int n, const World& world, Work work)
{
    return WIFSIGNALED(statusOfChild([&] {
        Calls script(world);
        script.before = [&](const std::string&) {
            if (script.calls() == n)
                raise(SIGKILL);
        };
        work();
        return true;
    }));
}

/// Lets children call \p work with ever higher numbers and kills each at a random moment, a
/// hundred in all or as many as VX_KILLS says. \p judge looks at what each one leaves.
template <class Work, class Judge> void killAtAnyMoment(Work work, Judge judge)
{
    Seeded random;
    const char* const kills = std::getenv("VX_KILLS");
    for (int kill = kills != nullptr ? std::atoi(kills) : 100, n = 1; kill > 0; --kill, n += 1000) {
        int progress[2];
        ASSERT_EQ(pipe2(progress, O_CLOEXEC), 0);
        const pid_t child = fork();
        if (child == 0) {
            Calls script(kWorlds[kill % 2 * 2]);
            script.before = [&](const std::string&) {
                if (::write(progress[1], ".", 1) != 1)
                    _exit(1);
            };
            for (;; ++n, script.trace.clear())
                work(n);
        }
        close(progress[1]);
        char byte;
        for (auto calls = random() % 150 + 1; calls > 0; --calls)
            ASSERT_EQ(::read(progress[0], &byte, 1), 1) << "the child ended";
        ::kill(child, SIGKILL);
        int status;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        close(progress[0]);
        judge();
    }
}

/// A folder as a medium may hold it after a power failure: content and names count from the fsync() of the file
/// and of the folder on; before, each may be there or not, in any order.
class CrashModel {
public:
    CrashModel(const std::string& target, const std::string& old, bool exists) : target_(target)
    {
        if (exists)
            names_[target] = std::make_shared<Content>(Content{old, true});
    }

    void replay(const SystemCallScript::Call& call)
    {
        const auto& arguments = call.arguments;
        if (call.result < 0)
            return;
        if (call.name == "close") {
            files_.erase(arguments[0]);
            folders_.erase(arguments[0]);
        } else if (call.name == "openat") {
            const int flags = std::stoi(arguments[2]);
            const bool unnamed = (flags & O_TMPFILE) == O_TMPFILE;
            if (!unnamed && (flags & O_CREAT) == 0) {
                folders_[std::to_string(call.result)] = true;
                return;
            }
            const auto content = std::make_shared<Content>();
            files_[std::to_string(call.result)] = content;
            if (!unnamed)
                pending_.push_back({lastOf(arguments[1]), content, {}});
        } else if (call.name == "write") {
            files_.at(arguments[0])->bytes += arguments[1];
            files_.at(arguments[0])->synced = false;
        } else if (call.name == "fsync" && files_.count(arguments[0]) != 0) {
            files_.at(arguments[0])->synced = true;
        } else if (call.name == "fsync") {
            EXPECT_TRUE(folders_.at(arguments[0]));
            for (const Change& change : pending_)
                apply(names_, change);
            pending_.clear();
        } else if (call.name == "linkat") {
            pending_.push_back({lastOf(arguments[3]), files_.at(lastOf(arguments[1])), {}});
        } else if (call.name == "renameat2") {
            pending_.push_back({lastOf(arguments[3]), nullptr, lastOf(arguments[1])});
        } else if (call.name == "unlinkat") {
            pending_.push_back({{}, nullptr, lastOf(arguments[1])});
        }
    }

    struct Content {
        std::string bytes;
        bool synced = false;
    };
    using Names = std::map<std::string, std::shared_ptr<Content>>;

    /// Calls \p judge with the target's content, "(none)" for none, and with all files, in
    /// every state that a power failure at this point can leave.
    template <class Judge> void forEachState(Judge judge) const
    {
        std::vector<std::size_t> order(pending_.size());
        for (std::size_t i = 0; i < order.size(); ++i)
            order[i] = i;
        do
            for (unsigned int subset = 0; subset < 1u << pending_.size(); ++subset) {
                Names names = names_;
                for (const std::size_t i : order)
                    if ((subset >> i & 1) != 0)
                        apply(names, pending_[i]);
                const auto found = names.find(target_);
                if (found == names.end()) {
                    judge("(none)", names);
                    continue;
                }
                const Content& content = *found->second;
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
        std::string name; // gets the content, or what `from` stands for; empty: none does
        std::shared_ptr<Content> content;
        std::string from;
    };

    static std::string lastOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

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

    const std::string target_;
    Names names_;                 // on the medium
    std::vector<Change> pending_; // of names, not yet on the medium for sure
    Names files_;                 // open, by descriptor
    std::map<std::string, bool> folders_;
};

/// Calls \p judge(content, names, complete) in every state that a power failure at any point
/// of \p trace, or after it, can leave of the file \p target, which held \p old.
/// \returns how many there are
template <class Judge>
int powerFailures(const std::vector<SystemCallScript::Call>& trace, const std::string& target,
                  const std::string& old, Judge judge)
{
    int states = 0;
    CrashModel model(target, old, old != "(none)");
    for (std::size_t length = 0; length <= trace.size(); ++length) {
        if (length > 0)
            model.replay(trace[length - 1]);
        model.forEachState([&](const std::string& content, const CrashModel::Names& names) {
            ++states;
            judge(content, names, length == trace.size());
        });
    }
    return states;
}
