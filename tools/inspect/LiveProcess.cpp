// Reads a running process through /proc and process_vm_readv().
#include "Process.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace inspect {
namespace {

/// The contents of a file of /proc. Returns false with errno if it cannot be read.
bool readWhole(const std::string& path, std::string& contents)
{
    contents.clear();
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    char buffer[65536];
    ssize_t got = 0;
    while ((got = ::read(file, buffer, sizeof buffer)) > 0 || (got < 0 && errno == EINTR))
        if (got > 0)
            contents.append(buffer, static_cast<std::size_t>(got));
    const int error = errno;
    close(file);
    errno = error;
    return got == 0;
}

/// The numbers that name entries of a folder, ascending.
std::vector<unsigned int> numbersIn(const std::string& folder)
{
    std::vector<unsigned int> numbers;
    DIR* const opened = opendir(folder.c_str());
    if (opened == nullptr)
        return numbers;
    while (const dirent* const entry = readdir(opened)) {
        const std::string_view name(entry->d_name);
        unsigned int number = 0;
        const auto parsed = std::from_chars(name.data(), name.data() + name.size(), number);
        if (parsed.ec == std::errc() && parsed.ptr == name.data() + name.size())
            numbers.push_back(number);
    }
    closedir(opened);
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

/// The value of a "Key:\tvalue" line, empty if there is none.
std::string_view valueOf(std::string_view lines, std::string_view key)
{
    std::size_t at = 0;
    while (at < lines.size()) {
        const std::string_view line = lines.substr(at, lines.find('\n', at) - at);
        if (line.size() > key.size() && line.substr(0, key.size()) == key &&
            line[key.size()] == ':') {
            const std::size_t start = line.find_first_not_of(" \t", key.size() + 1);
            return start == std::string_view::npos ? std::string_view() : line.substr(start);
        }
        at += line.size() + 1;
    }
    return {};
}

std::uint64_t numberIn(std::string_view text)
{
    std::uint64_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

/// Parses "55e0a000-55e0b000 r-xp 00001000 fe:00 1234   /path".
std::vector<Mapping> parseMappings(const std::string& maps)
{
    std::vector<Mapping> mappings;
    std::size_t at = 0;
    while (at < maps.size()) {
        const std::size_t end = std::min(maps.find('\n', at), maps.size());
        const std::string line = maps.substr(at, end - at);
        at = end + 1;
        unsigned long start = 0, stop = 0, offset = 0;
        char permissions[5] = "";
        int path = 0;
        if (std::sscanf(line.c_str(), "%lx-%lx %4s %lx %*s %*s %n", &start, &stop, permissions,
                        &offset, &path) < 4)
            continue;
        Mapping mapping{
            start,  stop, permissions[0] == 'r', permissions[1] == 'w', permissions[2] == 'x',
            offset, {}};
        if (path > 0 && static_cast<std::size_t>(path) < line.size())
            mapping.path = line.substr(static_cast<std::size_t>(path));
        mappings.push_back(std::move(mapping));
    }
    return mappings;
}

bool isLibrary(const Mapping& mapping) { return fileName(mapping.path).substr(0, 8) == "libVx.so"; }

/// What /proc/PID/task/TID/syscall tells: the call's number and arguments, the stack pointer and
/// the program counter. A running thread has "running" there.
void parseSystemCall(const std::string& text, Thread& thread)
{
    long number = 0;
    unsigned long arguments[6] = {}, stack = 0, counter = 0;
    const int fields = std::sscanf(text.c_str(), "%ld %lx %lx %lx %lx %lx %lx %lx %lx", &number,
                                   &arguments[0], &arguments[1], &arguments[2], &arguments[3],
                                   &arguments[4], &arguments[5], &stack, &counter);
    if (fields == 9 && number == SYS_futex)
        thread.futex = arguments[0];
    if (fields == 9) {
        thread.registers[kStackPointer] = stack;
        thread.registers[kProgramCounter] = counter;
    }
}

class LiveProcess final : public Process {
public:
    LiveProcess(unsigned int id, std::string name, std::vector<Mapping> mappings)
        : id_(id), folder_("/proc/" + std::to_string(id))
    {
        name_ = std::move(name);
        mappings_ = std::move(mappings);
    }

    bool read(Address from, void* to, std::size_t size) const override
    {
        iovec local{to, size};
        iovec remote{reinterpret_cast<void*>(from), size};
        return process_vm_readv(static_cast<pid_t>(id_), &local, 1, &remote, 1, 0) ==
               static_cast<ssize_t>(size);
    }

    std::vector<Thread> threads() const override
    {
        std::vector<Thread> threads;
        for (const unsigned int id : numbersIn(folder_ + "/task")) {
            const std::string task = folder_ + "/task/" + std::to_string(id);
            std::string status;
            std::string call;
            // A thread that ends meanwhile is left out.
            if (!readWhole(task + "/status", status))
                continue;
            Thread thread;
            thread.id = id;
            thread.name = std::string(valueOf(status, "Name"));
            const std::string_view state = valueOf(status, "State");
            thread.state = state.empty() ? '\0' : state[0];
            const std::string_view inner = valueOf(status, "NSpid");
            const std::size_t last = inner.find_last_of(" \t");
            thread.innerId = static_cast<unsigned int>(
                numberIn(last == std::string_view::npos ? inner : inner.substr(last + 1)));
            if (thread.innerId == 0)
                thread.innerId = id;
            thread.switches = numberIn(valueOf(status, "voluntary_ctxt_switches")) +
                              numberIn(valueOf(status, "nonvoluntary_ctxt_switches"));
            if (readWhole(task + "/syscall", call))
                parseSystemCall(call, thread);
            threads.push_back(std::move(thread));
        }
        return threads;
    }

    std::string fileOf(const Mapping& mapping) const override
    {
        // Works in another mount namespace, and for files that have been replaced.
        std::string path =
            fmt::format("{}/map_files/{:x}-{:x}", folder_, mapping.start, mapping.end);
        if (access(path.c_str(), R_OK) == 0)
            return path;
        return folder_ + "/root" + mapping.path;
    }

    bool live() const override { return true; }
    unsigned int id() const override { return id_; }

    std::optional<std::uint64_t> anonymousMemory() const override
    {
        std::string rollup;
        if (!readWhole(folder_ + "/smaps_rollup", rollup))
            return std::nullopt;
        return numberIn(valueOf(rollup, "Anonymous")) * 1024;
    }

private:
    const unsigned int id_;
    const std::string folder_;
};

[[noreturn]] void explainFailure(unsigned int id, int error)
{
    if (error == ENOENT || error == ESRCH)
        throw CannotInspect(fmt::format("there is no process {}", id),
                            "'vx inspect' lists the processes that use libVx.so.");
    throw CannotInspect(fmt::format("process {} cannot be read: {}", id, std::strerror(error)),
                        "Run vx as the owner of the process or as root, and see "
                        "/proc/sys/kernel/yama/ptrace_scope.");
}

} // namespace

std::string_view fileName(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

const Mapping* Process::mappingOf(Address address) const
{
    const auto after = std::upper_bound(
        mappings_.begin(), mappings_.end(), address,
        [](Address wanted, const Mapping& mapping) { return wanted < mapping.start; });
    if (after == mappings_.begin())
        return nullptr;
    const Mapping& mapping = *(after - 1);
    return address < mapping.end ? &mapping : nullptr;
}

std::unique_ptr<Process> openProcess(unsigned int id)
{
    const std::string folder = "/proc/" + std::to_string(id);
    std::string name;
    std::string maps;
    if (!readWhole(folder + "/comm", name) || !readWhole(folder + "/maps", maps))
        explainFailure(id, errno);
    name.erase(name.find_last_not_of('\n') + 1);
    std::vector<Mapping> mappings = parseMappings(maps);
    if (mappings.empty())
        throw CannotInspect(fmt::format("process {} has no memory", id),
                            "It is ending, or a part of the kernel; name another process.");
    auto process = std::make_unique<LiveProcess>(id, std::move(name), std::move(mappings));
    // /proc may show what process_vm_readv() then refuses.
    const std::vector<Mapping>& all = process->mappings();
    const auto readable =
        std::find_if(all.begin(), all.end(), [](const Mapping& m) { return m.readable; });
    char first;
    if (readable != all.end() && !process->read(readable->start, &first, 1))
        explainFailure(id, errno);
    return process;
}

std::vector<Candidate> findCandidates()
{
    std::vector<Candidate> candidates;
    for (const unsigned int id : numbersIn("/proc")) {
        if (id == static_cast<unsigned int>(getpid()))
            continue;
        std::string maps;
        std::string name;
        const std::string folder = "/proc/" + std::to_string(id);
        if (!readWhole(folder + "/maps", maps))
            continue;
        const std::vector<Mapping> mappings = parseMappings(maps);
        const auto library = std::find_if(mappings.begin(), mappings.end(), isLibrary);
        if (library == mappings.end() || !readWhole(folder + "/comm", name))
            continue;
        name.erase(name.find_last_not_of('\n') + 1);
        candidates.push_back({id, name, library->path});
    }
    return candidates;
}

} // namespace inspect
