#include "Commands.h"
#include "InspectReport.h"
#include "Json.h"
#include "Terminal.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <unistd.h>

namespace tool {
namespace {

constexpr Status kDeadlock = static_cast<Status>(3);

struct Options {
    std::optional<std::string> first;  // a section or a process
    std::optional<std::string> second; // the process
    std::string core;
    std::string sysroot;
    unsigned int watch = 0; // seconds, 0 for once
    bool stacks = false;
    bool json = false;
};

unsigned int processOf(const std::string& word)
{
    unsigned int id = 0;
    const auto parsed = std::from_chars(word.data(), word.data() + word.size(), id);
    if (parsed.ec != std::errc() || parsed.ptr != word.data() + word.size() || id == 0)
        throw Failure("inspect-usage",
                      {inQuotes(word), fmt::format("{}", fmt::join(kInspectSections, ", "))});
    return id;
}

bool isSection(const std::string& word)
{
    return std::find(std::begin(kInspectSections), std::end(kInspectSections), word) !=
           std::end(kInspectSections);
}

Status list(bool json)
{
    const std::vector<inspect::Candidate> candidates = inspect::findCandidates();
    if (json) {
        Json processes = Json::array();
        for (const inspect::Candidate& candidate : candidates)
            processes.push_back({{"process", candidate.id},
                                 {"name", candidate.name},
                                 {"library", candidate.library}});
        printJson(processes);
    } else if (!candidates.empty()) {
        Table table({{"PROCESS", true}, {"NAME"}, {"LIBRARY"}});
        for (const inspect::Candidate& candidate : candidates)
            table.add(
                {fmt::format("{}", candidate.id), shown(candidate.name), shown(candidate.library)});
        table.print();
    }
    return candidates.empty() ? complain("no-process") : kYes;
}

Status reportOnce(const Options& options, const std::string& section, unsigned int id)
{
    const auto process = options.core.empty() ? inspect::openProcess(id)
                                              : inspect::openCore(options.core, options.sysroot);
    const inspect::Snapshot snapshot = inspect::takeSnapshot(*process);
    const inspect::Symbols symbols(*process);
    const InspectReport report{*process, snapshot, symbols, section, options.stacks};
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    if (options.watch != 0 && terminal)
        fmt::print("\x1b[H\x1b[J");
    if (options.watch != 0 && !terminal && !options.json)
        fmt::print("{}\n", summaryOf(report));
    else if (options.json)
        printJson(report);
    else
        printText(report);
    return snapshot.deadlocks.empty() ? kYes : kDeadlock;
}

Status show(const Options& options)
{
    std::string section;
    std::optional<std::string> process = options.first;
    if (options.first && isSection(*options.first)) {
        section = *options.first;
        process = options.second;
    }
    if (options.core.empty() == !process || (options.second && section.empty()))
        throw Failure("inspect-what");
    const unsigned int id = process ? processOf(*process) : 0;
    for (;;) {
        const Status status = reportOnce(options, section, id);
        if (options.watch == 0)
            return status;
        if (std::fflush(stdout) != 0)
            return kNo; // the reader of the pipe has gone
        sleep(options.watch);
    }
}

// A monitor must be able to tell a deadlock from a failure, so failures have status 1 here.
Status inspectOrExplain(const Options& options)
{
    Status status = kNo;
    try {
        const bool nothing = !options.first && options.core.empty();
        status = nothing ? list(options.json) : show(options);
    } catch (const Failure&) {
        throw;
    } catch (const inspect::CannotInspect& failure) {
        throw Failure("cannot-inspect", {shown(failure.what()), failure.remedy()});
    } catch (const std::exception& failure) {
        throw Failure("cannot-inspect",
                      {failure.what(), "Report this, with the command and its output."});
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::clearerr(stdout);
        throw Failure("inspect-output-failed");
    }
    return status;
}

Offer sectionsAndProcesses(const Given& given)
{
    Offer offer;
    if (given.count("SECTION") == 0)
        for (const auto section : kInspectSections)
            offer.candidates.push_back({section, "section"});
    if (given.count("--core") == 0)
        for (const inspect::Candidate& process : inspect::findCandidates())
            offer.candidates.push_back({fmt::format("{}", process.id), process.name});
    return offer;
}

} // namespace

void addInspect(Command top)
{
    Command command = top.add("inspect", "Looks into a process that hangs, or into a core file");
    auto options = std::make_shared<Options>();
    command.argument("SECTION", options->first,
                     "deadlocks, locks, application, shutdown, names, pools, memory or threads; "
                     "without it, all of them");
    command.argument("PID", options->second,
                     "The process. Without it and --core, lists those that use libVx.so");
    command.completes("SECTION", sectionsAndProcesses);
    command.completes("PID", sectionsAndProcesses);
    command.option("--core", options->core, "FILE", "Read a core file instead");
    command.option("--sysroot", options->sysroot, "FOLDER",
                   "Where the files of the crashed system are");
    command.option("--watch", options->watch, 86400, "SECONDS",
                   "Look again and again; one line each time if standard output is no terminal");
    command.flag("--stacks", options->stacks, "Show each thread's call stack");
    command.jsonFlag(options->json);
    command.needs("--sysroot", "--core");
    command.excludes("--watch", "--core");
    command.footer("The process is neither stopped nor written to.\n"
                   "Exit status 0 without a deadlock, 3 with one, 1 if the process cannot be read, "
                   "2 usage.\n\nExamples:\n"
                   "  vx inspect                        lists processes\n"
                   "  vx inspect 4107                   tells everything about one\n"
                   "  vx inspect locks 4107\n"
                   "  vx inspect --stacks threads 4107\n"
                   "  vx inspect --core core.4107 --sysroot /mnt/customer\n"
                   "  vx inspect --watch 60 4107 >>editor.log");
    command.runs([options] { return inspectOrExplain(*options); });
}

} // namespace tool
