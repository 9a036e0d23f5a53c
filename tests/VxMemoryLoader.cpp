// Loads the library at run time with RTLD_LOCAL and allocates through it. The argument is the
// library's path. Exits with status 0 if everything worked.

#include <cstdio>
#include <cstring>
#include <dlfcn.h>

// Defined under a leak checker only.
extern "C" __attribute__((weak)) void __lsan_disable();

namespace {

template <class Function> Function* find(void* library, const char* name)
{
    void* const symbol = dlsym(library, name);
    if (symbol == nullptr)
        std::fprintf(stderr, "%s\n", dlerror());
    Function* function = nullptr;
    std::memcpy(&function, &symbol, sizeof function);
    return function;
}

} // namespace

int main(int, char** argv)
{
    void* const library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    auto* const allocate = find<void*(unsigned long)>(library, "_Znwm");
    auto* const release = find<void(void*)>(library, "_ZdlPv");
    auto* const throwShort =
        find<void(const char*, int, int)>(library, "_ZN2Vx5Check7Private10throwShortEPKcii");
    if (allocate == nullptr || release == nullptr || throwShort == nullptr)
        return 1;

    void* const block = allocate(100);
    std::memset(block, 1, 100);
    release(block);
    release(nullptr);

    // A thrown check leaks its message on purpose.
    if (__lsan_disable != nullptr)
        __lsan_disable();
    bool caught = false;
    try {
        throwShort("file", 1, -1); // allocates a message and a call stack
    } catch (...) {
        caught = true;
    }
    if (!caught || dlclose(library) != 0)
        return 1;
    // This program's own operators are not the library's.
    delete[] new char[100];
    return 0;
}
