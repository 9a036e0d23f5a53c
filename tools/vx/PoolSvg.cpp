#include "PoolPlot.h"
#include "Terminal.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <iterator>
#include <utility>

namespace tool {
namespace {

constexpr double kWidth = 860, kLeft = 84, kRight = 24;
constexpr double kHead = 64;  // the document's heading
constexpr double kPlot = 72;  // the height of a chart
constexpr double kBelow = 38; // the run numbers below each chart, and the space after them
constexpr double kLine = 17;  // of a pool's name
constexpr std::size_t kMostColumns = 96; // of a line of a name
constexpr std::size_t kMostPoints = 80;

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

/// 1, 2, 2.5 or 5 times a power of ten, not less than \p top.
double niceTop(double top)
{
    if (top < 0.01) // the log has two decimals
        return 1;
    const double power = std::pow(10.0, std::floor(std::log10(top)));
    for (const double factor : {1.0, 1.5, 2.0, 2.5, 3.0, 4.0, 5.0, 6.0, 8.0})
        if (top <= factor * power)
            return factor * power;
    return 10 * power;
}

/// With blanks between thousands.
std::string readable(double value)
{
    std::string digits = fmt::format("{:.10g}", value);
    const std::size_t point = std::min(digits.find('.'), digits.size());
    if (digits.find('e') == std::string::npos)
        for (std::size_t at = point; at > 3; at -= 3)
            digits.insert(at - 3, "\u202F");
    return digits;
}

/// Divides a name into lines that fit, at blanks where it has any.
std::vector<std::string> wrapped(const std::string& name)
{
    std::vector<std::string> lines(1);
    const std::string text = shown(name);
    for (std::size_t i = 0; i < text.size();) {
        std::size_t next = i + 1;
        while (next < text.size() && (text[next] & 0xC0) == 0x80)
            ++next;
        if (displayWidth(lines.back()) >= kMostColumns) {
            const std::size_t blank = lines.back().rfind(' ');
            const std::size_t cut = blank != std::string::npos ? blank + 1 : lines.back().size();
            std::string rest = lines.back().substr(cut);
            lines.back().resize(cut);
            lines.push_back(std::move(rest));
        }
        lines.back() += text.substr(i, next - i);
        i = next;
    }
    return lines;
}

class SvgChart {
public:
    explicit SvgChart(const PoolLog& log) : log_(log) {}

    std::string draw()
    {
        for (const auto& [pool, values] : peaksOf(log_))
            drawPool(pool, values);
        const std::string charts = std::exchange(text_, {});
        begin();
        text_ += charts;
        add("</svg>\n");
        return std::move(text_);
    }

private:
    template <class... Arguments>
    void add(fmt::format_string<Arguments...> format, Arguments&&... arguments)
    {
        text_ += fmt::format(format, std::forward<Arguments>(arguments)...);
    }

    void begin()
    {
        add("<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 {0} {1:.0f}\" width=\"{0}\" "
            "height=\"{1:.0f}\" font-family=\"sans-serif\" font-size=\"12\">\n",
            kWidth, y_);
        text_ += "<title>Peak demand of pools</title>\n"
                 "<style>\n"
                 ".page{fill:#fff} text{fill:#555} .name{fill:#111;font-weight:bold;font-size:13px}"
                 " .head{fill:#111;font-size:17px}\n"
                 ".grid{stroke:#e4e4e4} .base{stroke:#aaa} .band{fill:#0072B2;opacity:.22}"
                 " .line{stroke:#0072B2;stroke-width:2;fill:none;stroke-linejoin:round}"
                 " .dot{fill:#0072B2}\n"
                 "@media (prefers-color-scheme:dark){.page{fill:#16181c} text{fill:#a8adb5}"
                 " .name,.head{fill:#eceff4} .grid{stroke:#2b2f36} .base{stroke:#5a606b}"
                 " .band{fill:#56B4E9} .line{stroke:#56B4E9} .dot{fill:#56B4E9}}\n"
                 "</style>\n"
                 "<rect class=\"page\" width=\"100%\" height=\"100%\"/>\n";
        add("<text class=\"head\" x=\"{}\" y=\"28\">Peak demand of pools, allocations per second"
            "</text>\n",
            kRight);
        const std::size_t runs = log_.runs.size();
        std::string when = fmt::format("{} {}", runs, runs == 1 ? "run" : "runs");
        if (runs != 0)
            when += ", " + escaped(runName(log_, 0)) +
                    (runs > 1 ? " to " + escaped(runName(log_, runs - 1)) : "");
        add("<text x=\"{}\" y=\"48\">{}. Each pool has its own scale{}.</text>\n", kRight, when,
            runs > kMostPoints ? "; line: median, band: lowest to highest" : "");
    }

    double x(double run) const
    {
        const double span = kWidth - kLeft - kRight;
        const double runs = static_cast<double>(log_.runs.size());
        return runs > 1 ? kLeft + span * run / (runs - 1) : kLeft + span / 2;
    }
    double x(const RunGroup& group) const
    {
        return x(static_cast<double>(group.first + group.last) / 2);
    }

    void drawPool(const std::string& pool, const PoolPeaks::mapped_type& values)
    {
        for (const std::string& line : wrapped(pool)) {
            y_ += kLine;
            add("<text class=\"name\" x=\"{}\" y=\"{:.1f}\">{}</text>\n", kRight, y_,
                escaped(line));
        }
        y_ += 17;
        const double top = niceTop(highestOf(values));
        const double base = y_ + kPlot;
        const auto at = [&](double peak) { return base - kPlot * peak / top; };
        for (const double share : {0.0, 0.5, 1.0}) {
            add("<path class=\"{}\" d=\"M{} {:.1f}H{}\"/>\n", share > 0 ? "grid" : "base", kLeft,
                at(top * share), kWidth - kRight);
            add("<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", kLeft - 10,
                at(top * share) + 4, readable(top * share));
        }
        drawRunNumbers(base + 18);
        const std::vector<RunGroup> groups = groupsOf(values, kMostPoints);
        for (std::size_t i = 0; i < groups.size();) {
            std::size_t end = i; // a run without the pool leaves a gap
            while (end < groups.size() && groups[end].median)
                ++end;
            if (end != i)
                drawPiece(pool,
                          {groups.begin() + static_cast<std::ptrdiff_t>(i),
                           groups.begin() + static_cast<std::ptrdiff_t>(end)},
                          at);
            i = end + (end == i);
        }
        y_ = base + kBelow;
    }

    void drawRunNumbers(double y)
    {
        const std::size_t runs = log_.runs.size();
        const std::size_t every =
            runs <= 20 ? 1 : static_cast<std::size_t>(niceTop(static_cast<double>(runs) / 10));
        for (std::size_t run = every - 1; run < runs; run += every)
            add("<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{}</text>\n",
                x(static_cast<double>(run)), y, run + 1);
    }

    /// Draws groups without a gap.
    template <class Height>
    void drawPiece(const std::string& pool, const std::vector<RunGroup>& groups, const Height& at)
    {
        std::string line, upper, lower;
        bool band = false;
        for (const RunGroup& group : groups) {
            band = band || group.first != group.last;
            line += fmt::format("{}{:.1f} {:.1f}", line.empty() ? 'M' : 'L', x(group),
                                at(*group.median));
            upper += fmt::format("{}{:.1f} {:.1f}", upper.empty() ? 'M' : 'L', x(group),
                                 at(*group.most));
            lower.insert(0, fmt::format("L{:.1f} {:.1f}", x(group), at(*group.least)));
        }
        if (band)
            add("<path class=\"band\" d=\"{}{}Z\"/>\n", upper, lower);
        if (groups.size() > 1)
            add("<path class=\"line\" d=\"{}\"/>\n", line);
        for (const RunGroup& group : groups) {
            const bool single = group.first == group.last;
            const std::string when =
                single ? escaped(runName(log_, group.first))
                       : fmt::format("runs {} to {}", group.first + 1, group.last + 1);
            add("<circle class=\"dot\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"{}\"{}><title>{}: {:.2f}, {}"
                "</title></circle>\n",
                x(group), at(*group.median), single || groups.size() == 1 ? 3 : 5,
                single || groups.size() == 1 ? "" : " opacity=\"0\"", escaped(pool), *group.median,
                when);
        }
    }

    const PoolLog& log_;
    double y_ = kHead;
    std::string text_;
};

} // namespace

std::string svgChart(const PoolLog& log) { return SvgChart(log).draw(); }

} // namespace tool
