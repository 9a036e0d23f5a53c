// SettingsFile.h - The file in which a store is saved.
#pragma once

#include "settings/LockedFile.h"
#include "settings/SettingsPlaces.h"
#include "settings/SettingsText.h"

#include <string>

/// Reads and replaces the store's file. Every operation may throw std::bad_alloc.
/// Thread safety: one thread at a time.
class SettingsFile {
public:
    /// \p place must outlive this object.
    explicit SettingsFile(const SettingsPlace& place) : place_(place) {}

    enum class Found {
        kText,      ///< a text; lines may be missing from it
        kNothing,   ///< there is no such file
        kUnreadable ///< reading failed, or this is no file that could hold settings
    };

    /// Reads the file at \p path into the empty \p text. Reports nothing.
    Found read(const std::string& path, SettingsText& text);

    /// read(), with a report on standard error of a failure or of unreadable lines.
    Found readAndReport(const std::string& path, SettingsText& text);

    /// Returns why the last read() found the file unreadable.
    int error() const { return error_; }

    /// Keeps other processes from saving until unlock(). Creates the folder if it is missing.
    /// \returns false after a report on standard error
    bool lock();
    void unlock() { lock_.unlock(); }

    /// Replaces the store by \p text, unless it holds just that. Needs the lock, and that read()
    /// of the store came last. What read() left out is first copied to "<store>.broken", or to
    /// a name with "-1", "-2" and so on after it.
    /// \returns false after a report on standard error; the old file is then unchanged
    bool write(const SettingsText& text);

    /// Reports on standard error that saving failed. \returns false
    bool reportUnsaved(int error, const std::string& detail = {}) const;

private:
    int readBytes(const std::string& path, std::string& bytes) const;
    int replace(const std::string& path, const std::string& bytes) const;
    int copyAside(std::string& copy) const;

    const SettingsPlace& place_;
    std::string bytes_; // of the file that read() read last
    int error_ = 0;
    Found found_ = Found::kNothing;
    SettingsText::Unreadable unreadable_;
    LockedFile lock_;
};
