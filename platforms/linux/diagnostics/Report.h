// Report.h - one line for the user, where no answer can reach the caller.
#pragma once

/// Writes "Vx: <what> <path>: <reason>" and a line end to standard error, in one write.
/// Bytes of \p path that would break the line are shown as \xHH. \p error is an errno
/// value, or 0 to leave the reason to \p detail; \p detail follows it and may be null.
/// Threads: any. Errors: none, not even the signal of a pipe that nobody reads any more;
///   allocates nothing and keeps errno.
void report(const char* what, const char* path, int error, const char* detail = nullptr) noexcept;
