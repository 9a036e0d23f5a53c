// VxVersion.h - The versions of the library and of the application.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

/// Returns the version of this library, "major.minor.patch.build": a constant, at the same
/// address on every call.
/// Thread safety: any thread.
VX_API const char* vxDllVersionStr();

namespace Vx {

/// Returns name and version of the application, then build number and date of the library:
/// "Editor 1.0 (56356) - Jan  8 2026". Undefined without an application object.
/// Thread safety: any thread.
VX_API LightweightString<wchar_t> getVersionLabel();

/// Returns the year under which users know a major version: "17" is "2025". Empty for any other
/// string than "14" to "17".
/// Thread safety: any thread.
VX_API LightweightString<wchar_t>
getVersionDisplayString(const LightweightString<char>& majorVersion);

} // namespace Vx
