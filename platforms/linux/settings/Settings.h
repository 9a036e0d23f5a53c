// Settings.h - The settings stores.
#pragma once

#include <Vx/VxPtr.h>
#include <Vx/platform/iSettings.h>

/// Returns the store of a scope, or null for any scope but these:
///
///     0  the program's settings for this user
///     1  settings that the machine's programs share
///
/// SettingsPlaces.h says where they are. A store is read at its first use and shared by the
/// process.
///
/// Setting a value records it in a journal beside the store (SettingsJournal.h) before it
///   returns, so that it outlives the process, however that ends. It does not outlive a power
///   failure: that takes a save.
/// Saving moves the journal into the store, which is replaced whole or not at all. Several
///   processes may use a store at once: they take turns, and the value that was set last
///   counts. A process sees what others have set when it saves, or when it starts.
/// A line of the store that cannot be read is reported and ignored; the next save copies the
///   file to "<store>.broken" first.
/// Errors: a value that cannot be recorded, and a failed save, are reported on standard error,
///   with the process that holds the lock if that is the reason. The value stays set, and the
///   next save tries again. Waiting for another process ends after about five seconds. Memory
///   exhaustion throws std::bad_alloc and leaves the values unchanged.
/// Thread safety: any thread. A forked child has the values that were set before.
Vx::Ptr<iSettings> makeSettings(int scope);
