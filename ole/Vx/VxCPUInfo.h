// VxCPUInfo.h - Facts about the processor.
#pragma once

#include <Vx/VxExport.h>

namespace Vx {
namespace CPUInfo {

/// Returns the number of logical processors that this process may use. The platform is asked
/// until it returns something other than 0; that result is kept.
/// Thread safety: any thread.
VX_API int getNumProcessors();

} // namespace CPUInfo
} // namespace Vx
