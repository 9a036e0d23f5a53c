#include <Vx/VxShutdown.h>

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

void run(const Shutdown::CallbackItem& item, Shutdown::eExitType type)
{
    if (item.callback)
        item.callback->execute(type);
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
    if (currentStatus() == kFirstPass) {
        std::set<CallbackItem> due;
        while (!items_.empty() && items_.begin()->priority <= kLastOfFirstPass)
            due.insert(due.end(), items_.extract(items_.begin()));
        for (const CallbackItem& item : due)
            run(item, type);
        return;
    }
    while (!items_.empty()) {
        const auto item = items_.extract(items_.begin());
        run(item.value(), type);
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
}

void addSplatCallback(void (*function)(const char*)) { splatCallbacks_.push_back(function); }

void callSplatCallbacks(const char* text)
{
    // By index, since a callback may append.
    for (std::size_t i = 0; i < splatCallbacks_.size(); ++i)
        splatCallbacks_[i](text);
}
