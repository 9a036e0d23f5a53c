#include "settings/SettingsJournal.h"

#include "files/Folders.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>

namespace {

constexpr unsigned long kMaxSize = 64u << 20; // far more than anyone sets between two saves
constexpr std::size_t kChecksumLength = 8;

/// FNV-1a, 32 bits.
std::string checksumOf(std::string_view text)
{
    std::uint32_t hash = 2166136261u;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    char digits[kChecksumLength + 1];
    std::snprintf(digits, sizeof(digits), "%08x", hash);
    return digits;
}

/// Splits a line at its tabs. \returns false if it is damaged
bool parseRecord(std::string_view line, SettingsKey& key, std::string& value)
{
    if (line.size() <= kChecksumLength || line[kChecksumLength] != '\t' ||
        checksumOf(line.substr(kChecksumLength + 1)) != line.substr(0, kChecksumLength))
        return false;
    line.remove_prefix(kChecksumLength + 1);
    const std::size_t first = line.find('\t'), second = line.rfind('\t');
    return first != second && unescapeSetting(line.substr(0, first), key.first) &&
           unescapeSetting(line.substr(first + 1, second - first - 1), key.second) &&
           unescapeSetting(line.substr(second + 1), value);
}

} // namespace

std::string SettingsJournal::record(const SettingsKey& key, std::string_view value)
{
    const std::string change =
        escapeSetting(key.first) + "\t" + escapeSetting(key.second) + "\t" + escapeSetting(value);
    return "\n" + checksumOf(change) + "\t" + change;
}

int SettingsJournal::open(int flags, LockedFile::Patience patience)
{
    const int error = file_.open(place_.journal.c_str(), flags, place_.lockMode, nullptr, patience);
    if (error != 0)
        return error;
    // A hard link could make another file grow or shrink.
    if (S_ISREG(file_.status().st_mode) && file_.status().st_nlink == 1)
        return 0;
    file_.unlock();
    return EINVAL;
}

int SettingsJournal::openToRead() { return open(O_RDONLY, LockedFile::Patience::kBounded); }

int SettingsJournal::openToFold()
{
    return open(O_RDWR | O_APPEND, LockedFile::Patience::kBounded);
}

int SettingsJournal::openToAppend(LockedFile::Patience patience)
{
    constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT;
    int error = open(kFlags, patience);
    if (error == ENOENT && (error = makeFolders(place_.folder)) == 0)
        error = open(kFlags, patience);
    return error;
}

bool SettingsJournal::isAbsent(int error)
{
    return error == ENOENT || error == ENOTDIR || error == EISDIR || error == ELOOP ||
           error == ENXIO || error == EINVAL;
}

SettingsJournal::Content SettingsJournal::read(SettingsText& text)
{
    Content content;
    if (size() > kMaxSize) {
        content.error = EFBIG;
        return content;
    }
    std::string bytes(size(), '\0');
    for (std::size_t done = 0; done < bytes.size();) {
        const ssize_t got = retried(systemCalls.read, file_.descriptor(),
                                    static_cast<void*>(&bytes[done]), bytes.size() - done);
        if (got <= 0) {
            content.error = got < 0 ? errno : EIO;
            return content;
        }
        done += static_cast<std::size_t>(got);
    }
    SettingsKey key;
    std::string value;
    for (std::string_view rest = bytes; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        if (parseRecord(rest.substr(0, end), key, value)) {
            text.set(key, value);
            content.hasChanges = true;
        } else if (end != 0) {
            content.isDamaged = true;
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return content;
}

int SettingsJournal::append(std::string_view records) noexcept
{
    if (records.size() > kMaxSize || size() > kMaxSize - records.size())
        return EFBIG;
    while (!records.empty()) {
        const ssize_t written = retried(systemCalls.write, file_.descriptor(),
                                        static_cast<const void*>(records.data()), records.size());
        if (written <= 0) {
            const int error = written < 0 ? errno : EIO;
            // Leave no incomplete line behind; where that fails too, its checksum is wrong.
            retried(systemCalls.ftruncate, file_.descriptor(), file_.status().st_size);
            return error;
        }
        records.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

int SettingsJournal::clear()
{
    const unsigned long folded = size();
    if (!file_.isLocked())
        if (const int error = file_.lockAgain())
            return error;
    if (size() != folded)
        return 0;
    return retried(systemCalls.ftruncate, file_.descriptor(), off_t(0)) == 0 ? 0 : errno;
}
