// Files and settings on disk, which this program reads and writes without the platform.
#include "Check.h"

#include <Vx/VxPtr.h>
#include <Vx/platform/iFileSystem.h>
#include <Vx/platform/iSettings.h>
#include <Vx/platform/iShell.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Text = LightweightString<char>;

Vx::Ptr<iFile> openToRead(const std::string& path)
{
    return OS()->fileSystem()->openFile(widen(path), 1, 0, 1, 0);
}

Vx::Ptr<iFile> openToReplace(const std::string& path)
{
    return OS()->fileSystem()->openFile(widen(path), 2, 3, 0, 0);
}

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

void systemFiles()
{
    put(newPath("read"), std::string("a\0\r\nb", 5));
    const Vx::Ptr<iFile> file = openToRead(newPath("read"));
    char bytes[5] = {};
    require(file && file->size() == 5 && file->read(bytes, 5) &&
                std::string(bytes, 5) == content(newPath("read")),
            "a file of the system cannot be read");
    require(bool(openToReplace(newPath("new"))), "does not open for writing");
    require(std::filesystem::exists(newPath("new")), "no file of the system is created");
    // U+00E9, U+65E5, U+1F3AC: two, three and four bytes of UTF-8.
    LightweightString<wchar_t> wide = widen(scratchFolder());
    for (const wchar_t c : {wchar_t(0xE9), wchar_t(0x65E5), wchar_t(0x1F3AC)})
        wide += c;
    OS()->fileSystem()->openFile(wide, 2, 3, 0, 0)->write("x", 1);
    require(content(newPath("\xC3\xA9\xE6\x97\xA5\xF0\x9F\x8E\xAC")) == "x",
            "a name beyond ASCII does not become UTF-8");
}

void noHugeFile()
{
    put(newPath("big"), "");
    std::filesystem::resize_file(newPath("big"), 1ull << 32);
    require(!openToRead(newPath("big")), "a file of 4 GiB opens");
    std::filesystem::resize_file(newPath("big"), 0);
    require(bool(openToRead(newPath("big"))), "an empty file does not open");
}

void separator()
{
    require(OS()->fileSystem()->pathSeparator() == L'/', "the separator is another one");
}

void killKeepsTheOld()
{
    put(newPath("killed"), "old");
    const int status = inChild([] {
        const Vx::Ptr<iFile> file = openToReplace(newPath("killed"));
        const std::string block(300000, 'x');
        file->write(block.data(), static_cast<unsigned int>(block.size()));
        raise(SIGKILL);
        return 0;
    });
    require(WIFSIGNALED(status), "the child was not killed");
    require(content(newPath("killed")) == "old", "the file is changed");
}

void noLitter()
{
    put(newPath("file"), "old");
    const auto others = [] {
        return std::distance(std::filesystem::directory_iterator(scratchFolder()), {}) - 1;
    };
    {
        const Vx::Ptr<iFile> file = openToReplace(newPath("file"));
        require(file->write("new", 3) && others() == 0, "while it is written");
    }
    require(others() == 0, "after it is written");
    inChild([] {
        openToReplace(newPath("file"))->write("x", 1);
        const Vx::Ptr<iFile> file = openToReplace(newPath("file"));
        file->write("y", 1);
        raise(SIGKILL);
        return 0;
    });
    require(others() == 0, "after the writer was killed");
}

void missingFolder()
{
    require(!openToReplace(newPath("no/such/folder")), "a file in a missing folder opens");
    std::filesystem::create_directory(newPath("folder"));
    const Vx::Ptr<iFile> file = openToReplace(newPath("folder/lost"));
    require(file && file->write("new", 3), "a write fails");
    std::filesystem::remove_all(newPath("folder"));
    require(!file->write("", 0), "a commit returned true although its folder is gone");
}

void keepsMode()
{
    put(newPath("mode"), "old");
    chmod(newPath("mode").c_str(), 0640);
    openToReplace(newPath("mode"))->write("new", 3);
    struct stat status = {};
    require(stat(newPath("mode").c_str(), &status) == 0, "the file is gone");
    require(content(newPath("mode")) == "new", "not replaced");
    require((status.st_mode & 0777) == 0640, "the permissions of the old file are lost");
}

void followsLinks()
{
    put(newPath("target"), "old");
    std::filesystem::create_symlink(newPath("target"), newPath("link"));
    openToReplace(newPath("link"))->write("new", 3);
    require(std::filesystem::is_symlink(newPath("link")), "the link was replaced by a file");
    require(content(newPath("target")) == "new", "the target of the link is unchanged");
}

void exceptionKeepsTheOld()
{
    put(newPath("unwound"), "old");
    try {
        const Vx::Ptr<iFile> file = openToReplace(newPath("unwound"));
        file->write("half", 4);
        throw 1;
    } catch (int) {
    }
    require(content(newPath("unwound")) == "old",
            "an exception leaves \"" + content(newPath("unwound")) + "\"");
}

void folderOnDisk()
{
    const auto folder = OS()->shell()->getFolder(iShell::kUserDataFolder);
    require(std::filesystem::is_directory(std::wstring(folder.c_str(), folder.length())),
            "there is no such folder");
}

const char* const kOdd[][2] = {
    {"plain", "value"},
    {"with = sign", "a=b=c"},
    {" blanks ", "  both ends  "},
    {"[bracket]", "[x]\r\ny"},
    {";comment", "# no comment"},
    {"utf \xC3\xA9", "\xE6\x97\xA5\xC3\xA9"},
    {"empty", ""},
    {"broken \xFF", "\x80\xFE"},
    {"back\\slash", "a\\nb\tc"},
};

void requireOdd()
{
    const Vx::Ptr<iSettings> store = OS()->shell()->getSettings(0);
    for (const auto& [key, value] : kOdd)
        require(store->getValue(key, "lost", "Odd ]section") == value,
                std::string("the value of \"") + key + "\" came back as \"" +
                    store->getValue(key, "lost", "Odd ]section").c_str() + "\"");
}

void setOdd()
{
    for (const auto& [key, value] : kOdd)
        OS()->shell()->getSettings(0)->setValue(key, value, "Odd ]section");
}

void saved()
{
    const int status = inChild([] {
        setOdd();
        OS()->shell()->getSettings(0)->save();
        return 0;
    });
    require(status == 0, "the saving process died");
    requireOdd();
}

void unsaved()
{
    const int status = inChild([] {
        setOdd();
        raise(SIGKILL);
        return 0;
    });
    require(WIFSIGNALED(status), "the child was not killed");
    requireOdd();
}

void twoProcesses()
{
    constexpr int kProcesses = 4;
    constexpr int kKeys = 25;
    std::vector<std::thread> parents; // one per child, so that all run at once
    std::vector<int> statuses(kProcesses, 1);
    for (int p = 0; p < kProcesses; ++p)
        parents.emplace_back([p, &statuses] {
            statuses[static_cast<std::size_t>(p)] = inChild([p] {
                for (int k = 0; k < kKeys; ++k) {
                    const std::string key = std::to_string(p) + "." + std::to_string(k);
                    OS()->shell()->getSettings(0)->setValue(Text(key), Text(key), "Shared");
                    OS()->shell()->getSettings(0)->save();
                }
                return 0;
            });
        });
    for (std::thread& parent : parents)
        parent.join();
    for (int status : statuses)
        require(status == 0, "a saving process died");
    const auto store = OS()->shell()->getSettings(0);
    for (int p = 0; p < kProcesses; ++p)
        for (int k = 0; k < kKeys; ++k) {
            const std::string key = std::to_string(p) + "." + std::to_string(k);
            require(store->getValue(Text(key), "lost", "Shared") == Text(key),
                    "the setting " + key + " was lost among " + std::to_string(kProcesses) +
                        " processes that saved at once");
        }
}

} // namespace

std::vector<Check> diskChecks()
{
    return {
        {"disk.files", Desktop, kGuide,
         "A file is a file of the system under the same path in UTF-8.", systemFiles},
        {"disk.size", Desktop, "iFileSystem.h", "a size that 32 bits cannot hold.", noHugeFile},
        {"disk.separator", Desktop, kGuide, "The path separator is the system's.", separator},
        {"disk.kill", Desktop, kGuide, "A killed writer leaves the old file.", killKeepsTheOld},
        {"disk.folder", Desktop, kGuide, "The user's data folder is a folder of the system.",
         folderOnDisk},
        {"disk.settings", Desktop, "iSettings.h",
         "Only save() makes it permanent, but a platform should keep it when the process dies",
         saved},
        {"disk.settings.processes", Desktop, kGuide,
         "Processes that save settings at once lose nothing.", twoProcesses},
        {"disk.settings.unsaved", Reference, "iSettings.h",
         "a platform should keep it when the process dies before (the reference platform does)",
         unsaved},
        {"disk.litter", Reference, kGuide, "Writing leaves no other file, even if it is killed.",
         noLitter},
        {"disk.missing-folder", Reference, kGuide,
         "A file whose folder is missing does not open, or cannot be committed.", missingFolder},
        {"disk.mode", Reference, kGuide, "A replaced file keeps its permissions.", keepsMode},
        {"disk.links", Reference, kGuide, "A symbolic link is followed.", followsLinks},
        {"disk.exception", Reference, kGuide,
         "A file that is closed by an exception keeps its old content.", exceptionKeepsTheOld},
    };
}
