// CallStack.h - the frames of a thread's stack as text.
#pragma once

#include <Vx/LightweightString.h>
#include <vector>

namespace CallStack {

using Frames = std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>;

/// Frames that capture() reports at most; the outermost ones are left out.
constexpr int kMostFrames = 128;

/// Appends the calling thread's frames, innermost first, beginning with the one that
/// \p firstCaller, a return address, leads into. When no frame has it, all are reported.
///
/// A frame reads `Vx::foo(int)+0x1a (libVx.so.17+0x5d2c)`: the function as the compiler's
/// demangler prints it, the offset of the call in it, the module and the offset of the call
/// there, which `addr2line -e libVx.so.17 0x5d2c` turns into a line. Only functions that a
/// module exports have a name to print; others read `(libVx.so.17+0x5d2c)`, and code that
/// belongs to no module is printed as an address.
///
/// Errors: none leaves. When memory runs out, the frames end early.
/// Threads: any. Texts are kept for the next time, so that a frame costs a look-up.
void capture(Frames& frames, const void* firstCaller) noexcept;

/// The text of the frame that returns to \p returnAddress, made anew.
LightweightString<char> describe(const void* returnAddress);

} // namespace CallStack
