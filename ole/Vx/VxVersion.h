// VxVersion.h - which build is running.
#pragma once

#include <Vx/LightweightString.h>
#include <Vx/VxExport.h>

/// The version of this library, "major.minor.patch.build".
/// Ownership: a constant of the library, the same at every call.
/// Threads: any.
VX_API const char* vxDllVersionStr();

namespace Vx {

/// Name and version of the application with build number and date of the library:
/// "Editor 1.0 (56356) - Jan  8 2026". There must be an application object.
/// Threads: any.
VX_API LightweightString<wchar_t> getVersionLabel();

/// The year under which users know a major version: "17" is "2025". Empty for every text
/// that is not exactly one of the known versions.
/// Threads: any.
VX_API LightweightString<wchar_t>
getVersionDisplayString(const LightweightString<char>& majorVersion);

} // namespace Vx
