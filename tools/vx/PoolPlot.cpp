#include "PoolPlot.h"

#include "Terminal.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace tool {
namespace {

constexpr std::size_t kMostLines = 24; // of a pool

/// Draws shares of \p columns columns: a bar up to the first, and a lighter one from there to
/// the second.
std::string bar(double share, double lighter, std::size_t columns)
{
    static constexpr const char* kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const auto eighthsOf = [&](double part) {
        return static_cast<std::size_t>(std::lround(part * static_cast<double>(columns) * 8));
    };
    const std::size_t full = eighthsOf(share) / 8, end = (eighthsOf(lighter) + 4) / 8;
    std::string text;
    if (!utf8Terminal()) {
        const std::size_t hashes = (eighthsOf(share) + 4) / 8;
        return std::string(hashes, '#') + std::string(end - std::min(end, hashes), '-');
    }
    for (std::size_t i = 0; i < full; ++i)
        text += "█";
    const std::size_t rest = eighthsOf(share) % 8;
    text += kEighths[rest];
    for (std::size_t i = full + (rest != 0); i < end; ++i)
        text += "░";
    return text;
}

} // namespace

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

std::vector<RunGroup> groupsOf(const PoolPeaks::mapped_type& peaks, std::size_t groups)
{
    const std::size_t size = std::max<std::size_t>((peaks.size() + groups - 1) / groups, 1);
    std::vector<RunGroup> result;
    for (std::size_t first = 0; first < peaks.size(); first += size) {
        RunGroup group{first, std::min(first + size, peaks.size()) - 1, {}, {}, {}};
        std::vector<double> values;
        for (std::size_t run = first; run <= group.last; ++run)
            if (peaks[run])
                values.push_back(*peaks[run]);
        std::sort(values.begin(), values.end());
        if (!values.empty()) {
            group.least = values.front();
            group.median = values[values.size() / 2];
            group.most = values.back();
        }
        result.push_back(group);
    }
    return result;
}

double highestOf(const PoolPeaks::mapped_type& peaks)
{
    double top = 0.0;
    for (const auto& value : peaks)
        top = std::max(top, value.value_or(0.0));
    return top;
}

std::string runName(const PoolLog& log, std::size_t run)
{
    return log.runs[run].written.empty() ? fmt::format("run {}", run + 1) : log.runs[run].written;
}

std::string terminalChart(const PoolLog& log, std::size_t columns)
{
    const bool grouped = log.runs.size() > kMostLines;
    std::string chart = grouped ? "Peak demand, allocations per second: lowest and highest of each"
                                  " group of runs\n"
                                : "Peak demand, allocations per second\n";
    chart += "Each pool has its own scale.\n";
    for (const auto& [pool, values] : peaksOf(log)) {
        chart += "\n" + paint(Colour::bold, shown(pool)) + "\n";
        const double top = highestOf(values);
        std::vector<std::pair<std::string, std::string>> labels; // run and numbers
        const std::vector<RunGroup> groups = groupsOf(values, kMostLines);
        std::size_t nameWidth = 0, numberWidth = 0;
        for (const RunGroup& group : groups) {
            const std::string name =
                grouped ? fmt::format("runs {}-{}", group.first + 1, group.last + 1)
                        : shown(runName(log, group.first));
            std::string numbers = group.most ? fmt::format("{:.2f}", *group.most) : "";
            if (grouped && group.most)
                numbers = fmt::format("{:.2f} - {}", *group.least, numbers);
            nameWidth = std::max(nameWidth, displayWidth(name));
            numberWidth = std::max(numberWidth, displayWidth(numbers));
            labels.emplace_back(name, numbers);
        }
        // In a narrow terminal each bar is below its label.
        std::size_t used = nameWidth + numberWidth + 6;
        const bool below = columns < used + 12;
        if (below)
            used = 4;
        const std::size_t barColumns =
            std::min<std::size_t>(std::max<std::size_t>(columns, used + 10) - used, 60);
        for (std::size_t i = 0; i < groups.size(); ++i) {
            const double least = groups[i].least.value_or(0), most = groups[i].most.value_or(0);
            const std::string drawn =
                top > 0 ? bar(least / top, most / top, barColumns) : std::string();
            chart += fmt::format("  {:<{}}  {:>{}}", labels[i].first, nameWidth, labels[i].second,
                                 numberWidth);
            if (drawn.empty())
                chart.erase(chart.find_last_not_of(' ') + 1);
            else
                chart += (below ? "\n    " : "  ") + paint(Colour::blue, drawn);
            chart += "\n";
        }
    }
    return chart;
}

} // namespace tool
