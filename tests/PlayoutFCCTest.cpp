#include <Testing.h>
#include <Vx/Image/PlayoutFCC.h>

namespace {

unsigned int code(const std::string& text)
{
    unsigned int value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value |= static_cast<unsigned int>(static_cast<unsigned char>(text[i])) << (8 * i);
    return value;
}

// The same table, written down once more: a code for the playout, and what is played out as it.
// Numbers count as they are.
const std::map<unsigned int, unsigned int>& table()
{
    static const std::map<unsigned int, unsigned int> kTable = [] {
        const char* const rows[] = {
            "MJPG mjpa",
            "MMES mpeg",
            "GIMX mx3n mx3p mx4n mx4p mx5n mx5p",
            "M701 hdv3 hdv5 hdv7 hdva xd5a xd5c xd5e xdv3 xdv5 xdva xdvc xdve",
            "AVdr AVdh 1256 1270 1271 1272 1273 1274",
            "AVdx 1235 1241 1250",
            "AVdn 1237 1238 1242 1243 1244 1251 1252 1253 1258 1259 1260",
            "UYVY 2vuy",
            "YUY2 yuv2",
            "avc1 es00 es01 es02 es03 es04 es05 es06 es07 es08 es09 es10 es11 es12 es13 es14",
            "avc1 es15 es16 es17",
            "avc5 ai52 ai53 ai55 ai56 ai5p ai5q avca avcb",
            "avc6 ai12 ai13 ai15 ai16 ai1p ai1q avcc avcd",
            "dv25 dvpn dvpp",
            "dv50 dv5n dv5p",
            "dvh1 dvh5 dvh6 dvhp dvhq",
            "dvsd CDVC dvc_ dvcp", // a blank
        };
        std::map<unsigned int, unsigned int> built;
        for (const char* row : rows) {
            std::istringstream words(row);
            std::string playout, source;
            for (words >> playout; words >> source;) {
                std::replace(source.begin(), source.end(), '_', ' ');
                const bool isNumber = source.find_first_not_of("0123456789") == source.npos;
                const auto number =
                    isNumber ? static_cast<unsigned int>(std::stoul(source)) : code(source);
                built[number] = code(playout);
            }
        }
        return built;
    }();
    return kTable;
}

unsigned int expected(unsigned int fourcc)
{
    const auto found = table().find(fourcc);
    return found != table().end() ? found->second : fourcc;
}

} // namespace

TEST(LookupPlayoutFCC, NumbersBehindTheCharacters)
{
    EXPECT_EQ(Vx::lookupPlayoutFCC(0x61706A6Du), 0x47504A4Du) << "mjpa, MJPG";
    EXPECT_EQ(Vx::lookupPlayoutFCC(0x000004D3u), 0x78645641u) << "1235, AVdx";
    EXPECT_EQ(table().size(), 88u);
}

TEST(LookupPlayoutFCC, AgreesWithTheTableEverywhereAroundIt)
{
    const auto check = [](unsigned int fourcc) {
        ASSERT_EQ(Vx::lookupPlayoutFCC(fourcc), expected(fourcc)) << std::hex << fourcc;
    };
    for (const auto& [source, playout] : table()) {
        check(playout);
        for (unsigned int shift = 0; shift < 32; shift += 8)
            for (unsigned int byte = 0; byte < 256; ++byte)
                check((source & ~(0xFFu << shift)) | byte << shift);
        for (unsigned int bit = 0; bit < 32; ++bit)
            for (unsigned int other = 0; other < 32; ++other)
                check(source ^ 1u << bit ^ 1u << other);
    }
    for (unsigned int low = 0; low <= 0xFFFF; ++low) {
        check(low);
        check(low << 16);
        check(0xFFFFFFFFu - low);
        check(low * 65537u);
    }
    // Steps through the whole range, a different remainder of every small number each time.
    for (unsigned int step = 0; step < 2'000'000; ++step)
        check(step * 2654435761u);
}
