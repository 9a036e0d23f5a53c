#include "PoolLog.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>
#include <string_view>

namespace tool {
namespace {

constexpr std::string_view kDashes = "-----------------------------------------------------------";

/// Splits a line from its end, because the pool's name may contain anything.
class Backwards {
public:
    explicit Backwards(std::string_view line) : rest_(line) {}

    /// Removes the last \p mark and everything after it; returns what follows the mark.
    std::optional<std::string_view> after(std::string_view mark)
    {
        const std::size_t at = rest_.rfind(mark);
        if (at == std::string_view::npos)
            return {};
        const std::string_view found = rest_.substr(at + mark.size());
        rest_ = rest_.substr(0, at);
        return found;
    }
    std::string_view rest() const { return rest_; }

private:
    std::string_view rest_;
};

template <class Number> bool readNumber(std::string_view text, Number& number)
{
    // Hosts with a decimal comma in their locale write one.
    std::string plain(text);
    std::replace(plain.begin(), plain.end(), ',', '.');
    const char* end = plain.data() + plain.size();
    const auto [rest, error] = std::from_chars(plain.data(), end, number);
    return error == std::errc() && rest == end;
}

/// "NAME: maxInUse N Peak Demand N allocs/sec @ N DATE"
std::optional<PoolDemand> readDemand(std::string_view line)
{
    PoolDemand demand;
    Backwards parts(line);
    const auto place = parts.after(" allocs/sec @ ");
    const auto peak = parts.after(" Peak Demand ");
    const auto inUse = parts.after(": maxInUse ");
    if (!place || !peak || !inUse)
        return {};
    const std::size_t blank = place->find(' ');
    if (blank == std::string_view::npos || !readNumber(place->substr(0, blank), demand.peakMsecs) ||
        !readNumber(*peak, demand.peak) || !readNumber(*inUse, demand.mostInUse))
        return {};
    // from_chars also accepts infinities and NaN.
    if (!(demand.peak >= 0 && demand.peak < 1e15) || !std::isfinite(demand.peakMsecs))
        return {};
    demand.pool = std::string(parts.rest());
    demand.when = std::string(place->substr(blank + 1));
    return demand;
}

} // namespace

PoolLog readPoolLog(const std::string& bytes)
{
    PoolLog log;
    const std::string_view all(bytes);
    std::size_t number = 0;
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = std::min(all.find('\n', begin), all.size());
        std::string_view line = all.substr(begin, end - begin);
        begin = end + 1;
        ++number;
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (line.empty())
            continue;
        if (line.substr(0, kDashes.size()) == kDashes) {
            line.remove_prefix(std::min(line.find_first_not_of("- "), line.size()));
            log.runs.push_back({std::string(line), {}});
        } else if (auto demand = readDemand(line)) {
            if (log.runs.empty())
                log.runs.push_back({});
            log.runs.back().pools.push_back(std::move(*demand));
        } else {
            log.strays.push_back(number);
        }
    }
    return log;
}

} // namespace tool
