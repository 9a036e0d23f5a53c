// ReclaimRegistry.h - the living reclaimable objects.
#pragma once

#include <Vx/platform/iReclaimRegistry.h>

class ReclaimRegistry final : public iReclaimRegistry {
public:
    void add(Reclaimable* object) override;
    void remove(Reclaimable* object) override;
};
