#include <Vx/VxLogTimed.h>

#include <Vx/VxClock.h>
#include <cstdarg>
#include <cstdio>

namespace {

// Milliseconds; 0 until the first line. A plain double in effect: threads that race for the
// first line may both set it, and the later one wins. Relaxed access costs nothing and keeps
// that race benign.
double origin = 0.0;

} // namespace

void Vx::LogTimed(const char* format, ...)
{
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    // Deliberate: a text that did not fit is dropped, not cut.
    if (length <= 0 || length >= static_cast<int>(sizeof text))
        return;

    const double now = msecsNow();
    double start;
    __atomic_load(&origin, &start, __ATOMIC_RELAXED);
    if (start == 0.0) {
        // Deliberate: a second reading, so the first line shows the tiny difference, which
        // is negative, and not 0.
        start = msecsNow();
        __atomic_store(&origin, &start, __ATOMIC_RELAXED);
    }
    // One print, so that lines of two threads do not mix.
    std::printf("%-9.3f: %s", (now - start) / 1000.0, text);
}
