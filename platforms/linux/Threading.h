// Threading.h - recursive locks and thread identity.
#pragma once

#include <Vx/VxPtr.h>
#include <Vx/platform/iThreading.h>

class Threading final : public iThreading {
public:
    Vx::Ptr<iLock> createLock(unsigned int flags) override;
    unsigned int currentThreadId() override;
};
