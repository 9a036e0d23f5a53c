// PoolPlot.h - the peaks of a pool log over its runs, drawn.
#pragma once

#include "PoolLog.h"

#include <string>

namespace tool {

/// Bars for a terminal: a group for each pool, a line for each run.
std::string terminalChart(const PoolLog& log);

/// A picture: a line for each pool over the runs, as an SVG document.
std::string svgChart(const PoolLog& log);

} // namespace tool
