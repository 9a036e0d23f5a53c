// Files.h - Reads and replaces whole files through the platform.
#pragma once

#include <Vx/LightweightString.h>
#include <string>

namespace tool {

/// \p path for the platform.
/// \throws Failure with kUsage unless \p path is valid UTF-8; anything else would be converted
///   to the name of a different file
LightweightString<wchar_t> platformPath(const std::string& path);

/// \throws Failure if the file cannot be opened or read
std::string readFile(const std::string& path);

/// Whether \p path names anything, readable or not.
bool fileExists(const std::string& path);

/// Replaces the file by \p bytes, whole or not at all, and reads it back.
/// \throws Failure if that did not succeed; the old file is unchanged then
void replaceFile(const std::string& path, const std::string& bytes);

} // namespace tool
