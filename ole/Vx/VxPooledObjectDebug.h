// VxPooledObjectDebug.h - Logs the demand on the object pools of the process.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxShutdown.h>
#include <cstddef>

namespace Vx {
namespace PooledObjectDebug {

/// Counts the objects that a pool hands out and takes back, and logs one line about it.
///
///     class FramePool : private Vx::PooledObjectDebug::LoggingTraitsBase {
///     public:
///         FramePool() : LoggingTraitsBase("Frames") {}
///         Frame* pop() { ltb_beforePop(size); ...; ltb_afterPop(frame, size); return frame; }
///     };
///
/// The pool calls a hook before and after every pop (an object is taken from the pool) and every
/// push (an object is returned). The logger keeps the number of objects in use, its maximum, and
/// the peak demand: pops per second over intervals of 100 ms or a little more. Pops in the first
/// 7.5 seconds after construction do not count as demand.
///
/// Log: "PooledObjects.log" in the application's logs folder. The first line of a process comes
///   with a header. Every logger appends its line when the process shuts down and when it is
///   destroyed; one made during or after the final pass of the shutdown, instead, when the
///   process exits. Without an application object, or if the file cannot be opened, nothing is
///   written and nothing is reported.
/// Errors: construction and dump() let exceptions of the platform and memory exhaustion out; one
///   that leaves the destructor ends the process. The hooks only throw what the clock throws.
/// Thread safety: hooks and dump() from any thread. The hooks take no lock and allocate nothing.
///   Counts are exact; the peak is approximate if several threads close one interval.
class VX_API LoggingTraitsBase {
public:
    /// \param name the label in the log, copied; null means "". It is written as it is: a line
    ///   break in it breaks the log line
    explicit LoggingTraitsBase(const char* name);

    /// Appends this logger's line to the log.
    virtual ~LoggingTraitsBase();

    LoggingTraitsBase(const LoggingTraitsBase&) = delete;
    LoggingTraitsBase& operator=(const LoggingTraitsBase&) = delete;

    /// Deliberate: does nothing. No hook uses its arguments; the number is the pool's own.
    void ltb_beforePush(void* object, unsigned long);
    /// Counts one object less in use.
    void ltb_afterPush(void* object, unsigned long);
    /// Deliberate: does nothing.
    void ltb_beforePop(unsigned long);
    /// Counts one object more in use, and one pop.
    void ltb_afterPop(void* object, unsigned long);

    /// Appends this logger's line to the log.
    void dump();

private:
    friend struct Vx::detail::Inspect;
    friend VX_API void LoggingTraitsBase_exit(Shutdown::eExitType);

    void appendLine();

    struct Record;

    Record* record_;
};
static_assert(sizeof(LoggingTraitsBase) == 16, "pools derive from this layout");

/// The shutdown callback that every logger registers with priority 100. Pops the newest node
/// off the stack of loggers and dumps its logger, unless that is destroyed. Does nothing if the
/// stack is empty.
VX_API void LoggingTraitsBase_exit(Shutdown::eExitType);

/// The loggers of the process, newest first: a lock-free stack. Nodes are never freed, so a
/// thread may still read one that another has popped.
struct LoggerStack {
    /// A logger's node, which outlives the logger.
    struct Node {
        Node* next;                ///< the next older one
        LoggingTraitsBase* logger; ///< null once the logger is destroyed
    };
    Node* head;         ///< the newest one
    unsigned int count; ///< nodes in the stack
};

/// For diagnostic tools that read a stopped process.
extern VX_API LoggerStack gAllLoggers;

} // namespace PooledObjectDebug
} // namespace Vx
