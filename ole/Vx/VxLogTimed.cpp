#include <Vx/VxLogTimed.h>

#include <Vx/VxClock.h>
#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {

// In milliseconds; 0 until the first line. Deliberate: not guarded. If two first lines race, the
// later one sets it.
constinit std::atomic<double> origin = 0.0;

} // namespace

void Vx::LogTimed(const char* format, ...)
{
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // Deliberate: text that does not fit is dropped, not cut.
    if (length <= 0 || length >= static_cast<int>(sizeof text))
        return;

    const double now = msecsNow();
    double start = origin.load(std::memory_order_relaxed);
    if (start == 0.0) {
        // Deliberate: a second reading, so the first line shows the tiny negative difference.
        start = msecsNow();
        origin.store(start, std::memory_order_relaxed);
    }
    // One call, so that lines of different threads are not interleaved.
    std::printf("%-9.3f: %s", (now - start) / 1000.0, text);
}
