#include "Check.h"

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

const std::string& scratchFolder()
{
    // NOLINTNEXTLINE: main() has set it
    static const std::string folder = std::string(std::getenv("HOME")) + "/";
    return folder;
}

// Plain ASCII only, and without asking the platform, which is what is being checked.
LightweightString<wchar_t> widen(const std::string& text)
{
    return LightweightString<wchar_t>(std::wstring(text.begin(), text.end()));
}

int forkAndWait(int (*work)(void*), void* argument)
{
    const pid_t child = fork();
    if (child == 0) {
        try {
            _exit(work(argument));
        } catch (...) {
            _exit(1);
        }
    }
    require(child > 0, "fork failed");
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}
