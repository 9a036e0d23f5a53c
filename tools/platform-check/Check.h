// Check.h - one claim about a platform, and the list of all claims.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/platform/OS.h>
#include <string>
#include <vector>

/// A claim that does not hold; the text says what was found.
struct Failure {
    std::string reason;
};

/// One claim: how it is called on the command line, what it says, and the code that throws
/// a Failure when it does not hold.
struct Check {
    const char* name;
    const char* claim;
    void (*run)();
};

// The claims, service by service.
std::vector<Check> memoryChecks();
std::vector<Check> textChecks();
std::vector<Check> systemChecks();
std::vector<Check> threadChecks();
std::vector<Check> fileChecks();
std::vector<Check> shellChecks();

/// Throws a Failure with \p reason unless \p holds.
inline void require(bool holds, const std::string& reason)
{
    if (!holds)
        throw Failure{reason};
}

/// An empty folder for this check alone, with a trailing separator; the parent removes it.
const std::string& scratchFolder();

LightweightString<wchar_t> widen(const std::string& text);

int forkAndWait(int (*work)(void*), void* argument);

/// Runs \p work, which returns an exit status, in a forked child.
/// \returns the child's wait status
template <class Work> int inChild(Work work)
{
    return forkAndWait([](void* argument) { return (*static_cast<Work*>(argument))(); }, &work);
}
