// InspectReport.h - Prints what `vx inspect` has found.
#pragma once

#include <inspect/Snapshot.h>
#include <inspect/Symbols.h>

#include <string>

namespace tool {

/// The sections of a report, as the command line names them.
inline constexpr const char* kInspectSections[] = {"deadlocks", "locks", "application", "shutdown",
                                                   "names",     "pools", "memory",      "threads"};

struct InspectReport {
    const inspect::Process& process;
    const inspect::Snapshot& snapshot;
    const inspect::Symbols& symbols;
    std::string section; ///< empty for all
    bool stacks = false;

    bool has(const char* name) const { return section.empty() || section == name; }
};

/// For people: deadlocks first. A report of all sections leaves out free locks and shortens lists.
void printText(const InspectReport& report);

/// The same as one JSON object, complete.
void printJson(const InspectReport& report);

/// One line for a log: the process, and its deadlocks or that it has none.
std::string summaryOf(const InspectReport& report);

/// "thread 4121 'render'", or what is known of a thread that ended.
std::string threadText(const inspect::Snapshot& snapshot, unsigned int thread);
std::string deadlockText(const inspect::Snapshot& snapshot, const inspect::Deadlock& deadlock);
const char* stateText(const inspect::ShutdownList& shutdown);
/// What a callback calls, as far as symbols tell.
std::string callbackText(const InspectReport& report, const inspect::Callback& callback);

} // namespace tool
