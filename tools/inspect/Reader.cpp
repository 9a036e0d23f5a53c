#include "Reader.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace inspect {
namespace {

// Larger than any host's; what is longer is damaged.
constexpr std::uint32_t kLongestString = 1 << 16;
constexpr std::size_t kMostEntries = 1 << 20;
constexpr std::size_t kMostNamespaces = 1 << 12;
constexpr std::size_t kMostPools = 1 << 16;
constexpr std::uint32_t kMostSpans = 1 << 20;

// libstdc++'s nodes, which its binary interface fixes.
constexpr Address kListNext = 0;
constexpr Address kListPrevious = 8;
constexpr Address kListValue = 16;

Address addressOf(const void* pointer) { return reinterpret_cast<Address>(pointer); }

std::string toUtf8(const std::u32string& wide)
{
    std::string bytes;
    for (const char32_t code : wide) {
        if (code < 0x80)
            bytes += static_cast<char>(code);
        else if (code < 0x800) {
            bytes += static_cast<char>(0xC0 | code >> 6);
            bytes += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            bytes += static_cast<char>(0xE0 | code >> 12);
            bytes += static_cast<char>(0x80 | (code >> 6 & 0x3F));
            bytes += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x110000) {
            bytes += static_cast<char>(0xF0 | code >> 18);
            bytes += static_cast<char>(0x80 | (code >> 12 & 0x3F));
            bytes += static_cast<char>(0x80 | (code >> 6 & 0x3F));
            bytes += static_cast<char>(0x80 | (code & 0x3F));
        } else
            bytes += "\xEF\xBF\xBD";
    }
    return bytes;
}

} // namespace

template <class Ch> std::optional<std::basic_string<Ch>> Reader::characters(Address string)
{
    const auto& layout = *roots_.locks;
    const auto block = process_.get<Address>(string + layout.blockInString);
    if (!block)
        return std::nullopt;
    if (*block == 0)
        return std::basic_string<Ch>();
    const auto data = process_.get<Address>(*block + layout.dataInBlock);
    const auto length = process_.get<std::uint32_t>(*block + layout.lengthInBlock);
    const auto capacity = process_.get<std::uint32_t>(*block + layout.capacityInBlock);
    if (!data || !length || !capacity || *length >= *capacity || *length > kLongestString ||
        *length * sizeof(Ch) > bytesLeft_)
        return std::nullopt;
    bytesLeft_ -= *length * sizeof(Ch);
    std::basic_string<Ch> read(*length + 1, Ch(1));
    if (!process_.read(*data, read.data(), read.size() * sizeof(Ch)) || read.back() != Ch(0))
        return std::nullopt;
    read.pop_back();
    return read;
}

std::optional<std::string> Reader::string(Address string) { return characters<char>(string); }

std::string Reader::text(Address at) { return string(at).value_or("<damaged>"); }

std::optional<std::u32string> Reader::wideString(Address string)
{
    return characters<char32_t>(string);
}

std::optional<std::string> Reader::cString(Address from)
{
    std::string read;
    char piece[64];
    while (read.size() < 4096 && bytesLeft_ != 0) {
        // Piece by piece up to a multiple of the size, which never crosses a page.
        const std::size_t size = sizeof piece - from % sizeof piece;
        if (!process_.read(from, piece, size))
            return std::nullopt;
        const std::size_t length = strnlen(piece, size);
        read.append(piece, length);
        bytesLeft_ -= std::min(bytesLeft_, size);
        if (length < size)
            return read;
        from += size;
    }
    return std::nullopt;
}

// The global namespace, and those that are published under a name in one of them.
void Reader::readNames()
{
    const auto global = process_.get<Address>(addressOf(roots_.names->global));
    if (!global)
        return note("the namespace cannot be read");
    std::vector<Address> spaces;
    if (*global != 0)
        spaces.push_back(*global);
    std::size_t first = 0; // of the names that the next namespace adds
    for (std::size_t i = 0; i < spaces.size(); ++i) {
        readNamespace(spaces[i]);
        for (; first < snapshot_.names.size(); ++first) {
            const NamedObject& name = snapshot_.names[first];
            if (name.type == "N2Vx21NamedObjectsNamespaceE" && name.object != 0 &&
                spaces.size() < kMostNamespaces &&
                std::find(spaces.begin(), spaces.end(), name.object) == spaces.end())
                spaces.push_back(name.object);
        }
    }
}

void Reader::readNamespace(Address space)
{
    const auto& layout = *roots_.names;
    const std::string name = text(space + layout.namespaceName);
    addLock(space + layout.namespaceLock, "namespace " + name, "namespace");
    // Entries are only ever added, at the end.
    const Address head = space + layout.entries;
    Address before = head;
    auto at = process_.get<Address>(head + kListNext);
    std::size_t damaged = 0;
    for (std::size_t count = 0; at && *at != head; ++count) {
        const auto previous = process_.get<Address>(*at + kListPrevious);
        const auto entry = process_.get<Address>(*at + kListValue);
        if (snapshot_.names.size() + damaged >= kMostEntries || !previous || *previous != before ||
            !entry)
            return note(fmt::format("the list of named objects of namespace '{}' is damaged after "
                                    "{} entries",
                                    name, count));
        damaged += !readEntry(*entry, name);
        before = *at;
        at = process_.get<Address>(*at + kListNext);
    }
    if (!at)
        note(fmt::format("the list of named objects of namespace '{}' is damaged", name));
    if (damaged != 0)
        note(fmt::format("{} named objects of namespace '{}' are damaged", damaged, name));
}

bool Reader::readEntry(Address entry, const std::string& space)
{
    const auto& layout = *roots_.names;
    const auto object = process_.get<Address>(entry + layout.object);
    const auto type = string(entry + layout.typeName);
    const auto name = string(entry + layout.objectName);
    if (!object || !type || !name)
        return false;
    NamedObject found{space, *type, *name, *object, 0};
    found.lock = addLock(entry + layout.lock, *name, "named object");
    // A lock that is itself published under a name.
    if (*type == "15CriticalSection" && *object != 0)
        addLock(*object, *name, "published lock");
    snapshot_.names.push_back(std::move(found));
    return true;
}

void Reader::readApplication()
{
    const auto& layout = *roots_.application;
    const auto application = process_.get<Address>(addressOf(layout.instance));
    if (!application)
        return note("the application object cannot be read");
    if (*application == 0)
        return;
    const auto wide = [&](std::uint32_t offset) {
        const auto found = wideString(*application + offset);
        return found ? toUtf8(*found) : std::string("<damaged>");
    };
    snapshot_.application = Application{
        wide(layout.name), wide(layout.version), wide(layout.logsPath), wide(layout.userDataPath),
        process_.get<unsigned char>(*application + layout.previousExitWasNormal).value_or(0) == 1};
}

bool Reader::readPool(Address logger)
{
    const auto& layout = *roots_.pools;
    const auto record = process_.get<Address>(logger + layout.recordInLogger);
    const auto name = process_.get<Address>(record.value_or(0) + layout.name);
    const auto text = name ? cString(*name) : std::nullopt;
    const auto inUse = process_.get<int>(record.value_or(0) + layout.inUse);
    const auto maxInUse = process_.get<int>(record.value_or(0) + layout.maxInUse);
    const auto demand = process_.get<double>(record.value_or(0) + layout.peakDemand);
    const auto time = process_.get<double>(record.value_or(0) + layout.peakTime);
    const auto wall = process_.get<std::int64_t>(record.value_or(0) + layout.peakWallTime);
    if (!record || !text || !inUse || !maxInUse || !demand || !time || !wall)
        return false;
    snapshot_.pools.push_back({*text, *inUse, *maxInUse, 1000.0 * *demand, *time, *wall});
    return true;
}

void Reader::readPools()
{
    const auto& layout = *roots_.pools;
    auto node = process_.get<Address>(addressOf(layout.stack));
    std::size_t damaged = 0;
    std::size_t count = 0;
    // Nodes are never freed, so a stack that changes meanwhile leads nowhere wrong.
    while (node && *node != 0 && ++count <= kMostPools) {
        const auto logger = process_.get<Address>(*node + layout.loggerInNode);
        damaged += !logger || (*logger != 0 && !readPool(*logger));
        node = process_.get<Address>(*node + layout.nextInNode);
    }
    if (!node || count > kMostPools)
        note("the list of pools is damaged");
    if (damaged != 0)
        note(fmt::format("{} pools ended meanwhile or are damaged", damaged));
}

void Reader::readMemory()
{
    const auto& layout = *roots_.blocks;
    const auto base = process_.get<Address>(addressOf(layout.base));
    const auto chunks = process_.get<std::uint32_t>(addressOf(layout.chunksTried));
    const std::uint64_t spans = std::uint64_t{chunks.value_or(0)} * layout.spansPerChunk;
    if (!base || !chunks || spans > layout.maxSpans || spans > kMostSpans)
        return note("the small blocks cannot be read");
    Memory& memory = snapshot_.memory;
    std::vector<unsigned char> classes(spans);
    if (spans != 0 && !process_.read(addressOf(layout.classOfSpan), classes.data(), spans))
        return note("the small blocks cannot be read");
    memory.known = true;
    memory.spanSize = layout.spanSize;
    memory.spans = spans;
    std::vector<BlockSize> sizes(layout.classes);
    const Address records = *base + std::uint64_t{layout.maxSpans} * layout.spanSize;
    std::vector<std::uint64_t> words(layout.wordsInRecord);
    for (std::uint64_t span = 0; span < spans; ++span) {
        const unsigned char sizeClass = classes[span];
        if (sizeClass == 0 || sizeClass >= layout.classes || layout.blockSizes[sizeClass] == 0 ||
            !process_.read(records + span * layout.recordSize + layout.freeInRecord, words.data(),
                           words.size() * sizeof(std::uint64_t)))
            continue;
        BlockSize& size = sizes[sizeClass];
        size.size = layout.blockSizes[sizeClass];
        ++size.spans;
        size.blocks += layout.spanSize / size.size;
        for (const std::uint64_t word : words)
            size.free += static_cast<std::uint64_t>(__builtin_popcountll(word));
    }
    for (BlockSize& size : sizes)
        if (size.spans != 0) {
            size.free = std::min(size.free, size.blocks);
            memory.sizes.push_back(size);
        }
}

void Reader::noteMissingModules()
{
    const std::vector<std::string> missing = process_.missingModules();
    if (missing.empty())
        return;
    std::string names;
    for (std::size_t i = 0; i < missing.size() && i < 3; ++i)
        names += fmt::format("{}'{}'", i == 0 ? "" : ", ", missing[i]);
    note(fmt::format("this machine does not have {}{}, or has another build, so names of functions "
                     "and stacks are missing: name a folder that has these files with --sysroot",
                     names,
                     missing.size() > 3 ? fmt::format(" and {} others", missing.size() - 3) : ""));
}

void Reader::readAll()
{
    snapshot_.libraryVersion = roots_.libraryVersion;
    snapshot_.platformKnown = roots_.platformLocks.has_value();
    snapshot_.memory.anonymous = process_.anonymousMemory();
    const std::vector<Thread> before = process_.threads();
    const bool lists = roots_.locks && roots_.locks->standardLibrary == 1;
    if (!lists)
        note("the library was built with a C++ standard library whose lists this tool does not "
             "know: names, callbacks and their locks are left out");
    if (lists && roots_.names)
        readNames();
    if (lists && roots_.shutdown)
        readShutdown();
    if (roots_.locks && roots_.application)
        readApplication();
    if (roots_.pools)
        readPools();
    if (roots_.blocks)
        readMemory();
    noteMissingModules();
    addLocksOfWaiting(before);
    snapshot_.threads = process_.threads();
    noteWaiting(before);
    snapshot_.deadlocks = findDeadlocks(snapshot_);
}

Snapshot takeSnapshot(const Process& process)
{
    Snapshot snapshot;
    Reader(process, snapshot).readAll();
    return snapshot;
}

} // namespace inspect
