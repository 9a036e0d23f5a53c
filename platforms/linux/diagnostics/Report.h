// Report.h - Tells the user about a failure that no result can report.
#pragma once

/// Writes the line "Vx: <what> <path>: <reason>" to standard error, in one write.
///
/// Bytes of \p path that would break the line are shown as \xHH. \p error is an errno value, or
/// 0 if \p detail gives the reason. \p detail follows the error and may be null.
///
/// Errors: none. Survives a closed pipe, keeps errno, and allocates nothing, unless the C library
///   does not know \p error.
/// Thread safety: any thread.
void report(const char* what, const char* path, int error, const char* detail = nullptr) noexcept;
