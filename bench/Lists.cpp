// Splitting and joining.
#include "Floors.h"
#include "Inputs.h"
#include "Table.h"

#include <Vx/VxStringSplit.h>
#include <vector>

#if BENCH_QT
#include <QStringList>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif
#if BENCH_ABSL
#include <absl/strings/str_join.h>
#include <absl/strings/str_split.h>
#endif
#if BENCH_BOOST
#include <boost/algorithm/string.hpp>
#endif

namespace {

using bench::keep;
using bench::Row;
using bench::State;

// Fields of \p length characters, the last four of which are digits.
std::vector<std::string> fields(std::size_t count, std::size_t length)
{
    bench::Numbers numbers(31);
    std::vector<std::string> list;
    for (std::size_t i = 0; i < count; ++i)
        list.push_back(bench::letters(length - 4, i) + std::to_string(1000 + numbers.below(9000)));
    return list;
}

std::string joined(const std::vector<std::string>& list)
{
    std::string text;
    for (const std::string& field : list)
        text += (text.empty() ? "" : ",") + field;
    return text;
}

std::string fieldsOf(std::size_t count, std::size_t length)
{
    return (count == 10000 ? "10,000" : std::to_string(count)) + " fields of " +
           std::to_string(length) + " characters";
}

template <class String, class Source> std::vector<String> splitByHand(const Source& text)
{
    using Ch = typename Source::value_type;
    std::vector<String> pieces;
    pieces.reserve(16);
    const auto add = [&](std::size_t start, std::size_t end) {
        pieces.emplace_back(text.data() + start, static_cast<unsigned int>(end - start));
    };
    std::size_t start = 0;
    for (std::size_t end; (end = text.find(Ch(','), start)) != Source::npos; start = end + 1)
        add(start, end);
    add(start, text.size());
    return pieces;
}

// The least code that makes strings with our guarantees of the pieces.
template <class Ch> void addFloor(Row& row, const std::basic_string<Ch>& text, std::size_t count)
{
    row.floor("the least strings that share blocks", [=](State& state) {
        const auto split = [&] { return splitByHand<bench::LeastString<Ch>>(text); };
        const auto pieces = split();
        bench::run(state, pieces.size() == count && text.ends_with(pieces.back().c_str()),
                   [&] { keep(split().data()); });
    });
}

// Wide strings have wide peers: narrow ones would copy a quarter of the bytes. Fields of 9
// characters are shown without a goal, in both widths.
void addWideSplit(std::size_t count, std::size_t length, double goal)
{
    const std::vector<std::string> list = fields(count, length);
    const std::string text = joined(list);
    Row row("lists", "split " + fieldsOf(count, length), {goal});
    row.ours([=](State& state) {
        const auto source = bench::wide(bench::widened(text));
        const auto pieces = Vx::unpack(source, L',');
        bool right = pieces.size() == count;
        for (std::size_t i = 0; right && i < count; ++i)
            right = bench::widened(list[i]).c_str() == pieces[i];
        bench::run(state, right, [&] { keep(Vx::unpack(source, L',').data()); });
    });
    addFloor(row, bench::widened(text), count);
    row.peer("std::wstring", [=](State& state) {
        const std::wstring source = bench::widened(text);
        const auto pieces = splitByHand<std::wstring>(source);
        bench::run(state, pieces.size() == count && pieces.back() == bench::widened(list.back()),
                   [&] { keep(splitByHand<std::wstring>(source).data()); });
    });
#if BENCH_QT
    row.peer("QString", [=](State& state) {
        const QString source = QString::fromStdString(text);
        bench::run(state, source.split(u',').size() == qsizetype(count),
                   [&] { keep(source.split(u',').constData()); });
    });
#endif
}

// std::string keeps up to 15 characters in itself, without a block, so short fields have no goal.
void addNarrowSplit(std::size_t count, std::size_t length, double goal)
{
    const std::vector<std::string> list = fields(count, length);
    const std::string text = joined(list);
    Row row("lists", "split narrow " + fieldsOf(count, length), {goal});
    row.ours([=](State& state) {
        const auto source = bench::narrow(text);
        const auto split = [&] {
            Vx::StringToVec<LightweightString<char>>::VecT pieces;
            Vx::splitIf(source, Vx::IsMatchingChar<char>(','), pieces, Vx::SkipEmpty);
            return pieces;
        };
        const auto pieces = split();
        bool right = pieces.size() == count;
        for (std::size_t i = 0; right && i < count; ++i)
            right = pieces[i] == list[i];
        bench::run(state, right, [&] { keep(split().data()); });
    });
    addFloor(row, text, count);
#if BENCH_GLIB
    row.peer("g_strsplit", [=](State& state) {
        char** const first = g_strsplit(text.c_str(), ",", -1);
        const bool right = g_strv_length(first) == count && first[count - 1] == list.back();
        g_strfreev(first);
        bench::run(state, right, [&] { g_strfreev(g_strsplit(text.c_str(), ",", -1)); });
    });
#endif
#if BENCH_ABSL
    row.peer("absl::StrSplit", [=](State& state) {
        const auto split = [&] {
            std::vector<std::string> pieces = absl::StrSplit(text, ',');
            return pieces;
        };
        bench::run(state, split() == list, [&] { keep(split().data()); });
    });
#endif
#if BENCH_BOOST
    row.peer("boost::split", [=](State& state) {
        const auto split = [&] {
            std::vector<std::string> pieces;
            boost::split(pieces, text, [](char c) { return c == ','; });
            return pieces;
        };
        bench::run(state, split() == list, [&] { keep(split().data()); });
    });
#endif
}

void addJoin(const std::string& operation, std::size_t count)
{
    Row row("lists", operation, {1.0});
    const std::vector<std::string> list = fields(count, 9);
    const std::string text = joined(list);
    row.ours([=](State& state) {
        std::vector<LightweightString<wchar_t>, StdAllocator<LightweightString<wchar_t>>> items;
        for (const std::string& field : list)
            items.push_back(bench::wide(bench::widened(field)));
        bench::run(state, Vx::pack(items, L',') == bench::widened(text).c_str(),
                   [&] { keep(Vx::pack(items, L',').c_str()); });
    });
    row.peer("std::wstring", [=](State& state) {
        std::vector<std::wstring> items;
        for (const std::string& field : list)
            items.push_back(bench::widened(field));
        const auto join = [&] {
            std::size_t length = items.size();
            for (const std::wstring& item : items)
                length += item.size();
            std::wstring all;
            all.reserve(length);
            for (const std::wstring& item : items)
                (all += item) += L',';
            all.pop_back();
            return all;
        };
        bench::run(state, join() == bench::widened(text), [&] { keep(join().data()); });
    });
#if BENCH_QT
    row.peer("QStringList", [=](State& state) {
        QStringList items;
        for (const std::string& field : list)
            items.push_back(QString::fromStdString(field));
        bench::run(state, items.join(u',') == QString::fromStdString(text),
                   [&] { keep(items.join(u',').constData()); });
    });
#endif
#if BENCH_ABSL
    row.peer("absl::StrJoin", [=](State& state) {
        bench::run(state, absl::StrJoin(list, ",") == text,
                   [&] { keep(absl::StrJoin(list, ",").data()); });
    });
#endif
#if BENCH_BOOST
    row.peer("boost::join", [=](State& state) {
        bench::run(state, boost::join(list, ",") == text,
                   [&] { keep(boost::join(list, ",").data()); });
    });
#endif
}

} // namespace

void bench::addLists()
{
    for (const std::size_t length : {std::size_t{9}, std::size_t{24}})
        for (const std::size_t count : {std::size_t{10}, std::size_t{10000}}) {
            const bool haveBlocks = length > 15; // those of std::string do
            addWideSplit(count, length, !haveBlocks ? 0 : count == 10 ? 1.0 : 1.1);
            addNarrowSplit(count, length, haveBlocks ? 1.0 : 0);
        }
    addJoin("join 10 fields", 10);
    addJoin("join 10,000 fields", 10000);
}
