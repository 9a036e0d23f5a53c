// Files.h - whole files, through the platform.
#pragma once

#include <string>

namespace tool {

/// All bytes of the file.
/// \throws Failure when it cannot be opened or read
std::string readFile(const std::string& path);

/// Whether the file can be opened for reading.
bool fileExists(const std::string& path);

/// Replaces the file by \p bytes, whole or not at all, and reads it back to be sure.
/// \throws Failure when that did not succeed; the old file then stands
void replaceFile(const std::string& path, const std::string& bytes);

} // namespace tool
