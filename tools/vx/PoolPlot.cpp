#include "PoolPlot.h"

#include "Terminal.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace tool {

PoolPeaks peaksOf(const PoolLog& log)
{
    PoolPeaks peaks;
    for (std::size_t run = 0; run < log.runs.size(); ++run)
        for (const PoolDemand& demand : log.runs[run].pools) {
            auto& pool = peaks[demand.pool];
            pool.resize(log.runs.size());
            pool[run] = std::max(pool[run].value_or(0.0), demand.peak);
        }
    return peaks;
}

double highestOf(const PoolPeaks& peaks)
{
    double top = 0.0;
    for (const auto& [pool, values] : peaks)
        for (const auto& value : values)
            top = std::max(top, value.value_or(0.0));
    return top;
}

std::string runName(const PoolLog& log, std::size_t run)
{
    return log.runs[run].written.empty() ? fmt::format("run {}", run + 1) : log.runs[run].written;
}

static std::string bar(double share, int columns)
{
    static constexpr const char* kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const int eighths = static_cast<int>(std::lround(share * columns * 8));
    std::string text;
    if (!utf8Terminal())
        return std::string(static_cast<std::size_t>((eighths + 4) / 8), '#');
    for (int i = 0; i < eighths / 8; ++i)
        text += "█";
    return text + kEighths[eighths % 8];
}

std::string terminalChart(const PoolLog& log)
{
    constexpr int kColumns = 40;
    const auto peaks = peaksOf(log);
    const double top = highestOf(peaks);
    std::size_t widest = 0;
    for (std::size_t run = 0; run < log.runs.size(); ++run)
        widest = std::max(widest, shown(runName(log, run)).size());
    std::string chart;
    for (const auto& [pool, values] : peaks) {
        chart += (chart.empty() ? "" : "\n") + paint(Colour::bold, shown(pool)) + "\n";
        for (std::size_t run = 0; run < values.size(); ++run) {
            const std::string name = shown(runName(log, run));
            if (!values[run]) {
                chart += fmt::format("  {:<{}}\n", name, widest);
                continue;
            }
            const double share = top > 0 ? *values[run] / top : 0;
            chart += fmt::format("  {:<{}}  {:>10.2f}  {}\n", name, widest, *values[run],
                                 paint(Colour::blue, bar(share, kColumns)));
        }
    }
    return chart;
}

} // namespace tool
