#include "PoolPlot.h"

#include "Terminal.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <map>
#include <optional>

namespace tool {
namespace {

/// The peaks of one pool; nothing for runs in which it did not appear.
using Peaks = std::vector<std::optional<double>>;

/// By pool. A pool that appears twice in a run, as two loggers of one name, shows the
/// larger peak.
std::map<std::string, Peaks> peaksOf(const PoolLog& log)
{
    std::map<std::string, Peaks> peaks;
    for (std::size_t run = 0; run < log.runs.size(); ++run)
        for (const PoolDemand& demand : log.runs[run].pools) {
            Peaks& pool = peaks[demand.pool];
            pool.resize(log.runs.size());
            pool[run] = std::max(pool[run].value_or(0.0), demand.peak);
        }
    return peaks;
}

double highest(const std::map<std::string, Peaks>& peaks)
{
    double top = 0.0;
    for (const auto& [pool, values] : peaks)
        for (const auto& value : values)
            top = std::max(top, value.value_or(0.0));
    return top;
}

std::string bar(double share, int columns)
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

std::string runName(const PoolLog& log, std::size_t run)
{
    return log.runs[run].written.empty() ? fmt::format("run {}", run + 1) : log.runs[run].written;
}

// The picture.

constexpr double kWidth = 860, kHeight = 420;
constexpr double kLeft = 80, kRight = 220, kTop = 56, kBottom = 56;
/// Told apart also by people who do not see all colours.
constexpr const char* kColours[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7",
                                    "#E69F00", "#56B4E9", "#000000"};
constexpr const char* kDashes[] = {"", "7 4", "2 4"};

std::string escaped(const std::string& text)
{
    std::string result;
    for (const char c : shown(text)) {
        switch (c) {
        case '&': result += "&amp;"; break;
        case '<': result += "&lt;"; break;
        case '>': result += "&gt;"; break;
        case '"': result += "&quot;"; break;
        default: result += c;
        }
    }
    return result;
}

/// 1, 2 or 5 times a power of ten, so that about five of them reach \p top.
double niceStep(double top)
{
    const double raw = top / 5;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (raw <= factor * power)
            return factor * power;
    return 10 * power;
}

class Picture {
public:
    explicit Picture(const PoolLog& log) : log_(log), peaks_(peaksOf(log))
    {
        const double top = highest(peaks_);
        step_ = top >= 0.01 ? niceStep(top) : 1; // the log has two decimals
        top_ = std::max(std::ceil(top / step_), 1.0) * step_;
    }

    std::string draw()
    {
        const double height =
            std::max(kHeight, kTop + kBottom + 18 * static_cast<double>(peaks_.size()));
        add("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {} {}\" "
            "font-family=\"sans-serif\" font-size=\"12\">\n",
            kWidth, height);
        add("<title>Peak demand of pools</title>\n");
        add("<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n");
        add("<text x=\"{}\" y=\"26\" font-size=\"16\">Peak demand over {} {}, allocations a "
            "second</text>\n",
            kLeft, log_.runs.size(), log_.runs.size() == 1 ? "run" : "runs");
        axes();
        std::size_t index = 0;
        for (const auto& [pool, values] : peaks_)
            line(index++, pool, values);
        add("</svg>\n");
        return std::move(text_);
    }

private:
    template <class... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments)
    {
        text_ += fmt::format(format, std::forward<Arguments>(arguments)...);
    }

    double x(std::size_t run) const
    {
        const double span = kWidth - kLeft - kRight;
        const double runs = static_cast<double>(log_.runs.size());
        return runs > 1 ? kLeft + span * static_cast<double>(run) / (runs - 1) : kLeft + span / 2;
    }
    double y(double peak) const
    {
        return kHeight - kBottom - (kHeight - kTop - kBottom) * peak / top_;
    }

    void axes()
    {
        const int lines = static_cast<int>(top_ / step_ + 0.5);
        for (int line = 0; line <= lines; ++line) {
            const double value = step_ * line;
            add("<path d=\"M{} {:.1f}H{}\" stroke=\"#ddd\"/>\n", kLeft, y(value), kWidth - kRight);
            add("<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{:g}</text>\n", kLeft - 8,
                y(value) + 4, value);
        }
        // As many numbers as have room.
        const std::size_t every = (log_.runs.size() + 19) / 20;
        for (std::size_t run = 0; run < log_.runs.size(); run += every)
            add("<text x=\"{:.1f}\" y=\"{}\" text-anchor=\"middle\">{}</text>\n", x(run),
                kHeight - kBottom + 18, run + 1);
        if (log_.runs.empty())
            return;
        add("<text x=\"{}\" y=\"{}\" fill=\"#555\">from {} to {}</text>\n", kLeft,
            kHeight - kBottom + 40, escaped(runName(log_, 0)),
            escaped(runName(log_, log_.runs.size() - 1)));
    }

    void line(std::size_t index, const std::string& pool, const Peaks& values)
    {
        constexpr std::size_t kColourCount = std::size(kColours);
        const char* colour = kColours[index % kColourCount];
        const char* dashes = kDashes[index / kColourCount % std::size(kDashes)];
        std::string path;
        bool drawing = false; // a run without the pool is a gap
        for (std::size_t run = 0; run < values.size(); ++run) {
            if (values[run])
                path +=
                    fmt::format("{}{:.1f} {:.1f}", drawing ? 'L' : 'M', x(run), y(*values[run]));
            drawing = values[run].has_value();
        }
        add("<g stroke=\"{}\" fill=\"{}\">\n", colour, colour);
        add("<path d=\"{}\" fill=\"none\" stroke-width=\"2\" stroke-dasharray=\"{}\"/>\n", path,
            dashes);
        for (std::size_t run = 0; run < values.size(); ++run)
            if (values[run])
                add("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\"><title>{}: {:.2f}, {}</title>"
                    "</circle>\n",
                    x(run), y(*values[run]), escaped(pool), *values[run],
                    escaped(runName(log_, run)));
        const double row = kTop + 18 * static_cast<double>(index);
        add("<path d=\"M{} {}h24\" stroke-width=\"2\" stroke-dasharray=\"{}\"/>\n",
            kWidth - kRight + 20, row, dashes);
        add("<text x=\"{}\" y=\"{}\" stroke=\"none\" fill=\"black\">{}</text>\n</g>\n",
            kWidth - kRight + 52, row + 4, escaped(pool));
    }

    const PoolLog& log_;
    std::map<std::string, Peaks> peaks_;
    double step_;
    double top_;
    std::string text_;
};

} // namespace

std::string terminalChart(const PoolLog& log)
{
    constexpr int kColumns = 40;
    const auto peaks = peaksOf(log);
    const double top = highest(peaks);
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

std::string svgChart(const PoolLog& log) { return Picture(log).draw(); }

} // namespace tool
