#include "IniMerge.h"

#include "Strings.h"
#include "Terminal.h"

#include <algorithm>
#include <fmt/format.h>
#include <list>
#include <map>

namespace tool {
namespace {

using Lines = std::vector<const IniLine*>;

/// A name and its number among equal ones.
using Id = std::pair<LightweightString<char>, std::size_t>;

struct IdLess {
    bool caseSensitive;
    bool operator()(const Id& a, const Id& b) const
    {
        const VxIniFile_Private::StringLT_Fancy less{caseSensitive};
        return less(a.first, b.first) || (!less(b.first, a.first) && a.second < b.second);
    }
};

/// Things in the order of a file, found by their ids.
template <class Thing> struct Sequence {
    explicit Sequence(bool caseSensitive) : byId(IdLess{caseSensitive}) {}

    Thing& add(const LightweightString<char>& name, Thing thing)
    {
        Id id(name, 0);
        while (byId.count(id) != 0)
            ++id.second;
        ids.push_back(id);
        return byId.emplace(id, std::move(thing)).first->second;
    }
    const Thing* find(const Id& id) const
    {
        const auto found = byId.find(id);
        return found != byId.end() ? &found->second : nullptr;
    }

    std::vector<Id> ids;
    std::map<Id, Thing, IdLess> byId;
};

struct Item {
    Lines lead; ///< comments, blank lines and strays before it
    const IniLine* line;
};

struct Block {
    Lines lead;
    const IniLine* header; ///< null for the lines before the first section
    Sequence<Item> items{true};
};

struct Document {
    Document(const IniText& text, bool caseSensitive) : blocks(caseSensitive)
    {
        Block* current = &blocks.add(VxIniFile::kAnonymousSection(), {{}, nullptr});
        for (const IniLine& line : text.lines()) {
            if (line.kind == IniLine::Kind::header)
                current = &blocks.add(line.name(), {std::exchange(tail, {}), &line});
            else if (line.kind == IniLine::Kind::pair && line.isSplit() && !line.isComment())
                current->items.add(vxString(line.key()), {std::exchange(tail, {}), &line});
            else
                tail.push_back(&line);
        }
    }

    Sequence<Block> blocks;
    Lines tail; ///< what follows the last key or header
};

/// The ids of \p ours, with those that only \p theirs has, each after its predecessor there.
template <class Thing>
std::list<Id> unitedOrder(const Sequence<Thing>& ours, const Sequence<Thing>& theirs)
{
    std::list<Id> order(ours.ids.begin(), ours.ids.end());
    std::map<Id, std::list<Id>::iterator, IdLess> places(ours.byId.key_comp());
    for (auto it = order.begin(); it != order.end(); ++it)
        places.emplace(*it, it);
    auto next = order.begin();
    for (const Id& id : theirs.ids) {
        auto place = places.find(id);
        if (place == places.end())
            place = places.emplace(id, order.insert(next, id)).first;
        next = std::next(place->second);
    }
    return order;
}

bool contains(const Lines& lines, const IniLine& wanted)
{
    return std::any_of(lines.begin(), lines.end(),
                       [&](const IniLine* line) { return line->kept == wanted.kept; });
}

bool sameLines(const Lines& a, const Lines& b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const IniLine* x, const IniLine* y) { return x->kept == y->kept; });
}

/// The lines that a side has added, without blank ones.
Lines addedLines(const Lines& base, const Lines& side)
{
    Lines added;
    for (const IniLine* line : side)
        if (line->kind != IniLine::Kind::blank && !contains(base, *line))
            added.push_back(line);
    return added;
}

Lines mergedLines(const Lines& base, const Lines& ours, const Lines& theirs)
{
    if (sameLines(ours, theirs) || sameLines(base, theirs))
        return ours;
    if (sameLines(base, ours))
        return theirs;
    Lines both = ours;
    for (const IniLine* line : addedLines(base, theirs))
        if (!contains(ours, *line))
            both.push_back(line);
    return both;
}

/// Three versions of one thing; null where it does not exist.
template <class Thing> struct Versions {
    const Thing* base;
    const Thing* ours;
    const Thing* theirs;

    Lines lead() const
    {
        if (ours == nullptr || theirs == nullptr)
            return ours != nullptr ? ours->lead : theirs->lead;
        return mergedLines(base != nullptr ? base->lead : Lines(), ours->lead, theirs->lead);
    }
    /// What remains of the lead of a thing that is removed.
    Lines addedLead() const
    {
        Lines added;
        for (const Thing* side : {ours, theirs})
            if (side != nullptr && base != nullptr)
                for (const IniLine* line : addedLines(base->lead, side->lead))
                    added.push_back(line);
        return added;
    }
};

class Merger {
public:
    Merger(const IniText& base, const IniText& ours, const IniText& theirs, bool caseSensitive)
        : base_(base, caseSensitive),
          ours_(ours, caseSensitive),
          theirs_(theirs, caseSensitive),
          first_(ours.lines().data()),
          last_(first_ + ours.lines().size()),
          end_(lineEnd(ours.lines().empty() ? theirs : ours))
    {}

    IniMerged run()
    {
        for (const Id& id : unitedOrder(ours_.blocks, theirs_.blocks))
            mergeBlock(id, {base_.blocks.find(id), ours_.blocks.find(id), theirs_.blocks.find(id)});
        add(mergedLines(base_.tail, ours_.tail, theirs_.tail));
        return std::move(result_);
    }

private:
    void mergeBlock(const Id& id, const Versions<Block>& versions)
    {
        static const Sequence<Item> nothing(true);
        const auto itemsOf = [](const Block* block) -> const Sequence<Item>& {
            return block != nullptr ? block->items : nothing;
        };
        // The header is needed if any key remains.
        std::string before = std::exchange(result_.bytes, {});
        const Sequence<Item>&base = itemsOf(versions.base), &ours = itemsOf(versions.ours),
              &theirs = itemsOf(versions.theirs);
        for (const Id& key : unitedOrder(ours, theirs))
            mergeItem(id.first, {base.find(key), ours.find(key), theirs.find(key)});
        const std::string items = std::exchange(result_.bytes, std::move(before));
        const bool removed =
            versions.base != nullptr && (versions.ours == nullptr || versions.theirs == nullptr);
        const Block* const block = versions.ours != nullptr ? versions.ours : versions.theirs;
        if (removed && items.empty()) {
            add(versions.addedLead());
            return;
        }
        if (block->header != nullptr) {
            add(versions.lead());
            add(*block->header);
        }
        if (!items.empty())
            endLine();
        result_.bytes += items;
    }

    static bool same(const Item* a, const Item* b)
    {
        return a == nullptr || b == nullptr ? a == b : a->line->value() == b->line->value();
    }

    void mergeItem(const LightweightString<char>& section, const Versions<Item>& versions)
    {
        const auto& [base, ours, theirs] = versions;
        if (same(ours, theirs) || same(base, theirs) || same(base, ours)) {
            const Item* const item = same(ours, theirs) || same(base, theirs) ? ours : theirs;
            add(item != nullptr ? versions.lead() : versions.addedLead());
            if (item != nullptr)
                add(*item->line);
            return;
        }
        add(versions.lead());
        const Item& any = ours != nullptr ? *ours : *theirs;
        result_.conflicts.push_back(shown(any.line->key()) + " " + sectionPlace(section));
        mark("<<<<<<< ours");
        if (ours != nullptr)
            add(*ours->line);
        mark("=======");
        if (theirs != nullptr)
            add(*theirs->line);
        mark(">>>>>>> theirs");
    }

    void endLine()
    {
        if (!result_.bytes.empty() && result_.bytes.back() != '\n')
            result_.bytes += end_;
    }
    void mark(std::string_view text)
    {
        endLine();
        result_.bytes += text;
        result_.bytes += end_;
    }
    void add(const IniLine& line)
    {
        endLine();
        std::string_view raw = line.raw;
        const bool isOurs = &line >= first_ && &line < last_;
        if (!isOurs && !raw.empty() && raw.back() == '\r')
            raw.remove_suffix(1);
        result_.bytes += raw;
        if (line.ended)
            result_.bytes += isOurs ? "\n" : end_;
    }
    void add(const Lines& lines)
    {
        for (const IniLine* line : lines)
            add(*line);
    }

    const Document base_, ours_, theirs_;
    const IniLine* const first_; // the lines of ours
    const IniLine* const last_;
    const std::string end_;
    IniMerged result_;
};

} // namespace

IniMerged mergedIni(const IniText& base, const IniText& ours, const IniText& theirs,
                    bool caseSensitive)
{
    return Merger(base, ours, theirs, caseSensitive).run();
}

} // namespace tool
