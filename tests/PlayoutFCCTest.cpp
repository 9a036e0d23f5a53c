#include <Vx/Image/PlayoutFCC.h>

#include <Testing.h>

namespace {

unsigned int code(const std::string& text)
{
    unsigned int value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value |= static_cast<unsigned int>(static_cast<unsigned char>(text[i])) << (8 * i);
    return value;
}

// The table once more, on purpose: a playout code, then what plays out as it. Numbers are plain.
std::map<unsigned int, unsigned int> table()
{
    std::istringstream rows("MJPG mjpa\n"
                            "MMES mpeg\n"
                            "GIMX mx3n mx3p mx4n mx4p mx5n mx5p\n"
                            "M701 hdv3 hdv5 hdv7 hdva xd5a xd5c xd5e xdv3 xdv5 xdva xdvc xdve\n"
                            "AVdr AVdh 1256 1270 1271 1272 1273 1274\n"
                            "AVdx 1235 1241 1250\n"
                            "AVdn 1237 1238 1242 1243 1244 1251 1252 1253 1258 1259 1260\n"
                            "UYVY 2vuy\n"
                            "YUY2 yuv2\n"
                            "avc1 es00 es01 es02 es03 es04 es05 es06 es07 es08 es09 es10 es11\n"
                            "avc1 es12 es13 es14 es15 es16 es17\n"
                            "avc5 ai52 ai53 ai55 ai56 ai5p ai5q avca avcb\n"
                            "avc6 ai12 ai13 ai15 ai16 ai1p ai1q avcc avcd\n"
                            "dv25 dvpn dvpp\n"
                            "dv50 dv5n dv5p\n"
                            "dvh1 dvh5 dvh6 dvhp dvhq\n"
                            "dvsd CDVC dvc_ dvcp\n"); // '_' is a space
    std::map<unsigned int, unsigned int> table;
    for (std::string row; std::getline(rows, row);) {
        std::istringstream words(row);
        std::string playout, source;
        for (words >> playout; words >> source;) {
            std::replace(source.begin(), source.end(), '_', ' ');
            const bool isNumber = source.find_first_not_of("0123456789") == source.npos;
            const auto number =
                isNumber ? static_cast<unsigned int>(std::stoul(source)) : code(source);
            table[number] = code(playout);
        }
    }
    return table;
}

} // namespace

TEST(LookupPlayoutFCC, AgreesWithTheTableEverywhereAroundIt)
{
    EXPECT_EQ(Vx::lookupPlayoutFCC(0x61706A6Du), 0x47504A4Du) << "mjpa, MJPG";
    const std::map<unsigned int, unsigned int> expected = table();
    ASSERT_EQ(expected.size(), 88u);
    const auto check = [&](unsigned int fourcc) {
        const auto found = expected.find(fourcc);
        ASSERT_EQ(Vx::lookupPlayoutFCC(fourcc), found != expected.end() ? found->second : fourcc)
            << std::hex << fourcc;
    };
    for (const auto& [source, playout] : expected) {
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
}
