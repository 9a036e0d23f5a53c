#include "Roots.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace inspect {
namespace {

namespace detail = Vx::detail;

constexpr std::size_t kPiece = 1 << 16;
constexpr std::uint32_t kLargestOffset = 1 << 16; // no class of the libraries is larger

Address addressOf(const void* pointer) { return reinterpret_cast<Address>(pointer); }

/// Reads a table that starts with its size; members that it does not have stay 0.
template <class Table> std::optional<Table> readTable(const Process& process, const void* where)
{
    const auto size = process.get<std::uint32_t>(addressOf(where));
    if (where == nullptr || !size || *size < sizeof(std::uint32_t) || *size > kLargestOffset)
        return std::nullopt;
    // A table that lacks members would make them all be at offset 0.
    if (*size < sizeof(Table))
        return std::nullopt;
    return process.get<Table>(addressOf(where));
}

/// The address of a descriptor with this magic in a mapping, or 0.
template <class Descriptor>
Address findIn(const Process& process, const Mapping& mapping, const char (&magic)[16])
{
    std::vector<char> piece(kPiece + sizeof magic);
    for (Address at = mapping.start; at < mapping.end; at += kPiece) {
        const std::size_t size = std::min<Address>(piece.size(), mapping.end - at);
        // A core file may claim memory that it does not have, up to the whole address space.
        if (!process.read(at, piece.data(), size))
            break;
        for (std::size_t i = 0; i + sizeof magic <= size; i += 8) {
            if (std::memcmp(piece.data() + i, magic, sizeof magic) != 0)
                continue;
            const auto found = process.get<Descriptor>(at + i);
            // A copy, such as one in a tool like this, does not have its own address in it.
            if (found && addressOf(found->self) == at + i)
                return at + i;
        }
    }
    return 0;
}

template <class Descriptor>
Address find(const Process& process, const char (&magic)[16], std::string_view likelyName)
{
    for (const bool likely : {true, false})
        for (const Mapping& mapping : process.mappings()) {
            const bool named = fileName(mapping.path).substr(0, likelyName.size()) == likelyName;
            const bool isModule = !mapping.path.empty() && mapping.path[0] == '/';
            if (!mapping.readable || mapping.executable || !isModule || named != likely)
                continue;
            if (const Address at = findIn<Descriptor>(process, mapping, magic))
                return at;
        }
    return 0;
}

[[noreturn]] void explainMissing(const Process& process)
{
    const std::string who = fmt::format("'{}'", process.name());
    const auto& mappings = process.mappings();
    const bool loaded = std::any_of(mappings.begin(), mappings.end(), [](const Mapping& mapping) {
        return fileName(mapping.path).substr(0, 8) == "libVx.so";
    });
    if (!loaded)
        throw CannotInspect(who + " does not have libVx.so loaded",
                            "'vx inspect' lists the processes that do.");
    throw CannotInspect(who + " has a libVx.so without a descriptor",
                        "It is older than this tool, or damaged: update it, or use a debugger.");
}

/// The loaded module whose address range contains the descriptor.
std::string pathOf(const Process& process, Address address)
{
    const Mapping* const mapping = process.mappingOf(address);
    return mapping != nullptr ? mapping->path : std::string();
}

void readPlatform(const Process& process, Roots& roots)
{
    const Address at =
        find<detail::InspectPlatform>(process, detail::kInspectPlatformMagic, "libOS.so");
    const auto platform = process.get<detail::InspectPlatform>(at);
    if (at == 0 || !platform || platform->version != detail::kInspectVersion ||
        platform->size < sizeof *platform)
        return;
    roots.platformFile = pathOf(process, at);
    roots.platformLocks = readTable<detail::InspectPlatformLocks>(process, platform->locks);
    roots.blocks = readTable<detail::InspectBlocks>(process, platform->blocks);
    if (roots.blocks && (roots.blocks->classes > detail::kInspectMostClasses ||
                         roots.blocks->wordsInRecord > 1024 || roots.blocks->spanSize == 0))
        roots.blocks.reset();
    if (roots.platformLocks &&
        (roots.platformLocks->lockSize > 4096 ||
         roots.platformLocks->owner + 8 > roots.platformLocks->lockSize ||
         roots.platformLocks->futex + 4 > roots.platformLocks->lockSize ||
         roots.platformLocks->recursion + 4 > roots.platformLocks->lockSize ||
         roots.platformLocks->threadIdBits > 32))
        roots.platformLocks.reset();
}

} // namespace

Roots findRoots(const Process& process)
{
    const Address at =
        find<detail::InspectDescriptor>(process, detail::kInspectLibraryMagic, "libVx.so");
    if (at == 0)
        explainMissing(process);
    const auto library = process.get<detail::InspectDescriptor>(at);
    if (!library || library->version != detail::kInspectVersion || library->size < sizeof *library)
        throw CannotInspect(
            fmt::format("'{}' has a libVx.so whose descriptor has version {}, not {}",
                        process.name(), library ? library->version : 0, detail::kInspectVersion),
            "Use the vx that was released with that library.");
    Roots roots;
    roots.libraryVersion.assign(library->libraryVersion,
                                strnlen(library->libraryVersion, sizeof library->libraryVersion));
    roots.locks = readTable<detail::InspectLocks>(process, library->locks);
    roots.names = readTable<detail::InspectNames>(process, library->names);
    roots.shutdown = readTable<detail::InspectShutdown>(process, library->shutdown);
    roots.application = readTable<detail::InspectApplication>(process, library->application);
    roots.pools = readTable<detail::InspectPools>(process, library->pools);
    readPlatform(process, roots);
    return roots;
}

} // namespace inspect
