// VxCheck.h - what stands behind the host's check macros.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {
namespace Check {

/// Functions for check macros, which the host defines: they pass a result code, where it
/// arose and the expression that gave it.
///
/// Result codes are 32-bit: negative is failure, printed as 8 hexadecimal digits of its
/// two's complement; 0 and positive are success. Log lines are lines of Vx::LogTimed, with
/// its limit of 255 characters.
///
/// Threads: any.
namespace Private {

/// Whether failures are logged without being forced: true in this library.
VX_API bool logInDebug();

/// Whether \p code is a success. A failure is logged, as
/// "VxCheck: <file>(<line>) [<expression>] = 0x<code>", when \p force or logInDebug().
VX_API bool checkAndLog(int code, const char* file, int line, const char* expression, bool force);

/// The same, and logs before it "VxCheck: <file>(<line>) [<expression>] took <elapsed>",
/// whether or not \p code is a success, when \p elapsed reaches a \p threshold above 0. Both
/// are in one unit of the caller's choice.
VX_API bool checkAndLog(int code, const char* file, int line, const char* expression, bool force,
                        double threshold, double elapsed);

/// Throws a RuntimeError at \p file and \p line with the message
/// "VxCheck: <file>(<line>) [<expression>] = 0x<code>", cut to 255 characters.
///
/// Deliberate: the message lives in 256 bytes that nobody frees, so that it stays valid
/// however the exception is copied.
/// \throws Vx::Exception::RuntimeError always
[[noreturn]] VX_API void throwDetailed(const char* file, int line, const char* expression,
                                       int code);

/// As throwDetailed(), with the message "VxCheck: <file>(<line>) FAILED with code 0x<code>".
/// \throws Vx::Exception::RuntimeError always
[[noreturn]] VX_API void throwShort(const char* file, int line, int code);

} // namespace Private
} // namespace Check
} // namespace Vx
