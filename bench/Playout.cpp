// Playout codes: every code of the table and as many that are not in it.
#include "Inputs.h"
#include "Table.h"

#include <Vx/Image/PlayoutFCC.h>
#include <unordered_map>
#include <vector>

#if BENCH_QT
#include <QHash>
#endif
#if BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::State;

constexpr unsigned int code(const char* text)
{
    unsigned int value = 0;
    for (int i = 0; i < 4; ++i)
        value |= static_cast<unsigned int>(static_cast<unsigned char>(text[i])) << (8 * i);
    return value;
}

using Mapping = std::vector<std::pair<unsigned int, unsigned int>>;

Mapping table()
{
    const struct {
        const char* playout;
        std::vector<const char*> stored;
    } families[] = {
        {"MJPG", {"mjpa"}},
        {"MMES", {"mpeg"}},
        {"GIMX", {"mx3n", "mx3p", "mx4n", "mx4p", "mx5n", "mx5p"}},
        {"M701",
         {"hdv3", "hdv5", "hdv7", "hdva", "xd5a", "xd5c", "xd5e", "xdv3", "xdv5", "xdva", "xdvc",
          "xdve"}},
        {"AVdr", {"AVdh"}},
        {"UYVY", {"2vuy"}},
        {"YUY2", {"yuv2"}},
        {"avc1",
         {"es00", "es01", "es02", "es03", "es04", "es05", "es06", "es07", "es08", "es09", "es10",
          "es11", "es12", "es13", "es14", "es15", "es16", "es17"}},
        {"avc5", {"ai52", "ai53", "ai55", "ai56", "ai5p", "ai5q", "avca", "avcb"}},
        {"avc6", {"ai12", "ai13", "ai15", "ai16", "ai1p", "ai1q", "avcc", "avcd"}},
        {"dv25", {"dvpn", "dvpp"}},
        {"dv50", {"dv5n", "dv5p"}},
        {"dvh1", {"dvh5", "dvh6", "dvhp", "dvhq"}},
        {"dvsd", {"CDVC", "dvc ", "dvcp"}},
    };
    Mapping mapping;
    for (const auto& family : families)
        for (const char* stored : family.stored)
            mapping.emplace_back(code(stored), code(family.playout));
    for (const unsigned int id : {1235u, 1241u, 1250u})
        mapping.emplace_back(id, code("AVdx"));
    for (const unsigned int id :
         {1237u, 1238u, 1242u, 1243u, 1244u, 1251u, 1252u, 1253u, 1258u, 1259u, 1260u})
        mapping.emplace_back(id, code("AVdn"));
    for (const unsigned int id : {1256u, 1270u, 1271u, 1272u, 1273u, 1274u})
        mapping.emplace_back(id, code("AVdr"));
    return mapping;
}

// Every code of the table and as many others, shuffled.
Mapping questions()
{
    Mapping mapping = table();
    bench::Numbers numbers(61);
    const std::size_t hits = mapping.size();
    for (std::size_t i = 0; i < hits; ++i) {
        const unsigned int other = mapping[i].first ^ 0x20000000u; // other case, or unrelated
        mapping.emplace_back(other, other);
    }
    for (std::size_t i = mapping.size() - 1; i > 0; --i)
        std::swap(mapping[i], mapping[numbers.below(static_cast<std::uint32_t>(i + 1))]);
    return mapping;
}

template <class LookUp> void askInTurn(State& state, LookUp lookUp)
{
    const Mapping asked = questions();
    bool right = true;
    for (const auto& [stored, playout] : asked)
        right = right && lookUp(stored) == playout;
    std::size_t at = 0;
    bench::run(state, right, [&] {
        keep(lookUp(asked[at].first));
        if (++at == asked.size())
            at = 0;
    });
}

template <class Map> void askMap(State& state)
{
    Map map;
    for (const auto& [stored, playout] : table())
        map.emplace(stored, playout);
    askInTurn(state, [&](unsigned int stored) {
        const auto found = map.find(stored);
        return found != map.end() ? found->second : stored;
    });
}

} // namespace

void bench::addPlayout()
{
    Row row("playout", "look-up over the table and misses", {1.0, "std::unordered_map"});
    row.ours([](State& state) { askInTurn(state, Vx::lookupPlayoutFCC); });
    row.peer("std::unordered_map", askMap<std::unordered_map<unsigned int, unsigned int>>);
#if BENCH_ABSL
    row.peer("absl::flat_hash_map", askMap<absl::flat_hash_map<unsigned int, unsigned int>>);
#endif
#if BENCH_QT
    row.peer("QHash", [](State& state) {
        QHash<unsigned int, unsigned int> map;
        for (const auto& [stored, playout] : table())
            map.insert(stored, playout);
        askInTurn(state, [&](unsigned int stored) { return map.value(stored, stored); });
    });
#endif
}
