#include "Files.h"

#include "Terminal.h"
#include "Text.h"
#include "Tool.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <filesystem>

namespace tool {
namespace {

Vx::Ptr<iFile> openForReading(const std::string& path)
{
    return OS()->fileSystem()->openFile(fromUtf8(path), /*access=*/1, /*disposition=*/0,
                                        /*flags=*/1, 0);
}

/// Why a path cannot be opened, which the platform does not tell; for a message only.
std::string reason(const std::string& path)
{
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found)
        return "is not there";
    if (error)
        return "cannot be opened for reading: " + error.message();
    if (std::filesystem::is_directory(status))
        return "is a folder";
    if (!std::filesystem::is_regular_file(status))
        return "is not a file";
    return "cannot be opened for reading";
}

} // namespace

bool fileExists(const std::string& path) { return bool(openForReading(path)); }

std::string readFile(const std::string& path)
{
    const Vx::Ptr<iFile> file = openForReading(path);
    if (!file)
        throw Failure(inQuotes(path) + " " + reason(path));
    std::string bytes(file->size(), '\0');
    if (!bytes.empty() && !file->read(bytes.data(), static_cast<unsigned int>(bytes.size())))
        throw Failure(inQuotes(path) + " could be opened but not read");
    return bytes;
}

void replaceFile(const std::string& path, const std::string& bytes)
{
    Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(fromUtf8(path), /*access=*/2,
                                                       /*disposition=*/3, /*flags=*/0, 0);
    if (!file)
        throw Failure(inQuotes(path) + " cannot be opened for writing");
    if (bytes.size() > 0xFFFFFFFFu ||
        !file->write(bytes.data(), static_cast<unsigned int>(bytes.size())))
        throw Failure(inQuotes(path) + " could not be written; it is as it was");
    // The new file takes the old one's place when it is let go, which answers nothing.
    file.reset();
    if (readFile(path) != bytes)
        throw Failure(inQuotes(path) + " could not be replaced; it is as it was");
}

} // namespace tool
