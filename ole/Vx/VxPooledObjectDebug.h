// VxPooledObjectDebug.h - how much the pools of the process are asked for.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxShutdown.h>
#include <cstddef>

namespace Vx {
namespace PooledObjectDebug {

/// Counts what a pool gives out and takes back, and writes one line about it.
///
/// The pool calls a hook before and after every pop (an object taken from the pool) and
/// every push (an object returned). The logger keeps the objects in use, the most ever in
/// use, and the peak of the demand: pops per second over intervals of a good 100 ms. Pops
/// of the first 7.5 seconds after construction do not count towards the peak.
///
/// Log: "PooledObjects.log" in the application's logs folder, appended to, with a header
///   by the first logger of a process. Each logger writes a line when the process shuts
///   down and when it is destroyed. With no application object, or no file to be had
///   there, nothing is written and nothing reported.
/// Errors: construction and dump() let out what memory and the platform throw; out of the
///   destructor that ends the process. The hooks throw only what the clock throws.
/// Threads: hooks from any, at once; they take no lock and allocate nothing. A peak may
///   then be a little off, the counts are exact. dump() from any.
class VX_API LoggingTraitsBase {
public:
    /// \param name the label in the log, copied; null reads as ""
    explicit LoggingTraitsBase(const char* name);

    /// Writes the line.
    virtual ~LoggingTraitsBase();

    LoggingTraitsBase(const LoggingTraitsBase&) = delete;
    LoggingTraitsBase& operator=(const LoggingTraitsBase&) = delete;

    /// Deliberate: does nothing. No hook looks at its arguments; the number is the pool's own.
    void ltb_beforePush(void* object, unsigned long);
    /// One object less is in use.
    void ltb_afterPush(void* object, unsigned long);
    /// Deliberate: does nothing.
    void ltb_beforePop(unsigned long);
    /// One object more is in use, and the demand is one pop higher.
    void ltb_afterPop(void* object, unsigned long);

    /// Appends the line of this logger to the log.
    void dump();

private:
    friend VX_API void LoggingTraitsBase_exit(Shutdown::eExitType);

    void appendLine();

    struct Record;

    Record* record_;
};
static_assert(sizeof(LoggingTraitsBase) == 16, "pools derive from this layout");

/// The shutdown callback that every logger registers, with priority 100. Takes the newest
/// node off the list of loggers and dumps its logger; nothing if that has been destroyed,
/// or if there is no node left.
VX_API void LoggingTraitsBase_exit(Shutdown::eExitType);

/// The loggers of the process, the newest first: a stack without a lock. Nodes are never
/// freed, so that whoever looks at one may go on looking.
struct LoggerStack {
    /// A logger's place in the stack, which outlives it.
    struct Node {
        Node* next;                ///< the next older one
        LoggingTraitsBase* logger; ///< null once the logger is destroyed
    };
    Node* head;         ///< the newest one
    unsigned int count; ///< nodes in the stack
};

/// For diagnostic tools, which read it while the process stands still.
extern VX_API LoggerStack gAllLoggers;

} // namespace PooledObjectDebug
} // namespace Vx
