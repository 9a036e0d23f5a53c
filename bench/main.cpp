#include "Table.h"

#include <algorithm>
#include <clocale>
#include <condition_variable>
#include <iostream>
#include <iterator>
#include <mutex>
#include <string_view>
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

struct Family {
    std::string_view name;
    void (*add)();
};
constexpr Family kFamilies[] = {
    {"allocation", bench::addAllocation}, {"strings", bench::addStrings},
    {"numbers", bench::addNumbers},       {"case", bench::addCase},
    {"unicode", bench::addUnicode},       {"lists", bench::addLists},
    {"documents", bench::addDocuments},   {"identifiers", bench::addIdentifiers},
    {"sharing", bench::addSharing},       {"names", bench::addNames},
    {"bytes", bench::addBytes},           {"playout", bench::addPlayout},
    {"growth", bench::addGrowth},         {"start", bench::addStart},
};

} // namespace

// usage: bench FAMILY [--benchmark_...]; without arguments lists the families. Each runs in a
// process of its own, so that none inherits the heap or the register state of another.
int main(int argc, char** argv)
{
    if (argc < 2) {
        for (const Family& family : kFamilies)
            std::cout << family.name << '\n';
        return 0;
    }
    const auto* const family =
        std::find_if(std::begin(kFamilies), std::end(kFamilies),
                     [&](const Family& each) { return each.name == argv[1]; });
    if (family == std::end(kFamilies)) {
        std::cerr << "bench: no family '" << argv[1] << "'\n";
        return 2;
    }
    argv[1] = argv[0];
    --argc;
    ++argv;
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
    family->add();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
