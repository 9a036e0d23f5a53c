// Check.h - The checks of a platform, and what they are written with.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/OS.h>
#include <string>
#include <vector>

/// Thrown by a check that fails; says what was found.
struct Failure {
    std::string reason;
};

/// One claim about a platform. run() throws a Failure if it does not hold.
struct Check {
    const char* name; ///< on the command line
    const char* claim;
    void (*run)();
};

// The checks of each service.
std::vector<Check> memoryChecks();
std::vector<Check> textChecks();
std::vector<Check> systemChecks();
std::vector<Check> threadChecks();
std::vector<Check> fileChecks();
std::vector<Check> shellChecks();

/// Throws a Failure with \p reason unless \p holds is true.
inline void require(bool holds, const std::string& reason)
{
    if (!holds)
        throw Failure{reason};
}

/// Returns an empty folder for this check alone, with a trailing separator. The parent process
/// removes it.
const std::string& scratchFolder();

/// Widens ASCII without the platform, which is what is being checked.
LightweightString<wchar_t> widen(const std::string& text);

int forkAndWait(int (*work)(void*), void* argument);

/// Runs \p work, which returns an exit status, in a forked child. Returns its wait status.
template <class Work> int inChild(Work work)
{
    return forkAndWait([](void* argument) { return (*static_cast<Work*>(argument))(); }, &work);
}
