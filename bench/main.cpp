#include "Table.h"

#include <clocale>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

// libstdc++ skips atomic instructions in single-threaded processes. Hosts have several threads,
// so the benchmark keeps a second one waiting.
class ParkedThread {
public:
    ParkedThread()
        : thread_([this] {
              std::unique_lock<std::mutex> lock(mutex_);
              released_.wait(lock, [this] { return done_; });
          })
    {}
    ~ParkedThread()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            done_ = true;
        }
        released_.notify_one();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable released_;
    bool done_ = false;
    std::thread thread_;
};

} // namespace

int main(int argc, char** argv)
{
    // Like a host: the locale's character classes, but numbers with a decimal point.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const ParkedThread parked;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::AddCustomContext("compiler", BENCH_COMPILER);
    benchmark::AddCustomContext("flags", BENCH_FLAGS);
    benchmark::AddCustomContext("peers", BENCH_PEERS);
    benchmark::AddCustomContext("missing", BENCH_MISSING);
    bench::addAllocation();
    bench::addStrings();
    bench::addNumbers();
    bench::addCase();
    bench::addUnicode();
    bench::addLists();
    bench::addDocuments();
    bench::addIdentifiers();
    bench::addSharing();
    bench::addNames();
    bench::addBytes();
    bench::addPlayout();
    bench::addGrowth();
    bench::addStart();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
