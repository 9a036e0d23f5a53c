#include <Vx/Image/PlayoutFCC.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace {

constexpr std::uint32_t fcc(std::string_view code)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(code[i]);
    return value;
}

// The four-character codes of each family, with a blank between them. Deliberate: exactly
// these; the gaps ("ai54", "hdv4", "dvh2", "es18") are no oversights.
constexpr struct {
    std::string_view playout;
    std::string_view sources;
} kFamilies[] = {
    {"MJPG", "mjpa"},
    {"MMES", "mpeg"},
    {"GIMX", "mx3n mx3p mx4n mx4p mx5n mx5p"},
    {"M701", "hdv3 hdv5 hdv7 hdva xd5a xd5c xd5e xdv3 xdv5 xdva xdvc xdve"},
    {"AVdr", "AVdh"},
    {"UYVY", "2vuy"},
    {"YUY2", "yuv2"},
    {"avc1", "es00 es01 es02 es03 es04 es05 es06 es07 es08 "
             "es09 es10 es11 es12 es13 es14 es15 es16 es17"},
    {"avc5", "ai52 ai53 ai55 ai56 ai5p ai5q avca avcb"},
    {"avc6", "ai12 ai13 ai15 ai16 ai1p ai1q avcc avcd"},
    {"dv25", "dvpn dvpp"},
    {"dv50", "dv5n dv5p"},
    {"dvh1", "dvh5 dvh6 dvhp dvhq"},
    {"dvsd", "CDVC dvc  dvcp"},
};

// The VC-3 compression identifiers: bit i stands for 1235 + i.
constexpr struct {
    std::string_view playout;
    std::uint64_t identifiers;
} kNumbers[] = {
    {"AVdn", 0x0387038C},
    {"AVdr", 0xF800200000},
    {"AVdx", 0x8041},
};
constexpr std::uint32_t kFirstNumber = 1235;

struct Entry {
    std::uint32_t source;
    std::uint32_t change; // the bits in which the playout code differs
};

// A hash table without collisions, built by the compiler: one multiplication and one
// comparison answer hits and misses alike. A free slot holds 0 and changes nothing.
constexpr int kSlotBits = 8;
constexpr std::uint32_t kMultiplier =
    0x940C8BCB; // found by trial: every code has a slot of its own

constexpr std::size_t slotOf(std::uint32_t code) { return code * kMultiplier >> (32 - kSlotBits); }

struct Table {
    std::array<Entry, std::size_t(1) << kSlotBits> slots{};
    int entries = 0;
    bool collides = false;

    constexpr void add(std::uint32_t source, std::uint32_t playout)
    {
        Entry& slot = slots[slotOf(source)];
        collides = collides || slot.source != 0;
        slot = {source, source ^ playout};
        ++entries;
    }
};

constexpr Table kTable = [] {
    Table table;
    for (const auto& family : kFamilies)
        for (std::size_t i = 0; i < family.sources.size(); i += 5)
            table.add(fcc(family.sources.substr(i, 4)), fcc(family.playout));
    for (const auto& number : kNumbers)
        for (std::uint32_t i = 0; i < 64; ++i)
            if ((number.identifiers >> i & 1) != 0)
                table.add(kFirstNumber + i, fcc(number.playout));
    return table;
}();
static_assert(!kTable.collides, "two codes share a slot: look for another multiplier");
static_assert(kTable.entries == 88, "68 four-character codes and 20 compression identifiers");

} // namespace

unsigned int Vx::lookupPlayoutFCC(unsigned int fourcc) noexcept
{
    const Entry& slot = kTable.slots[slotOf(fourcc)];
    // No branch: callers mix hits and misses, and nobody can predict which comes next.
    return fourcc ^ (slot.change & -static_cast<std::uint32_t>(slot.source == fourcc));
}
