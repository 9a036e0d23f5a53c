// VxLogTimed.h - Console lines with the time since the first one.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {

/// Prints a line to standard output, preceded by the seconds since the first such line.
///
///     Vx::LogTimed("%d clips loaded\n", count); // 12.346   : 17 clips loaded
///
/// The arguments are those of printf(). \p format supplies the newline.
///
/// Deliberate: nothing is printed if the text is empty or longer than 255 characters. The first
///   line may show a tiny negative time.
///
/// Errors: none; text that cannot be formatted is not printed.
/// Thread safety: any thread; lines of different threads are not interleaved.
VX_API void LogTimed(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace Vx
