// SettingsFile.h - a settings file that processes share.
#pragma once

#include "files/Descriptor.h"
#include "settings/SettingsText.h"

#include <string>

/// A settings file in its folder. \throws std::bad_alloc from every operation
class SettingsFile {
public:
    struct Place {
        std::string folder; ///< with a separator at its end
        std::string name;
    };

    explicit SettingsFile(const Place& place);
    ~SettingsFile() { unlock(); }

    enum class Found { kText, kNothing, kBroken, kUnreadable };

    /// Reads the file into \p text, which stays as it is unless the answer is kText.
    /// Reports nothing.
    Found read(SettingsText& text);

    /// read(), and a broken file is set aside, which says a line on standard error. Needs
    /// no lock: takes it when there is something to set aside.
    Found readOrSetAside(SettingsText& text);

    /// Keeps other processes out until unlock(); makes the folder when missing.
    /// \returns 0 or an errno value
    int lock();
    void unlock();

    /// Sets a broken file aside. Under the lock only, and after read() under the same one:
    /// else it could be somebody's new file. Says so in a line on standard error.
    /// \returns whether the name is free now
    bool setAside();

    /// Replaces the file by \p text unless it holds just that.
    /// \returns false after a line on standard error
    bool write(const SettingsText& text);

    const std::string& path() const { return path_; }

    /// The reason why the last read() found the file broken or unreadable.
    int error() const { return error_; }

private:
    Found readBytes();

    std::string folder_;
    std::string path_;
    std::string bytes_; // the file's content, as read() found it
    bool found_ = false;
    int error_ = 0;
    unsigned int brokenLine_ = 0; // 0: it is no regular file, or too large
    Descriptor lock_;
};
