// VxLogTimed.h - console lines with the time since the first one.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// Prints "<seconds>: <text>" to standard output, the seconds since the first line in 9
/// columns with 3 decimals, the text as printf() would make it. The caller's format ends the
/// line.
///
/// Deliberate: a text that is empty, or longer than 255 characters, is not printed at all.
///
/// Errors: none; what cannot be formatted is not printed.
/// Threads: any; lines do not mix.
VX_API void LogTimed(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace Vx
