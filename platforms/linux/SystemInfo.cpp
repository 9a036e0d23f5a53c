#include "SystemInfo.h"

#include <cstddef>
#include <sched.h>
#include <unistd.h>

int SystemInfo::numProcessors()
{
    // The C library's cpu_set_t ends at 1024 processors, and the kernel rejects a set that is
    // too small for the machine.
    constexpr std::size_t kMostProcessors = 65536;
    unsigned long allowed[kMostProcessors / (8 * sizeof(unsigned long))] = {};
    cpu_set_t* const set = reinterpret_cast<cpu_set_t*>(allowed);
    if (sched_getaffinity(0, sizeof allowed, set) == 0)
        return CPU_COUNT_S(sizeof allowed, set);
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<int>(online) : 1;
}
