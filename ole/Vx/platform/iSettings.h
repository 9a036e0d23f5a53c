// platform/iSettings.h - A store of named values.
#pragma once

#include <Vx/VxFwd.h>

/// A store of values, each under a section and a key. iShell::getSettings() returns it.
///
/// Strings are bytes, usually UTF-8, and come back exactly as they were stored, embedded zeros
/// included. Two keys or sections are different if any byte is.
/// Thread safety: every operation may be called from any thread at any time.
class iSettings {
public:
    virtual ~iSettings() = default;

    /// Stores \p value under \p section and \p key, replacing the previous value. Every
    /// getValue() that follows in this process returns it. Only save() makes it permanent, but
    /// a platform should keep it when the process dies before (the reference platform does):
    /// the clean-exit marker reports a crash only if it outlives the crash.
    virtual void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                          const LightweightString<char>& section) = 0;

    /// Returns the stored value, or \p defaultValue if there is none. An empty value is a value.
    virtual LightweightString<char> getValue(const LightweightString<char>& key,
                                             const LightweightString<char>& defaultValue,
                                             const LightweightString<char>& section) = 0;

    /// Writes the store to its medium, so that it survives a power failure. A failure loses
    /// nothing: the values stay set and the next save() writes them.
    virtual void save() = 0;
};
