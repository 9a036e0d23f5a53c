#include <Vx/VxCPUInfo.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemInfo.h>
#include <atomic>

int Vx::CPUInfo::getNumProcessors()
{
    // Relaxed and without a lock: threads that race here store the same number.
    static std::atomic<int> kept = 0;
    int number = kept.load(std::memory_order_relaxed);
    if (number == 0) {
        number = OS()->systemInfo()->numProcessors();
        kept.store(number, std::memory_order_relaxed);
    }
    return number;
}
