#include <Vx/VxStringNumbers.h>

#include <bit>
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

// Strings with numbers: what programs write, what people type, and damaged forms of both.
class Inputs {
public:
    explicit Inputs(std::uint64_t seed) : random_(seed) {}

    std::string next()
    {
        std::string text;
        while (random_() % 4 == 0)
            text += " \t\n\v\f\r"[random_() % 6];
        if (random_() % 3 == 0)
            text += "-+"[random_() % 2];
        text += number();
        if (random_() % 4 == 0)
            text += random_() % 2 == 0 ? word("abc 12 . , ,5 \u066B5 e px \t") : oddCharacter();
        if (random_() % 8 == 0 && !text.empty())
            text.replace(random_() % text.size(), 1, oddCharacter());
        return text;
    }

    double nextDouble()
    {
        const std::int64_t units = static_cast<std::int64_t>(random_());
        switch (random_() % 4) {
        case 0: return std::bit_cast<double>(random_());
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
    std::string digits(std::uint64_t most)
    {
        std::string text(random_() % (most + 1), '0');
        for (char& c : text)
            c = static_cast<char>('0' + random_() % 10);
        return text;
    }
    std::string word(const char* list)
    {
        std::istringstream stream(list);
        const std::vector<std::string> words(std::istream_iterator<std::string>(stream), {});
        return words[random_() % words.size()];
    }
    std::string oddCharacter()
    {
        return std::string(1, "0123456789+-.,eExXinfap \t\v\xA0\xD9\x01"[random_() % 28]);
    }
    std::string number()
    {
        switch (random_() % 6) {
        case 0: return digits(9);
        case 1: return digits(random_() % 8 == 0 ? 90 : 25);
        case 2: return digits(12) + "." + digits(12);
        case 3:
            return digits(3) + "." + digits(3) + "eE"[random_() % 2] + "-+"[random_() % 2] +
                   digits(3);
        case 4: return digits(2) + "e" + std::to_string(static_cast<int>(random_() % 700) - 350);
        default:
            return word(
                "0x1f 0x inf nan infinity NAN(12) . 1e 1e+ - +-1 1,5 1,234.5 4294967296 "
                "-1 2147483648 1.5.5 1e5.5 1\u0135 1\u066B5 ,5 \u066B5 0x1p3 4.9e-324 1.8e308 "
                "1e-330 0e999 -0 -0.0e-5 9223372036854775808 18446744073709551616 \xA0\x31 "
                "1\u00A0000");
        }
    }

    std::mt19937_64 random_;
};

void compareReading(std::uint64_t seed, int count)
{
    Inputs inputs(seed);
    for (int i = 0; i < count && !testing::Test::HasFatalFailure(); ++i)
        expectReadsAsLibc(inputs.next());
}

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
    Inputs inputs(seed);
    for (int i = 0; i < count && !testing::Test::HasFatalFailure(); ++i)
        expectWritesAsLibc(inputs.nextDouble(), i % 14 - 2); // beyond both ends
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

TEST(NumbersDifferential, InTheCLocale)
{
    const ScratchLocale plain("C");
    compareReading(1, scaled(100'000));
    compareWriting(2, scaled(60'000));
}

TEST(NumbersDifferential, WithOtherDecimalPoints)
{
    {
        const ScratchLocale german("de_DE");
        compareReading(3, scaled(40'000));
    }
    const ScratchLocale pashto("ps_AF");
    compareReading(5, scaled(40'000));
    compareWriting(6, scaled(5'000));
}

TEST(NumbersDifferential, InEveryPairOfRoundingModes)
{
    for (const int sse : kRoundingModes)
        for (const int x87 : kRoundingModes) {
            SCOPED_TRACE(std::to_string(sse) + " and " + std::to_string(x87));
            setRounding(sse, x87);
            compareReading(7, scaled(2'000));
            compareWriting(8, scaled(1'000));
            setRounding(FE_TONEAREST, FE_TONEAREST);
        }
}

TEST(WriteFixed, AgreesWithItsPlainTwin)
{
    Inputs inputs(9);
    for (int i = 0; i < scaled(100'000); ++i) {
        const double value = inputs.nextDouble();
        const auto written = [&](auto write) {
            char buffer[Vx::detail::kFixedDecimalsSize];
            return std::string(buffer, write(buffer, value, i % 10));
        };
        if (std::fabs(value) < 0x1p64) {
            ASSERT_EQ(written(Vx::detail::writeFixed), written(Vx::detail::writeFixedPlain));
        }
    }
}
