// Files.h - Reads and replaces whole files through the platform, and reads and writes pipes.
#pragma once

#include <Vx/LightweightString.h>
#include <string>
#include <utility>

namespace tool {

/// Whether \p path means standard input.
bool isStandardInput(const std::string& path);

/// Returns the content of a file, a pipe or a device. "-" and "/dev/stdin" are standard input.
/// \throws Failure if it cannot be opened or read, if a pipe does not end, or if standard input
///   was read before
std::string readFile(const std::string& path);

/// Whether \p path names anything, readable or not.
bool fileExists(const std::string& path);

/// Replaces the file by \p bytes, whole or not at all, and reads it back.
/// \throws Failure if that did not succeed; the old file is unchanged then
void replaceFile(const std::string& path, const std::string& bytes);

/// Writes \p bytes to standard output if \p path is "-", to a pipe or a device if it names one;
/// otherwise replaces the file.
/// \throws Failure if that did not succeed
void writeOutput(const std::string& path, const std::string& bytes);

/// A file that the library can load under a name: its own, or that of a copy in memory.
class LoadableFile {
public:
    /// \throws Failure as readFile() does
    explicit LoadableFile(const std::string& path);
    ~LoadableFile();
    LoadableFile(const LoadableFile&) = delete;
    LoadableFile& operator=(const LoadableFile&) = delete;

    const std::string& bytes() const { return bytes_; }
    std::string takeBytes() { return std::move(bytes_); }
    const LightweightString<wchar_t>& path() const { return path_; }

private:
    std::string bytes_;
    LightweightString<wchar_t> path_;
    int copy_ = -1;
};

} // namespace tool
