#include "Files.h"

#include "Terminal.h"
#include "Text.h"
#include "Tool.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>

namespace tool {
namespace {

Vx::Ptr<iFile> openForReading(const std::string& path)
{
    return OS()->fileSystem()->openFile(fromUtf8(path), /*access=*/1, /*disposition=*/0,
                                        /*flags=*/1, 0);
}

} // namespace

bool fileExists(const std::string& path) { return bool(openForReading(path)); }

std::string readFile(const std::string& path)
{
    const Vx::Ptr<iFile> file = openForReading(path);
    if (!file)
        throw Failure(inQuotes(path) + " cannot be opened for reading");
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
