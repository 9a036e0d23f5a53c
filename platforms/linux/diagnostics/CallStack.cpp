#include "diagnostics/CallStack.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <execinfo.h>
#include <link.h>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/auxv.h>
#include <unwind.h>
#include <utility>

namespace {

using Text = LightweightString<char>;

// --- Finding an address's module and function.
//
// Deliberate: neither by dladdr nor by dl_iterate_phdr. The first takes the lock under which a
// module's constructors run, so a thread that throws while it holds what such a constructor
// waits for would never return. The lock of the second is not given back in a child that is
// forked while another thread has it. What is used here takes no lock at all; it is how the
// unwinder itself finds its tables.

struct Place {
    const char* module = nullptr; // null: none
    std::uintptr_t moduleOffset = 0;
    const char* function = nullptr; // null: not known; mangled
    std::uintptr_t functionOffset = 0;
};

struct SymbolTable {
    const Elf64_Sym* symbols = nullptr;
    const char* names = nullptr;
    std::size_t count = 0;
};

// The number of symbols stands nowhere in memory; it follows from the hash table, whose
// last chain ends with the last symbol.
std::size_t countByGnuHash(const std::uint32_t* hash) noexcept
{
    const std::uint32_t bucketCount = hash[0], firstHashed = hash[1], filterWords = hash[2];
    const std::uint32_t* const buckets = hash + 4 + 2 * std::size_t(filterWords);
    const std::uint32_t* const chains = buckets + bucketCount;
    std::uint32_t last = 0;
    for (std::uint32_t i = 0; i < bucketCount; ++i)
        if (buckets[i] > last)
            last = buckets[i];
    if (last < firstHashed)
        return firstHashed;
    while ((chains[last - firstHashed] & 1) == 0)
        ++last;
    return std::size_t(last) + 1;
}

SymbolTable symbolsOf(const link_map& module) noexcept
{
    SymbolTable table;
    for (const Elf64_Dyn* entry = module.l_ld; entry->d_tag != DT_NULL; ++entry) {
        // The loader has made these absolute, except in the kernel's own module.
        std::uintptr_t value = entry->d_un.d_ptr;
        if (value < module.l_addr)
            value += module.l_addr;
        if (entry->d_tag == DT_SYMTAB)
            table.symbols = reinterpret_cast<const Elf64_Sym*>(value);
        else if (entry->d_tag == DT_STRTAB)
            table.names = reinterpret_cast<const char*>(value);
        else if (entry->d_tag == DT_GNU_HASH)
            table.count = countByGnuHash(reinterpret_cast<const std::uint32_t*>(value));
        else if (entry->d_tag == DT_HASH && table.count == 0)
            table.count = reinterpret_cast<const std::uint32_t*>(value)[1];
    }
    return table.symbols != nullptr && table.names != nullptr ? table : SymbolTable();
}

const char* baseName(const char* path) noexcept
{
    const char* slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

const char* moduleName(const link_map& module) noexcept
{
    if (module.l_name != nullptr && module.l_name[0] != 0)
        return baseName(module.l_name);
    // The program itself has no name in the loader's list.
    const char* program = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    return program != nullptr ? baseName(program) : "program";
}

Place findPlace(std::uintptr_t address) noexcept
{
    Place place;
    dl_find_object found;
    if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0)
        return place;
    const link_map& module = *found.dlfo_link_map;
    const std::uintptr_t offset = address - module.l_addr;
    place.module = moduleName(module);
    place.moduleOffset = offset;
    const SymbolTable table = symbolsOf(module);
    for (std::size_t i = 0; i < table.count; ++i) {
        const Elf64_Sym& symbol = table.symbols[i];
        const unsigned int type = ELF64_ST_TYPE(symbol.st_info);
        // Within the function, not just behind it: the name of another one misleads.
        if ((type == STT_FUNC || type == STT_GNU_IFUNC) && symbol.st_shndx != SHN_UNDEF &&
            offset - symbol.st_value < symbol.st_size) {
            place.function = table.names + symbol.st_name;
            place.functionOffset = offset - symbol.st_value;
            break;
        }
    }
    return place;
}

// --- Making text.

void appendText(Text& to, const char* text)
{
    to.append(text, static_cast<unsigned int>(std::strlen(text)));
}

void appendOffset(Text& to, const char* before, std::uintptr_t offset)
{
    char digits[2 + 16 + 1];
    char* at = digits + sizeof digits;
    *--at = 0;
    do
        *--at = "0123456789abcdef"[offset & 15];
    while ((offset >>= 4) != 0);
    *--at = 'x';
    *--at = '0';
    appendText(to, before);
    appendText(to, at);
}

// --- Keeping texts.

// What stands at an address. A module that is unloaded may be followed by another one at the
// same place, even by a newer build of itself: then the extent of the module or of the
// function around the address gives it away.
struct Identity {
    std::uintptr_t address = 0;
    const void* module = nullptr;
    const void* moduleStart = nullptr;
    const void* moduleEnd = nullptr;
    const void* functionStart = nullptr;

    bool operator==(const Identity&) const = default;
};

Identity identityOf(void* address) noexcept
{
    Identity identity;
    identity.address = reinterpret_cast<std::uintptr_t>(address);
    dl_find_object found;
    if (_dl_find_object(address, &found) == 0) {
        identity.module = found.dlfo_link_map;
        identity.moduleStart = found.dlfo_map_start;
        identity.moduleEnd = found.dlfo_map_end;
        identity.functionStart = _Unwind_FindEnclosingFunction(address);
    }
    return identity;
}

// One text for each of the most recent addresses. Made when first used and never destroyed,
// because exceptions are thrown until the very end.
struct Cache {
    struct Entry {
        Identity identity;
        Text text;
    };
    static constexpr std::size_t kEntries = 1024;

    std::array<Entry, kEntries> entries;
};

constinit std::mutex cacheMutex;
constinit Cache* cache = nullptr;       // guarded by cacheMutex
constinit bool heldAcrossForks = false; // guarded by cacheMutex

// A child forked while another thread is at work would find the entries in pieces.
bool holdAcrossForks() noexcept
{
    const auto lock = [] { cacheMutex.lock(); };
    const auto unlock = [] { cacheMutex.unlock(); };
    if (!heldAcrossForks)
        heldAcrossForks = pthread_atfork(lock, unlock, unlock) == 0;
    return heldAcrossForks;
}

/// The cache, locked. Nothing is allocated or freed through the platform meanwhile: a host's
/// allocator may want a call stack for each of its blocks.
class LockedCache {
public:
    LockedCache() : guard_(cacheMutex)
    {
        if (cache == nullptr && holdAcrossForks())
            if (void* block = std::malloc(sizeof(Cache)))
                cache = new (block) Cache;
    }

    LockedCache(const LockedCache&) = delete;
    LockedCache& operator=(const LockedCache&) = delete;

    /// The one place where an address is kept; null when there is no memory for any.
    Cache::Entry* entryFor(std::uintptr_t address) const noexcept
    {
        const std::uint64_t spread = address * std::uint64_t{0x9E3779B97F4A7C15u};
        return cache != nullptr ? &cache->entries[(spread >> 32) % Cache::kEntries] : nullptr;
    }

private:
    std::lock_guard<std::mutex> guard_;
};

Text textOf(void* returnAddress)
{
    const Identity identity = identityOf(returnAddress);
    {
        const LockedCache locked;
        const Cache::Entry* const entry = locked.entryFor(identity.address);
        if (entry != nullptr && entry->identity == identity)
            return entry->text;
    }
    Text text = CallStack::describe(returnAddress);
    Text previous; // freed when the cache is free again
    const LockedCache locked;
    if (Cache::Entry* const entry = locked.entryFor(identity.address)) {
        previous = std::exchange(entry->text, text);
        entry->identity = identity;
    }
    return text;
}

} // namespace

LightweightString<char> CallStack::describe(const void* returnAddress)
{
    // The call stands before the address to which it returns; behind a call that does not
    // return there may already be another function.
    const std::uintptr_t call = reinterpret_cast<std::uintptr_t>(returnAddress) - 1;
    const Place place = findPlace(call);
    Text text;
    if (place.function != nullptr) {
        int status = 0;
        struct Free {
            char* block;
            ~Free() { std::free(block); }
        } plain{abi::__cxa_demangle(place.function, nullptr, nullptr, &status)};
        appendText(text, plain.block != nullptr ? plain.block : place.function);
        appendOffset(text, "+", place.functionOffset);
        appendText(text, " ");
    }
    if (place.module == nullptr) {
        appendOffset(text, "", call);
        return text;
    }
    appendText(text, "(");
    appendText(text, place.module);
    appendOffset(text, "+", place.moduleOffset);
    appendText(text, ")");
    return text;
}

void CallStack::capture(Frames& frames, const void* firstCaller) noexcept
{
    // Deliberate: whatever goes wrong stays here. The exception under construction matters
    // more than its frames.
    try {
        void* addresses[kMostFrames];
        const int count = backtrace(addresses, kMostFrames);
        int first = 0;
        while (first < count && addresses[first] != firstCaller)
            ++first;
        if (first == count)
            first = 0;
        frames.reserve(frames.size() + static_cast<std::size_t>(count - first));
        for (int i = first; i < count; ++i)
            frames.push_back(textOf(addresses[i]));
    } catch (...) {
    }
}
