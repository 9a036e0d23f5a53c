// VxTypeManip.h - functions made from types.
#pragma once

#include <Vx/VxExport.h>
#include <Vx/VxFwd.h>

namespace Vx {
namespace TypeManip {

/// Makes objects through a plain function pointer, for registries that know no
/// types.
template <class T> struct VX_API TemplatedNew {
    /// A new, default-constructed T, untyped. The caller owns it and deletes it as
    /// a T.
    static void* new_() { return new T; }
};

} // namespace TypeManip
} // namespace Vx
