#include <Vx/VxReport.h>

#include <Vx/VxPtr.h>
#include <Vx/detail/Inspect.h>
#include <Vx/detail/OwnMemory.h>
#include <Vx/detail/ReportText.h>
#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iThreading.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

// Where the linker begins this library, and where it ends the code.
#pragma GCC visibility push(hidden)
extern "C" const char vxStart[] __asm__("__ehdr_start");
extern "C" const char vxCodeEnd[] __asm__("etext");
#pragma GCC visibility pop

namespace Vx {
namespace {

using detail::Address;
using detail::addressOf;
using detail::Column;
using detail::Hex;
using detail::Inspect;
using detail::OwnMemory;
using Progress = detail::InspectShutdownProgress;

constexpr unsigned int kLastOfFirstPass = 200;
constexpr std::size_t kMostSpaces = 32;

bool isOurCode(Address at) { return at >= addressOf(vxStart) && at < addressOf(vxCodeEnd); }

using StringBlock = LightweightString<wchar_t>::Impl;
static_assert(offsetof(StringBlock, length) == offsetof(StringBlock, data) + 8 &&
                  offsetof(StringBlock, capacity) == offsetof(StringBlock, data) + 12,
              "a string's characters are read with one look");

class Report {
public:
    Report(ReportSink sink, void* context) : text_(sink, context) {}
    void write();

private:
    void locks();
    void application();
    void shutdown();
    void names();
    void pools();

    struct Callbacks {
        std::optional<Progress> progress;
        std::size_t count = 0;
        bool runningIsDue = false;  // in the first pass
        bool runningIsAway = false; // on no list any more
        bool complete = false;
    };
    template <class Visit> Callbacks visitCallbacks(const Visit& visit) const;
    template <class Name> void lock(Address section, std::string_view place, const Name& name);
    bool callbackRows(const Callbacks& seen);
    void callback(Address item, std::string_view pass, std::string_view state);
    bool pool(Address logger);

    void heading(std::string_view title);
    void count(std::size_t number, std::string_view one, std::string_view many);
    void owner(const OwnMemory::Lock& lock);
    void nameRow(Address space, Address entry);
    void quoted(Address string)
    {
        text_ << "'";
        memory_.print<char>(text_, string);
        text_ << "'";
    }
    void function(Address at);
    void state();

    void addSpace(Address space);

    detail::ReportText text_;
    OwnMemory memory_;
    std::size_t freeLocks_ = 0;
    std::size_t shownLocks_ = 0;
    std::size_t shownNames_ = 0;
    Address spaces_[kMostSpaces]; // the global namespace, and those that are published in one
    std::size_t spaceCount_ = 0;
};

// What comes before is safe whatever the section runs into.
void Report::heading(std::string_view title)
{
    text_ << "\n" << title << "\n";
    text_.flush();
}

void Report::count(std::size_t number, std::string_view one, std::string_view many)
{
    text_ << number << " " << (number == 1 ? one : many);
}

void Report::owner(const OwnMemory::Lock& lock)
{
    if (lock.known)
        text_ << lock.owner;
    else
        text_ << "changing";
}

// \p name prints a name for a lock that has none of its own.
template <class Name> void Report::lock(Address section, std::string_view place, const Name& name)
{
    const OwnMemory::Lock lock = memory_.lock(section);
    if (lock.known && lock.owner == 0) {
        ++freeLocks_;
        return;
    }
    if (shownLocks_++ == 0)
        text_ << "LOCK" << Column{32} << "WHERE" << Column{48} << "OWNER" << Column{58} << "DEPTH"
              << Column{65} << "WAITING\n";
    const auto own = memory_.string<char>(lock.name);
    text_ << "'";
    if (own && own->length != 0)
        memory_.print<char>(text_, lock.name);
    else
        name();
    text_ << "'" << Column{32} << (lock.name != 0 ? place : "damaged") << Column{48};
    owner(lock);
    text_ << Column{58} << (lock.known ? std::optional(lock.depth) : std::nullopt) << Column{65}
          << "unknown\n";
}

void Report::addSpace(Address space)
{
    Address* const end = spaces_ + spaceCount_;
    if (space != 0 && spaceCount_ < kMostSpaces && std::find(spaces_, end, space) == end)
        spaces_[spaceCount_++] = space;
}

void Report::locks()
{
    heading("Locks");
    const auto& layout = Inspect::names;
    addSpace(memory_.get<Address>(addressOf(layout.global)).value_or(0));
    for (std::size_t i = 0; i < spaceCount_; ++i) { // more are found meanwhile
        const Address space = spaces_[i];
        lock(space + layout.namespaceLock, "namespace", [&] {
            text_ << "namespace ";
            memory_.print<char>(text_, space + layout.namespaceName);
        });
        memory_.visitEntries(space, [&](Address entry) {
            const auto name = [&] { memory_.print<char>(text_, entry + layout.objectName); };
            lock(entry + layout.lock, "named object", name);
            const Address object = memory_.get<Address>(entry + layout.object).value_or(0);
            if (object == 0)
                return;
            if (memory_.isString(entry + layout.typeName, "15CriticalSection"))
                lock(object, "published lock", name);
            if (memory_.isString(entry + layout.typeName, "N2Vx21NamedObjectsNamespaceE"))
                addSpace(object);
        });
    }
    lock(addressOf(Inspect::shutdown.list) + Inspect::shutdown.lockInList, "shutdown list",
         [&] { text_ << "shutdown list"; });
    if (shownLocks_ == 0)
        count(freeLocks_, "lock, free", "locks, all free");
    else
        count(freeLocks_, "other lock, free", "other locks, all free");
    text_ << "\n";
}

void Report::state()
{
    static constexpr std::string_view kStates[] = {"running", "first pass of the shutdown",
                                                   "final pass of the shutdown"};
    const auto status = memory_.get<std::uint32_t>(addressOf(Inspect::shutdown.status));
    const auto progress = memory_.get<Progress>(addressOf(Inspect::shutdown.progress));
    if (!status || !progress || *status > 2)
        text_ << "unknown";
    else
        text_ << (*status == 2 && progress->ended == 1 ? "ended: all callbacks have run"
                                                       : kStates[*status]);
}

void Report::application()
{
    heading("Application");
    const auto& layout = Inspect::application;
    const auto instance = memory_.get<Address>(addressOf(layout.instance));
    const auto line = [&](std::string_view key, std::uint32_t offset) {
        text_ << key << Column{16};
        memory_.print<wchar_t>(text_, *instance + offset);
        text_ << "\n";
    };
    if (instance && *instance != 0) {
        line("name", layout.name);
        line("version", layout.version);
        line("user data", layout.userDataPath);
        line("logs", layout.logsPath);
        const auto normal = memory_.get<unsigned char>(*instance + layout.previousExitWasNormal);
        text_ << "previous exit" << Column{16}
              << (!normal || *normal > 1 ? "<damaged>"
                  : *normal == 1         ? "normal"
                                         : "not normal")
              << "\n";
    } else
        text_ << "name" << Column{16} << "no application object\n";
    text_ << "libVx.so" << Column{16} << std::string_view(Vx_inspectDescriptor.libraryVersion)
          << "\nstate" << Column{16};
    state();
    text_ << "\n";
}

// Visits the callbacks of the first pass, with true, then the others.
template <class Visit> Report::Callbacks Report::visitCallbacks(const Visit& visit) const
{
    const auto& layout = Inspect::shutdown;
    Callbacks seen;
    seen.progress = memory_.get<Progress>(addressOf(layout.progress));
    if (!seen.progress)
        return seen;
    const Address running = addressOf(seen.progress->running);
    const Address due = addressOf(seen.progress->due);
    bool listed = false;
    const auto each = [&](Address item, bool isDue) {
        ++seen.count;
        listed = listed || item == running;
        seen.runningIsDue = seen.runningIsDue || (isDue && item == running);
        visit(item, isDue);
    };
    const bool first = due == 0 || memory_.visitSet(due, [&](Address item) { each(item, true); });
    const bool rest = memory_.visitSet(addressOf(layout.list) + layout.itemsInList,
                                       [&](Address item) { each(item, false); });
    seen.runningIsAway = running != 0 && !listed;
    seen.count += seen.runningIsAway;
    const auto after = memory_.get<Progress>(addressOf(layout.progress));
    seen.complete = first && rest && after && after->due == seen.progress->due &&
                    after->running == seen.progress->running;
    return seen;
}

// Which function a std::function calls: its invoker is the code of the callable, or code that
// calls the plain function which it stores. The two cannot be told apart outside the library.
void Report::function(Address at)
{
    struct Function {
        Address stored, unused, manager, invoker;
    };
    auto function = memory_.get<Function>(at);
    // The library wraps functions without arguments, and so holds another std::function.
    if (function && isOurCode(function->invoker) && !isOurCode(function->stored))
        function = memory_.get<Function>(function->stored);
    if (!function)
        text_ << "<damaged>";
    else if (isOurCode(function->invoker))
        text_ << Hex{function->stored};
    else
        text_ << Hex{function->invoker} << " (" << Hex{function->stored} << ")";
}

// The virtual table of a callback leads to its type, and execute() is its third operation.
void Report::callback(Address item, std::string_view pass, std::string_view state)
{
    const auto& layout = Inspect::shutdown;
    const auto priority = memory_.get<std::uint32_t>(item + layout.priority);
    const auto object = memory_.get<Address>(item + layout.callback);
    const auto table = memory_.get<Address>(object.value_or(0));
    const auto info = memory_.get<Address>(table.value_or(0) - sizeof(Address));
    const auto type = memory_.get<Address>(info.value_or(0) + sizeof(Address));
    const auto execute = memory_.get<Address>(table.value_or(0) + 2 * sizeof(Address));
    text_ << pass << Column{7} << priority << Column{17};
    if (object && *object == 0)
        text_ << "null";
    else if (!type || !execute)
        text_ << "<damaged>";
    else if (memory_.isTerminated(*type, "N8Shutdown16FunctionCallbackE"))
        function(*object + layout.function);
    else {
        text_ << Hex{*execute} << " ";
        const bool local = memory_.get<char>(*type) == '*'; // marks types without linkage
        memory_.printTerminated(text_, *type + local);
    }
    text_ << Column{58} << state << "\n";
}

// Returns whether there were as many as at the look before.
bool Report::callbackRows(const Callbacks& seen)
{
    const Address running = seen.progress ? addressOf(seen.progress->running) : 0;
    if (seen.count != 0)
        text_ << "PASS" << Column{7} << "PRIORITY" << Column{17} << "FUNCTION" << Column{58}
              << "STATE\n";
    if (seen.runningIsAway)
        callback(running, "final", "RUNNING");
    const bool begun = memory_.get<std::uint32_t>(addressOf(Inspect::shutdown.status)) != 0u;
    bool ran = seen.runningIsDue; // callbacks before the one that runs
    const Callbacks printed = visitCallbacks([&](Address item, bool isDue) {
        const auto priority = memory_.get<std::uint32_t>(item + Inspect::shutdown.priority);
        const bool isFirst = isDue || (!begun && priority && *priority <= kLastOfFirstPass);
        ran = ran && isDue && item != running;
        callback(item, isFirst ? "first" : "final",
                 item == running ? "RUNNING"
                 : ran           ? "has run"
                                 : "waits");
    });
    return printed.complete && printed.count == seen.count;
}

void Report::shutdown()
{
    heading("Shutdown");
    // The first looks only count, so that what is printed is consistent.
    Callbacks seen;
    for (int look = 0; look < detail::kMostLooks && !seen.complete; ++look)
        seen = visitCallbacks([](Address, bool) {});
    state();
    text_ << ", ";
    count(seen.count, "callback", "callbacks");
    text_ << "\n";
    const bool same = callbackRows(seen);
    if (!seen.complete || !same)
        text_ << "note: the shutdown list changed at each look, or is damaged: it is not "
                 "complete\n";
}

void Report::nameRow(Address space, Address entry)
{
    const auto& layout = Inspect::names;
    const unsigned int indent = spaceCount_ > 1 ? 24 : 0; // for the column of namespaces
    if (shownNames_++ == 0)
        text_ << (indent != 0 ? "NAMESPACE               TYPE" : "TYPE") << Column{indent + 40}
              << "NAME" << Column{indent + 72} << "OBJECT" << Column{indent + 88} << "LOCK\n";
    if (indent != 0)
        quoted(space + layout.namespaceName), text_ << Column{indent};
    memory_.print<char>(text_, entry + layout.typeName);
    text_ << Column{indent + 40};
    quoted(entry + layout.objectName);
    text_ << Column{indent + 72};
    const auto object = memory_.get<Address>(entry + layout.object);
    if (object && *object != 0)
        text_ << Hex{*object} << Column{indent + 88};
    else
        text_ << (object ? "none" : "<damaged>") << Column{indent + 88};
    const OwnMemory::Lock lock = memory_.lock(entry + layout.lock);
    if (lock.known && lock.owner == 0)
        text_ << "free";
    else
        owner(lock);
    text_ << "\n";
}

// The looks at the locks have found the namespaces.
void Report::names()
{
    heading("Named objects");
    bool whole = true;
    for (std::size_t i = 0; i < spaceCount_; ++i) {
        const std::size_t before = shownNames_;
        if (memory_.visitEntries(spaces_[i], [&](Address entry) { nameRow(spaces_[i], entry); }))
            continue;
        whole = false;
        text_ << "note: the list of named objects of namespace ";
        quoted(spaces_[i] + Inspect::names.namespaceName);
        text_ << " is damaged after " << shownNames_ - before << " entries\n";
    }
    if (whole && shownNames_ == 0)
        text_ << "none\n";
    if (spaceCount_ == kMostSpaces)
        text_ << "note: more namespaces may be left out\n";
}

// Returns false if it cannot be read.
bool Report::pool(Address logger)
{
    const auto& layout = Inspect::pools;
    const Address record = memory_.get<Address>(logger + layout.recordInLogger).value_or(0);
    const auto name = memory_.get<Address>(record + layout.name);
    const auto inUse = memory_.get<std::int32_t>(record + layout.inUse);
    const auto most = memory_.get<std::int32_t>(record + layout.maxInUse);
    const auto demand = memory_.get<double>(record + layout.peakDemand);
    const auto time = memory_.get<std::int64_t>(record + layout.peakWallTime);
    if (!name || !inUse || !most || !demand || !time)
        return false;
    memory_.printTerminated(text_, *name);
    text_ << Column{32} << *inUse << Column{40} << *most << Column{53}
          << detail::Amount{1000 * *demand} << Column{64} << detail::UtcTime{*time} << "\n";
    return true;
}

// Nodes are never freed, so a stack that changes meanwhile leads nowhere wrong. Each node is
// compared with an earlier one, ever further back, which finds a circle.
void Report::pools()
{
    heading("Pools");
    const auto& layout = Inspect::pools;
    auto node = memory_.get<Address>(addressOf(layout.stack));
    Address earlier = 0;
    std::size_t nodes = 0;
    std::size_t damaged = 0;
    while (node && *node != 0 && *node != earlier) {
        if (nodes++ == 0)
            text_ << "POOL" << Column{32} << "IN USE" << Column{40} << "MOST IN USE" << Column{53}
                  << "PEAK/S" << Column{64} << "PEAK AT\n";
        if ((nodes & (nodes - 1)) == 0)
            earlier = *node;
        const auto logger = memory_.get<Address>(*node + layout.loggerInNode);
        damaged += !logger || (*logger != 0 && !pool(*logger));
        node = memory_.get<Address>(*node + layout.nextInNode);
    }
    if (!node || *node != 0)
        text_ << "note: the list of pools is damaged\n";
    else if (nodes == 0)
        text_ << "none\n";
    if (damaged != 0)
        text_ << "note: " << damaged << " pools ended meanwhile or are damaged\n";
}

void Report::write()
{
    unsigned int self = 0;
    try {
        self = OS()->threading()->currentThreadId();
    } catch (...) { // the report goes without
    }
    text_ << "Report of a process on itself, by thread " << self << "\n";
    if (!memory_.checked())
        text_ << "note: addresses cannot be checked here: the report ends at a damaged one\n";
    if (Inspect::locks.standardLibrary == 1) {
        locks();
        application();
        shutdown();
        names();
    } else {
        text_ << "note: locks, callbacks and names are left out: their lists are those of another "
                 "C++ standard library\n";
        application();
    }
    pools();
    text_ << "\nWaiting threads, deadlocks and memory: vx inspect PID, or vx inspect --core FILE\n"
             "end of the report\n";
}

} // namespace

void writeReport(ReportSink sink, void* context) noexcept { Report(sink, context).write(); }

bool writeReport(const LightweightString<wchar_t>& path) noexcept
try {
    struct Collected {
        std::string bytes;
        bool complete = true;
    } text;
    writeReport(
        [](void* context, const char* bytes, std::size_t count) {
            auto& collected = *static_cast<Collected*>(context);
            try {
                collected.bytes.append(bytes, count);
            } catch (...) {
                collected.complete = false;
            }
        },
        &text);
    // Only now the file is opened: if memory ran out, it is untouched.
    if (!text.complete || text.bytes.size() > std::numeric_limits<unsigned int>::max())
        return false;
    const Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(path, 2, 3, 0, 0);
    return file && file->write(text.bytes.data(), static_cast<unsigned int>(text.bytes.size())) &&
           file->write(text.bytes.data(), 0); // the commit
} catch (...) {
    return false;
}

} // namespace Vx
