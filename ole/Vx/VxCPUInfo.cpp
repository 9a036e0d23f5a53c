#include <Vx/VxCPUInfo.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemInfo.h>

namespace {

// A plain integer in effect: no lock and no ordering, since every thread that races here
// stores the same answer. Relaxed access costs nothing and keeps the race benign.
int numProcessors = 0;

} // namespace

int Vx::CPUInfo::getNumProcessors()
{
    int known = __atomic_load_n(&numProcessors, __ATOMIC_RELAXED);
    if (known == 0) {
        known = OS()->systemInfo()->numProcessors();
        __atomic_store_n(&numProcessors, known, __ATOMIC_RELAXED);
    }
    return known;
}
