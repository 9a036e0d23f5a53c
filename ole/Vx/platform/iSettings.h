// platform/iSettings.h - a store of named values.
#pragma once

#include <Vx/VxFwd.h>

/// A store of values, each under a section and a key; handed out by iShell.
///
/// Texts are bytes, UTF-8 in practice, and come back as they were stored.
class iSettings {
public:
    virtual ~iSettings() = default;

    /// Stores \p value under \p section and \p key in memory; save() makes it last.
    virtual void setValue(const LightweightString<char>& key, const LightweightString<char>& value,
                          const LightweightString<char>& section) = 0;

    /// The stored value, or \p defaultValue when none is stored.
    virtual LightweightString<char> getValue(const LightweightString<char>& key,
                                             const LightweightString<char>& defaultValue,
                                             const LightweightString<char>& section) = 0;

    /// Writes the store to its medium.
    virtual void save() = 0;
};
