// SystemInfo.h - Facts about the machine.
#pragma once

#include <Vx/platform/iSystemInfo.h>

class SystemInfo final : public iSystemInfo {
public:
    /// Returns the number of processors that the calling thread may run on, at least 1. A quota
    /// of processor time does not reduce it.
    int numProcessors() override;
};
