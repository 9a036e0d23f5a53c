// SystemInfo.h - facts about the machine.
#pragma once

#include <Vx/platform/iSystemInfo.h>

class SystemInfo final : public iSystemInfo {
public:
    int numProcessors() override;
};
