// detail/OwnMemory.h - Reads what the library keeps, where it may be damaged or changing.
#pragma once

#include <Vx/detail/Inspect.h>
#include <Vx/detail/ReportText.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>

#pragma weak Vx_readMemory // platforms may leave it out

namespace Vx {
namespace detail {

using Address = std::uintptr_t;

inline Address addressOf(const void* pointer) { return reinterpret_cast<Address>(pointer); }

// Larger than any host's; what is longer is damaged.
constexpr std::uint32_t kLongestString = 1 << 16;
constexpr std::size_t kMostEntries = 1 << 20;
constexpr std::size_t kMostCallbacks = 1 << 16;
constexpr std::size_t kDeepest = 64; // a balanced tree of 2^32 nodes
constexpr std::size_t kLongestName = 4096;
constexpr int kMostLooks = 16; // at what changes

// libstdc++'s lists and sets, which its binary interface fixes.
struct ListNode {
    Address next, previous, value;
};
struct TreeNode {
    std::uint64_t colour;
    Address parent, left, right;
};
struct TreeHeader {
    std::uint64_t colour;
    Address root, first, last, count;
};
constexpr Address kHeaderInSet = 8;
constexpr Address kValueInNode = 32;

/// Reads values, strings, locks, lists and sets by address. Never follows what it has not checked,
/// and neither allocates nor waits.
class OwnMemory {
public:
    OwnMemory()
    {
        const char from = 0;
        char into = 0;
        checked_ = Vx_readMemory != nullptr && Vx_readMemory(&from, &into, 1);
    }
    /// Returns whether read() detects bad addresses. The platform may not be able to, or the
    /// system may forbid it; then they fault.
    bool checked() const { return checked_; }

    bool read(Address from, void* into, std::size_t size) const
    {
        constexpr Address kFirstPage = 4096;
        const auto* const source = reinterpret_cast<const void*>(from);
        if (from < kFirstPage || from > std::numeric_limits<Address>::max() - size)
            return false;
        if (checked_)
            return Vx_readMemory(source, into, size);
        std::memcpy(into, source, size);
        return true;
    }
    template <class T> std::optional<T> get(Address from) const
    {
        T value;
        return read(from, &value, sizeof value) ? std::optional<T>(value) : std::nullopt;
    }

    struct Characters {
        Address data;
        std::uint32_t length, capacity; // as in the block of a string
    };
    /// Returns where the characters of a string are, unless it is damaged.
    template <class Ch> std::optional<Characters> string(Address string) const
    {
        const auto& layout = Inspect::locks;
        const auto block = get<Address>(string + layout.blockInString);
        if (block == Address(0))
            return Characters{0, 0, 0};
        const auto found = block ? get<Characters>(*block + layout.dataInBlock) : std::nullopt;
        if (!found || found->length >= found->capacity || found->length > kLongestString ||
            get<Ch>(found->data + found->length * sizeof(Ch)) != Ch(0))
            return std::nullopt;
        return found;
    }

    /// Whether a string consists of \p expected.
    template <std::size_t size> bool isString(Address at, const char (&expected)[size]) const
    {
        const auto found = string<char>(at);
        char copy[size];
        return found && found->length == size - 1 && read(found->data, copy, size) &&
               std::memcmp(copy, expected, size) == 0;
    }
    template <std::size_t size> bool isTerminated(Address at, const char (&expected)[size]) const
    {
        // One at a time: a shorter string may end where the readable memory does.
        std::size_t same = 0;
        while (same < size && get<char>(at + same) == expected[same])
            ++same;
        return same == size;
    }

    /// Prints a string.
    template <class Ch> void print(ReportText& text, Address at) const
    {
        const auto found = string<Ch>(at);
        Ch piece[64];
        std::size_t size = 0;
        for (std::size_t done = 0; found && done < found->length; done += size) {
            size = std::min(found->length - done, std::size(piece));
            if (!read(found->data + done * sizeof(Ch), piece, size * sizeof(Ch)))
                break;
            for (std::size_t i = 0; i < size; ++i)
                text << Escaped<Ch>{piece[i]};
        }
        if (!found)
            text << "<damaged>";
    }
    void printTerminated(ReportText& text, Address at) const
    {
        auto c = get<char>(at);
        for (std::size_t shown = 1; c && *c != 0 && shown < kLongestName; ++shown) {
            text << Escaped<char>{*c};
            c = get<char>(at + shown);
        }
        if (c != char(0))
            text << "<damaged>";
    }

    struct Lock {
        bool known = false; // not if it is damaged, or changes at each look
        std::uint32_t depth = 0;
        std::uint32_t owner = 0; // 0 if it is free
        Address name = 0;        // of its string, which may be empty; 0 if it is damaged
    };
    /// Returns the state of a CriticalSection. One that is just entered or left shows an owner
    /// without a depth, or another state at each look.
    Lock lock(Address section) const
    {
        struct Seen {
            std::uint32_t depth, owner; // as in the representation
        };
        const auto& layout = Inspect::locks;
        const Address rep = get<Address>(section + layout.repInSection).value_or(0);
        const Address name = rep + layout.name;
        auto last = get<Seen>(rep + layout.entryCount);
        for (int look = 1; look < kMostLooks; ++look) {
            const auto now = get<Seen>(rep + layout.entryCount);
            if (!last || !now || (now->owner != 0 && !string<char>(name)))
                return {};
            if (now->depth == last->depth && now->owner == last->owner &&
                (now->depth != 0) == (now->owner != 0))
                return {true, now->depth, now->owner, name};
            last = now;
        }
        return {false, 0, 0, name};
    }

    /// Calls \p visit with each entry of the namespace. Entries are only ever added, at the end.
    /// \returns false if the list is damaged after what was visited
    template <class Visit> bool visitEntries(Address space, const Visit& visit) const
    {
        const Address head = space + Inspect::names.entries;
        Address before = head;
        auto at = get<Address>(head);
        for (std::size_t count = 0; at && *at != head; ++count) {
            const auto node = get<ListNode>(*at);
            if (!node || node->previous != before || count == kMostEntries)
                return false;
            visit(node->value);
            before = *at;
            at = node->next;
        }
        return at.has_value();
    }

    /// Calls \p visit with each value of a std::set, in order. Nodes may be freed and reused
    /// meanwhile: every link is checked in both directions, and the header must not change.
    /// \returns false if it changed or is damaged
    template <class Visit> bool visitSet(Address set, const Visit& visit) const
    {
        const auto header = get<TreeHeader>(set + kHeaderInSet);
        if (!header || header->count > kMostCallbacks)
            return false;
        Address path[kDeepest];
        std::size_t depth = 0;
        std::size_t count = 0;
        Address parent = set + kHeaderInSet;
        Address at = header->root;
        while (at != 0 || depth != 0) {
            while (at != 0) {
                const auto node = get<TreeNode>(at);
                if (!node || node->parent != parent || depth == kDeepest)
                    return false;
                path[depth++] = parent = at;
                at = node->left;
            }
            parent = path[--depth];
            const auto node = get<TreeNode>(parent);
            if (!node || ++count > header->count)
                return false;
            visit(parent + kValueInNode);
            at = node->right;
        }
        const auto after = get<TreeHeader>(set + kHeaderInSet);
        return after && after->root == header->root && after->count == header->count &&
               count == header->count;
    }

private:
    bool checked_ = false;
};

} // namespace detail
} // namespace Vx
