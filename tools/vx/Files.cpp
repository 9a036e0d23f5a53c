#include "Files.h"

#include "Strings.h"
#include "Terminal.h"
#include "Tool.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <filesystem>

namespace tool {
namespace {

Vx::Ptr<iFile> openForReading(const std::string& path)
{
    return OS()->fileSystem()->openFile(platformPath(path), /*access=*/1, /*disposition=*/0,
                                        /*flags=*/1, 0);
}

/// Why a path cannot be opened; the platform does not say.
std::string reason(const std::string& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return "does not exist";
    if (error)
        return "cannot be opened for reading: " + error.message();
    if (std::filesystem::is_directory(status))
        return "is a folder";
    if (!std::filesystem::is_regular_file(status))
        return "is not a regular file";
    return "cannot be opened for reading";
}

} // namespace

LightweightString<wchar_t> platformPath(const std::string& path)
{
    LightweightString<wchar_t> wide = fromUtf8(path);
    if (view(toUtf8(wide)) != path)
        throw Failure("file name " + inQuotes(path) + " is not valid UTF-8", kUsage);
    return wide;
}

bool fileExists(const std::string& path)
{
    std::error_code error;
    return openForReading(path) ||
           std::filesystem::status(path, error).type() != std::filesystem::file_type::not_found;
}

std::string readFile(const std::string& path)
{
    const Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(platformPath(path), /*access=*/1,
                                                             /*disposition=*/0, /*flags=*/1, 0);
    if (!file)
        throw Failure(inQuotes(path) + " " + reason(path));
    std::string bytes(file->size(), '\0');
    if (!bytes.empty() && !file->read(bytes.data(), static_cast<unsigned int>(bytes.size())))
        throw Failure(inQuotes(path) + " cannot be read");
    return bytes;
}

void replaceFile(const std::string& path, const std::string& bytes)
{
    Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(platformPath(path), /*access=*/2,
                                                       /*disposition=*/3, /*flags=*/0, 0);
    if (!file)
        throw Failure(inQuotes(path) + " cannot be opened for writing");
    if (bytes.size() > 0xFFFFFFFFu ||
        (!bytes.empty() && !file->write(bytes.data(), static_cast<unsigned int>(bytes.size()))) ||
        !file->write(nullptr, 0)) // commits
        throw Failure(inQuotes(path) + " cannot be written; it is unchanged");
    // A platform that cannot commit publishes on release, without a result.
    file.reset();
    if (readFile(path) != bytes)
        throw Failure(inQuotes(path) + " cannot be replaced; it is unchanged");
}

} // namespace tool
