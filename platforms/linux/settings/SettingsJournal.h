// SettingsJournal.h - Settings that were set but not saved yet.
#pragma once

#include "settings/LockedFile.h"
#include "settings/SettingsPlaces.h"
#include "settings/SettingsText.h"

#include <string>
#include <string_view>

/// A file beside the store to which every change is appended at once, so that it outlives the
/// process. Saving moves its content into the store and empties it. The processes that use a
/// store share the journal; each call to open() locks it until unlock() or destruction.
///
/// Format: a line for each change, in order: a checksum, the section, the key and the value,
///   escaped by escapeSetting() and separated by tabs. A process that dies while it appends may
///   leave an incomplete line, which its checksum reveals. Every change begins with a line feed,
///   so that it never continues such a line.
/// Replaying changes that the store already contains is harmless. A process that dies between
///   replacing the store and emptying the journal therefore loses nothing.
/// Thread safety: one thread at a time. Errors: errno values, 0 for success.
class SettingsJournal {
public:
    /// \p place must outlive this object.
    explicit SettingsJournal(const SettingsPlace& place) : place_(place) {}

    /// Returns the line that records a change. \throws std::bad_alloc
    static std::string record(const SettingsKey& key, std::string_view value);

    /// Opens the journal for read(). If the lock stays taken, the result is EWOULDBLOCK, but
    /// reading is possible.
    int openToRead();

    /// Opens the journal for read(), append() and clear().
    int openToFold();

    /// As openToFold(), but creates the journal and its folder. \throws std::bad_alloc
    int openToAppend(LockedFile::Patience patience);

    /// Returns whether an error of open...() means that there is no journal at this path, rather
    /// than one that cannot be read now.
    static bool isAbsent(int error);

    struct Content {
        int error = 0;
        bool hasChanges = false;
        bool isDamaged = false; ///< some lines were skipped
    };

    /// Applies the changes to \p text. \throws std::bad_alloc
    Content read(SettingsText& text);

    /// Appends lines made by record(), all or none.
    int append(std::string_view records) noexcept;

    /// Empties the journal after read(), unless it has grown since. Locks it if it is not.
    int clear();

    void unlock() { file_.unlock(); }

    unsigned long size() const { return static_cast<unsigned long>(file_.status().st_size); }
    ino_t identity() const { return file_.status().st_ino; }
    const std::string& path() const { return place_.journal; }
    std::string holder() const { return file_.holder(); }

private:
    int open(int flags, LockedFile::Patience patience);

    const SettingsPlace& place_;
    LockedFile file_;
};
