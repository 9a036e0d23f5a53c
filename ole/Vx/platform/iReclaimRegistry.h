// platform/iReclaimRegistry.h - The registry of objects that can give memory back.
#pragma once

#include <Vx/VxFwd.h>

/// Keeps track of every living Reclaimable.
///
/// Ownership: none; an object removes itself before it dies.
/// Thread safety: any thread. The registry must not call an object back from inside add() or
///   remove(), when the object's derived part does not exist.
class iReclaimRegistry {
public:
    /// Registers \p object. Called once, by its constructor.
    virtual void add(Reclaimable* object) = 0;

    /// Unregisters \p object. Called once, by its destructor. Must not throw.
    virtual void remove(Reclaimable* object) = 0;

protected:
    ~iReclaimRegistry() = default;
};
