// PoolLog.h - Parses the log of pooled objects.
#pragma once

#include <string>
#include <vector>

namespace tool {

/// One line of the log: the demand on one pool in one run.
struct PoolDemand {
    std::string pool;
    long mostInUse;
    double peak;      ///< allocations per second
    double peakMsecs; ///< time of the peak on the clock of that process; 0 without a peak
    std::string when; ///< date of the peak as logged
};

struct PoolRun {
    std::string written; ///< date in the run's header; empty without a header
    std::vector<PoolDemand> pools;
};

struct PoolLog {
    std::vector<PoolRun> runs;       ///< in the order of the file
    std::vector<std::size_t> strays; ///< numbers of the lines that do not parse
};

PoolLog readPoolLog(const std::string& bytes);

} // namespace tool
