#include "PoolPlot.h"

#include "Terminal.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>

namespace tool {
namespace {

constexpr double kWidth = 860, kHeight = 420;
constexpr double kLeft = 80, kRight = 220, kTop = 56, kBottom = 56;
/// Distinguishable with colour blindness.
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

/// 1, 2 or 5 times a power of ten; about five steps reach \p top.
double niceStep(double top)
{
    const double raw = top / 5;
    const double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (const double factor : {1.0, 2.0, 5.0})
        if (raw <= factor * power)
            return factor * power;
    return 10 * power;
}

class SvgChart {
public:
    explicit SvgChart(const PoolLog& log) : log_(log), peaks_(peaksOf(log))
    {
        const double top = highestOf(peaks_);
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
        add("<text x=\"{}\" y=\"26\" font-size=\"16\">Peak demand over {} {}, allocations per "
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
        // At most 20 labels fit.
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

    void line(std::size_t index, const std::string& pool, const PoolPeaks::mapped_type& values)
    {
        constexpr std::size_t kColourCount = std::size(kColours);
        const char* colour = kColours[index % kColourCount];
        const char* dashes = kDashes[index / kColourCount % std::size(kDashes)];
        std::string path;
        bool drawing = false; // a run without the pool leaves a gap
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
    PoolPeaks peaks_;
    double step_;
    double top_;
    std::string text_;
};

} // namespace

std::string svgChart(const PoolLog& log) { return SvgChart(log).draw(); }

} // namespace tool
