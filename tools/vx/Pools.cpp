#include "Commands.h"
#include "Files.h"
#include "Json.h"
#include "PoolLog.h"
#include "PoolPlot.h"
#include "Strings.h"
#include "Terminal.h"

#include <algorithm>
#include <fmt/format.h>

namespace tool {
namespace {

struct Options {
    std::string file;
    std::string pool;
    std::string svg;
    bool plot = false;
    bool json = false;
};

void keepOnly(PoolLog& log, const std::string& pool)
{
    for (PoolRun& run : log.runs)
        run.pools.erase(std::remove_if(run.pools.begin(), run.pools.end(),
                                       [&](const PoolDemand& d) { return d.pool != pool; }),
                        run.pools.end());
}

void printTable(const PoolLog& log)
{
    Table table({{"RUN", true},
                 {"WRITTEN"},
                 {"POOL"},
                 {"MOST IN USE", true},
                 {"PEAK/S", true},
                 {"PEAK AT"}});
    for (std::size_t run = 0; run < log.runs.size(); ++run)
        for (const PoolDemand& demand : log.runs[run].pools)
            table.add({fmt::format("{}", run + 1), shown(log.runs[run].written), shown(demand.pool),
                       fmt::format("{}", demand.mostInUse), fmt::format("{:.2f}", demand.peak),
                       demand.peak > 0 ? shown(demand.when) : "-"});
    table.print();
}

void printJsonOf(const PoolLog& log)
{
    Json runs = Json::array();
    for (const PoolRun& run : log.runs) {
        Json pools = Json::array();
        for (const PoolDemand& demand : run.pools)
            pools.push_back({{"pool", demand.pool},
                             {"mostInUse", demand.mostInUse},
                             {"peakPerSecond", demand.peak},
                             {"peakMsecs", demand.peakMsecs},
                             {"peakAt", demand.when}});
        runs.push_back({{"written", run.written}, {"pools", pools}});
    }
    printJson(runs);
}

Offer poolNames(const Given& given)
{
    Offer offer;
    for (const auto& pool : peaksOf(readPoolLog(readFile(smallFile(valueOf(given, "FILE"))))))
        offer.candidates.push_back({pool.first, "pool"});
    return offer;
}

Status show(const Options& options)
{
    PoolLog log = readPoolLog(readFile(options.file));
    if (!log.strays.empty())
        complain(
            "stray-log-line",
            {shown(options.file), fmt::format("{}", log.strays.front()),
             log.strays.size() == 1 ? "" : fmt::format(" like {} more", log.strays.size() - 1)});
    if (!options.pool.empty())
        keepOnly(log, options.pool);
    const bool found = std::any_of(log.runs.begin(), log.runs.end(),
                                   [](const PoolRun& run) { return !run.pools.empty(); });
    if (!found) {
        if (options.json)
            printJsonOf(log);
        if (options.pool.empty())
            return complain("no-pools", {inQuotes(options.file)});
        return complain("no-such-pool", {inQuotes(options.file), inQuotes(options.pool)});
    }
    if (!options.svg.empty())
        writeOutput(options.svg, svgChart(log));
    else if (options.plot)
        fmt::print("{}", terminalChart(log, terminalColumns()));
    else if (options.json)
        printJsonOf(log);
    else
        printTable(log);
    return kYes;
}

} // namespace

void addPools(Command top)
{
    Command command = top.add("pools", "Shows the log of pooled objects");
    auto options = std::make_shared<Options>();
    command.argument("FILE", options->file, "A PooledObjects.log");
    command.option("--pool", options->pool, "NAME", "Show only this pool");
    command.completes("--pool", poolNames);
    command.flag("--plot", options->plot, "Draw the peak demand of each run");
    command.option("-o,--output", options->svg, "FILE", "Draw an SVG file instead");
    command.jsonFlag(options->json);
    command.needs("--output", "--plot");
    command.excludes("--json", "--plot");
    command.footer("Exit status 1 if there is nothing to show.\n\nExamples:\n"
                   "  vx pools ~/.config/Editor/Logs/PooledObjects.log\n"
                   "  vx pools --plot -o peaks.svg PooledObjects.log");
    command.runs([options] { return show(*options); });
}

} // namespace tool
