// Settings.h - the settings stores.
#pragma once

#include <Vx/VxPtr.h>
#include <Vx/platform/iSettings.h>

/// The store of a scope, each in a text file (see SettingsText) of its own:
///
///     0  the user's:     <user data folder>/Vx/user.ini
///     1  the machine's:  <machine settings folder>/machine.ini, if this user may write in
///        that folder, otherwise <user data folder>/Vx/machine.ini; what this user has not
///        set is then read from the machine's
///
/// The user data folder is that of Shell::getFolder(), the machine settings folder that of
/// machineSettingsFolder(). A store is read at its first use and shared by the process.
///
/// Saving writes what was set since the last save into the file as it is at that moment, so
///   that processes which save at once lose nothing of each other's: they take turns, by a
///   lock on the file "lock" in the same folder, which stays. The file is replaced whole or
///   not at all (see ReplacedFile). A failed save gives one line on standard error; what was
///   set stays set and goes with the next save.
/// A broken file is set aside as "<name>.broken", or with "-1", "-2" ... behind it, never
///   over an earlier one. One line on standard error says so, and the defaults hold.
/// Errors: memory exhaustion leaves as std::bad_alloc; what was set before stays set.
/// Threads: any. Right after fork the child has the values that were set before.
///
/// \returns an empty pointer for any other scope
Vx::Ptr<iSettings> makeSettings(int scope);
