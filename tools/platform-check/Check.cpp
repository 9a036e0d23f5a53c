#include "Check.h"

#include <cerrno>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

const std::string& scratchFolder()
{
    // NOLINTNEXTLINE: the parent process has set it
    static const std::string folder = std::string(std::getenv("HOME")) + "/";
    return folder;
}

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
    require(child > 0, "cannot fork");
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}
