// A host that gets into the state that its argument names, prints "ready", and stays in it until
// its standard input ends.
#include <Vx/CriticalSection.h>
#include <Vx/VxApplication.h>
#include <Vx/VxNamedObjects.h>
#include <Vx/VxPooledObjectDebug.h>
#include <Vx/VxReport.h>
#include <Vx/VxShutdown.h>
#include <Vx/detail/Inspect.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct MediaCache {};

// Threads meet here when each holds its first lock.
class Meeting {
public:
    explicit Meeting(int expected) : missing_(expected) {}
    void arrive()
    {
        std::unique_lock<std::mutex> hold(mutex_);
        --missing_;
        all_.notify_all();
        all_.wait(hold, [this] { return missing_ == 0; });
    }

private:
    std::mutex mutex_;
    std::condition_variable all_;
    int missing_;
};

void nameThread(const char* name) { prctl(PR_SET_NAME, name, 0, 0, 0); }

// Waits until thread \p id of this process sleeps in the futex call, as /proc tells.
void awaitAsleep(long id)
{
    const std::string path = "/proc/self/task/" + std::to_string(id) + "/syscall";
    for (;;) {
        std::FILE* const file = std::fopen(path.c_str(), "r");
        long call = -1;
        const bool read = file != nullptr && std::fscanf(file, "%ld", &call) == 1;
        if (file != nullptr)
            std::fclose(file);
        if (file == nullptr || (read && call == SYS_futex))
            return;
        std::this_thread::yield();
    }
}

void ready()
{
    std::puts("ready");
    std::fflush(stdout);
}

void waitForEnd()
{
    while (std::getchar() != EOF) {
    }
}

[[noreturn]] void stay()
{
    ready();
    waitForEnd();
    std::_Exit(0);
}

// Thread i holds lock i and waits for lock i + 1.
void deadlock(std::size_t count, bool isPrivate)
{
    static const char* const kThreads[] = {"ui", "render", "loader"};
    static const char* const kLocks[] = {"ProjectFile", "MediaCache", "Timeline"};
    static CriticalSection own[3];
    static Meeting meeting(static_cast<int>(count));
    static std::atomic<long> ids[3];
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    const auto enter = [isPrivate, &names](std::size_t lock) {
        if (isPrivate)
            own[lock].enter();
        else
            names.lock<MediaCache>(kLocks[lock]);
    };
    for (std::size_t i = 0; i < count; ++i)
        std::thread([i, count, enter] {
            nameThread(kThreads[i]);
            enter(i);
            meeting.arrive();
            ids[i] = syscall(SYS_gettid);
            enter((i + 1) % count);
        }).detach();
    for (std::size_t i = 0; i < count; ++i) {
        while (ids[i] == 0)
            std::this_thread::yield();
        awaitAsleep(ids[i]);
    }
}

void atShutdown(bool final)
{
    Shutdown::addCallback([] { std::puts("early"); }, 5);
    if (final)
        Shutdown::addCallback([] { stay(); }, 300);
    else
        Shutdown::addCallback([] { stay(); }, 100);
    Shutdown::addCallback([] { std::puts("late"); }, 400);
    Shutdown::executeCallbacks(Shutdown::kOrderlyExit);
}

[[noreturn]] void enterAllTheTime()
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    CriticalSection* const lock = names.findOrCreate<CriticalSection>("busy");
    lock->setName("busy");
    static std::atomic<bool> stop = false;
    std::vector<std::thread> threads;
    static std::atomic<std::uint64_t> entries = 0;
    for (int i = 0; i < 2; ++i)
        threads.emplace_back([lock, i] {
            nameThread(i == 0 ? "first" : "second");
            std::uint64_t n = 0;
            while (!stop) {
                lock->enter();
                lock->leave();
                ++n;
            }
            entries += n;
        });
    const auto start = std::chrono::steady_clock::now();
    ready();
    waitForEnd();
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const double processorTime = static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
    const auto count = static_cast<double>(entries);
    std::printf("%.0f %.0f\n", count / time.count(), count / processorTime);
    std::fflush(stdout);
    std::_Exit(0);
}

// Fills everything that the library's descriptor refers to and that may be written.
void scribble(unsigned char pattern)
{
    const auto& library = Vx_inspectDescriptor;
    const auto fill = [pattern](const void* where, std::size_t size) {
        std::memset(const_cast<void*>(where), pattern, size);
    };
    fill(library.names->global, 8);
    fill(library.shutdown->list, 72);
    fill(library.shutdown->progress, 16);
    fill(library.application->instance, 8);
    fill(library.pools->stack, 12);
}

// Links that lead back: lists without an end.
void makeCircles()
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    names.findOrCreate<MediaCache>("first");
    names.findOrCreate<MediaCache>("second");
    char* const space = *static_cast<char* const*>(Vx_inspectDescriptor.names->global);
    void** const node = *reinterpret_cast<void***>(space + Vx_inspectDescriptor.names->entries);
    *node = node; // its own successor
    static Vx::PooledObjectDebug::LoggerStack::Node circle{&circle, nullptr};
    Vx::PooledObjectDebug::gAllLoggers.head = &circle;
}

class Editor : public Vx::Application {
public:
    Editor() : Application(L"Editor Ä", L"2026.1") {}
    void run() override {}
};

void makeNames(int count)
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    for (int i = 0; i < count; ++i)
        names.findOrCreate<MediaCache>(("object " + std::to_string(i)).c_str());
}

// Left by a thread that has ended, or held twice by this one.
void hold(bool byThreadThatEnds)
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    if (byThreadThatEnds) {
        std::thread([&] { names.lock<MediaCache>("left"); }).join();
    } else {
        names.lock<MediaCache>("kept");
        names.lock<MediaCache>("kept");
    }
}

// A namespace of a plugin's own, which the global one leads to.
void publishNamespace()
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    static Vx::NamedObjectsNamespace plugin("plugin");
    names.create<Vx::NamedObjectsNamespace>("of the plugin", &plugin);
    plugin.create<Vx::NamedObjectsNamespace>("up", &names); // a circle
    plugin.lock<MediaCache>("inside");
}

void makeApplication()
{
    new Editor;
    auto* const pool = new Vx::PooledObjectDebug::LoggingTraitsBase("frames");
    for (int i = 0; i < 5; ++i)
        pool->ltb_afterPop(nullptr, 0);
    pool->ltb_afterPush(nullptr, 0);
}

// Every command of a debugger has something to show.
void doEverything()
{
    publishNamespace();
    hold(true);
    deadlock(2, true);
    Shutdown::addCallback(
        [] {
            makeApplication();
            stay();
        },
        300);
    Shutdown::executeCallbacks(Shutdown::kOrderlyExit);
}

void toStandardOutput(void*, const char* bytes, std::size_t count)
{
    while (count != 0) {
        const ssize_t written = write(STDOUT_FILENO, bytes, count);
        if (written < 0)
            return;
        bytes += written;
        count -= static_cast<std::size_t>(written);
    }
}

// Prints a report, and ends the process as if there was no handler.
void onCrash(int signal)
{
    Vx::writeReport(toStandardOutput, nullptr);
    raise(signal);
}

void handleCrashes()
{
    static char stack[16384];
    stack_t alternate = {};
    alternate.ss_sp = stack;
    alternate.ss_size = sizeof stack;
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_handler = onCrash;
    action.sa_flags = SA_ONSTACK | static_cast<int>(SA_RESETHAND);
    sigaction(SIGSEGV, &action, nullptr);
}

// With the lock of the namespace held, under which the factory of a new name runs.
void stayInFactory()
{
    auto& names = *Vx::NamedObjectsNamespace::getGlobalNamespaceInstance();
    names.lock<MediaCache>("kept");
    names.findOrCreate<MediaCache>("new", []() -> void* { stay(); });
}

} // namespace

int main(int argc, char** argv)
{
    const std::string state = argc > 1 ? argv[1] : "";
    const int number = argc > 2 ? std::atoi(argv[2]) : 0;
    const std::map<std::string, std::function<void()>> states = {
        {"", [] {}},
        {"deadlock2", [] { deadlock(2, false); }},
        {"deadlock3", [] { deadlock(3, false); }},
        {"private", [] { deadlock(2, true); }},
        {"ended", [] { hold(true); }},
        {"held", [] { hold(false); }},
        {"first-pass", [] { atShutdown(false); }},
        {"final-pass", [] { atShutdown(true); }},
        {"published", publishNamespace},
        {"application", makeApplication},
        {"names", [number] { makeNames(number); }},
        {"everything", doEverything},
        {"busy", enterAllTheTime},
        {"scribbled", [number] { scribble(static_cast<unsigned char>(number)); }},
        {"circles", makeCircles},
        {"factory", stayInFactory},
    };
    handleCrashes();
    states.at(state)();
    stay();
}
