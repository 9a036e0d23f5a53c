// PoolPlot.h - Charts of the peak demand in a pool log.
#pragma once

#include "PoolLog.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

/// The peaks of each pool, one per run; empty for runs without the pool.
using PoolPeaks = std::map<std::string, std::vector<std::optional<double>>>;

/// A pool logged twice in a run, by two loggers of one name, gets the larger peak.
PoolPeaks peaksOf(const PoolLog& log);

/// Neighbouring runs that are drawn as one.
struct RunGroup {
    std::size_t first; ///< index of its first run
    std::size_t last;  ///< index of its last run
    /// Of the runs that have the pool; all are empty if none has.
    std::optional<double> least, median, most;
};

/// Divides the runs into at most \p groups groups of equal size; the last one may be smaller.
std::vector<RunGroup> groupsOf(const PoolPeaks::mapped_type& peaks, std::size_t groups);

/// The largest of them, or 0.
double highestOf(const PoolPeaks::mapped_type& peaks);

/// The date of a run, or "run N".
std::string runName(const PoolLog& log, std::size_t run);

/// Bar charts for a terminal of \p columns columns, one per pool, each with its own scale. Many
/// runs are drawn in groups, with the range of their peaks.
std::string terminalChart(const PoolLog& log, std::size_t columns);

/// An SVG document with a small line chart for each pool, each with its own scale. Many runs
/// become a band with the median in it.
std::string svgChart(const PoolLog& log);

} // namespace tool
