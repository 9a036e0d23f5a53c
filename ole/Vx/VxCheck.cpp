#include <Vx/VxCheck.h>

#include <Vx/VxException.h>
#include <Vx/VxLogTimed.h>
#include <cstdarg>
#include <cstdio>

namespace Vx {
namespace Check {
namespace Private {

namespace {

constexpr std::size_t kMessageSize = 256;

// Deliberate: never freed. Copies of the exception keep the pointer.
__attribute__((format(printf, 1, 2))) const char* makeMessage(const char* format, ...)
{
    char* const message = new char[kMessageSize];
    message[0] = '\0';
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(message, kMessageSize, format, arguments);
    va_end(arguments);
    message[kMessageSize - 1] = '\0';
    return message;
}

void logFailure(int code, const char* file, int line, const char* expression)
{
    LogTimed("VxCheck: %s(%d) [%s] = 0x%08x\n", file, line, expression,
             static_cast<unsigned int>(code));
}

} // namespace

bool logInDebug() { return true; }

bool checkAndLog(int code, const char* file, int line, const char* expression, bool force)
{
    if (code >= 0)
        return true;
    if (force || logInDebug())
        logFailure(code, file, line, expression);
    return false;
}

bool checkAndLog(int code, const char* file, int line, const char* expression, bool force,
                 double threshold, double elapsed)
{
    const bool slow = threshold > 0.0 && elapsed >= threshold;
    if (slow && (force || logInDebug()))
        LogTimed("VxCheck: %s(%d) [%s] took %.2f\n", file, line, expression, elapsed);
    return checkAndLog(code, file, line, expression, force);
}

void throwDetailed(const char* file, int line, const char* expression, int code)
{
    throw Exception::RuntimeError(makeMessage("VxCheck: %s(%d) [%s] = 0x%08x", file, line,
                                              expression, static_cast<unsigned int>(code)),
                                  file, line);
}

void throwShort(const char* file, int line, int code)
{
    throw Exception::RuntimeError(makeMessage("VxCheck: %s(%d) FAILED with code 0x%08x", file, line,
                                              static_cast<unsigned int>(code)),
                                  file, line);
}

} // namespace Private
} // namespace Check
} // namespace Vx
