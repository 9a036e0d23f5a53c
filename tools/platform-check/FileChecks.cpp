// Files: read as a whole, replaced as a whole or not at all.
#include "Check.h"

#include <Vx/VxPtr.h>
#include <Vx/platform/iFileSystem.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

Vx::Ptr<iFile> openToRead(const std::string& path)
{
    return OS()->fileSystem()->openFile(widen(path), 1, 0, 1, 0);
}

Vx::Ptr<iFile> openToReplace(const std::string& path)
{
    return OS()->fileSystem()->openFile(widen(path), 2, 3, 0, 0);
}

// Not through the platform, which is what is being checked.
std::string content(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void put(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string newPath(const char* name) { return scratchFolder() + name; }

void requireNoLitter(std::size_t expected)
{
    std::size_t found = 0;
    for (const auto& entry : std::filesystem::directory_iterator(scratchFolder()))
        found += entry.is_regular_file() || entry.is_symlink();
    require(found == expected,
            std::to_string(found) + " files in the folder, expected " + std::to_string(expected));
}

void reads()
{
    const std::string path = newPath("read");
    put(path, std::string("a\0\r\nb", 5));
    const Vx::Ptr<iFile> file = openToRead(path);
    require(bool(file), "an existing file does not open");
    require(file->size() == 5, "size() is " + std::to_string(file->size()) + ", expected 5");
    char bytes[8] = {};
    require(file->read(bytes, 2) && std::string(bytes, 2) == std::string("a\0", 2),
            "the first two bytes are wrong");
    require(file->size() == 5, "size() depends on the position");
    require(file->read(bytes, 3) && std::string(bytes, 3) == "\r\nb",
            "the next three bytes are wrong");
    require(!file->read(bytes, 1), "reads beyond the end");
    const Vx::Ptr<iFile> again = openToRead(path);
    require(!again->read(bytes, 6), "a short read returns true");
}

void noFile()
{
    require(!openToRead(newPath("missing")), "a missing file opens");
    require(!openToRead(scratchFolder()), "a folder opens for reading");
    require(!openToReplace(scratchFolder()), "a folder opens for writing");
    require(!openToReplace(newPath("no/such/folder")), "a file in a missing folder opens");
    require(!openToRead("") && !openToReplace(""), "the empty path opens");
    put(newPath("big"), "");
    std::filesystem::resize_file(newPath("big"), 1ull << 32);
    require(!openToRead(newPath("big")), "a file of 4 GiB opens: 32 bits cannot hold its size");
    std::filesystem::resize_file(newPath("big"), 0);
    const Vx::Ptr<iFile> empty = openToRead(newPath("big"));
    require(empty && empty->size() == 0, "an empty file does not open with size 0");
}

void creates()
{
    const std::string path = newPath("new");
    {
        const Vx::Ptr<iFile> file = openToReplace(path);
        require(bool(file), "does not open for writing");
        require(file->write("one ", 4) && file->write("two", 3), "a write fails");
    }
    require(content(path) == "one two", "the file holds \"" + content(path) + "\"");
    requireNoLitter(1);
}

void replacesOnRelease()
{
    const std::string path = newPath("replaced");
    put(path, "the old content");
    {
        Vx::Ptr<iFile> file = openToReplace(path);
        require(content(path) == "the old content", "opening destroys the old file");
        require(file->write("new", 3), "a write fails");
        require(content(path) == "the old content", "the new content is visible before the commit");
        const Vx::Ptr<iFile> second = file;
        file.reset();
        require(content(path) == "the old content",
                "the release of the first of two holders publishes");
    }
    require(content(path) == "new", "the file holds \"" + content(path) + "\"");
    requireNoLitter(1);
}

// A platform that does not implement the commit returns true and publishes on release.
void commits()
{
    const std::string path = newPath("committed");
    put(path, "old");
    Vx::Ptr<iFile> file = openToReplace(path);
    require(file->write("new", 3), "a write fails");
    require(file->write("", 0), "a commit fails for no reason");
    const bool atOnce = content(path) == "new";
    require(atOnce || content(path) == "old", "the commit left \"" + content(path) + "\"");
    require(file->write("", 0), "a second commit fails");
    file.reset();
    require(content(path) == "new",
            "a commit returned true, but the file holds \"" + content(path) + "\"");
    requireNoLitter(1);
    if (!atOnce)
        return;

    std::filesystem::create_directory(newPath("folder"));
    file = openToReplace(newPath("folder/lost"));
    require(file->write("new", 3), "a write fails");
    std::filesystem::remove_all(newPath("folder"));
    require(!file->write("", 0), "a commit returned true although its folder is gone");
}

void keepsMode()
{
    const std::string path = newPath("mode");
    put(path, "old");
    chmod(path.c_str(), 0640);
    openToReplace(path)->write("new", 3);
    struct stat status;
    require(stat(path.c_str(), &status) == 0, "the file is gone");
    require(content(path) == "new", "not replaced");
    require((status.st_mode & 0777) == 0640, "the permissions of the old file are lost");
}

void followsLinks()
{
    put(newPath("target"), "old");
    std::filesystem::create_symlink(newPath("target"), newPath("link"));
    openToReplace(newPath("link"))->write("new", 3);
    require(std::filesystem::is_symlink(newPath("link")), "the link was replaced by a file");
    require(content(newPath("target")) == "new", "the target of the link is unchanged");
    requireNoLitter(2);
}

void exceptionKeepsTheOld()
{
    const std::string path = newPath("unwound");
    put(path, "old");
    try {
        const Vx::Ptr<iFile> file = openToReplace(path);
        file->write("half", 4);
        throw 1;
    } catch (int) {
    }
    require(content(path) == "old", "an exception leaves \"" + content(path) + "\"");
    requireNoLitter(1);
}

void killKeepsTheOld()
{
    const std::string path = newPath("killed");
    put(path, "old");
    const int status = inChild([&] {
        const Vx::Ptr<iFile> file = openToReplace(path);
        const std::string block(300000, 'x');
        file->write(block.data(), static_cast<unsigned int>(block.size()));
        raise(SIGKILL);
        return 0;
    });
    require(WIFSIGNALED(status), "the child was not killed");
    require(content(path) == "old", "a killed writer leaves the file changed");
    requireNoLitter(1);
}

void separator()
{
    const wchar_t found = OS()->fileSystem()->pathSeparator();
    require(found != 0, "the separator is 0");
    require(found == L'/', "the separator is not the system's");
}

void wideNames()
{
    // U+00E9, U+65E5, U+1F3AC: two, three and four bytes of UTF-8.
    const std::string narrow = newPath("\xC3\xA9\xE6\x97\xA5\xF0\x9F\x8E\xAC");
    LightweightString<wchar_t> wide = widen(scratchFolder());
    for (wchar_t c : {wchar_t(0xE9), wchar_t(0x65E5), wchar_t(0x1F3AC)})
        wide += c;
    OS()->fileSystem()->openFile(wide, 2, 3, 0, 0)->write("x", 1);
    require(content(narrow) == "x", "a name beyond ASCII does not become UTF-8");
    require(bool(OS()->fileSystem()->openFile(wide, 1, 0, 1, 0)),
            "a name beyond ASCII does not open again");
    put(newPath("a"), "old");
    for (const wchar_t invalid : {wchar_t(0), wchar_t(0xD800), wchar_t(0x110000)}) {
        LightweightString<wchar_t> path = widen(newPath("a"));
        path.push_back(invalid);
        require(!OS()->fileSystem()->openFile(path, 1, 0, 1, 0) &&
                    !OS()->fileSystem()->openFile(path, 2, 3, 0, 0),
                "a path with the invalid character " + std::to_string(invalid) +
                    " opens: it must have become another path");
    }
}

} // namespace

std::vector<Check> fileChecks()
{
    return {
        {"files.read", "reads never come short; the size ignores the position", reads},
        {"files.none", "what cannot be opened gives an empty pointer", noFile},
        {"files.create", "successive writes create a new file", creates},
        {"files.replace", "a file is replaced when its last holder releases it", replacesOnRelease},
        {"files.commit", "a write of 0 bytes returns true only if the file is replaced", commits},
        {"files.mode", "a replaced file keeps its permissions", keepsMode},
        {"files.links", "a symbolic link is followed", followsLinks},
        {"files.exception", "an exception in flight keeps the old file", exceptionKeepsTheOld},
        {"files.kill", "a killed writer leaves the old file and no litter", killKeepsTheOld},
        {"files.separator", "the path separator is the system's", separator},
        {"files.names", "names reach the system as UTF-8 or are refused", wideNames},
    };
}
