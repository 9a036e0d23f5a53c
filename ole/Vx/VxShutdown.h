// VxShutdown.h - what runs when the process shuts down, and in which order.
#pragma once

#include <Vx/CriticalSection.h>
#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <Vx/VxObject.h>
#include <Vx/VxPtr.h>
#include <cstddef>
#include <functional>
#include <set>

/// Something that can be called and is shared by count.
template <class Result, class Argument> class VX_API iCallbackBase : public virtual iObject {
public:
    /// What the callback is there for.
    virtual Result execute(const Argument& argument) = 0;
};

/// The callbacks that run at shutdown.
///
///     Shutdown::addCallback([] { closeTheCache(); }, 50);
///
/// Order: by priority, lowest first; equal priorities in the order in which they were
///   added. Two passes: priorities up to and including 200, then standard output is
///   flushed, then everything else. A callback that is added while the first pass runs
///   waits for the final one, whatever its priority; one that is added later is
///   silently refused.
/// Errors: what a callback throws leaves executeCallbacks(). In the first pass the
///   callbacks not yet called are released unrun, in the final pass they stay listed.
///   An empty function raises std::bad_function_call when its turn comes.
/// Threads: add and remove from any. Shutting down is one thread's work, while no other
///   thread adds or removes.
namespace Shutdown {

/// How the process ends; handed through to every callback. The library itself shuts
/// down in an orderly way only; every other number is the host's.
enum eExitType : int {
    kOrderlyExit = 0, ///< the host has stopped its work and goes
};

/// What is executed at shutdown.
using Callback = iCallbackBase<void, eExitType>;

/// The last priority of the first pass.
constexpr unsigned int kLastOfFirstPass = 200;

/// A callback that calls a function.
class VX_API FunctionCallback : public Callback {
public:
    /// Keeps \p function, which may be empty until it is executed.
    explicit FunctionCallback(std::function<void(eExitType)> function);

    /// \throws std::bad_function_call when the function is empty
    void execute(const eExitType& type) override;

private:
    std::function<void(eExitType)> function_;
};

/// A callback with its place in the order: by priority, then by age.
struct VX_API CallbackItem {
    /// Shares \p callback; an empty pointer is skipped when its turn comes.
    CallbackItem(const Vx::Ptr<Callback>& callback, unsigned int priority);

    /// Holds a copy of \p function.
    CallbackItem(const std::function<void(eExitType)>& function, unsigned int priority);

    /// Takes the next number of the process as the item's age. Any thread.
    void init();

    unsigned int priority;      ///< lowest first
    unsigned int sequence;      ///< unique for an item and its copies
    Vx::Ptr<Callback> callback; ///< shared with whoever added it
};
static_assert(sizeof(CallbackItem) == 24 && offsetof(CallbackItem, sequence) == 4 &&
                  offsetof(CallbackItem, callback) == 8,
              "items cross module boundaries");

/// Both numbers unsigned.
inline bool operator<(const CallbackItem& a, const CallbackItem& b) noexcept
{
    return a.priority != b.priority ? a.priority < b.priority : a.sequence < b.sequence;
}

/// An ordered list of callbacks.
///
/// Threads: add and remove from any; execute takes no lock.
class VX_API CallbackItemList {
public:
    CallbackItemList() = default;
    CallbackItemList(const CallbackItemList&) = delete;
    CallbackItemList& operator=(const CallbackItemList&) = delete;

    /// Adds a copy of \p item. An item that is listed already is not listed again.
    void add(const CallbackItem& item);

    /// Removes the first item in order that holds this very object, if there is one.
    void remove(const Vx::Ptr<Callback>& callback);

    /// Runs one pass: the first one between beginShutdown() and its end, otherwise the
    /// final one, which empties the list. Callbacks may add and remove. Those of the
    /// first pass have left the list before any of them is called, so removing one of
    /// them then comes too late.
    void execute(eExitType type);

private:
    CriticalSection lock_;
    std::set<CallbackItem> items_; // guarded by lock_, except while shutting down
};

/// 0 while the process runs, 1 from the beginning of the shutdown, 2 from its final pass
/// on. To be read only, on the thread that shuts down; others ask isExiting().
extern VX_API int status;

/// The list of the process.
extern VX_API CallbackItemList shutdownCallbacks_;

/// Has \p function called at shutdown. Ignored from the final pass on.
VX_API void addCallback(std::function<void(eExitType)> function, unsigned int priority);

/// Has \p callback executed at shutdown. Ignored from the final pass on.
VX_API void addCallback(const Vx::Ptr<Callback>& callback, unsigned int priority);

/// Has \p function called at shutdown, however the process ends. Ignored from the final
/// pass on.
VX_API void addCallback(std::function<void()> function, unsigned int priority);

/// Takes back the first callback in order that is this very object, if there is one.
VX_API void removeCallback(const Vx::Ptr<Callback>& callback);

/// From now on the process is exiting. There is no way back.
VX_API void beginShutdown();

/// Whether the shutdown has begun. Any thread.
VX_API bool isExiting();

/// Shuts down: both passes, with standard output flushed in between. Meant to be called
/// once; a second call finds nothing to run.
VX_API void executeCallbacks(eExitType type);

} // namespace Shutdown

/// Adds \p function to the splat callbacks, which callSplatCallbacks() calls. A function
/// that is added twice is called twice.
/// Threads: one at a time, callSplatCallbacks() included.
VX_API void addSplatCallback(void (*function)(const char*));

/// Calls every splat callback with \p text in the order in which they were added, those
/// included that are added on the way.
VX_API void callSplatCallbacks(const char* text);
