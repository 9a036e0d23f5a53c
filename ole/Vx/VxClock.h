// VxClock.h - The platform's clock.
//
//     const double start = msecsNow();
//     work();
//     report(msecsNow() - start);
#pragma once

#include <Vx/VxExport.h>

/// Returns milliseconds since an origin that the platform chooses: only differences mean anything.
/// Thread safety: any thread.
VX_API double msecsNow();

/// Returns the same reading in seconds.
VX_API double secondsNow();
