// PoolLog.h - the pooled-object log, read back.
#pragma once

#include <string>
#include <vector>

namespace tool {

/// One line of the log: what one pool was asked for in one run.
struct PoolDemand {
    std::string pool;
    long mostInUse;
    double peak;      ///< allocations a second
    double peakMsecs; ///< on the clock of that process; 0 when there was no peak
    std::string when; ///< of the peak, as the log has it
};

struct PoolRun {
    std::string written; ///< when the run began to write; empty without a header
    std::vector<PoolDemand> pools;
};

struct PoolLog {
    std::vector<PoolRun> runs;       ///< in the order of the file
    std::vector<std::size_t> strays; ///< numbers of the lines that are none of the log
};

PoolLog readPoolLog(const std::string& bytes);

} // namespace tool
