// VxCheck.h - The functions of the host's check macros.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {
namespace Check {

/// Functions for check macros, which the host defines and which pass the result code, where it
/// occurred and the expression that returned it.
///
///     if (!checkAndLog(openDevice(7), __FILE__, __LINE__, "openDevice(7)", false))
///         useAnother();
///
/// Result codes are 32-bit integers: negative ones are failures and are printed as eight
/// hexadecimal digits, 0 and positive ones are successes. Log lines go through Vx::LogTimed(),
/// with its limit of 255 characters.
///
/// Thread safety: any thread.
namespace Private {

/// Returns whether failures are logged even if not forced: true in this library.
VX_API bool logInDebug();

/// Returns whether \p code is a success. Logs a failure if \p force or logInDebug():
/// "VxCheck: <file>(<line>) [<expression>] = 0x<code>".
VX_API bool checkAndLog(int code, const char* file, int line, const char* expression, bool force);

/// As above. Before that, whatever the code, logs "VxCheck: <file>(<line>) [<expression>] took
/// <elapsed>" if \p threshold is above 0 and \p elapsed reaches it. Both are in the same unit.
VX_API bool checkAndLog(int code, const char* file, int line, const char* expression, bool force,
                        double threshold, double elapsed);

/// Throws a RuntimeError at \p file and \p line with the message
/// "VxCheck: <file>(<line>) [<expression>] = 0x<code>", cut to 255 characters.
///
/// Deliberate: the 256 bytes of the message are never freed, so that it stays valid in every
/// copy of the exception.
/// \throws Vx::Exception::RuntimeError always
[[noreturn]] VX_API void throwDetailed(const char* file, int line, const char* expression,
                                       int code);

/// As throwDetailed(), with the message "VxCheck: <file>(<line>) FAILED with code 0x<code>".
/// \throws Vx::Exception::RuntimeError always
[[noreturn]] VX_API void throwShort(const char* file, int line, int code);

} // namespace Private
} // namespace Check
} // namespace Vx
