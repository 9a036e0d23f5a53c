#include "settings/SettingsFile.h"

#include "diagnostics/Report.h"
#include "files/FileTarget.h"
#include "files/Folders.h"
#include "files/ReadFile.h"
#include "files/ReplacedFile.h"

#include <fcntl.h>
#include <memory>

namespace {

// Far more than anyone stores: a larger file is something else.
constexpr unsigned int kMaxSize = 64u << 20;

std::string describe(const SettingsText::Unreadable& lines)
{
    std::string text = "line " + std::to_string(lines.first);
    if (lines.count > 1)
        text += " and " + std::to_string(lines.count - 1) + " more";
    return text + (lines.count > 1 ? " are" : " is") + " not settings text";
}

} // namespace

int SettingsFile::readBytes(const std::string& path, std::string& bytes) const
{
    ReadFile file;
    if (const int error = file.open(path.c_str()))
        return error;
    if (file.size() > kMaxSize)
        return EFBIG;
    bytes.resize(file.size());
    return file.read(bytes.data(), file.size()) ? 0 : EIO;
}

SettingsFile::Found SettingsFile::read(const std::string& path, SettingsText& text)
{
    unreadable_ = {};
    found_ = Found::kText;
    error_ = readBytes(path, bytes_);
    if (error_ == 0)
        unreadable_ = text.parse(bytes_);
    else
        found_ = error_ == ENOENT ? Found::kNothing : Found::kUnreadable;
    return found_;
}

SettingsFile::Found SettingsFile::readAndReport(const std::string& path, SettingsText& text)
{
    read(path, text);
    if (found_ == Found::kUnreadable)
        report("could not read the settings", path.c_str(), error_, "defaults apply");
    if (unreadable_.count != 0)
        report("ignored a part of the settings", path.c_str(), 0, describe(unreadable_).c_str());
    return found_;
}

bool SettingsFile::lock()
{
    const auto open = [this] {
        return lock_.open(place_.lock.c_str(), O_RDWR | O_CREAT, place_.lockMode,
                          place_.store.c_str());
    };
    int error = open();
    if (error == ENOENT && (error = makeFolders(place_.folder)) == 0)
        error = open();
    if (error == EWOULDBLOCK)
        return reportUnsaved(0, lock_.holder() + " holds the lock");
    return error == 0 || reportUnsaved(error);
}

int SettingsFile::replace(const std::string& path, const std::string& bytes) const
{
    if (bytes.size() > kMaxSize)
        return EFBIG;
    FileTarget target;
    if (const int error = target.resolve(path.c_str()))
        return error;
    if (target.exists && !S_ISREG(target.status.st_mode))
        return EINVAL;
    const std::unique_ptr<ReplacedFile> file(new ReplacedFile);
    if (const int error = file->open(path.c_str(), std::move(target), place_.mode))
        return error;
    if (!bytes.empty())
        file->write(bytes.data(), static_cast<unsigned int>(bytes.size()));
    return file->finish();
}

int SettingsFile::copyAside(std::string& copy) const
{
    constexpr int kMaxCopies = 1000;
    std::string other;
    for (int n = 0; n < kMaxCopies; ++n) {
        copy = place_.store + ".broken" + (n != 0 ? "-" + std::to_string(n) : "");
        const int error = readBytes(copy, other);
        if (error == ENOENT)
            return replace(copy, bytes_);
        if (error == 0 && other == bytes_)
            return 0; // an earlier save made it, but could not finish
    }
    return EEXIST;
}

bool SettingsFile::write(const SettingsText& text)
{
    const std::string bytes = text.bytes();
    if (found_ == Found::kText && bytes == bytes_)
        return true;
    if (unreadable_.count != 0) {
        std::string copy;
        if (const int error = copyAside(copy))
            return reportUnsaved(error, "they are damaged and could not be copied to " + copy);
        report("copied the damaged settings to", copy.c_str(), 0, describe(unreadable_).c_str());
    }
    const int error = replace(place_.store, bytes);
    return error == 0 || reportUnsaved(error);
}

bool SettingsFile::reportUnsaved(int error, const std::string& detail) const
{
    report("could not save the settings", place_.store.c_str(), error,
           ((detail.empty() ? "" : detail + "; ") + "the next save tries again").c_str());
    return false;
}
