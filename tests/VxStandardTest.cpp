// What the algorithms, views and containers of the standard library rely on.
#include <Reference.h>
#include <Texts.h>
#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/LightweightVector.h>
#include <Vx/VxAttribValuePair.h>
#include <compare>
#include <concepts>
#include <ranges>
#include <span>

namespace {

template <class Ch> struct StringsAreRangesAndValues {
    using String = LightweightString<Ch>;
    static_assert(std::ranges::contiguous_range<const String> && std::ranges::sized_range<String> &&
                      std::ranges::common_range<const String>,
                  "algorithms and views read a string in place");
    static_assert(std::same_as<std::ranges::range_reference_t<String>, const Ch&>,
                  "an iterator cannot write to a shared block");
    static_assert(std::convertible_to<const String&, std::basic_string_view<Ch>> &&
                      std::constructible_from<String, std::basic_string_view<Ch>> &&
                      !std::convertible_to<std::basic_string_view<Ch>, String>,
                  "viewing is free; constructing from a view allocates, and is explicit");
    static_assert(std::regular<String> && std::totally_ordered<String> &&
                      std::three_way_comparable<String, std::strong_ordering>,
                  "strings are values");
    static_assert(std::is_nothrow_copy_constructible_v<String> &&
                      std::is_nothrow_move_assignable_v<String>,
                  "copying shares the block, which cannot fail");
};
template struct StringsAreRangesAndValues<char>;
template struct StringsAreRangesAndValues<wchar_t>;

static_assert(std::ranges::contiguous_range<LightweightVector<int>> &&
                  std::ranges::sized_range<const LightweightVector<int>>,
              "elements are contiguous, so a span can view them");
static_assert(std::regular<Vx::UUID> && std::totally_ordered<Vx::UUID> &&
                  std::three_way_comparable<Vx::UUID, std::strong_ordering>,
              "identifiers are values");
static_assert(std::three_way_comparable<Vx::Image::FormatUID, std::weak_ordering>,
              "identifiers that differ after a zero are equivalent, not equal");

template <class Ch> struct StandardLibrary : testing::Test {};
TYPED_TEST_SUITE(StandardLibrary, Widths);

TYPED_TEST(StandardLibrary, ViewsAStringInPlace)
{
    const auto text = make<TypeParam>("one, two, three");
    const std::basic_string_view<TypeParam> view = text;
    const std::span<const TypeParam> span(text);
    EXPECT_EQ(view.data(), text.c_str());
    EXPECT_EQ(span.data(), text.c_str());
    EXPECT_EQ(span.size(), 15u);
    EXPECT_EQ(text.useCount(), 1u) << "nothing was copied";
    EXPECT_EQ(std::hash<LightweightString<TypeParam>>()(text),
              std::hash<std::basic_string_view<TypeParam>>()(view));
}

TYPED_TEST(StandardLibrary, StringsAndViewsAreOperands)
{
    using String = LightweightString<TypeParam>;
    using Plain = std::basic_string<TypeParam>;
    using View = std::basic_string_view<TypeParam>;
    // In increasing order.
    const Plain texts[] = {
        {}, widen<TypeParam>("a"), widen<TypeParam>({"a\0b", 3}), widen<TypeParam>("ab")};
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j) {
            SCOPED_TRACE(testing::Message() << i << " and " << j);
            const Plain &a = texts[i], &b = texts[j];
            expectOrder(String(a), b, i, j);
            expectOrder(String(a), View(b), i, j);
            expectOrder(a, String(b), i, j);
            expectOrder(View(a), String(b), i, j);
            EXPECT_EQ((String(a) <=> b) < 0, i < j);
            EXPECT_EQ((View(a) <=> String(b)) < 0, i < j);

            const Plain sum = a + reference::appended(b);
            EXPECT_EQ(String(a) + b, sum);
            EXPECT_EQ(String(a) + View(b), sum);
            EXPECT_EQ(a + String(b), sum);
            EXPECT_EQ(View(a) + String(b), sum);
            String text(a), other(a);
            EXPECT_EQ(text += b, sum);
            EXPECT_EQ(other += View(b), sum);
            EXPECT_EQ(text = b, b);
            EXPECT_EQ(text = View(a), a);
            EXPECT_EQ(Plain(text), a) << "and back";
        }
    String own(texts[3]);
    own = View(own).substr(1);
    EXPECT_EQ(own, texts[3].substr(1)) << "a part of itself";
}

} // namespace
