// VxTypeManip.h - Factories as plain function pointers.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

namespace Vx {
namespace TypeManip {

/// Creates objects through a plain function pointer, for registries that know no types.
///
///     void* (*factory)() = Vx::TypeManip::TemplatedNew<CriticalSection>::new_;
template <class T> struct VX_API TemplatedNew {
    /// Returns a new, default-constructed T. The caller owns it and deletes it as a T.
    static void* new_() { return new T; }
};

} // namespace TypeManip
} // namespace Vx
