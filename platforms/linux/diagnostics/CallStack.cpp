#include "diagnostics/CallStack.h"

#include "diagnostics/Modules.h"

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/auxv.h>
#include <unwind.h>
#include <utility>

namespace {

using Text = LightweightString<char>;
using Modules::Module;

// --- The function at an address

struct SymbolTable {
    const Elf64_Sym* symbols = nullptr;
    const char* names = nullptr;
    std::size_t count = 0;
};

// The number of symbols is not stored. It follows from the hash table, whose last chain ends
// with the last symbol.
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

SymbolTable symbolsOf(const Module& module) noexcept
{
    SymbolTable table;
    if (module.dynamic == nullptr)
        return table;
    for (const Elf64_Dyn* entry = module.dynamic; entry->d_tag != DT_NULL; ++entry) {
        // The loader has made these absolute, except in the kernel's own module.
        std::uintptr_t value = entry->d_un.d_ptr;
        if (value < module.base)
            value += module.base;
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

struct Function {
    const char* name = nullptr; // mangled; null if unknown
    std::uintptr_t offset = 0;  // of the address in the function
};

Function findFunction(const Module& module, std::uintptr_t offset) noexcept
{
    const SymbolTable table = symbolsOf(module);
    for (std::size_t i = 0; i < table.count; ++i) {
        const Elf64_Sym& symbol = table.symbols[i];
        const unsigned int type = ELF64_ST_TYPE(symbol.st_info);
        // Within the function, not merely after it: a neighbour's name would mislead.
        if ((type == STT_FUNC || type == STT_GNU_IFUNC) && symbol.st_shndx != SHN_UNDEF &&
            offset - symbol.st_value < symbol.st_size)
            return {table.names + symbol.st_name, offset - symbol.st_value};
    }
    return {};
}

const char* nameOf(const Module& module) noexcept
{
    const char* path = module.path;
    if (path == nullptr || path[0] == 0) // the program itself
        path = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    if (path == nullptr)
        return "program";
    const char* const slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// --- Formatting

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

// --- The cache
//
// To look a function up and demangle its name takes 30 times as long as to find its text here.

// What is at an address. When a module is unloaded, another one may take its place, even a newer
// build of the same: then the range of the module or the start of the function differs.
struct Identity {
    std::uintptr_t address = 0;
    std::uintptr_t moduleBegin = 0;
    std::uintptr_t moduleEnd = 0;
    const void* moduleDynamic = nullptr;
    const void* functionBegin = nullptr;

    bool operator==(const Identity&) const = default;
};

Identity identityOf(void* address) noexcept
{
    Identity identity;
    identity.address = reinterpret_cast<std::uintptr_t>(address);
    Module module;
    if (Modules::find(address, module)) {
        identity.moduleBegin = module.begin;
        identity.moduleEnd = module.end;
        identity.moduleDynamic = module.dynamic;
        identity.functionBegin = _Unwind_FindEnclosingFunction(address);
    }
    return identity;
}

// Texts of recent addresses. Created on first use and never destroyed, because exceptions may be
// thrown until the very end of the process.
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

// Otherwise a child forked while another thread writes an entry would find half of it.
bool holdAcrossForks() noexcept
{
    const auto lock = [] { cacheMutex.lock(); };
    const auto unlock = [] { cacheMutex.unlock(); };
    if (!heldAcrossForks)
        heldAcrossForks = pthread_atfork(lock, unlock, unlock) == 0;
    return heldAcrossForks;
}

/// The cache, locked. While it exists, nothing may be allocated or freed through the platform: a
/// host's allocator may capture the call stack of each allocation.
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

    /// Returns the only entry that may hold the address, or null if there is no memory.
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
    Text previous; // destroyed after the cache is unlocked
    const LockedCache locked;
    if (Cache::Entry* const entry = locked.entryFor(identity.address)) {
        previous = std::exchange(entry->text, text);
        entry->identity = identity;
    }
    return text;
}

// --- Walking the stack

struct Walk {
    std::array<void*, CallStack::kMostFrames> addresses;
    std::size_t count = 0;
};

_Unwind_Reason_Code addFrame(_Unwind_Context* context, void* argument) noexcept
{
    Walk& walk = *static_cast<Walk*>(argument);
    const _Unwind_Ptr address = _Unwind_GetIP(context);
    if (address == 0 || walk.count == walk.addresses.size())
        return _URC_END_OF_STACK;
    walk.addresses[walk.count++] = reinterpret_cast<void*>(address);
    return _URC_NO_REASON;
}

} // namespace

LightweightString<char> CallStack::describe(const void* returnAddress)
{
    // The call precedes the address that it returns to. After a call that does not return,
    // another function may already begin there.
    const std::uintptr_t call = reinterpret_cast<std::uintptr_t>(returnAddress) - 1;
    Text text;
    Module module;
    if (!Modules::find(reinterpret_cast<const void*>(call), module)) {
        appendOffset(text, "", call);
        return text;
    }
    const std::uintptr_t offset = call - module.base;
    const Function function = findFunction(module, offset);
    if (function.name != nullptr) {
        int status = 0;
        struct Free {
            char* block;
            ~Free() { std::free(block); }
        } plain{abi::__cxa_demangle(function.name, nullptr, nullptr, &status)};
        appendText(text, plain.block != nullptr ? plain.block : function.name);
        appendOffset(text, "+", function.offset);
        appendText(text, " ");
    }
    appendText(text, "(");
    appendText(text, nameOf(module));
    appendOffset(text, "+", offset);
    appendText(text, ")");
    return text;
}

void CallStack::capture(Frames& frames, const void* firstCaller) noexcept
{
    // Deliberate: swallows every failure. The exception under construction matters more than
    // its frames.
    try {
        // Not backtrace(): its first call loads a module, under the loader's lock.
        Walk walk;
        _Unwind_Backtrace(addFrame, &walk);
        std::size_t first = 0;
        while (first < walk.count && walk.addresses[first] != firstCaller)
            ++first;
        if (first == walk.count)
            first = 0;
        frames.reserve(frames.size() + walk.count - first);
        for (std::size_t i = first; i < walk.count; ++i)
            frames.push_back(textOf(walk.addresses[i]));
    } catch (...) {
    }
}
