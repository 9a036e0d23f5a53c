// VxShutdown.h - Callbacks that run when the process shuts down.
#pragma once

#include <Vx/CriticalSection.h>
#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>
#include <Vx/VxObject.h>
#include <Vx/VxPtr.h>
#include <cstddef>
#include <functional>
#include <set>

/// A callback that is shared by reference count.
template <class Result, class Argument> class VX_API iCallbackBase : public virtual iObject {
public:
    /// Runs the callback.
    virtual Result execute(const Argument& argument) = 0;
};

/// The callbacks that run at shutdown.
///
///     Shutdown::addCallback([] { closeTheCache(); }, 50);
///
/// Order: by priority, lowest first, and by age among equals. There are two passes: priorities
///   up to and including 200, then standard output is flushed, then all others. A callback
///   added during the first pass runs in the final one, whatever its priority. Callbacks added
///   later are silently ignored.
/// Errors: exceptions of callbacks leave executeCallbacks(). In the first pass the callbacks
///   that have not run are released; in the final pass they stay listed. An empty function
///   throws std::bad_function_call when it is called.
/// Thread safety: add and remove from any thread until the shutdown begins. One thread shuts
///   down, while no other adds or removes.
/// Exit without a shutdown: callbacks still listed when the process returns from main() or
///   calls exit() do not run. They are released one by one; their destructors may remove
///   callbacks, and what they add is ignored.
namespace Shutdown {

/// How the process ends, passed to every callback. The library itself uses kOrderlyExit only;
/// all other values are the host's.
enum eExitType : int {
    kOrderlyExit = 0, ///< Vx::Application::shutdown()
};

/// What the list runs: an operation that receives the exit type.
using Callback = iCallbackBase<void, eExitType>;

/// The highest priority of the first pass.
constexpr unsigned int kLastOfFirstPass = 200;

/// A callback that calls a function.
class VX_API FunctionCallback : public Callback {
public:
    /// Keeps \p function, which may be empty as long as it is not executed.
    explicit FunctionCallback(std::function<void(eExitType)> function);

    /// \throws std::bad_function_call if the function is empty
    void execute(const eExitType& type) override;

private:
    friend struct Vx::detail::Inspect;

    std::function<void(eExitType)> function_;
};

/// A callback with its place in the order.
struct VX_API CallbackItem {
    /// Shares \p callback. An item with a null callback is skipped.
    CallbackItem(const Vx::Ptr<Callback>& callback, unsigned int priority);

    /// Makes a FunctionCallback with a copy of \p function.
    CallbackItem(const std::function<void(eExitType)>& function, unsigned int priority);

    /// Takes the next sequence number of the process. Any thread may call it.
    void init();

    unsigned int priority;      ///< lowest first
    unsigned int sequence;      ///< age among equal priorities; the same in copies only
    Vx::Ptr<Callback> callback; ///< shared with whoever added it
};
static_assert(sizeof(CallbackItem) == 24 && offsetof(CallbackItem, sequence) == 4 &&
                  offsetof(CallbackItem, callback) == 8,
              "items cross module boundaries");

/// Orders by priority, then by sequence number.
inline bool operator<(const CallbackItem& a, const CallbackItem& b) noexcept
{
    return a.priority != b.priority ? a.priority < b.priority : a.sequence < b.sequence;
}

/// An ordered list of callbacks.
///
/// Thread safety: add() and remove() from any thread. execute() and the destructor take no
///   lock: no other thread may use the list meanwhile.
class VX_API CallbackItemList {
public:
    CallbackItemList() = default;
    CallbackItemList(const CallbackItemList&) = delete;
    CallbackItemList& operator=(const CallbackItemList&) = delete;

    /// Releases the callbacks one by one. Their destructors may call remove(); add() is
    /// ignored.
    ~CallbackItemList();

    /// Adds a copy of \p item, unless the list holds a copy of it.
    void add(const CallbackItem& item);

    /// Removes the first item in order that holds this very object, if there is one.
    void remove(const Vx::Ptr<Callback>& callback);

    /// Runs one pass: the first one if called between beginShutdown() and the final pass,
    /// otherwise the final one, which empties the list. Callbacks may add and remove. The
    /// first pass takes its callbacks off the list before it calls any, so they cannot be
    /// removed any more.
    void execute(eExitType type);

private:
    friend struct Vx::detail::Inspect;

    CriticalSection lock_;
    std::set<CallbackItem> items_; // guarded by lock_, except in execute()
    bool closed_ = false;          // rejects additions; set by the destructor
};

/// 0 while the process runs, 1 from the beginning of the shutdown, 2 from its final pass on.
/// Read-only, and only on the thread that shuts down; elsewhere use isExiting().
extern VX_API int status;

/// The list of the process.
extern VX_API CallbackItemList shutdownCallbacks_;

/// Adds a callback to the list of the process. Ignored from the final pass on.
VX_API void addCallback(std::function<void(eExitType)> function, unsigned int priority);
VX_API void addCallback(const Vx::Ptr<Callback>& callback, unsigned int priority);
VX_API void addCallback(std::function<void()> function, unsigned int priority);

/// Removes the first callback in order that is this very object, if there is one.
VX_API void removeCallback(const Vx::Ptr<Callback>& callback);

/// Marks the process as exiting, which cannot be undone.
VX_API void beginShutdown();

/// Returns whether the shutdown has begun. Any thread may call it.
VX_API bool isExiting();

/// Runs both passes and flushes standard output in between. A second call finds nothing to run.
VX_API void executeCallbacks(eExitType type);

} // namespace Shutdown

/// Adds \p function to the functions that callSplatCallbacks() calls. A function that is added
/// twice is called twice.
/// Thread safety: none, callSplatCallbacks() included.
VX_API void addSplatCallback(void (*function)(const char*));

/// Calls every splat callback with \p text in the order of addition, including those that are
/// added meanwhile.
VX_API void callSplatCallbacks(const char* text);
