// Files, as far as the headers go: only through the platform, which may keep them anywhere.
#include "Check.h"

#include <Vx/VxPtr.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iShell.h>
#include <algorithm>
#include <atomic>
#include <thread>
#include <unistd.h>

namespace {

using Wide = LightweightString<wchar_t>;

// Returns a path of this process in the user's data folder.
Wide newPath(const std::string& name)
{
    Wide path = OS()->shell()->getFolder(iShell::kUserDataFolder);
    path += widen("platform-check." + std::to_string(getpid()) + "." + name);
    return path;
}

Vx::Ptr<iFile> openToRead(const Wide& path)
{
    return OS()->fileSystem()->openFile(path, 1, 0, 1, 0);
}

Vx::Ptr<iFile> openToReplace(const Wide& path)
{
    return OS()->fileSystem()->openFile(path, 2, 3, 0, 0);
}

// As above, for files that must open: an empty pointer would end the check without a reason.
Vx::Ptr<iFile> reader(const Wide& path)
{
    Vx::Ptr<iFile> file = openToRead(path);
    require(bool(file), "a written file does not open for reading");
    return file;
}

Vx::Ptr<iFile> writer(const Wide& path)
{
    Vx::Ptr<iFile> file = openToReplace(path);
    require(bool(file), "a file does not open for writing");
    return file;
}

bool writeAll(iFile& file, const std::string& bytes)
{
    return file.write(bytes.data(), static_cast<unsigned int>(bytes.size()));
}

void put(const Wide& path, const std::string& bytes)
{
    const Vx::Ptr<iFile> file = writer(path);
    require(bytes.empty() || writeAll(*file, bytes),
            "a write of " + std::to_string(bytes.size()) + " bytes fails");
}

std::string content(const Wide& path)
{
    const Vx::Ptr<iFile> file = reader(path);
    std::string bytes(file->size(), '?');
    require(bytes.empty() || file->read(bytes.data(), file->size()),
            "a file of " + std::to_string(bytes.size()) + " bytes cannot be read");
    return bytes;
}

void requireContent(const Wide& path, const std::string& expected, const std::string& when)
{
    const std::string found = content(path);
    require(found == expected,
            when + ": the file holds \"" + found + "\", expected \"" + expected + "\"");
}

void counted()
{
    put(newPath("counted"), "x");
    for (const bool reads : {false, true}) {
        const Vx::Ptr<iFile> file = reads ? reader(newPath("counted")) : writer(newPath("counted"));
        const unsigned int count = file.useCount();
        require(count == 1, "one holder of a new file is counted as " + std::to_string(count));
    }
}

void reads()
{
    const Wide path = newPath("read");
    put(path, std::string("a\0\r\nb", 5));
    const Vx::Ptr<iFile> file = reader(path);
    char bytes[8] = {};
    require(file->read(bytes, 2) && std::string(bytes, 2) == std::string("a\0", 2),
            "the first two bytes are wrong");
    require(file->read(bytes, 3) && std::string(bytes, 3) == "\r\nb",
            "the next three bytes are wrong");
    require(!file->read(bytes, 1), "reads beyond the end");
}

void neverShort()
{
    put(newPath("short"), "five!");
    char bytes[8] = {};
    require(!reader(newPath("short"))->read(bytes, 6), "6 of 5 bytes are read");
    require(!reader(newPath("short"))->read(bytes, 0x80000000u), "2^31 of 5 bytes are read");
    put(newPath("empty"), "");
    require(!reader(newPath("empty"))->read(bytes, 1), "1 of 0 bytes is read");
}

void size()
{
    for (const unsigned int expected : {0u, 1u, 255u, 65536u, 70001u}) {
        put(newPath("size"), std::string(expected, 's'));
        const Vx::Ptr<iFile> file = reader(newPath("size"));
        require(file->size() == expected,
                "wrong for a file of " + std::to_string(expected) + " bytes");
        char byte = 0;
        require(expected == 0 || (file->read(&byte, 1) && file->size() == expected),
                "depends on the position");
    }
}

void positions()
{
    put(newPath("positions"), "ab");
    const Vx::Ptr<iFile> first = reader(newPath("positions"));
    const Vx::Ptr<iFile> second = reader(newPath("positions"));
    char bytes[2] = {};
    require(first->read(bytes, 1) && second->read(bytes + 1, 1) && bytes[0] == 'a' &&
                bytes[1] == 'a',
            "two open files share their position");
}

void readOnly()
{
    put(newPath("read-only"), "old");
    reader(newPath("read-only"))->write("new", 3);
    requireContent(newPath("read-only"), "old", "after a write to a file open for reading");
}

std::string pattern(std::size_t size)
{
    std::string bytes(size, 0);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 31 + i / 251);
    return bytes;
}

// Sizes on both sides of those of usual buffers, in one write and in several.
void writes()
{
    const Wide path = newPath("write");
    for (const std::size_t size :
         {1u, 4095u, 4096u, 4097u, 65535u, 65537u, 1u << 20, (1u << 20) + 1, (24u << 20) + 5}) {
        const std::string bytes = pattern(size);
        Vx::Ptr<iFile> file = writer(path);
        if (!writeAll(*file, bytes)) {
            require(size > 1u << 20, "a write of " + std::to_string(size) + " bytes fails");
            break; // a platform may run out of space
        }
        file.reset();
        const std::string found = content(path);
        require(found.size() == size, "of " + std::to_string(size) + " bytes written at once, " +
                                          std::to_string(found.size()) + " arrive");
        require(found == bytes, std::to_string(size) + " bytes written at once are changed");
    }
    const std::string bytes = pattern(300000);
    {
        const Vx::Ptr<iFile> file = writer(path);
        for (std::size_t at = 0, n = 1; at < bytes.size(); at += n, n = n * 3 % 20011)
            require(writeAll(*file, bytes.substr(at, n)), "a write fails");
    }
    require(content(path) == bytes, "many writes change the bytes or their order");
}

void publishes()
{
    const Wide path = newPath("published");
    put(path, "the old content");
    Vx::Ptr<iFile> file = writer(path);
    requireContent(path, "the old content", "after opening for writing");
    require(file->write("new", 3), "a write fails");
    requireContent(path, "the old content", "after a write");
    file.reset();
    requireContent(path, "new", "after closing");
    put(path, "");
    requireContent(path, "", "closed without a write");
}

void lastHolderCloses()
{
    const Wide path = newPath("holders");
    put(path, "old");
    Vx::Ptr<iFile> file = writer(path);
    Vx::Ptr<iFile> second = file;
    require(file->write("new", 3), "a write fails");
    file.reset();
    requireContent(path, "old", "released by the first of two holders");
    second.reset();
    requireContent(path, "new", "released by both");
}

// A platform that does not implement the commit returns true and publishes on release.
void commits()
{
    const Wide path = newPath("committed");
    put(path, "old");
    Vx::Ptr<iFile> file = writer(path);
    require(file->write("new", 3), "a write fails");
    require(file->write("", 0), "a commit fails for no reason");
    const std::string found = content(path);
    require(found == "new" || found == "old", "the commit left \"" + found + "\"");
    require(file->write("", 0), "a second commit fails");
    file.reset();
    requireContent(path, "new", "a commit returned true");
}

void refuses()
{
    const Wide folder = OS()->shell()->getFolder(iShell::kUserDataFolder);
    require(!openToRead(newPath("missing")), "a missing file opens");
    require(!openToRead(newPath("missing")), "a missing file exists after an attempt to read it");
    require(!openToRead(folder), "a folder opens for reading");
    require(!openToReplace(folder), "a folder opens for writing");
    require(!openToRead(L"") && !openToReplace(L""), "the empty path opens");
}

// Writes under a path that a careless platform mistakes for that of another file.
void requireDistinct(const Wide& victim, const Wide& path, const std::string& what)
{
    require(!openToRead(path), what + " opens another file for reading");
    Vx::Ptr<iFile> file = openToReplace(path);
    if (!file)
        return; // refused
    require(file->write("new", 3), "a write fails");
    file.reset();
    requireContent(victim, "victim", what + " replaces another file");
    requireContent(path, "new", what + " was written");
}

void names()
{
    const Wide victim = newPath("i");
    put(victim, "victim");
    const Wide stem(victim.c_str(), victim.length() - 1);
    // U+0069 if the high bits are lost; then a character that is not a code point.
    for (const unsigned int c : {0xE9u, 0x169u, 0x10069u, 0xD869u, 0x110069u, 0x80000069u}) {
        Wide path = stem;
        path.push_back(static_cast<wchar_t>(c));
        requireDistinct(victim, path, "the character " + std::to_string(c) + " in a path");
    }
}

void zerosInNames()
{
    const Wide victim = newPath("zero");
    put(victim, "victim");
    for (const std::string& tail : {std::string(1, '\0'), std::string("\0more", 5)}) {
        Wide path = victim;
        for (const char c : tail)
            path.push_back(static_cast<wchar_t>(c));
        requireDistinct(victim, path, "a path with an embedded zero");
    }
}

void threads()
{
    std::atomic<int> good{0};
    std::vector<std::thread> all;
    for (int id = 0; id < 4; ++id)
        all.emplace_back([id, &good] {
            try {
                for (int round = 0; round < 25; ++round) {
                    const Wide path = newPath("thread" + std::to_string(id));
                    const std::string bytes(static_cast<std::size_t>(100 * id + round), 't');
                    put(path, bytes);
                    good += content(path) == bytes;
                }
            } catch (const Failure&) {
            }
        });
    for (std::thread& thread : all)
        thread.join();
    require(good == 100, std::to_string(good) + " of 100 files of four threads are right");
}

void separator()
{
    const wchar_t found = OS()->fileSystem()->pathSeparator();
    require(found != 0, "the separator is 0");
    require(found == OS()->shell()->getFolder(iShell::kUserDataFolder).back(),
            "the separator is not the one at the end of the user's data folder");
}

} // namespace

std::vector<Check> fileChecks()
{
    static constexpr char kFile[] = "iFileSystem.h";
    return {
        {"files.counted", Contract, "OS.h",
         "The count of a new object starts at 0, and the last holder deletes the object.", counted},
        {"files.read", Contract, kFile, "Reads exactly byteCount bytes at the current position",
         reads},
        {"files.short", Contract, kFile, "Never reads short.", neverShort},
        {"files.size", Contract, kFile,
         "Returns the size in bytes, independent of the current position.", size},
        {"files.positions", Contract, kFile,
         "Each open file has a position of its own, which starts at 0.", positions},
        {"files.read-only", Contract, kFile,
         "A file that is open for reading is never changed through it.", readOnly},
        {"files.write", Contract, kFile,
         "Writes byteCount bytes at the current position, or returns false.", writes},
        {"files.publish", Contract, kFile,
         "A file opened for writing is published (becomes visible under its path, in place of the "
         "file that was there) when it is committed or, without a commit, when it is closed.",
         publishes},
        {"files.holders", Contract, kFile, "Closed when the last Vx::Ptr to it is released.",
         lastHolderCloses},
        {"files.commit", Contract, kFile,
         "it publishes what has been written and returns whether that worked.", commits},
        {"files.none", Contract, kFile,
         "or an empty pointer if it cannot be opened: a missing file, a folder", refuses},
        {"files.names", Contract, kFile,
         "a path that the system cannot represent is refused, never converted to a different one.",
         names},
        {"files.zeros", Contract, kFile,
         "a path that the system cannot represent is refused, never converted to a different one.",
         zerosInNames},
        {"files.threads", Contract, kFile, "may be called from any thread.", threads},
        {"files.separator", Contract, kFile,
         "Returns the character between the components of a path, never 0.", separator},
    };
}
