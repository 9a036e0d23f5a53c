#include "Files.h"

#include "Strings.h"
#include "Terminal.h"
#include "Tool.h"

#include <Vx/platform/OS.h>
#include <Vx/platform/iFileSystem.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFromPipe = std::size_t(256) << 20;

Vx::Ptr<iFile> openForReading(const std::string& path)
{
    return OS()->fileSystem()->openFile(fromUtf8(path), /*access=*/1, /*disposition=*/0,
                                        /*flags=*/1, 0);
}

bool fileExistsOnDisk(const std::string& path)
{
    std::error_code error;
    return fs::status(path, error).type() != fs::file_type::not_found;
}

/// A descriptor that is closed unless it is standard input.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor()
    {
        if (number_ > STDIN_FILENO)
            ::close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return number_; }

private:
    int number_;
};

std::string readPipe(const std::string& path, int descriptor)
{
    std::string bytes;
    for (std::size_t size = 0;; bytes.resize(size)) {
        bytes.resize(size + (std::size_t(1) << 16));
        const ssize_t got = ::read(descriptor, bytes.data() + size, bytes.size() - size);
        if (got < 0 && errno != EINTR)
            throw Failure("read-failed", {inQuotes(path), std::strerror(errno)});
        size += got > 0 ? static_cast<std::size_t>(got) : 0;
        if (size > kMostFromPipe)
            throw Failure("too-large", {inQuotes(path)});
        if (got == 0) {
            bytes.resize(size);
            return bytes;
        }
    }
}

std::string readStandardInput()
{
    static bool wasRead = false;
    if (std::exchange(wasRead, true))
        throw Failure("stdin-twice");
    return readPipe("standard input", STDIN_FILENO);
}

/// Reads what the platform cannot open, or throws the reason.
std::string readSpecial(const std::string& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found)
        throw Failure("missing-file", {inQuotes(path)});
    if (fs::is_directory(status))
        throw Failure("folder", {inQuotes(path)});
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOCTTY | O_CLOEXEC));
    if (error || file.get() == -1)
        throw Failure("unreadable-file",
                      {inQuotes(path), error ? error.message() : std::strerror(errno)});
    return readPipe(path, file.get());
}

/// Copies \p bytes to a file in memory and returns its descriptor, or -1.
int copyInMemory(const std::string& bytes)
{
    const int copy = memfd_create("vx", MFD_CLOEXEC);
    for (std::size_t done = 0; copy != -1 && done < bytes.size();) {
        const ssize_t written = ::write(copy, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR) {
            ::close(copy);
            return -1;
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    return copy;
}

} // namespace

bool isStandardInput(const std::string& path) { return path == "-" || path == "/dev/stdin"; }

bool fileExists(const std::string& path) { return openForReading(path) || fileExistsOnDisk(path); }

std::string readFile(const std::string& path)
{
    if (isStandardInput(path))
        return readStandardInput();
    const Vx::Ptr<iFile> file = openForReading(path);
    // Files of the kernel, as in /proc, have no size before they are read.
    if (!file || (file->size() == 0 && fileExistsOnDisk(path)))
        return readSpecial(path);
    std::string bytes(file->size(), '\0');
    if (!bytes.empty() && !file->read(bytes.data(), static_cast<unsigned int>(bytes.size())))
        throw Failure("read-failed", {inQuotes(path), "it ended early"});
    return bytes;
}

void replaceFile(const std::string& path, const std::string& bytes)
{
    Vx::Ptr<iFile> file = OS()->fileSystem()->openFile(fromUtf8(path), /*access=*/2,
                                                       /*disposition=*/3, /*flags=*/0, 0);
    if (!file)
        throw Failure("unwritable-file", {inQuotes(path)});
    if (bytes.size() > 0xFFFFFFFFu ||
        (!bytes.empty() && !file->write(bytes.data(), static_cast<unsigned int>(bytes.size()))) ||
        !file->write(nullptr, 0)) // commits
        throw Failure("write-failed", {inQuotes(path)});
    // A platform that cannot commit publishes on release, without a result.
    file.reset();
    if (readFile(path) != bytes)
        throw Failure("write-failed", {inQuotes(path)});
}

void writeOutput(const std::string& path, const std::string& bytes)
{
    if (path == "-") {
        std::fwrite(bytes.data(), 1, bytes.size(), stdout);
        return;
    }
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (!fs::is_fifo(status) && !fs::is_character_file(status))
        return replaceFile(path, bytes);
    const Descriptor file(::open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC));
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t written = ::write(file.get(), bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno != EINTR)
            throw Failure("output-file-failed", {inQuotes(path), std::strerror(errno)});
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

LoadableFile::LoadableFile(const std::string& path) : bytes_(readFile(path)), path_(fromUtf8(path))
{
    const Vx::Ptr<iFile> file = isStandardInput(path) ? Vx::Ptr<iFile>() : openForReading(path);
    if (file && file->size() == bytes_.size())
        return;
    copy_ = copyInMemory(bytes_);
    if (copy_ == -1)
        throw Failure("read-failed", {inQuotes(path), std::strerror(errno)});
    path_ = fromUtf8(fmt::format("/proc/self/fd/{}", copy_));
}

LoadableFile::~LoadableFile()
{
    if (copy_ != -1)
        ::close(copy_);
}

} // namespace tool
