#include <Vx/VxPooledObjectDebug.h>

#include <Vx/CriticalSection.h>
#include <Vx/LightweightString.h>
#include <Vx/VxApplication.h>
#include <Vx/VxClock.h>
#include <Vx/VxNamedObjects.h>
#include <Vx/VxStringUtils.h>
#include <Vx/detail/Inspect.h>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <new>

namespace Vx {
namespace PooledObjectDebug {

constinit LoggerStack gAllLoggers = {nullptr, 0};

namespace {

constexpr unsigned int kShutdownPriority = 100;
constexpr double kWarmUpMsecs = 7500.0;
constexpr double kIntervalMsecs = 100.0;
constexpr auto kRelaxed = std::memory_order_relaxed;

void push(LoggerStack::Node* node) noexcept
{
    const std::atomic_ref head(gAllLoggers.head);
    node->next = head.load(kRelaxed);
    while (!head.compare_exchange_weak(node->next, node, std::memory_order_release, kRelaxed)) {
    }
    std::atomic_ref(gAllLoggers.count).fetch_add(1, kRelaxed);
}

// A node is pushed once and never freed, so a head that compares equal is the same node with
// the same successor.
LoggerStack::Node* pop() noexcept
{
    const std::atomic_ref head(gAllLoggers.head);
    LoggerStack::Node* node = head.load(std::memory_order_acquire);
    while (node != nullptr &&
           !head.compare_exchange_weak(node, node->next, std::memory_order_acquire)) {
    }
    if (node != nullptr)
        std::atomic_ref(gAllLoggers.count).fetch_sub(1, kRelaxed);
    return node;
}

void dumpNewestAtExit() noexcept
{
    try {
        LoggingTraitsBase_exit(Shutdown::kOrderlyExit);
    } catch (...) { // the line is lost, the exit goes on
    }
}

// Registers one call of LoggingTraitsBase_exit(). Every node on the stack needs one of its own:
// otherwise it takes the call of an older logger.
void registerForExit()
{
    constexpr int kFinalPass = 2; // refuses callbacks
    if (std::atomic_ref(Shutdown::status).load(kRelaxed) != kFinalPass)
        Shutdown::addCallback(std::function<void(Shutdown::eExitType)>(LoggingTraitsBase_exit),
                              kShutdownPriority);
    else if (std::atexit(dumpNewestAtExit) != 0)
        throw std::bad_alloc();
}

// Guards the log file.
CriticalSection& fileAccessLock()
{
    return *NamedObjectsNamespace::getGlobalNamespaceInstance()->findOrCreate<CriticalSection>(
        "PooledObjects.log_FileAccessLock");
}

using HoldFile = std::lock_guard<CriticalSection>;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// asctime(localtime(&when)), which ends with a newline. A time that cannot be printed does not
// suppress the line.
struct TimeText {
    explicit TimeText(std::time_t when)
    {
        tzset(); // localtime_r() need not call it
        std::tm parts;
        if (localtime_r(&when, &parts) == nullptr || asctime_r(&parts, text) == nullptr)
            std::strcpy(text, "(no time)\n");
    }
    char text[64];
};

} // namespace

// Hooks of many threads use the atomic members at once. Relaxed access suffices: no member
// guards another.
struct LoggingTraitsBase::Record {
    explicit Record(const char* label)
    {
        const std::size_t size = label != nullptr ? std::strlen(label) + 1 : 1;
        name = new char[size];
        std::memcpy(name, label != nullptr ? label : "", size);
    }
    ~Record() { delete[] name; }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    char* name;
    std::atomic<int> inUse = 0;
    std::atomic<int> maxInUse = 0;
    std::atomic<int> demandCount = 0;
    std::atomic<double> intervalStart = 0;
    std::atomic<double> peakDemand = 0;
    std::atomic<double> peakTime = 0;
    std::atomic<std::time_t> peakWallTime = 0;
    double created = 0;

    LoggerStack::Node* node = nullptr; // the stack's
};

LoggingTraitsBase::LoggingTraitsBase(const char* name) : record_(nullptr)
{
    std::unique_ptr<Record> record(new Record(name));
    record->created = msecsNow();
    std::unique_ptr<LoggerStack::Node> node(new LoggerStack::Node{nullptr, this});
    registerForExit();
    // Nothing can fail any more.
    record->node = node.release();
    record_ = record.release();
    push(record_->node);
}

LoggingTraitsBase::~LoggingTraitsBase()
{
    {
        // A shutdown on another thread either dumps this logger before, or finds that it is
        // destroyed.
        const HoldFile hold(fileAccessLock());
        appendLine();
        record_->node->logger = nullptr;
    }
    delete record_;
}

// Deliberate: empty. Pools call all four hooks, so that a later version may count more.
void LoggingTraitsBase::ltb_beforePush(void*, unsigned long) {}
void LoggingTraitsBase::ltb_beforePop(unsigned long) {}

void LoggingTraitsBase::ltb_afterPush(void*, unsigned long)
{
    record_->inUse.fetch_sub(1, kRelaxed);
}

void LoggingTraitsBase::ltb_afterPop(void*, unsigned long)
{
    Record& record = *record_;
    const int inUse = record.inUse.fetch_add(1, kRelaxed) + 1;
    int most = record.maxInUse.load(kRelaxed);
    while (most < inUse && !record.maxInUse.compare_exchange_weak(most, inUse, kRelaxed)) {
    }

    if (!(msecsNow() - record.created > kWarmUpMsecs))
        return;
    const double intervalStart = record.intervalStart.load(kRelaxed);
    if (!(msecsNow() - intervalStart > kIntervalMsecs)) {
        record.demandCount.fetch_add(1, kRelaxed);
        return;
    }
    // Deliberate: not locked from here on. Two threads may close one interval; then the peak is
    // approximate, and no pool waits.
    const double rate = record.demandCount.load(kRelaxed) / (msecsNow() - intervalStart);
    if (rate > record.peakDemand.load(kRelaxed)) {
        record.peakDemand.store(rate, kRelaxed);
        record.peakTime.store(msecsNow(), kRelaxed);
        record.peakWallTime.store(std::time(nullptr), kRelaxed);
    }
    record.intervalStart.store(msecsNow(), kRelaxed);
    // The pop that closed the interval counts in the new one.
    record.demandCount.exchange(1, kRelaxed);
}

void LoggingTraitsBase::dump()
{
    const HoldFile hold(fileAccessLock());
    appendLine();
}

// The file access lock is held.
void LoggingTraitsBase::appendLine()
{
    static constinit bool headerWritten = false;

    const Application* const application = Application::instance();
    if (application == nullptr)
        return;
    LightweightString<wchar_t> path = application->getLogsPath();
    path += L"PooledObjects.log";
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(toUTF8(path).c_str(), "a+t"));
    if (file == nullptr)
        return;
    if (!headerWritten) {
        headerWritten = true;
        std::fprintf(file.get(),
                     "\n----------------------------------------------------------- %s\n",
                     TimeText(std::time(nullptr)).text);
    }
    std::fprintf(file.get(), "%s: maxInUse %d Peak Demand %.2f allocs/sec @ %.2f %s", record_->name,
                 record_->maxInUse.load(kRelaxed), 1000.0 * record_->peakDemand.load(kRelaxed),
                 record_->peakTime.load(kRelaxed),
                 TimeText(record_->peakWallTime.load(kRelaxed)).text);
}

void LoggingTraitsBase_exit(Shutdown::eExitType)
{
    LoggerStack::Node* const node = pop();
    if (node == nullptr)
        return;
    const HoldFile hold(fileAccessLock());
    if (node->logger != nullptr)
        node->logger->appendLine();
}

} // namespace PooledObjectDebug

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
constinit const detail::InspectPools detail::Inspect::pools = {
    .size = sizeof(InspectPools),
    .recordInLogger = offsetof(PooledObjectDebug::LoggingTraitsBase, record_),
    .stack = &PooledObjectDebug::gAllLoggers,
    .nextInNode = offsetof(PooledObjectDebug::LoggerStack::Node, next),
    .loggerInNode = offsetof(PooledObjectDebug::LoggerStack::Node, logger),
    .name = offsetof(PooledObjectDebug::LoggingTraitsBase::Record, name),
    .inUse = offsetof(PooledObjectDebug::LoggingTraitsBase::Record, inUse),
    .maxInUse = offsetof(PooledObjectDebug::LoggingTraitsBase::Record, maxInUse),
    .peakDemand = offsetof(PooledObjectDebug::LoggingTraitsBase::Record, peakDemand),
    .peakTime = offsetof(PooledObjectDebug::LoggingTraitsBase::Record, peakTime),
    .peakWallTime = offsetof(PooledObjectDebug::LoggingTraitsBase::Record, peakWallTime),
};
#pragma GCC diagnostic pop

} // namespace Vx
