#include <Vx/VxStringNumbers.h>

#include <bit>
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <clocale>
#include <cmath>
#include <cwchar>
#include <locale.h>

#include "Reference.h"
#include "ScratchLocales.h"
#include <Texts.h>
#include <Vx/testing/ScriptedPlatform.h>

namespace {

constexpr int kDefault = 7;

// Both answers, to the last bit, and the errno behind them.
template <class Ours, class Libc> void expectSame(const char* name, Ours ours, Libc libc)
{
    errno = 0;
    const auto answer = ours();
    const int error = errno;
    errno = 0;
    const decltype(ours()) expected = libc();
    EXPECT_EQ(error, errno) << name;
    EXPECT_EQ(std::memcmp(&answer, &expected, sizeof answer), 0)
        << name << ": " << answer << " instead of " << expected;
}

template <class Number, class Ch>
void expectScansAsLibc(const char* name, Number (*ours)(const LightweightString<Ch>&, Number),
                       const LightweightString<Ch>& text)
{
    expectSame(
        name, [&] { return ours(text, kDefault); },
        [&] { return reference::number<Number>(str(text), kDefault); });
}

// Everything that reads numbers against the functions of libc that it stands for.
void expectReadsAsLibc(const Narrow& text, const Wide& wide)
{
    expectScansAsLibc("int", Vx::IntFromString, text);
    expectScansAsLibc("wide int", Vx::IntFromWString, wide);
    expectScansAsLibc("unsigned", Vx::UIntFromString, text);
    expectScansAsLibc("wide unsigned", Vx::UIntFromWString, wide);
    expectScansAsLibc("double", Vx::FloatFromString, text);
    expectScansAsLibc("wide double", Vx::FloatFromWString, wide);
    expectScansAsLibc("long", Vx::Int64FromString, text);
    expectScansAsLibc("wide long", Vx::Int64FromWString, wide);
    const auto libcDouble = [&] { return std::strtod(text.c_str(), nullptr); };
    expectSame(
        "asDouble", [&] { return Vx::asDouble(text); }, libcDouble);
}

// Texts around numbers: what programs write, what people type, and damaged forms of both.
class Texts {
public:
    explicit Texts(std::uint64_t seed) : random_(seed) {}

    std::string next()
    {
        std::string text;
        while (random_() % 4 == 0)
            text += " \t\n\v\f\r"[random_() % 6];
        if (random_() % 3 == 0)
            text += "-+"[random_() % 2];
        text += number();
        if (random_() % 4 == 0)
            text += random_() % 2 == 0 ? tail() : std::string(1, oddChar());
        if (random_() % 8 == 0 && !text.empty())
            text[random_() % text.size()] = oddChar();
        return text;
    }

    double nextDouble()
    {
        const std::int64_t units = static_cast<std::int64_t>(random_());
        switch (random_() % 5) {
        case 0: return std::bit_cast<double>(random_());
        case 1: return static_cast<double>(units % 100'000'000) / 1000.0;
        case 2: // exact ties and their neighbours, at every scale
            return std::nextafter(std::ldexp(static_cast<double>(units % 4096) + 0.5,
                                             static_cast<int>(random_() % 40) - 34),
                                  static_cast<double>(static_cast<int>(random_() % 3) - 1) * 1e300);
        case 3:
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
    std::string printed(const char* format, double value)
    {
        char buffer[400];
        std::snprintf(buffer, sizeof buffer, format, value);
        return buffer;
    }
    std::string number()
    {
        switch (random_() % 9) {
        case 0: return digits(9);
        case 1: return digits(25);
        case 2: return digits(12) + "." + digits(12);
        case 3:
            return digits(3) + "." + digits(3) + "eE"[random_() % 2] +
                   std::string(random_() % 3, '-') + digits(4);
        case 4: return printed("%.17g", std::bit_cast<double>(random_()));
        case 5: return printed("%.15g", nextDouble());
        case 6:
            return std::string(std::size_t(random_() % 3), '0') + digits(2) + "e" +
                   std::to_string(static_cast<int>(random_() % 700) - 350);
        case 7: { // whole numbers on a tie between two doubles, or next to one
            const std::uint64_t odd = (std::uint64_t(1) << 53) + (random_() >> 11 | 1);
            return std::to_string((odd << random_() % 10) + random_() % 3 - 1) +
                   (random_() % 2 == 0 ? "" : "e-" + std::to_string(random_() % 30));
        }
        default: {
            static const std::vector<std::string> kOdd = [] {
                std::istringstream words(
                    "0x1f 0x inf nan infinity NAN(12) . 1e 1e+ - +-1 1,5 1,234.5 4294967296 -1 "
                    "2147483648 1.5.5 1e5.5 1\u066B5 ,5 \u066B5 0x1p3 4.9e-324 1.8e308 1e-330 "
                    "0e999 -0 -0.0e-5 9223372036854775808 18446744073709551616 \xA0\x31 "
                    "1\u00A0000");
                return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
            }();
            return kOdd[random_() % kOdd.size()];
        }
        }
    }
    std::string tail()
    {
        static const char* const kTails[] = {"abc",     " 12", ".",  ",", ",5",
                                             "\u066B5", "e",   "px", "\t"};
        return kTails[random_() % std::size(kTails)];
    }
    char oddChar() { return "0123456789+-.,eExXinfap \t\v\xA0\xD9\x01"[random_() % 28]; }

    std::mt19937_64 random_;
};

void compareReading(std::uint64_t seed, int count)
{
    Texts texts(seed);
    for (int i = 0; i < count; ++i) {
        const std::string text = texts.next();
        Wide wide; // as the C library would have it: code points, not bytes
        wide += Narrow(text.c_str());
        expectReadsAsLibc(text.c_str(), wide);
        ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ": '" << text << "'";
    }
}

void compareWriting(std::uint64_t seed, int count)
{
    Texts texts(seed);
    for (int i = 0; i < count; ++i) {
        const double value = texts.nextDouble();
        ASSERT_EQ(str(Vx::StringFromFloat(value)), reference::fromFloat(value)) << "seed " << seed;
        const int precision = i % 14 - 2; // beyond both ends
        const bool trim = i % 3 == 0;
        ASSERT_EQ(str(Vx::WStringFromFloat(value, static_cast<char>(precision), trim)),
                  reference::wideFromFloat(value, precision, trim))
            << "seed " << seed << ", precision " << precision << ", value " << value;
    }
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

TEST(TextFromNumbers, WritesDecimalDigits)
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
    for (std::int64_t power = 1; power <= INT_MAX; power *= 10)
        for (const std::int64_t value : {power - 1, power, 7 * power + 3}) {
            Narrow appended;
            appended += static_cast<unsigned int>(value);
            EXPECT_EQ(str(appended), std::to_string(static_cast<unsigned int>(value)));
            EXPECT_EQ(str(Vx::StringFromInteger(static_cast<int>(-value))),
                      std::to_string(static_cast<int>(-value)));
        }
    EXPECT_EQ(str(Vx::WStringFromInteger(LONG_MIN)), L"-9223372036854775808");
    EXPECT_EQ(Vx::WStringFromInteger(LONG_MIN).capacity(), 32u);
}

TEST(TextFromNumbers, AppendingWhereThereIsRoomStaysInTheBlock)
{
    Narrow text("ab");
    text.resizeFor(300).mutableChars()[0] = 'c';
    text.mutableChars()[1] = 'd';
    const char* const block = text.resizeFor(2).c_str();
    std::string expected = "cd";
    for (double value : {1.5, -0.0625, 1e30, HUGE_VAL}) {
        text += value;
        text += -12;
        text += 7u;
        expected += reference::fromFloat(value) + "-127";
        EXPECT_EQ(str(text), expected);
        EXPECT_EQ(text.c_str()[text.length()], '\0');
    }
    EXPECT_EQ(text.c_str(), block);
}

TEST(TextFromNumbers, DoublesLookAsPrintfWritesThem)
{
    EXPECT_EQ(str(Vx::StringFromFloat(-1e-9)), "-0.000000");
    // A hair below a tie, ties that go up or down to the even digit, the ends of the range.
    for (double value :
         {0.0, -0.0, 0.5, 0.0000005, 0.0078125, 0.0234375, 0.9999996, 18446744073709549568.0,
          18446744073709551616.0, DBL_TRUE_MIN, HUGE_VAL, -HUGE_VAL})
        EXPECT_EQ(str(Vx::StringFromFloat(value)), reference::fromFloat(value));
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
    EXPECT_EQ(str(Vx::WStringFromFloat(0.0, 0, true)), L"0") << "zeros alone stay";
    EXPECT_EQ(str(Vx::WStringFromFloat(2.0, 2, true)), L"2");
    EXPECT_EQ(str(Vx::WStringFromFloat(0.5, 127, false)), L"0.500000000") << "at most nine";
}

TEST(NumericLocale, CommaIsRepairedOnceAndSaidOnce)
{
    const ScratchLocale german("de_DE");
    EXPECT_EQ(Vx::asDouble(Narrow("1,5")), 1.5) << "reading follows the locale";
    EXPECT_EQ(Vx::asDouble(Narrow("1.5")), 1.0);
    const std::string notice = printed([&] {
        EXPECT_EQ(str(Vx::WStringFromFloat(3.0, 0, false)), L"3"); // no comma, no repair
        EXPECT_EQ(str(Vx::StringFromFloat(HUGE_VAL)), "inf");
        EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "de_DE");
        EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0.500000");
        EXPECT_EQ(str(Vx::StringFromFloat(0.5)), "0.500000");
        EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
        EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C.UTF-8") << "only the numeric category";
        ASSERT_TRUE(german.choose());
        EXPECT_EQ(str(Vx::WStringFromFloat(2.25, 3, true)), L"2.25");
        std::setlocale(LC_NUMERIC, "C.UTF-8");
        setNumericLocale(); // takes only "C" for "C"
        setNumericLocale();
    });
    EXPECT_EQ(notice, "Fixing numeric locale (de_DE)\nFixing numeric locale (de_DE)\n"
                      "Fixing numeric locale (C.UTF-8)\n");
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C");
}

TEST(NumericLocale, WhatItCannotRepairIsLeftAlone)
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

// The fast ways against the functions of libc that they stand for.

TEST(NumbersDifferential, InTheCLocale)
{
    const ScratchLocale plain("C");
    compareReading(1, scaled(150'000));
    compareWriting(2, scaled(200'000));
}

TEST(NumbersDifferential, WithADecimalComma)
{
    const ScratchLocale german("de_DE");
    compareReading(3, scaled(100'000));
    // Each text repairs the locale, which is then set wrong again.
    Texts texts(4);
    for (int i = 0; i < 2000; ++i) {
        const double value = texts.nextDouble();
        ASSERT_TRUE(german.choose());
        std::string text;
        const std::string notice = printed([&] { text = str(Vx::StringFromFloat(value)); });
        const bool repaired = std::strcmp(std::setlocale(LC_NUMERIC, nullptr), "C") == 0;
        std::setlocale(LC_NUMERIC, "C");
        ASSERT_EQ(text, reference::fromFloat(value));
        ASSERT_EQ(repaired, text.find('.') != std::string::npos) << text;
        ASSERT_EQ(notice, repaired ? "Fixing numeric locale (de_DE)\n" : "");
    }
}

TEST(NumbersDifferential, WithADecimalPointOfTwoBytes)
{
    const ScratchLocale pashto("ps_AF");
    compareReading(5, scaled(100'000));
    compareWriting(6, scaled(20'000));
}

TEST(NumbersDifferential, InEveryRoundingMode)
{
    const int before = std::fegetround();
    for (int mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        SCOPED_TRACE(mode);
        ASSERT_EQ(std::fesetround(mode), 0);
        compareReading(7, scaled(20'000));
        compareWriting(8, scaled(20'000));
    }
    std::fesetround(before);
}
