#include "settings/SettingsFile.h"

#include "files/FileTarget.h"
#include "files/Folders.h"
#include "files/ReadFile.h"
#include "files/ReplacedFile.h"
#include "diagnostics/Report.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>

namespace {

// Far beyond what anybody sets; a larger file is something else.
constexpr unsigned int kMaxSize = 64u << 20;

} // namespace

SettingsFile::SettingsFile(const Place& place)
    : folder_(place.folder), path_(place.folder + place.name)
{}

SettingsFile::Found SettingsFile::readBytes()
{
    ReadFile file;
    error_ = file.open(path_.c_str());
    brokenLine_ = 0;
    found_ = error_ == 0;
    if (error_ == ENOENT)
        return Found::kNothing;
    if (error_ == EISDIR || error_ == EINVAL || error_ == EFBIG)
        return Found::kBroken;
    if (error_ != 0)
        return Found::kUnreadable;
    if (file.size() > kMaxSize) {
        error_ = EFBIG;
        return Found::kBroken;
    }
    bytes_.resize(file.size());
    if (file.read(bytes_.data(), file.size()))
        return Found::kText;
    error_ = EIO;
    return Found::kUnreadable;
}

SettingsFile::Found SettingsFile::read(SettingsText& text)
{
    const Found found = readBytes();
    if (found != Found::kText)
        return found;
    SettingsText parsed;
    brokenLine_ = parsed.parse(bytes_);
    if (brokenLine_ != 0)
        return Found::kBroken;
    text.swap(parsed);
    return Found::kText;
}

SettingsFile::Found SettingsFile::readOrSetAside(SettingsText& text)
{
    Found found = read(text);
    if (found == Found::kBroken) {
        const int lockError = lock();
        found = read(text);
        if (found == Found::kBroken && lockError == 0)
            setAside();
        else if (found == Found::kBroken)
            report("settings are broken, and could not be set aside:", path_.c_str(), lockError);
        unlock();
    }
    if (found == Found::kUnreadable)
        report("could not read the settings", path_.c_str(), error_, "defaults hold");
    return found;
}

int SettingsFile::lock()
{
    if (const int error = makeFolders(folder_))
        return error;
    // For writing, because some network file systems lock exclusively only then.
    lock_ =
        Descriptor(retried(systemCalls.openat, AT_FDCWD, (folder_ + "lock").c_str(),
                           O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, mode_t(0666)));
    if (!lock_)
        return errno;
    if (retried(systemCalls.flock, lock_.get(), LOCK_EX) == 0)
        return 0;
    // Where nobody can lock, settings are better saved than not.
    return errno == ENOLCK || errno == EOPNOTSUPP || errno == ENOSYS ? 0 : errno;
}

void SettingsFile::unlock()
{
    // By name rather than by closing: a forked child may hold the descriptor open.
    if (lock_)
        retried(systemCalls.flock, lock_.get(), LOCK_UN);
    lock_.reset();
}

bool SettingsFile::setAside()
{
    constexpr int kMaxBroken = 1000;
    std::string aside = path_ + ".broken";
    int error = EEXIST;
    for (int n = 1; error == EEXIST && n <= kMaxBroken; ++n) {
        error = retried(systemCalls.renameat2, AT_FDCWD, path_.c_str(), AT_FDCWD, aside.c_str(),
                        static_cast<unsigned int>(RENAME_NOREPLACE)) == 0
                    ? 0
                    : errno;
        // Not every file system can rename so; linking does not replace either.
        if (error == EINVAL || error == ENOSYS)
            error = retried(systemCalls.linkat, AT_FDCWD, path_.c_str(), AT_FDCWD, aside.c_str(),
                            0) == 0 &&
                            retried(systemCalls.unlinkat, AT_FDCWD, path_.c_str(), 0) == 0
                        ? 0
                        : errno;
        if (error == EEXIST)
            aside = path_ + ".broken-" + std::to_string(n);
    }
    // On the medium before a new file takes the name: a power failure could leave that one alone.
    if (error == 0)
        syncFolder(folder_);
    char where[64];
    if (brokenLine_ != 0)
        std::snprintf(where, sizeof(where), "line %u is not settings text", brokenLine_);
    else
        std::snprintf(where, sizeof(where), "it is no regular file of a usable size");
    if (error == 0)
        report("settings were broken, set aside as", aside.c_str(), 0, where);
    else
        report("settings are broken, and could not be set aside:", path_.c_str(), error, where);
    return error == 0;
}

bool SettingsFile::write(const SettingsText& text)
{
    const std::string bytes = text.bytes();
    if (found_ && bytes == bytes_)
        return true;
    FileTarget target;
    int error = target.resolve(path_.c_str());
    if (error == 0 && target.exists && !S_ISREG(target.status.st_mode))
        error = EINVAL;
    const std::unique_ptr<ReplacedFile> file(new ReplacedFile);
    if (error == 0)
        error = file->open(path_.c_str(), std::move(target));
    if (error == 0) {
        file->write(bytes.data(), static_cast<unsigned int>(bytes.size()));
        error = file->finish();
    }
    if (error != 0)
        report("could not save the settings", path_.c_str(), error, "the next save tries again");
    return error == 0;
}
