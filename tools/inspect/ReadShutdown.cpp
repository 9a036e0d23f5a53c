// The shutdown list: a tree that changes while it is read.
#include "Reader.h"

#include <Vx/detail/Inspect.h>
#include <algorithm>
#include <fmt/format.h>

namespace inspect {
namespace {

constexpr int kMostLooks = 8;
constexpr std::size_t kMostCallbacks = 1 << 16;
constexpr std::size_t kDeepest = 64; // a balanced tree of 2^32 nodes

// libstdc++'s std::set and its nodes, which its binary interface fixes.
struct TreeNode {
    std::uint64_t colour = 0;
    Address parent = 0;
    Address left = 0;
    Address right = 0;
};
struct TreeHeader {
    TreeNode node;
    std::uint64_t count = 0;

    bool operator==(const TreeHeader& other) const
    {
        return node.parent == other.node.parent && node.left == other.node.left &&
               node.right == other.node.right && count == other.count;
    }
};
constexpr Address kHeaderInSet = 8;
constexpr Address kValueInNode = 32;

Address addressOf(const void* pointer) { return reinterpret_cast<Address>(pointer); }

} // namespace

// A callback object tells its type by its virtual table.
std::optional<Callback> Reader::readCallback(Address item)
{
    const auto& layout = *roots_.shutdown;
    const auto priority = process_.get<std::uint32_t>(item + layout.priority);
    const auto sequence = process_.get<std::uint32_t>(item + layout.sequence);
    const auto object = process_.get<Address>(item + layout.callback);
    if (!priority || !sequence || !object)
        return std::nullopt;
    Callback callback;
    callback.priority = *priority;
    callback.sequence = *sequence;
    callback.object = *object;
    if (*object == 0)
        return callback;
    const Address table = process_.get<Address>(*object).value_or(0);
    const Address info = process_.get<Address>(table - 8).value_or(0);
    const Address name = process_.get<Address>(info + 8).value_or(0);
    callback.type = cString(name).value_or("");
    if (callback.type == "N8Shutdown16FunctionCallbackE")
        callback.function = functionOf(*object + layout.function);
    else if (!callback.type.empty())
        callback.function = process_.get<Address>(table + 16).value_or(0); // execute()
    return callback;
}

// The first word of a std::function is a plain function or leads to the callable; the last one is
// the code that calls it.
Address Reader::functionOf(Address function) const
{
    Address called = 0;
    for (int nested = 0; nested < 2; ++nested) {
        const auto stored = process_.get<Address>(function);
        const auto invoker = process_.get<Address>(function + 24);
        if (!stored || !invoker)
            break;
        const Mapping* const code = process_.mappingOf(*stored);
        if (code != nullptr && code->executable)
            return *stored;
        called = *invoker;
        // The library wraps functions without arguments, and so holds another std::function.
        const Mapping* const calls = process_.mappingOf(*invoker);
        if (calls == nullptr || fileName(calls->path).substr(0, 8) != "libVx.so")
            break;
        function = *stored;
    }
    return called;
}

// Walks the tree in order. Nodes may be freed and reused meanwhile: every link is checked in both
// directions, and the header must not have changed.
bool Reader::readCallbacks(Address set, bool firstPass, Address running,
                           std::vector<Callback>& into)
{
    const Address header = set + kHeaderInSet;
    const auto before = process_.get<TreeHeader>(header);
    if (!before || before->count > kMostCallbacks)
        return false;
    std::vector<std::pair<Address, TreeNode>> path;
    std::size_t count = 0;
    Address parent = header;
    Address at = before->node.parent;
    while (at != 0 || !path.empty()) {
        while (at != 0) {
            const auto node = process_.get<TreeNode>(at);
            if (!node || node->parent != parent || path.size() == kDeepest)
                return false;
            path.emplace_back(at, *node);
            parent = at;
            at = node->left;
        }
        const auto [address, node] = path.back();
        path.pop_back();
        auto callback = readCallback(address + kValueInNode);
        if (!callback || ++count > before->count)
            return false;
        callback->firstPass = firstPass;
        callback->running = address + kValueInNode == running;
        into.push_back(std::move(*callback));
        parent = address;
        at = node.right;
    }
    const auto after = process_.get<TreeHeader>(header);
    return after && *after == *before && count == before->count;
}

// Returns whether nothing changed meanwhile.
bool Reader::readPasses(ShutdownList& shutdown)
{
    const auto& layout = *roots_.shutdown;
    std::vector<Callback>& callbacks = shutdown.callbacks;
    callbacks.clear();
    using Progress = Vx::detail::InspectShutdownProgress;
    const auto progress = process_.get<Progress>(addressOf(layout.progress));
    if (!progress)
        return false;
    shutdown.ended = progress->ended == 1;
    const Address running = addressOf(progress->running);
    const Address due = addressOf(progress->due);
    const bool first = due == 0 || readCallbacks(due, true, running, callbacks);
    const bool rest =
        readCallbacks(addressOf(layout.list) + layout.itemsInList, false, running, callbacks);
    // In the final pass the callback that runs is on no list any more.
    const bool listed = std::any_of(callbacks.begin(), callbacks.end(),
                                    [](const Callback& callback) { return callback.running; });
    auto callback = running != 0 && !listed ? readCallback(running) : std::nullopt;
    if (callback) {
        callback->running = true;
        callbacks.insert(callbacks.begin(), std::move(*callback));
    }
    const auto again = process_.get<Progress>(addressOf(layout.progress));
    return first && rest && again && again->due == progress->due &&
           again->running == progress->running && again->ended == progress->ended;
}

void Reader::readShutdown()
{
    const auto& layout = *roots_.shutdown;
    addLock(addressOf(layout.list) + layout.lockInList, "shutdown list", "shutdown list");
    const auto status = process_.get<std::int32_t>(addressOf(layout.status));
    if (!status || *status < 0 || *status > 2)
        return note("the state of the shutdown cannot be read");
    ShutdownList shutdown;
    shutdown.status = *status;
    for (int i = 0; i < kMostLooks && !shutdown.complete; ++i)
        shutdown.complete = readPasses(shutdown);
    if (!shutdown.complete)
        note("the shutdown list changed at each look, or is damaged: it is not complete");
    snapshot_.shutdown = std::move(shutdown);
}

} // namespace inspect
