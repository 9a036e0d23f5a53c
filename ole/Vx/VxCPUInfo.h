// VxCPUInfo.h - facts about the processor.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {
namespace CPUInfo {

/// Logical processors that this process may use. The platform is asked once and its
/// answer kept; a platform that answers 0 is asked again at every call.
/// Threads: any.
VX_API int getNumProcessors();

} // namespace CPUInfo
} // namespace Vx
