// The standard library's habits: what its algorithms, views and containers may count on.
#include <Testing.h>
#include <Vx/Image/FormatUID.h>
#include <Vx/Image/UUID.h>
#include <Vx/LightweightString.h>
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
                  "nobody writes through an iterator into a block that others share");
    static_assert(std::convertible_to<const String&, std::basic_string_view<Ch>> &&
                      std::constructible_from<String, std::basic_string_view<Ch>> &&
                      !std::convertible_to<std::basic_string_view<Ch>, String>,
                  "a view costs nothing; a string made of one allocates, and says so");
    static_assert(std::regular<String> && std::totally_ordered<String> &&
                      std::three_way_comparable<String, std::strong_ordering>,
                  "strings are values");
    static_assert(std::is_nothrow_copy_constructible_v<String> &&
                      std::is_nothrow_move_assignable_v<String>,
                  "copies share: containers may rely on them not to fail");
};
template struct StringsAreRangesAndValues<char>;
template struct StringsAreRangesAndValues<wchar_t>;

static_assert(std::ranges::contiguous_range<LightweightVector<int>> &&
                  std::ranges::sized_range<const LightweightVector<int>>,
              "items lie behind each other, so that a span can look at them");
static_assert(std::regular<Vx::UUID> && std::totally_ordered<Vx::UUID> &&
                  std::three_way_comparable<Vx::UUID, std::strong_ordering>,
              "identifiers are values");
static_assert(std::three_way_comparable<Vx::Image::FormatUID, std::weak_ordering>,
              "texts that differ behind a zero are equivalent, not equal");

const LightweightString<char> kText("one, two, three");

TEST(StandardLibrary, ViewsLookAtAStringInPlace)
{
    const std::string_view view = kText;
    EXPECT_EQ(view.data(), kText.c_str());
    const std::span<const char> span(kText);
    EXPECT_EQ(span.data(), kText.c_str());
    EXPECT_EQ(span.size(), 15u);
    EXPECT_EQ(kText.useCount(), 1u) << "nothing was copied";
    EXPECT_EQ(LightweightString<char>(view.substr(5, 3)), "two");
    EXPECT_EQ(std::hash<LightweightString<char>>()(kText), std::hash<std::string_view>()(view));
}

} // namespace
