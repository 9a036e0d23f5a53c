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

/// 0 if there are no peaks.
double highestOf(const PoolPeaks& peaks);

/// The date of a run, or "run N".
std::string runName(const PoolLog& log, std::size_t run);

/// A bar chart for a terminal, one group per pool and one line per run.
std::string terminalChart(const PoolLog& log);

/// A line chart as an SVG document, one line per pool.
std::string svgChart(const PoolLog& log);

} // namespace tool
