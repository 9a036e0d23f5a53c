#include <Vx/VxPooledObjectDebug.h>

#include <Vx/CriticalSection.h>
#include <Vx/LightweightString.h>
#include <Vx/VxApplication.h>
#include <Vx/VxClock.h>
#include <Vx/VxNamedObjects.h>
#include <Vx/VxStringUtils.h>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>

namespace Vx {
namespace PooledObjectDebug {

constinit LoggerStack gAllLoggers = {nullptr, 0};

namespace {

constexpr unsigned int kShutdownPriority = 100;
constexpr double kWarmUpMsecs = 7500.0;
constexpr double kIntervalMsecs = 100.0;

// The record is plain data that hooks on many threads read and write at once. Relaxed
// atomic access is all it takes: no number here guards another.
template <class T> T load(const T& place)
{
    T value;
    __atomic_load(&place, &value, __ATOMIC_RELAXED);
    return value;
}

template <class T> void store(T& place, T value)
{
    __atomic_store(&place, &value, __ATOMIC_RELAXED);
}

void push(LoggerStack::Node* node) noexcept
{
    node->next = __atomic_load_n(&gAllLoggers.head, __ATOMIC_RELAXED);
    while (!__atomic_compare_exchange_n(&gAllLoggers.head, &node->next, node, false,
                                        __ATOMIC_RELEASE, __ATOMIC_RELAXED)) {
    }
    __atomic_fetch_add(&gAllLoggers.count, 1u, __ATOMIC_RELAXED);
}

// A node is pushed once and never freed, so a head that compares equal is the same node with
// the same successor.
LoggerStack::Node* pop() noexcept
{
    LoggerStack::Node* node = __atomic_load_n(&gAllLoggers.head, __ATOMIC_ACQUIRE);
    while (node != nullptr &&
           !__atomic_compare_exchange_n(&gAllLoggers.head, &node, node->next, false,
                                        __ATOMIC_ACQUIRE, __ATOMIC_ACQUIRE)) {
    }
    if (node != nullptr)
        __atomic_fetch_sub(&gAllLoggers.count, 1u, __ATOMIC_RELAXED);
    return node;
}

// Everything about the file happens under this lock.
CriticalSection& fileAccessLock()
{
    return *NamedObjectsNamespace::getGlobalNamespaceInstance()->findOrCreate<CriticalSection>(
        "PooledObjects.log_FileAccessLock");
}

using HoldFile = std::lock_guard<CriticalSection>;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// asctime(localtime(&when)), which ends with a newline; a time that has no text does not
// take the line with it.
struct TimeText {
    explicit TimeText(std::time_t when)
    {
        tzset(); // localtime() does, localtime_r() need not
        std::tm parts;
        if (localtime_r(&when, &parts) == nullptr || asctime_r(&parts, text) == nullptr)
            std::strcpy(text, "(no time)\n");
    }
    char text[64];
};

} // namespace

struct LoggingTraitsBase::Record {
    char* name;
    int inUse;
    int maxInUse;
    int demandCount;
    double intervalStart;
    double peakDemand;
    double peakTime;
    std::time_t peakWallTime;
    double created;

    LoggerStack::Node* node; // ours until the logger is destroyed, the stack's for ever

    explicit Record(const char* label)
        : name(nullptr),
          inUse(0),
          maxInUse(0),
          demandCount(0),
          intervalStart(0),
          peakDemand(0),
          peakTime(0),
          peakWallTime(0),
          created(0),
          node(nullptr)
    {
        const std::size_t size = label != nullptr ? std::strlen(label) + 1 : 1;
        name = new char[size];
        std::memcpy(name, label != nullptr ? label : "", size);
    }
    ~Record() { delete[] name; }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
};

LoggingTraitsBase::LoggingTraitsBase(const char* name) : record_(nullptr)
{
    std::unique_ptr<Record> record(new Record(name));
    record->created = msecsNow();
    std::unique_ptr<LoggerStack::Node> node(new LoggerStack::Node{nullptr, this});
    // The node goes in last, when nothing can fail any more. Every node has its callback
    // then: one without would take the turn of an older logger.
    Shutdown::addCallback(std::function<void(Shutdown::eExitType)>(LoggingTraitsBase_exit),
                          kShutdownPriority);
    record->node = node.release();
    record_ = record.release();
    push(record_->node);
}

LoggingTraitsBase::~LoggingTraitsBase()
{
    {
        // Under the lock of the file: a shutdown on another thread either dumps this logger
        // before we go on, or finds that it is gone.
        const HoldFile hold(fileAccessLock());
        appendLine();
        __atomic_store_n(&record_->node->logger, static_cast<LoggingTraitsBase*>(nullptr),
                         __ATOMIC_RELAXED);
    }
    delete record_;
}

// Deliberate: hooks without work. Pools call all four, and so a later version may count.
void LoggingTraitsBase::ltb_beforePush(void*, unsigned long) {}
void LoggingTraitsBase::ltb_beforePop(unsigned long) {}

void LoggingTraitsBase::ltb_afterPush(void*, unsigned long)
{
    __atomic_fetch_sub(&record_->inUse, 1, __ATOMIC_RELAXED);
}

void LoggingTraitsBase::ltb_afterPop(void*, unsigned long)
{
    Record& record = *record_;
    const int inUse = __atomic_add_fetch(&record.inUse, 1, __ATOMIC_RELAXED);
    // Exchanged only for a larger one, so that the largest stays whoever comes last.
    int most = load(record.maxInUse);
    while (most < inUse && !__atomic_compare_exchange_n(&record.maxInUse, &most, inUse, true,
                                                        __ATOMIC_RELAXED, __ATOMIC_RELAXED)) {
    }

    if (!(msecsNow() - record.created > kWarmUpMsecs))
        return;
    const double intervalStart = load(record.intervalStart);
    if (!(msecsNow() - intervalStart > kIntervalMsecs)) {
        __atomic_fetch_add(&record.demandCount, 1, __ATOMIC_RELAXED);
        return;
    }
    // Deliberate: no lock from here on. Two threads may close one interval; the peak is
    // approximate then, and the pools are not held up.
    const double rate = load(record.demandCount) / (msecsNow() - intervalStart);
    if (rate > load(record.peakDemand)) {
        store(record.peakDemand, rate);
        store(record.peakTime, msecsNow());
        store(record.peakWallTime, std::time(nullptr));
    }
    store(record.intervalStart, msecsNow());
    // The pop that closed the interval is the first of the new one.
    __atomic_exchange_n(&record.demandCount, 1, __ATOMIC_RELAXED);
}

void LoggingTraitsBase::dump()
{
    const HoldFile hold(fileAccessLock());
    appendLine();
}

// The lock of the file is held.
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
                 load(record_->maxInUse), 1000.0 * load(record_->peakDemand),
                 load(record_->peakTime), TimeText(load(record_->peakWallTime)).text);
}

void LoggingTraitsBase_exit(Shutdown::eExitType)
{
    LoggerStack::Node* const node = pop();
    if (node == nullptr)
        return;
    const HoldFile hold(fileAccessLock());
    if (LoggingTraitsBase* logger = __atomic_load_n(&node->logger, __ATOMIC_RELAXED))
        logger->appendLine();
}

} // namespace PooledObjectDebug
} // namespace Vx
