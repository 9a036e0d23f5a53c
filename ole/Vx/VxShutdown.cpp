#include <Vx/VxShutdown.h>

#include <Vx/detail/Inspect.h>
#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

namespace {

// Constructed before, and so destroyed after, the callbacks that may use it at exit.
std::vector<void (*)(const char*)> splatCallbacks_;

} // namespace

namespace Shutdown {

constinit int status = 0;

CallbackItemList shutdownCallbacks_;

} // namespace Shutdown

namespace {

enum Status : int { kRunning = 0, kFirstPass = 1, kFinalPass = 2 };

// Deliberate: status and sequence numbers are not guarded and order nothing. Other threads
// use them all the same, hence the relaxed atomic access; two items with one number would be
// the same item to the set.
int currentStatus() { return std::atomic_ref(Shutdown::status).load(std::memory_order_relaxed); }

void setStatus(Status next)
{
    std::atomic_ref(Shutdown::status).store(next, std::memory_order_relaxed);
}

constinit std::atomic<unsigned int> nextSequence = 0;

// Only diagnostic tools read it.
constinit Vx::detail::InspectShutdownProgress progress = {nullptr, nullptr, 0};

// Notes something in the progress until the end of the scope. Callbacks may run callbacks.
class Note {
public:
    Note(const void*& place, const void* value) : place_(place), before_(place) { place = value; }
    ~Note() { place_ = before_; }
    Note(const Note&) = delete;
    Note& operator=(const Note&) = delete;

private:
    const void*& place_;
    const void* const before_;
};

void run(const Shutdown::CallbackItem& item, Shutdown::eExitType type)
{
    if (item.callback)
        item.callback->execute(type);
}

// The same for an item of the process's list.
void runNoted(const Shutdown::CallbackItem& item, Shutdown::eExitType type)
{
    const Note running(progress.running, &item);
    run(item, type);
}

} // namespace

Shutdown::FunctionCallback::FunctionCallback(std::function<void(eExitType)> function)
    : function_(std::move(function))
{}

void Shutdown::FunctionCallback::execute(const eExitType& type) { function_(type); }

Shutdown::CallbackItem::CallbackItem(const Vx::Ptr<Callback>& callback, unsigned int priority)
    : priority(priority), callback(callback)
{
    init();
}

Shutdown::CallbackItem::CallbackItem(const std::function<void(eExitType)>& function,
                                     unsigned int priority)
    : priority(priority), callback(new FunctionCallback(function))
{
    init();
}

void Shutdown::CallbackItem::init()
{
    sequence = nextSequence.fetch_add(1, std::memory_order_relaxed);
}

Shutdown::CallbackItemList::~CallbackItemList()
{
    // Destructors of callbacks are the host's code and may use this list.
    closed_ = true;
    while (!items_.empty())
        items_.extract(items_.begin());
}

void Shutdown::CallbackItemList::add(const CallbackItem& item)
{
    const std::lock_guard<CriticalSection> hold(lock_);
    if (!closed_)
        items_.insert(item);
}

void Shutdown::CallbackItemList::remove(const Vx::Ptr<Callback>& callback)
{
    // Destroyed after the lock is left: the callback's destructor is the host's code.
    decltype(items_)::node_type removed;
    const std::lock_guard<CriticalSection> hold(lock_);
    for (auto item = items_.begin(); item != items_.end(); ++item)
        if (item->callback == callback) {
            removed = items_.extract(item);
            return;
        }
}

// Deliberate: no lock. One thread shuts down, and a callback that waits for another thread must
// not keep that thread out of the list.
void Shutdown::CallbackItemList::execute(eExitType type)
{
    const auto runItem = this == &shutdownCallbacks_ ? runNoted : run;
    if (currentStatus() == kFirstPass) {
        std::set<CallbackItem> due;
        while (!items_.empty() && items_.begin()->priority <= kLastOfFirstPass)
            due.insert(due.end(), items_.extract(items_.begin()));
        const void* unlisted = nullptr;
        const Note noted(this == &shutdownCallbacks_ ? progress.due : unlisted, &due);
        for (const CallbackItem& item : due)
            runItem(item, type);
        return;
    }
    while (!items_.empty()) {
        const auto item = items_.extract(items_.begin());
        runItem(item.value(), type);
    }
}

void Shutdown::addCallback(std::function<void(eExitType)> function, unsigned int priority)
{
    if (currentStatus() != kFinalPass)
        shutdownCallbacks_.add(CallbackItem(function, priority));
}

void Shutdown::addCallback(const Vx::Ptr<Callback>& callback, unsigned int priority)
{
    if (currentStatus() != kFinalPass)
        shutdownCallbacks_.add(CallbackItem(callback, priority));
}

void Shutdown::addCallback(std::function<void()> function, unsigned int priority)
{
    addCallback(
        std::function<void(eExitType)>([function = std::move(function)](eExitType) { function(); }),
        priority);
}

void Shutdown::removeCallback(const Vx::Ptr<Callback>& callback)
{
    shutdownCallbacks_.remove(callback);
}

void Shutdown::beginShutdown() { setStatus(kFirstPass); }

bool Shutdown::isExiting() { return currentStatus() != kRunning; }

void Shutdown::executeCallbacks(eExitType type)
{
    beginShutdown();
    shutdownCallbacks_.execute(type);
    setStatus(kFinalPass);
    std::fflush(stdout);
    shutdownCallbacks_.execute(type);
    progress.ended = 1;
}

void addSplatCallback(void (*function)(const char*)) { splatCallbacks_.push_back(function); }

void callSplatCallbacks(const char* text)
{
    // By index, since a callback may append.
    for (std::size_t i = 0; i < splatCallbacks_.size(); ++i)
        splatCallbacks_[i](text);
}

// FunctionCallback has a virtual base, whose own place the offset of a plain member does not need.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constinit const Vx::detail::InspectShutdown Vx::detail::Inspect::shutdown = {
    .size = sizeof(InspectShutdown),
    .lockInList = offsetof(Shutdown::CallbackItemList, lock_),
    .status = &Shutdown::status,
    .list = &Shutdown::shutdownCallbacks_,
    .progress = &progress,
    .itemsInList = offsetof(Shutdown::CallbackItemList, items_),
    .priority = offsetof(Shutdown::CallbackItem, priority),
    .sequence = offsetof(Shutdown::CallbackItem, sequence),
    .callback = offsetof(Shutdown::CallbackItem, callback) + kObjectInPtr,
    .function = offsetof(Shutdown::FunctionCallback, function_),
};
#pragma GCC diagnostic pop
