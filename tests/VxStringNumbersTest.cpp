#include <Vx/VxStringNumbers.h>

#include <cerrno>
#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <locale.h>

#include "Reference.h"
#include "Rounding.h"
#include "ScratchLocales.h"
#include <Texts.h>
#include <Vx/detail/FixedDecimals.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

// Equal to the last bit, and with the same errno.
template <class Ours, class Expected>
void expectSame(const char* name, const std::string& text, Ours ours, Expected expected)
{
    errno = 0;
    const auto result = ours();
    const int error = errno;
    errno = 0;
    const decltype(ours()) wanted = expected();
    ASSERT_TRUE(error == errno && std::memcmp(&result, &wanted, sizeof result) == 0)
        << name << " of '" << text << "': " << result << " instead of " << wanted << ", errno "
        << error << " instead of " << errno;
}

void expectReadsAsLibc(const std::string& text)
{
    const Narrow narrow = make<char>(text);
    Wide wide;
    wide += narrow; // code points, as the wide functions of libc expect
    const auto check = [&](const char* name, auto read, const auto& from, auto otherwise) {
        expectSame(
            name, text, [&] { return read(from, otherwise); },
            [&] { return reference::number(str(from), otherwise); });
    };
    check("int", Vx::IntFromString, narrow, 7);
    check("wide int", Vx::IntFromWString, wide, 7);
    check("unsigned", Vx::UIntFromString, narrow, 7u);
    check("wide unsigned", Vx::UIntFromWString, wide, 7u);
    check("long", Vx::Int64FromString, narrow, 7l);
    check("wide long", Vx::Int64FromWString, wide, 7l);
    check("double", Vx::FloatFromString, narrow, 7.0);
    check("wide double", Vx::FloatFromWString, wide, 7.0);
    expectSame(
        "asDouble", text, [&] { return Vx::asDouble(narrow); },
        [&] { return std::strtod(text.c_str(), nullptr); });
}

/// Numbers with everything before and after them that could be taken for a part of them.
void compareReading()
{
    std::istringstream numbers(
        "0 7 42 007 123456789 2147483648 4294967296 9223372036854775808 18446744073709551616 "
        "9007199254740993 123456789012345678901234567890 "
        "1234567890123456789012345678901234567890123456789012345678901234567890.5 1.5 . .25 12. "
        "1,5 ,5 1,234.5 1.5.5 "
        "0.1234567890123456789 1\u066B5 \u066B5 1\u0135 1\u00A0000 0x1f 0x 0x1p3 inf infinity nan "
        "NAN(12) 4.9e-324 1.8e308 1e-330 0e999 0.0e-5");
    expectReadsAsLibc("");
    for (std::string number; numbers >> number;)
        for (const std::string before : {"", " \t\n\v\f\r", "-", "+", "+-", "\xA0"})
            for (const char* after : {"", "e", "e+", "e5", "E-300", ".", "px", " 12", "\x01"}) {
                expectReadsAsLibc(before + number + after);
                if (testing::Test::HasFatalFailure())
                    return;
            }
}

/// Doubles of all kinds, many close to where printing rounds.
class Doubles {
public:
    explicit Doubles(std::uint64_t seed) : random_(seed) {}

    double next()
    {
        const std::int64_t units = static_cast<std::int64_t>(random_());
        switch (random_() % 4) {
        case 0: return bitCast<double>(random_());
        case 1: // exact ties and their neighbours, at every scale
            return std::nextafter(std::ldexp(static_cast<double>(units % 4096) + 0.5,
                                             static_cast<int>(random_() % 40) - 34),
                                  static_cast<double>(static_cast<int>(random_() % 3) - 1) * 1e300);
        case 2:
            return std::ldexp(static_cast<double>(units), static_cast<int>(random_() % 128) - 100);
        default: return static_cast<double>(units % 2000) + 0.9999995 + 1e-9 * double(units % 7);
        }
    }

private:
    std::mt19937_64 random_;
};

void expectWritesAsLibc(double value, int precision)
{
    ASSERT_EQ(str(Vx::StringFromFloat(value)), reference::fromFloat(value));
    for (const bool trim : {false, true})
        ASSERT_EQ(str(Vx::WStringFromFloat(value, static_cast<char>(precision), trim)),
                  reference::wideFromFloat(value, precision, trim))
            << "precision " << precision << ", value " << value;
}

void compareWriting(std::uint64_t seed, int count)
{
    Doubles doubles(seed);
    for (int i = 0; i < count && !testing::Test::HasFatalFailure(); ++i)
        expectWritesAsLibc(doubles.next(), i % 14 - 2); // beyond both ends
}

} // namespace

TEST(NumbersFromText, EndAtAnEmbeddedZero)
{
    const Wide zero(L"\0\x35", 2);
    EXPECT_EQ(Vx::IntFromString(Narrow("12\0\x33\x34", 5), 7), 12);
    EXPECT_EQ(Vx::FloatFromString(Narrow("1.5\0\x35", 5), 7), 1.5);
    EXPECT_EQ(Vx::Int64FromWString(zero, 7), 0) << "not empty, so no default";
    EXPECT_EQ(Vx::FloatFromWString(zero, 7), 7);
}

TEST(TextFromNumbers, AppendsToSharedAndUnsharedStrings)
{
    Narrow text("n=");
    const Narrow sharer(text);
    text += INT_MIN;
    text += 4294967295u;
    text += 0;
    EXPECT_EQ(str(text += 1.5), "n=-2147483648429496729501.500000");
    EXPECT_EQ(str(sharer), "n=");
    EXPECT_EQ(str(Vx::StringFromInteger(-12)), "-12");
    EXPECT_EQ(Vx::StringFromInteger(-12).capacity(), 4u);
    EXPECT_EQ(str(Vx::WStringFromInteger(LONG_MIN)), L"-9223372036854775808");
    EXPECT_EQ(Vx::WStringFromInteger(LONG_MIN).capacity(), 32u);
}

TEST(TextFromNumbers, AppendsIntegersOfEveryLength)
{
    for (long power = 1; power <= 1'000'000'000; power *= 10)
        for (const long number : {power - 1, power}) {
            Narrow text;
            text += static_cast<unsigned int>(number);
            text += static_cast<int>(-number);
            ASSERT_EQ(str(text), std::to_string(number) + std::to_string(-number));
        }
}

TEST(TextFromNumbers, LooksAsPrintfWritesItAtTheEndsOfTheRange)
{
    // Also ties that go up or down to the even digit, and a hair below a tie.
    for (const double value :
         {0.0, -0.0, -1e-9, 0.5, 1.5, 0.0000005, 0.0078125, 0.0234375, 0x1p-46, 0.9999996,
          DBL_TRUE_MIN, 0x1.fffffffffffffp63, 0x1p64, DBL_MAX, HUGE_VAL, -HUGE_VAL, -double(NAN)})
        for (int precision = 0; precision < 10; ++precision)
            expectWritesAsLibc(value, precision);
}

TEST(TextFromNumbers, DeliberatelyKeepsOnly126Characters)
{
    EXPECT_EQ(Vx::StringFromFloat(9e118).length(), 126u);
    EXPECT_EQ(str(Vx::StringFromFloat(9e118)).substr(119), ".000000");
    EXPECT_EQ(str(Vx::StringFromFloat(2e119)).substr(120), ".00000");
    EXPECT_EQ(str(Vx::StringFromFloat(-2e118)).substr(120), ".00000");
    EXPECT_EQ(Vx::StringFromFloat(-DBL_MAX).length(), 126u);
    EXPECT_EQ(Vx::WStringFromFloat(DBL_MAX, 9, false).length(), 255u);
}

TEST(WStringFromFloat, DeliberatelyTrimsZerosWithoutAPoint)
{
    EXPECT_EQ(str(Vx::WStringFromFloat(100.0, 0, true)), L"1");
    EXPECT_EQ(str(Vx::WStringFromFloat(0.0, 0, true)), L"0") << "only zeros stay";
    EXPECT_EQ(str(Vx::WStringFromFloat(2.0, 2, true)), L"2");
    EXPECT_EQ(str(Vx::WStringFromFloat(0.5, 127, false)), L"0.500000000") << "at most nine";
}

TEST(NumericLocale, RepairsACommaOnceAndSaysSo)
{
    const ScratchLocale german("de_DE");
    const std::string notice = printed([&] {
        EXPECT_EQ(str(Vx::WStringFromFloat(3.0, 0, false)), L"3"); // no comma, no repair
        EXPECT_EQ(str(Vx::StringFromFloat(HUGE_VAL)), "inf");
        EXPECT_EQ(Vx::StringFromFloat(1e200).length(), 126u); // cut off before the comma
        EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "de_DE");
        EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0.500000");
        EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0.500000");
        EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
        EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8") << "only the numeric category";
        ASSERT_TRUE(german.choose());
        EXPECT_EQ(str(Vx::WStringFromFloat(2.25, 3, true)), L"2.25");
        std::setlocale(LC_NUMERIC, "C.UTF-8");
        setNumericLocale(); // only "C" counts as "C"
        setNumericLocale();
    });
    EXPECT_EQ(notice, "Fixing numeric locale (de_DE)\nFixing numeric locale (de_DE)\n"
                      "Fixing numeric locale (C.UTF-8)\n");
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
}

TEST(NumericLocale, ThreadsThatRepairItTogetherSaySoOnce)
{
    const ScratchLocale german("de_DE");
    for (int round = 0; round < 200; ++round) {
        ASSERT_TRUE(german.choose());
        const auto format = [](int) { EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0.500000"); };
        ASSERT_EQ(printed([&] { onThreads(8, format); }), "Fixing numeric locale (de_DE)\n");
    }
}

TEST(NumericLocale, LeavesAloneWhatItCannotRepair)
{
    const ScratchLocale pashto("ps_AF"); // another decimal point, of two bytes
    EXPECT_EQ(printed([] {
                  EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0\u066B500000");
                  // The bytes of the point are widened one by one.
                  EXPECT_EQ(str(Vx::WStringFromFloat(0.5, 2, true)), L"0\u00D9\u00AB5");
              }),
              "");
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "ps_AF");

    const ScratchLocale german("de_DE"); // of this thread only
    const locale_t own = duplocale(LC_GLOBAL_LOCALE);
    ASSERT_NE(own, nullptr);
    ASSERT_STREQ(std::setlocale(LC_ALL, "C"), "C");
    const locale_t before = uselocale(own);
    EXPECT_EQ(Vx::asDouble(Narrow("1.5")), 1.0);
    EXPECT_EQ(Vx::asDouble(Narrow("1,5")), 1.5);
    EXPECT_EQ(printed([] { EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0,500000"); }), "");
    uselocale(before);
    freelocale(own);
}

// The fuzz target "numbers" goes on with random texts.

TEST(NumbersDifferential, InEveryLocale)
{
    for (const char* name : {"C", "de_DE", "ps_AF"}) {
        SCOPED_TRACE(name);
        const ScratchLocale locale(name);
        compareReading();
        if (name != std::string("de_DE")) // printing would change it
            compareWriting(2, scaled(60'000));
    }
}

TEST(NumbersDifferential, InEveryPairOfRoundingModes)
{
    for (const int sse : kRoundingModes)
        for (const int x87 : kRoundingModes) {
            SCOPED_TRACE(std::to_string(sse) + " and " + std::to_string(x87));
            setRounding(sse, x87);
            compareReading();
            compareWriting(8, scaled(1'000));
            setRounding(FE_TONEAREST, FE_TONEAREST);
        }
}

TEST(WriteFixed, AgreesWithItsPlainTwin)
{
    Doubles doubles(9);
    for (int i = 0; i < scaled(100'000); ++i) {
        const double value = doubles.next();
        const auto written = [&](auto write) {
            char buffer[Vx::detail::kFixedDecimalsSize];
            return std::string(buffer, write(buffer, value, i % 10));
        };
        if (std::fabs(value) < 0x1p64) {
            ASSERT_EQ(written(Vx::detail::writeFixed), written(Vx::detail::writeFixedPlain));
        }
    }
}
