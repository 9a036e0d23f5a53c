#include "SystemInfo.h"

int SystemInfo::numProcessors() { return 1; }
