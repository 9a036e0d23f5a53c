#include <Vx/VxClock.h>

#include <Vx/platform/OS.h>
#include <Vx/platform/iSystemUtils.h>

double msecsNow() { return OS()->systemUtils()->msecsNow(); }

double secondsNow() { return msecsNow() / 1000.0; }
