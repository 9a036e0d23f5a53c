// CallStack.h - Describes the frames of a thread's stack.
#pragma once

#include <Vx/LightweightString.h>
#include <vector>

namespace CallStack {

using Frames = std::vector<LightweightString<char>, StdAllocator<LightweightString<char>>>;

/// The number of frames that capture() walks at most. The outermost ones are omitted.
constexpr int kMostFrames = 128;

/// Appends the calling thread's frames to \p frames, innermost first, beginning with the one
/// that the return address \p firstCaller leads into. If no frame has it, appends all.
///
/// A frame reads `Vx::foo(int)+0x1a (libVx.so.17+0x5d2c)`: the demangled function, the offset of
/// the call in it, the module, and the offset of the call in the module, which
/// `addr2line -e libVx.so.17 0x5d2c` turns into a line. Only exported functions have names;
/// others read `(libVx.so.17+0x5d2c)`. Code outside any module is an address.
///
/// Errors: none. If memory runs out, the later frames are missing.
/// Thread safety: any thread. Texts are cached, so that a repeated frame is only looked up.
void capture(Frames& frames, const void* firstCaller) noexcept;

/// Returns the text of the frame that \p returnAddress leads into, without the cache.
LightweightString<char> describe(const void* returnAddress);

} // namespace CallStack
