#include <Vx/Image/UUID.h>

#include <Texts.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

using Vx::UUID;

constexpr char kText[] = "0123abcd-4567-89ef-0123-456789abcdef";
constexpr unsigned char kBytes[16] = {0xCD, 0xAB, 0x23, 0x01, 0x67, 0x45, 0xEF, 0x89,
                                      0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};

UUID withByte(int index, unsigned char value)
{
    SimpleUUID bytes = {};
    bytes.bytes[index] = value;
    return UUID(bytes);
}

constexpr UUID kConstant("{0123abcd-4567-89ef-0123-456789abcdef}");
static_assert(kConstant.valid() && !UUID().valid() &&
              kConstant == UUID(L"0123ABCD-4567-89EF-0123-456789ABCDEF"));
static_assert(UUID() < kConstant && kConstant > UUID() && kConstant.data()[0] == 0xCD);

} // namespace

// The fuzz target "uuid" compares parsing and printing with the C library.

TEST(UUID, ParsesBothFormsIntoStoredOrder)
{
    for (const char* text : {"{0123abcd-4567-89ef-0123-456789abcdef}", kText,
                             "0123ABCD-4567-89EF-0123-456789ABCDEF"}) {
        SCOPED_TRACE(text);
        const std::wstring wide = widen<wchar_t>(text);
        for (const UUID& id : {UUID(text), UUID(wide.c_str()), UUID(LightweightString<char>(text)),
                               UUID(LightweightString<wchar_t>(wide.c_str()))}) {
            EXPECT_EQ(std::memcmp(&id, kBytes, 16), 0);
            EXPECT_EQ(id.asString(), LightweightString<char>(kText));
            EXPECT_EQ(id.asString().capacity(), 64u);
            EXPECT_EQ(id.asWString(), LightweightString<wchar_t>(widen<wchar_t>(kText).c_str()));
        }
    }
}

TEST(UUID, FailedParsingLeavesTheInvalidValue)
{
    const struct {
        const char* name;
        const char* text;
        unsigned int length;
    } rows[] = {
        {"empty", "", 0},
        {"one character short", "0123abcd-4567-89ef-0123-456789abcde", 35},
        {"the wrong brace", "{0123abcd-4567-89ef-0123-456789abcdef)", 38},
        {"cut by its length", "{0123abcd-4567-89ef-0123-456789abcdef}", 36},
        {"ended by its terminator", "0123", 36},
        {"all zeros", "00000000-0000-0000-0000-000000000000", 36},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        UUID id(kConstant), wide(kConstant);
        id.initFromString(row.text, row.length);
        wide.initFromString(widen<wchar_t>(row.text).c_str(), row.length);
        EXPECT_TRUE(id == UUID() && wide == UUID());
    }
    UUID id(kConstant);
    id.initFromString(static_cast<const char*>(nullptr), 36);
    EXPECT_FALSE(id.valid());
    EXPECT_FALSE(UUID(static_cast<const char*>(nullptr)).valid());
    EXPECT_FALSE(UUID(static_cast<const wchar_t*>(nullptr)).valid());
}

TEST(UUID, PrintsIntoABufferOf37Characters)
{
    char printed[] = "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!";
    wchar_t wide[] = L"!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!";
    EXPECT_EQ(kConstant.asString(printed), 36);
    EXPECT_EQ(kConstant.asWString(wide), 36);
    EXPECT_EQ(std::string(printed, 38), kText + std::string("\0!", 2));
    EXPECT_EQ(std::wstring(wide, 38), widen<wchar_t>(kText + std::string("\0!", 2)));
}

TEST(UUID, DeliberatelyOrdersByStoredBytes)
{
    // Ascending: byte 3 prints before byte 0, and bytes are unsigned.
    const UUID ordered[] = {UUID(), withByte(15, 0x7F), withByte(15, 0x80), withByte(3, 0xFF),
                            withByte(0, 1)};
    for (std::size_t i = 0; i < std::size(ordered); ++i)
        for (std::size_t j = 0; j < std::size(ordered); ++j)
            expectOrder(ordered[i], ordered[j], i, j);
    for (int i = 0; i < 16; ++i)
        EXPECT_TRUE(withByte(i, 1) != UUID() && withByte(i, 0x80).valid()) << i;
}

TEST(UUID, GenerateTakesThePlatformsBytesAsTheyAre)
{
    ScriptedPlatform platform;
    SimpleUUID next;
    std::memcpy(next.bytes, kBytes, 16);
    platform.setNextUUID(next);
    UUID id;
    id.generate();
    EXPECT_EQ(id, kConstant);
    id.invalidate();
    EXPECT_EQ(id, UUID());
    id = kConstant;
    platform.failCall("generateUUID");
    EXPECT_THROW(id.generate(), ScriptedFault);
    EXPECT_FALSE(id.valid());
}

TEST(UUID, KeysContainersAndPrints)
{
    std::unordered_set<std::size_t> hashes;
    for (int i = 0; i < 16; ++i)
        for (unsigned int bit = 0; bit < 8; ++bit)
            hashes.insert(std::hash<UUID>()(withByte(i, static_cast<unsigned char>(1u << bit))) &
                          0xFFFF);
    EXPECT_GT(hashes.size(), 120u) << "every bit reaches the lower half of the hash";
    std::ostringstream out;
    out << '[' << kConstant << ']';
    EXPECT_EQ(out.str(), "[0123abcd-4567-89ef-0123-456789abcdef]");
    std::wostringstream wideOut;
    wideOut << kConstant;
    EXPECT_EQ(wideOut.str(), widen<wchar_t>(kText));
}
