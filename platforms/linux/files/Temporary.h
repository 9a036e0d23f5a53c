// Temporary.h - a file that is written apart and then takes a name.
#pragma once

#include "files/Descriptor.h"

#include <string>

/// The new content of a file while it is being written, in the folder where it will stand.
///
/// It has no name where the file system can do so: then nothing of it remains however the
/// process ends. To replace an existing name it needs one for a moment, between linking
/// and renaming, and from the start where there are no unnamed files. Such names are
/// ".vx-<hash of the target's name>-<user>-<slot>": short, so that targets as long as the
/// system allows have them, and few, so that the next writer of the same target finds
/// those of dead processes and removes them.
///
/// Dead or alive: a writer holds an exclusive flock() on its file from before the name
///   stands until after it is gone. Whoever gets the lock while the name still stands for
///   the locked file knows that the writer is dead and that nobody else touches the name.
///
/// Threads: one at a time. Errors: errno values, 0 for success.
class Temporary {
public:
    /// Gives up: nothing of the file stays.
    ~Temporary();

    /// Opens an empty file of its own for a later publish() under \p target. \p folder
    /// stays the caller's and open. \throws std::bad_alloc
    int create(int folder, const std::string& target, mode_t mode);

    int descriptor() const noexcept { return file_.get(); }

    /// Takes the target's name, atomically: the name stands for the old file or for the
    /// complete new one. \p replace says whether an old file is expected. A failure leaves
    /// the old one. Not made durable yet: that takes an fsync() of the folder.
    int publish(bool replace);

    /// Lets go without touching any name: for the copy that a forked child holds.
    void disown() noexcept { folder_ = -1; }

private:
    static constexpr int kSlots = 4;

    int createNamed(mode_t mode);
    int link(const char* name);
    int linkToSlot();
    void removeDead();
    void removeIfDead(const char* name);
    const char* slotName(int slot);

    int folder_ = -1;
    Descriptor file_;
    std::string target_;
    std::string slotName_; // of the slot asked for last; its last character is the digit
    int slot_ = -1;        // the slot whose name stands for our file, -1 for none
};
