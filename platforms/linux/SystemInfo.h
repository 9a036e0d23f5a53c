// SystemInfo.h - facts about the machine.
#pragma once

#include <Vx/platform/iSystemInfo.h>

class SystemInfo final : public iSystemInfo {
public:
    /// The processors that the scheduler may put the calling thread on, at least 1. A
    /// quota of processor time does not lower the number.
    int numProcessors() override;
};
