#include "memory/Misuse.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

void abortOnMisuse(const void* block, const char* what) noexcept
{
    char line[160];
    const int length = std::snprintf(line, sizeof line, "Vx: deallocate(%p): %s\n", block, what);
    [[maybe_unused]] const ssize_t written =
        write(STDERR_FILENO, line, static_cast<std::size_t>(length));
    std::abort();
}
