#include "diagnostics/Modules.h"

#include <dlfcn.h>

// Deliberate: neither dladdr() nor, unless there is nothing else, dl_iterate_phdr(). The first
// takes the lock under which a module's constructors run: a thread that throws while it holds
// what such a constructor waits for would never return. The lock of the second is not released
// in a child that is forked while another thread holds it. The unwinder itself finds its tables
// by _dl_find_object(), which takes no lock.
//
// Looked up by name, so that this library also loads with C libraries that lack it.
decltype(Modules::Detail::findObject) Modules::Detail::findObject =
    reinterpret_cast<decltype(findObject)>(dlsym(RTLD_DEFAULT, "_dl_find_object"));

#ifdef DLFO_STRUCT_HAS_EH_DBASE
static_assert(sizeof(Modules::Detail::FoundObject) == sizeof(dl_find_object),
              "the C library writes its own structure to ours");
#endif

namespace {

struct Search {
    std::uintptr_t address;
    Modules::Module& module;
};

// Returns 1, which ends the iteration, if this module contains the address.
int examine(dl_phdr_info* info, std::size_t, void* argument) noexcept
{
    const Search& search = *static_cast<const Search*>(argument);
    Modules::Module module;
    module.base = info->dlpi_addr;
    module.path = info->dlpi_name;
    module.begin = UINTPTR_MAX;
    bool contains = false;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr)& segment = info->dlpi_phdr[i];
        const std::uintptr_t begin = module.base + segment.p_vaddr;
        const std::uintptr_t end = begin + segment.p_memsz;
        if (segment.p_type == PT_DYNAMIC) {
            module.dynamic = reinterpret_cast<const ElfW(Dyn)*>(begin);
        } else if (segment.p_type == PT_LOAD) {
            module.begin = begin < module.begin ? begin : module.begin;
            module.end = end > module.end ? end : module.end;
            contains |= begin <= search.address && search.address < end;
        }
    }
    if (contains)
        search.module = module;
    return contains;
}

} // namespace

bool Modules::find(const void* address, Module& module) noexcept
{
    if (Detail::findObject == nullptr) {
        Search search{reinterpret_cast<std::uintptr_t>(address), module};
        return dl_iterate_phdr(examine, &search) != 0;
    }
    Detail::FoundObject found;
    if (Detail::findObject(const_cast<void*>(address), &found) != 0)
        return false;
    module.base = found.module->l_addr;
    module.path = found.module->l_name;
    module.dynamic = found.module->l_ld;
    module.begin = reinterpret_cast<std::uintptr_t>(found.begin);
    module.end = reinterpret_cast<std::uintptr_t>(found.end);
    return true;
}
