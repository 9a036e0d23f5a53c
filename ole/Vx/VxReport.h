// VxReport.h - Writes what the library knows about its own process.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>
#include <cstddef>

namespace Vx {

/// Receives the pieces of a report in order: \p count bytes of text, 512 at most. Must not throw.
using ReportSink = void (*)(void* context, const char* bytes, std::size_t count);

/// Writes the locks and their owners, the application, the shutdown callbacks with the one that
/// runs, the named objects and the pools, as `vx inspect` shows them. For bug reports, watchdogs
/// and crash handlers.
///
///     void toDescriptor(void* context, const char* bytes, std::size_t count)
///     {
///         (void)!::write(*static_cast<int*>(context), bytes, count);
///     }
///     void onCrash(int) { Vx::writeReport(toDescriptor, &reportDescriptor); }
///
/// Form: UTF-8 text for people. A complete report ends with the line "end of the report".
///   Functions are addresses, for addr2line, and types are as the compiler mangles them, for
///   `c++filt -t`. What only the system knows is left to `vx inspect`: waiting threads,
///   deadlocks, names of threads, memory.
/// Crash handlers: allocates nothing, takes no lock, waits for nothing, and uses less than 4 KB
///   of stack. It calls \p sink, OS()->threading()->currentThreadId() and the platform's
///   Vx_readMemory(); on the reference platform it is async-signal-safe if \p sink is.
/// Damaged memory: addresses and lists are checked before they are followed. What is damaged, or
///   changed by another thread at each look, is marked or noted and never shown as a fact. The
///   report says so at its top if the platform cannot check addresses; then a damaged one
///   faults, and other threads must not change callbacks, pools or the application meanwhile.
///   What precedes the section has been handed to \p sink by then.
/// Thread safety: any thread, several at once.
VX_API void writeReport(ReportSink sink, void* context) noexcept;

/// Writes the report to the file \p path, which it creates or replaces, through the platform.
///
/// Allocates, so it is for processes in good health: bug reports, not crash handlers.
/// \returns whether the whole report is in the file. If not, whether memory ran out or the disk
///   is full, a platform that commits leaves the file as it was
VX_API bool writeReport(const LightweightString<wchar_t>& path) noexcept;

} // namespace Vx
