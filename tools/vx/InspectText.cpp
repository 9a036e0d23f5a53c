#include "InspectReport.h"
#include "Terminal.h"

#include <algorithm>
#include <ctime>
#include <fmt/format.h>

namespace tool {
namespace {

using namespace inspect;

constexpr std::size_t kMostRows = 20; // of a list in a report of all sections

void heading(const InspectReport& report, const std::string& title)
{
    if (report.section.empty())
        fmt::print("\n{}\n", paint(Colour::bold, title));
}

std::string count(std::size_t number, const char* one, const char* many)
{
    return fmt::format("{} {}", number, number == 1 ? one : many);
}

void more(const InspectReport& report, std::size_t left, const char* section)
{
    if (left != 0)
        fmt::print("... and {} more: vx inspect {} {}\n", left, section,
                   report.process.live() ? fmt::format("{}", report.process.id()) : "--core FILE");
}

std::string waitingText(const Snapshot& snapshot, const Lock& lock)
{
    std::string text;
    for (const unsigned int thread : lock.waiting) {
        if (!text.empty())
            text += ", ";
        const Thread* const found = threadOf(snapshot, thread);
        text += fmt::format("{}", thread);
        if (found != nullptr && !found->name.empty())
            text += " " + inQuotes(found->name);
    }
    if (!text.empty())
        return text;
    return lock.futex != 0 ? "-" : "unknown";
}

std::string ownerText(const Snapshot& snapshot, const Lock& lock)
{
    if (lock.changing)
        return "changing";
    if (lock.owner == 0)
        return "-";
    const Thread* const found = threadOf(snapshot, lock.owner);
    if (lock.ownerEnded)
        return fmt::format("{} (ended)", lock.owner);
    if (found == nullptr || found->name.empty())
        return fmt::format("{}", lock.owner);
    return fmt::format("{} {}", lock.owner, inQuotes(found->name));
}

void printDeadlocks(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    heading(report, "Deadlocks");
    for (const Deadlock& deadlock : snapshot.deadlocks)
        fmt::print("{}\n", paint(Colour::red, "DEADLOCK: " + deadlockText(snapshot, deadlock)));
    for (const Lock& lock : snapshot.locks)
        if (lock.ownerEnded)
            fmt::print("{}\n",
                       paint(Colour::yellow,
                             fmt::format("lock {} is held by thread {}, which has ended: no "
                                         "other thread can enter it",
                                         inQuotes(lock.name), lock.owner)));
    if (snapshot.deadlocks.empty())
        fmt::print("{}\n", snapshot.platformKnown
                               ? "none among the locks of the library"
                               : "unknown: the platform does not describe its locks");
}

void printLocks(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    heading(report, "Locks");
    std::size_t free = 0;
    std::size_t shown = 0;
    Table table({{"LOCK"}, {"WHERE"}, {"OWNER"}, {"DEPTH", true}, {"WAITING"}});
    for (const Lock& lock : snapshot.locks) {
        const bool idle = lock.owner == 0 && !lock.changing && lock.waiting.empty();
        free += idle;
        if (idle && report.section.empty())
            continue;
        ++shown;
        table.add({inQuotes(lock.name), lock.place, ownerText(snapshot, lock),
                   lock.changing ? "?" : fmt::format("{}", lock.depth),
                   waitingText(snapshot, lock)});
    }
    if (shown != 0)
        table.print();
    if (report.section.empty())
        fmt::print("{}\n", shown == 0 ? count(free, "lock, free", "locks, all free")
                                      : count(free, "other lock, free", "other locks, all free"));
}

void printApplication(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    heading(report, "Application");
    const auto line = [](const char* key, const std::string& value) {
        fmt::print("{:<15} {}\n", key, value);
    };
    if (snapshot.application) {
        const Application& application = *snapshot.application;
        line("name", shown(application.name));
        line("version", shown(application.version));
        line("user data", shown(application.userDataPath));
        line("logs", shown(application.logsPath));
        line("previous exit", application.previousExitWasNormal ? "normal" : "not normal");
    } else
        line("name", "no application object");
    line("libVx.so", shown(snapshot.libraryVersion));
    line("state", snapshot.shutdown ? stateText(*snapshot.shutdown) : "unknown");
}

void printShutdown(const InspectReport& report)
{
    heading(report, "Shutdown");
    if (!report.snapshot.shutdown) {
        fmt::print("unknown\n");
        return;
    }
    const ShutdownList& shutdown = *report.snapshot.shutdown;
    fmt::print("{}, {}\n", stateText(shutdown),
               count(shutdown.callbacks.size(), "callback", "callbacks"));
    Table table({{"PASS"}, {"PRIORITY", true}, {"FUNCTION"}, {"MODULE"}, {"STATE"}});
    const std::size_t shown = report.section.empty()
                                  ? std::min(kMostRows, shutdown.callbacks.size())
                                  : shutdown.callbacks.size();
    bool ran = true; // callbacks before the one that runs
    const bool any = std::any_of(shutdown.callbacks.begin(), shutdown.callbacks.end(),
                                 [](const Callback& callback) { return callback.running; });
    for (std::size_t i = 0; i < shown; ++i) {
        const Callback& callback = shutdown.callbacks[i];
        ran = ran && any && callback.firstPass && !callback.running;
        const bool first = callback.firstPass || (shutdown.status == 0 && callback.priority <= 200);
        table.add({first ? "first" : "final", fmt::format("{}", callback.priority),
                   callbackText(report, callback),
                   tool::shown(report.symbols.module(callback.function)),
                   callback.running ? paint(Colour::yellow, "RUNNING")
                   : ran            ? "has run"
                                    : "waits"});
    }
    if (shown != 0)
        table.print();
    more(report, shutdown.callbacks.size() - shown, "shutdown");
}

void printNames(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    heading(report, "Named objects");
    if (snapshot.names.empty()) {
        fmt::print("none\n");
        return;
    }
    const bool several = snapshot.names.back().space != snapshot.names.front().space;
    std::vector<Table::Column> columns = {{"TYPE"}, {"NAME"}, {"OBJECT"}, {"LOCK"}};
    if (several)
        columns.insert(columns.begin(), {"NAMESPACE"});
    Table table(columns);
    const std::size_t shown =
        report.section.empty() ? std::min(kMostRows, snapshot.names.size()) : snapshot.names.size();
    for (std::size_t i = 0; i < shown; ++i) {
        const NamedObject& name = snapshot.names[i];
        const Lock& lock = snapshot.locks[name.lock];
        std::vector<std::string> row = {
            tool::shown(demangled(name.type)), inQuotes(name.name),
            name.object != 0 ? fmt::format("{:#x}", name.object) : "none",
            lock.owner == 0 && !lock.changing ? "free" : ownerText(snapshot, lock)};
        if (several)
            row.insert(row.begin(), inQuotes(name.space));
        table.add(std::move(row));
    }
    table.print();
    more(report, snapshot.names.size() - shown, "names");
}

void printPools(const InspectReport& report)
{
    heading(report, "Pools");
    if (report.snapshot.pools.empty()) {
        fmt::print("none\n");
        return;
    }
    Table table({{"POOL"}, {"IN USE", true}, {"MOST IN USE", true}, {"PEAK/S", true}, {"PEAK AT"}});
    for (const Pool& pool : report.snapshot.pools) {
        char when[32] = "-";
        const std::time_t wall = pool.peakWallTime;
        std::tm parts;
        if (wall != 0 && localtime_r(&wall, &parts) != nullptr)
            std::strftime(when, sizeof when, "%F %T", &parts);
        table.add({shown(pool.name), fmt::format("{}", pool.inUse),
                   fmt::format("{}", pool.maxInUse), fmt::format("{:.2f}", pool.peakDemand), when});
    }
    table.print();
}

void printMemory(const InspectReport& report)
{
    const Memory& memory = report.snapshot.memory;
    heading(report, "Memory");
    const auto kib = [](std::uint64_t bytes) { return fmt::format("{} KiB", bytes / 1024); };
    if (memory.known) {
        Table table(
            {{"BLOCK SIZE", true}, {"SPANS", true}, {"LIVE OR CACHED", true}, {"FREE", true}});
        std::uint64_t inUse = 0;
        for (const BlockSize& size : memory.sizes) {
            inUse += (size.blocks - size.free) * size.size;
            table.add({fmt::format("{}", size.size), fmt::format("{}", size.spans),
                       fmt::format("{}", size.blocks - size.free), fmt::format("{}", size.free)});
        }
        if (!memory.sizes.empty() && !report.section.empty())
            table.print();
        fmt::print("small blocks: {} live or cached by threads, {} of spans\n", kib(inUse),
                   kib(memory.spans * memory.spanSize));
    } else
        fmt::print("small blocks: unknown, the platform does not describe them\n");
    if (memory.anonymous)
        fmt::print("private memory of the process: {}\n", kib(*memory.anonymous));
}

void printThreads(const InspectReport& report)
{
    heading(report, "Threads");
    for (const Thread& thread : report.snapshot.threads) {
        std::string line = fmt::format("thread {}", thread.innerId);
        if (!thread.name.empty())
            line += " " + inQuotes(thread.name);
        if (thread.state != 0)
            line += fmt::format("  {}", thread.state == 'R'   ? "running"
                                        : thread.state == 'S' ? "sleeping"
                                        : thread.state == 'D' ? "in the kernel"
                                        : thread.state == 'Z' ? "ended"
                                                              : "stopped");
        for (const Lock& lock : report.snapshot.locks)
            if (std::count(lock.waiting.begin(), lock.waiting.end(), thread.innerId) != 0)
                line += ", waits for lock " + inQuotes(lock.name);
        fmt::print("{}\n", line);
        if (!report.stacks)
            continue;
        std::size_t number = 0;
        for (const Symbols::Frame& frame : report.symbols.stack(thread))
            fmt::print("  #{:<2} {} ({})\n", number++,
                       frame.function.empty() ? fmt::format("{:#x}", frame.address)
                                              : shown(frame.function),
                       shown(frame.module));
        if (number == 0)
            fmt::print("  no stack: the thread was running\n");
    }
}

} // namespace

std::string threadText(const Snapshot& snapshot, unsigned int thread)
{
    const Thread* const found = threadOf(snapshot, thread);
    if (found == nullptr || found->name.empty())
        return fmt::format("thread {}", thread);
    return fmt::format("thread {} {}", thread, inQuotes(found->name));
}

std::string deadlockText(const Snapshot& snapshot, const Deadlock& deadlock)
{
    std::string text;
    for (const Deadlock::Step& step : deadlock.steps)
        text += fmt::format("{}{} holds {} and waits for {}", text.empty() ? "" : "; ",
                            threadText(snapshot, step.thread),
                            inQuotes(snapshot.locks[step.holds].name),
                            inQuotes(snapshot.locks[step.waitsFor].name));
    return text;
}

const char* stateText(const ShutdownList& shutdown)
{
    static constexpr const char* kStates[] = {"running", "first pass of the shutdown",
                                              "final pass of the shutdown"};
    return shutdown.ended && shutdown.status == 2 ? "ended: all callbacks have run"
                                                  : kStates[shutdown.status];
}

std::string callbackText(const InspectReport& report, const Callback& callback)
{
    if (callback.object == 0)
        return "null";
    const std::string function = callableOf(report.symbols.function(callback.function));
    if (!function.empty())
        return shown(function);
    if (!callback.type.empty() && callback.type != "N8Shutdown16FunctionCallbackE")
        return shown(demangled(callback.type)) + "::execute";
    return callback.function != 0 ? fmt::format("{:#x}", callback.function) : "unknown";
}

std::string summaryOf(const InspectReport& report)
{
    const Snapshot& snapshot = report.snapshot;
    std::string text = fmt::format("{} ({}): ", report.process.name(), report.process.id());
    std::size_t held = 0;
    for (const Lock& lock : snapshot.locks)
        held += lock.owner != 0;
    if (snapshot.deadlocks.empty())
        text += fmt::format("no deadlock, {} held, {}", count(held, "lock", "locks"),
                            snapshot.shutdown ? stateText(*snapshot.shutdown) : "state unknown");
    for (const Deadlock& deadlock : snapshot.deadlocks)
        text += "DEADLOCK: " + deadlockText(snapshot, deadlock) + " ";
    text.erase(text.find_last_not_of(' ') + 1);
    return shown(text);
}

void printText(const InspectReport& report)
{
    static constexpr void (*kPrinters[])(const InspectReport&) = {
        printDeadlocks, printLocks, printApplication, printShutdown,
        printNames,     printPools, printMemory,      printThreads};
    if (report.section.empty())
        fmt::print("{}\n", paint(Colour::bold,
                                 fmt::format("{} ({} {})", shown(report.process.name()),
                                             report.process.live() ? "process" : "core file of",
                                             report.process.id())));
    for (const std::string& note : report.snapshot.notes)
        fmt::print("{}\n", paint(Colour::yellow, "note: " + shown(note)));
    for (std::size_t i = 0; i < std::size(kPrinters); ++i)
        if (report.has(kInspectSections[i]))
            kPrinters[i](report);
}

} // namespace tool
