// platform/iReclaimRegistry.h - the objects that can give memory back.
#pragma once

#include <Vx/VxFwd.h>

/// Keeps track of every living Reclaimable.
///
/// Ownership: none; an object removes itself before it dies.
/// Threads: any. The registry must not call an object back from inside add() or
///   remove(): at that moment the object's derived part does not exist.
class iReclaimRegistry {
public:
    /// Called once by the constructor of \p object.
    virtual void add(Reclaimable* object) = 0;

    /// Called once by the destructor of \p object. Must not throw.
    virtual void remove(Reclaimable* object) = 0;

protected:
    ~iReclaimRegistry() = default;
};
