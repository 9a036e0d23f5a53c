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

/// Who makes a promise. Each level includes those before it.
enum Level {
    Contract,  ///< the headers: every platform keeps it
    Desktop,   ///< a platform whose files and settings are on the system's disks
    Reference, ///< the platform that comes with the library
};

/// One promise of a platform. run() throws a Failure if it is not kept.
struct Check {
    const char* name; ///< on the command line
    Level level;
    const char* source;   ///< the header or guide that makes the promise
    const char* sentence; ///< the promise, as it is worded there
    void (*run)();
};

// The checks of each service.
std::vector<Check> memoryChecks();
std::vector<Check> textChecks();
std::vector<Check> systemChecks();
std::vector<Check> threadChecks();
std::vector<Check> fileChecks();
std::vector<Check> shellChecks();
std::vector<Check> diskChecks();

const char kGuide[] = "platform.md"; // promises beyond the headers

/// Throws a Failure with \p reason unless \p holds is true.
inline void require(bool holds, const std::string& reason)
{
    if (!holds)
        throw Failure{reason};
}

/// Returns an empty folder on disk for this check alone, with a trailing separator. The parent
/// process removes it. Only for platforms that keep files on disk.
const std::string& scratchFolder();

/// Widens ASCII without the platform, which is what is being checked.
LightweightString<wchar_t> widen(const std::string& text);

int forkAndWait(int (*work)(void*), void* argument);

/// Runs \p work, which returns an exit status, in a forked child. Returns its wait status.
template <class Work> int inChild(Work work)
{
    return forkAndWait([](void* argument) { return (*static_cast<Work*>(argument))(); }, &work);
}
