// detail/NameIndex.h - Finds nodes by hash, in a chained table that tolerates failing to grow.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace Vx::detail {

/// A hash table of nodes, which bring their own link: a member `Node* next` and a member
/// `std::size_t hash`, which stays as it is.
///
/// Ownership: the table owns its buckets, not the nodes.
/// Errors: construction lets memory exhaustion out. add() cannot fail: without memory for more
///   buckets the chains grow longer.
/// Thread safety: none; the caller holds a lock.
template <class Node> class NameIndex {
public:
    NameIndex() : buckets_(new Node* [kFirstCount] {}), bucketCount_(kFirstCount) {}

    /// Returns the node of this \p hash that \p matches accepts, or null.
    template <class Matches> Node* find(std::size_t hash, Matches&& matches) const
    {
        for (Node* node = *bucketOf(hash, buckets_.get(), bucketCount_); node != nullptr;
             node = node->next)
            if (node->hash == hash && matches(*node))
                return node;
        return nullptr;
    }

    /// Adds \p node, which no other node in the table may match.
    void add(Node& node) noexcept
    {
        if (nodeCount_ >= bucketCount_)
            grow();
        link(buckets_.get(), bucketCount_, node);
        ++nodeCount_;
    }

private:
    static constexpr std::size_t kFirstCount = 16; // counts are powers of two

    static Node** bucketOf(std::size_t hash, Node** buckets, std::size_t count) noexcept
    {
        return buckets + (hash & (count - 1));
    }

    static void link(Node** buckets, std::size_t count, Node& node) noexcept
    {
        Node** const first = bucketOf(node.hash, buckets, count);
        node.next = std::exchange(*first, &node);
    }

    void grow() noexcept
    {
        const std::size_t count = 2 * bucketCount_;
        std::unique_ptr<Node*[]> buckets(new (std::nothrow) Node* [count] {});
        if (buckets == nullptr)
            return;
        for (std::size_t i = 0; i < bucketCount_; ++i)
            for (Node* node = buckets_[i]; node != nullptr;) {
                Node* const next = node->next;
                link(buckets.get(), count, *node);
                node = next;
            }
        buckets_ = std::move(buckets);
        bucketCount_ = count;
    }

    std::unique_ptr<Node*[]> buckets_;
    std::size_t bucketCount_;
    std::size_t nodeCount_ = 0;
};

} // namespace Vx::detail
