// detail/PlayoutTable.h - Which stored essence plays out under which code.
//
// Deliberate: exactly these codes. The gaps ("ai54", "hdv4", "dvh2", "es18") are no oversights.
#pragma once

#include <cstdint>
#include <string_view>

namespace Vx::detail {

/// The number of a code of four characters, the first in the least significant byte.
constexpr std::uint32_t fourcc(std::string_view code)
{
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(code[i]);
    return value;
}

struct PlayoutFamily {
    std::string_view playout;
    std::string_view sources; // of four characters each, a space between them
};
inline constexpr PlayoutFamily kPlayoutFamilies[] = {
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

/// VC-3 compression identifiers: bit i is the number kFirstVc3Identifier + i.
inline constexpr std::uint32_t kFirstVc3Identifier = 1235;
struct PlayoutIdentifiers {
    std::string_view playout;
    std::uint64_t identifiers;
};
inline constexpr PlayoutIdentifiers kPlayoutIdentifiers[] = {
    {"AVdn", 0x0387038C},
    {"AVdr", 0xF800200000},
    {"AVdx", 0x8041},
};

/// Calls \p visit(source, playout) for each code that is translated, numbers first.
template <class Visit> constexpr void forEachPlayoutCode(Visit visit)
{
    for (const PlayoutIdentifiers& vc3 : kPlayoutIdentifiers)
        for (std::uint32_t i = 0; i < 64; ++i)
            if ((vc3.identifiers >> i & 1) != 0)
                visit(kFirstVc3Identifier + i, fourcc(vc3.playout));
    for (const PlayoutFamily& family : kPlayoutFamilies)
        for (std::size_t at = 0; at < family.sources.size(); at += 5)
            visit(fourcc(family.sources.substr(at)), fourcc(family.playout));
}

} // namespace Vx::detail
