// VxClock.h - the platform's clock.
#pragma once

#include <Vx/VxExport.h>

/// Milliseconds since an origin of the platform's choice: take differences only.
/// Threads: any.
VX_API double msecsNow();

/// The same reading in seconds.
VX_API double secondsNow();
